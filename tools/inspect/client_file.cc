#include "tools/inspect/client_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/process/open_file.h"
#include "tools/inspect/moments.h"

namespace tarvel_inspect {
namespace {

std::string CannotBeRead(int error) {
  return "it can't be read: " + std::generic_category().message(error);
}

std::string ProblemOfOpen(int error) {
  if (error == ENOENT) return "";
  return error == 0 || error == ELOOP ? "it is no regular file, so the library doesn't read it"
                                      : CannotBeRead(error);
}

}  // namespace

bool MayExist(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

ClientFile ReadClientFile(const std::string& path, std::size_t longest) {
  const zo_base::OpenFile file(path, O_RDONLY);
  if (!file) return {{}, ProblemOfOpen(file.error())};
  const std::int64_t written_at = MomentOf(file.status().st_mtim);
  if (static_cast<std::uint64_t>(file.status().st_size) > longest) {
    return {{}, "it is too long for a file of the library", written_at};
  }
  std::string text(static_cast<std::size_t>(file.status().st_size), '\0');
  const auto read = zo_base::ReadAt(file.fd(), 0, text.data(), text.size());
  if (!read) return {{}, CannotBeRead(errno), written_at};
  text.resize(*read);
  return {std::move(text), "", written_at};
}

}  // namespace tarvel_inspect
