#include "orvid/platform/temporary_directory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

namespace orvid {

TemporaryDirectory::TemporaryDirectory(std::string_view prefix) {
  std::string pattern = (std::filesystem::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (::mkdtemp(buffer.data()) == nullptr) {
    throw std::filesystem::filesystem_error("cannot create temporary folder", pattern,
                                            std::error_code(errno, std::generic_category()));
  }
  path_ = buffer.data();
}

TemporaryDirectory::~TemporaryDirectory() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

TemporaryDirectory::TemporaryDirectory(TemporaryDirectory&& other) noexcept : path_(std::move(other.path_)) {
  other.path_.clear();
}

TemporaryDirectory& TemporaryDirectory::operator=(TemporaryDirectory&& other) noexcept {
  if (this != &other) {
    if (!path_.empty()) {
      std::error_code ignored;
      std::filesystem::remove_all(path_, ignored);
    }
    path_ = std::move(other.path_);
    other.path_.clear();
  }
  return *this;
}

}  // namespace orvid
