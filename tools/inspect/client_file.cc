#include "tools/inspect/client_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/process/open_file.h"

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

ClientFile ReadClientFile(const std::string& path, std::size_t longest, std::size_t skipped) {
  const zo_base::OpenFile file(path, O_RDONLY);
  if (!file) return {{}, ProblemOfOpen(file.error())};
  const timespec& written = file.status().st_mtim;
  const std::int64_t written_at =
      std::int64_t{written.tv_sec} * 1'000 + written.tv_nsec / 1'000'000;
  if (static_cast<std::uint64_t>(file.status().st_size) > longest) {
    return {{}, "it is too long for a file of the library", written_at};
  }
  const auto size = static_cast<std::size_t>(file.status().st_size);
  const std::size_t begin = skipped <= size ? skipped : 0;
  std::string text(size - begin, '\0');
  const auto read = zo_base::ReadAt(file.fd(), static_cast<off_t>(begin), text.data(), text.size());
  if (!read) return {{}, CannotBeRead(errno), written_at};
  text.resize(*read);
  return {std::move(text), "", written_at};
}

}  // namespace tarvel_inspect
