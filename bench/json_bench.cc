#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "base/json/json11.h"

namespace tarvel_bench {
namespace {

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string HostList(const std::string& network, int count) {
  std::string list;
  for (int i = 1; i <= count; ++i) {
    list += (list.empty() ? "" : ", ") + Quoted(network + std::to_string(i) + ":8443");
  }
  return "[" + list + "]";
}

// A server's answer about the hosts to use, 2 KiB: mostly short strings in small lists.
const std::string& Answer() {
  static const std::string text = [] {
    std::string report;
    for (const char* event : {"connect", "request", "resolve", "upload", "download", "switch"}) {
      report += (report.empty() ? "" : ", ") + Quoted(event) +
                R"(: {"enabled": true, "ratio": 100, "interval": 60, "url": )" +
                Quoted(std::string("https://report.example.net/v2/") + event) + "}";
    }
    return R"({"code": 200, "common": {"lbs": "https://lbs.example.net/v1/config", "lbs.backup": )" +
           HostList("198.51.100.", 8) + R"(, "link": )" + HostList("192.0.2.", 42) +
           R"(, "link.default": )" + HostList("203.0.113.", 12) + R"(, "report": {)" + report +
           R"(}, "ttl": 7200, "zebdls": false}, "message": "\u6210\u529f"})";
  }();
  return text;
}

// A list of records, 200 KiB: many small objects of strings, integers and doubles.
const std::string& Records() {
  static const std::string text = [] {
    constexpr std::size_t kSize = 200 * 1024;
    std::string list;
    for (int id = 0; list.size() < kSize; ++id) {
      const std::string number = std::to_string(id);
      list += (list.empty() ? "" : ", ") +
              (R"({"active": true, "city": "New \"York\"", "id": )" + number +
               R"(, "name": "user number )" + number + R"(", "path": "/records/)" + number +
               R"(", "score": )" + std::to_string(id % 977) + (id % 2 == 0 ? ".25" : ".7") +
               R"(, "visits": )" + std::to_string(id * 37 % 100'000) + "}");
    }
    return "[" + list + "]";
  }();
  return text;
}

// Each library keeps a whole document; its destruction is part of a parse.

struct TarvelJson {
  using Document = zo_base::json11::Json;
  static Document Parse(const std::string& text) {
    std::string error;
    Document document = Document::parse(text, error);
    if (!error.empty()) std::abort();
    return document;
  }
  static std::string Dump(const Document& document) { return document.dump(); }
};

struct NlohmannJson {
  using Document = nlohmann::json;
  static Document Parse(const std::string& text) { return Document::parse(text); }
  static std::string Dump(const Document& document) { return document.dump(); }
};

struct RapidJson {
  using Document = rapidjson::Document;
  static Document Parse(const std::string& text) {
    Document document;
    document.Parse(text.data(), text.size());
    if (document.HasParseError()) std::abort();
    return document;
  }
  static std::string Dump(const Document& document) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
  }
};

// Bytes of JSON parsed per second.
template <class Library, const std::string& (*kText)()>
void BM_Parse(benchmark::State& state) {
  const std::string& text = kText();
  for (auto _ : state) {
    auto document = Library::Parse(text);
    benchmark::DoNotOptimize(document);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

// Bytes of JSON written per second, counted by the parsed text for all contenders, although some
// leave the blanks out.
template <class Library, const std::string& (*kText)()>
void BM_Dump(benchmark::State& state) {
  const std::string& text = kText();
  const auto document = Library::Parse(text);
  for (auto _ : state) benchmark::DoNotOptimize(Library::Dump(document));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

BENCHMARK_TEMPLATE(BM_Parse, TarvelJson, Answer);
BENCHMARK_TEMPLATE(BM_Parse, NlohmannJson, Answer);
BENCHMARK_TEMPLATE(BM_Parse, RapidJson, Answer);
BENCHMARK_TEMPLATE(BM_Parse, TarvelJson, Records);
BENCHMARK_TEMPLATE(BM_Parse, NlohmannJson, Records);
BENCHMARK_TEMPLATE(BM_Parse, RapidJson, Records);

BENCHMARK_TEMPLATE(BM_Dump, TarvelJson, Answer);
BENCHMARK_TEMPLATE(BM_Dump, NlohmannJson, Answer);
BENCHMARK_TEMPLATE(BM_Dump, RapidJson, Answer);
BENCHMARK_TEMPLATE(BM_Dump, TarvelJson, Records);
BENCHMARK_TEMPLATE(BM_Dump, NlohmannJson, Records);
BENCHMARK_TEMPLATE(BM_Dump, RapidJson, Records);

}  // namespace
}  // namespace tarvel_bench
