// A cache file with any bytes. The store reads the same values as nlohmann::json, or none; it saves
// and loads back what it has read; and the LBS service always starts with a usable answer.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "base/file/cached_key_value_file.h"
#include "business/tarvel_lbs/lbs_response.h"

namespace {

using namespace zo_tarvel;
using nlohmann::json;
using Texts = std::map<std::string, std::string>;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

// A directory of this process, in memory where there is one: a save waits for the disk.
struct Directory {
  Directory() {
    const bool in_memory = access("/dev/shm", W_OK) == 0;
    path = in_memory ? "/dev/shm" : std::filesystem::temp_directory_path();
    path /= "tarvel-fuzz-" + std::to_string(getpid());
  }
  ~Directory() { std::filesystem::remove_all(path); }

  std::filesystem::path path;
};

std::shared_ptr<_EnvironmentConfig> Config() {
  static const Directory directory;
  static const auto config = [] {
    _ZOTarvelEnvironmentSettings settings;
    const std::string path = directory.path;
    path.copy(settings.appdata_path, sizeof settings.appdata_path);
    auto loaded = std::make_shared<_EnvironmentConfig>();
    loaded->Load(settings);
    std::filesystem::create_directories(loaded->appdata_path() + "lbs");
    return loaded;
  }();
  return config;
}

std::string Path() { return Config()->appdata_path() + "lbs/lbs.data"; }

void Write(const std::string& text) { std::ofstream(Path(), std::ios::binary) << text; }

// The values that nlohmann::json finds; nullopt unless the file is a flat object of strings. A NUL
// ends the text for nlohmann::json, but is an error for the store.
Texts ReadByDom(const std::string& text) {
  if (text.find('\0') != std::string::npos) return {};
  bool flat = true;
  const auto look = [&](int depth, json::parse_event_t event, const json& value) {
    const bool at_key = event == json::parse_event_t::key;
    const bool at_end = depth == 0 && event == json::parse_event_t::object_end;
    const bool at_begin = depth == 0 && event == json::parse_event_t::object_start;
    flat = flat && (at_key || at_end || at_begin || (depth == 1 && value.is_string()));
    return true;
  };
  const json object = json::parse(text, look, false);
  return flat && object.is_object() ? object.get<Texts>() : Texts();
}

void CheckStore(const std::string& text) {
  constexpr char kNew[] = "set after the load";
  const Texts expected = ReadByDom(text);
  zo_base::CachedKeyValueFile store;
  store.Load(Path());
  for (const auto& [key, value] : expected) {
    Require(store.Has(key) && store.Get(key, value + "x") == value, "the same entry");
  }
  store.Set(kNew, "");
  Require(store.Save(), "what came from a file goes to a file");
  Require(store.FileSize() == std::filesystem::file_size(Path()), "its length is known before");
  std::ifstream in(Path(), std::ios::binary);
  Texts all = expected;
  all[kNew] = "";
  Require(ReadByDom({std::istreambuf_iterator<char>(in), {}}) == all, "the file has the entries");
}

void CheckFilter(const std::string& text) {
  const auto is_kept = [](const std::string& key, const std::string&) { return key.size() < 2; };
  Texts kept = ReadByDom(text);
  std::erase_if(kept, [&](const auto& entry) { return !is_kept(entry.first, entry.second); });
  zo_base::CachedKeyValueFile store(is_kept);
  store.Load(Path());
  const auto entries = store.Entries();
  Require(Texts(entries.begin(), entries.end()) == kept, "the entries that are of use");
}

void CheckStart() {
  LBSSettings settings;
  settings.lbs_main_addr = "https://main";
  settings.link_list = {"a:1"};
  std::string first;
  for (int start = 0; start < 2; ++start) {
    LBSResponse response;
    response.SetEnvironmentConfig(Config());
    Require(response.Init(settings), "a start succeeds");
    const std::string rsp = response.store.Get(lbs_key::kRsp);
    std::string error;
    Require(response.CheckResponse(rsp, error), "the answer is usable");
    if (start == 0) first = rsp;
    Require(rsp == first, "the next start finds the same answer");
  }
}

}  // namespace

// The first byte says whether the rest is the file or the answer in an otherwise good one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if ((data[0] & 1) != 0) {
    const json file{{"lbs_rsp", text}, {"root_lbs_addr", "https://main"}, {"runntime_lbs", "u"}};
    text = file.dump(-1, ' ', false, json::error_handler_t::replace);
  }
  Write(text);
  CheckFilter(text);
  CheckStore(text);
  Write(text);
  CheckStart();
  return 0;
}
