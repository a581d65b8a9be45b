#pragma once

#include <filesystem>
#include <string_view>

namespace orvid {

// A fresh folder under the system's temporary directory, removed with everything
// in it when the object is destroyed. Throws std::filesystem::filesystem_error when
// the folder cannot be created.
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(std::string_view prefix = "orvid");
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  TemporaryDirectory(TemporaryDirectory&& other) noexcept;
  TemporaryDirectory& operator=(TemporaryDirectory&& other) noexcept;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& child) const { return path_ / child; }

 private:
  std::filesystem::path path_;
};

}  // namespace orvid
