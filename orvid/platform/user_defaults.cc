#include "orvid/platform/user_defaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

#include "orvid/platform/uuid.h"

namespace orvid {
namespace {

nlohmann::json readObject(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return nlohmann::json::object();
  std::stringstream buffer;
  buffer << in.rdbuf();
  auto parsed = nlohmann::json::parse(buffer.str(), nullptr, false);
  if (parsed.is_discarded() || !parsed.is_object()) return nlohmann::json::object();
  return parsed;
}

[[noreturn]] void throwErrno(const std::string& what, const std::filesystem::path& path) {
  throw std::filesystem::filesystem_error(what, path, std::error_code(errno, std::generic_category()));
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::filesystem::perms permissions) {
  auto folder = path.parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder);
  auto temporary = path;
  temporary += ".";
  temporary += UUID::random().uuidString();
  temporary += ".tmp";
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                  static_cast<mode_t>(permissions));
  if (fd < 0) throwErrno("cannot create file", temporary);
  ::fchmod(fd, static_cast<mode_t>(permissions));  // not narrowed by the umask
  std::size_t written = 0;
  while (written < contents.size()) {
    ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      int saved = errno;
      ::close(fd);
      ::unlink(temporary.c_str());
      errno = saved;
      throwErrno("cannot write file", temporary);
    }
    written += static_cast<std::size_t>(n);
  }
  // The descriptor is closed whether or not the flush worked.
  int failure = ::fsync(fd) != 0 ? errno : 0;
  if (::close(fd) != 0 && failure == 0) failure = errno;
  if (failure != 0) {
    ::unlink(temporary.c_str());
    errno = failure;
    throwErrno("cannot flush file", temporary);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    int saved = errno;
    ::unlink(temporary.c_str());
    errno = saved;
    throwErrno("cannot replace file", path);
  }
}

UserDefaults::UserDefaults(std::filesystem::path file) : file_(std::move(file)), values_(readObject(file_)) {}

UserDefaults& UserDefaults::standard() {
  static UserDefaults defaults(configDirectory() / "settings.json");
  return defaults;
}

std::filesystem::path UserDefaults::configDirectory() {
  if (const char* own = std::getenv("ORVID_CONFIG_HOME"); own && *own) return own;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) return std::filesystem::path(xdg) / "orvid";
  const char* home = std::getenv("HOME");
  return std::filesystem::path(home && *home ? home : ".") / ".config" / "orvid";
}

std::optional<nlohmann::json> UserDefaults::value(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = values_.find(key);
  if (it == values_.end()) return std::nullopt;
  return *it;
}

std::optional<std::string> UserDefaults::string(const std::string& key) const {
  auto v = value(key);
  if (!v || !v->is_string()) return std::nullopt;
  return v->get<std::string>();
}

std::optional<bool> UserDefaults::boolean(const std::string& key) const {
  auto v = value(key);
  if (!v) return std::nullopt;
  return booleanValue(*v);
}

std::optional<bool> UserDefaults::booleanValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_integer()) return value.get<long long>() != 0;
  if (value.is_number_float()) return value.get<double>() != 0;
  if (!value.is_string()) return std::nullopt;
  const auto& text = value.get_ref<const std::string&>();
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i == text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

nlohmann::json UserDefaults::dictionary() const {
  std::lock_guard lock(mutex_);
  return values_;
}

void UserDefaults::set(const std::string& key, nlohmann::json value) {
  std::lock_guard lock(mutex_);
  auto updated = values_;
  updated[key] = std::move(value);
  writeLocked(updated);
  values_ = std::move(updated);
}

void UserDefaults::remove(const std::string& key) {
  std::lock_guard lock(mutex_);
  if (!values_.contains(key)) return;
  auto updated = values_;
  updated.erase(key);
  writeLocked(updated);
  values_ = std::move(updated);
}

void UserDefaults::reload() {
  auto fresh = readObject(file_);
  std::lock_guard lock(mutex_);
  values_ = std::move(fresh);
}

void UserDefaults::writeLocked(const nlohmann::json& values) const {
  writeFileAtomically(file_, values.dump(2) + "\n");
}

}  // namespace orvid
