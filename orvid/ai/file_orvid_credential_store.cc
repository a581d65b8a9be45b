#include "orvid/ai/file_orvid_credential_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "orvid/platform/user_defaults.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;

// Holds an advisory lock on "<file>.lock" for the lifetime of the object.
class FileLock {
 public:
  FileLock(const fs::path& file, bool exclusive) {
    const auto lockPath = file.string() + ".lock";
    descriptor_ = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor_ < 0) fail("cannot open " + lockPath);
    int result;
    do {
      result = ::flock(descriptor_, exclusive ? LOCK_EX : LOCK_SH);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
      const auto error = errno;
      ::close(descriptor_);
      errno = error;
      fail("cannot lock " + lockPath);
    }
  }
  ~FileLock() { ::close(descriptor_); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  [[noreturn]] static void fail(const std::string& what) {
    throw OrvidCredentialStoreError::fileFailure(what + " (" + std::strerror(errno) + ")");
  }
  int descriptor_ = -1;
};

// Creates the file's folder, owner-only, when it is missing.
void prepareFolder(const fs::path& file) {
  const auto folder = file.parent_path();
  if (folder.empty()) return;
  std::error_code error;
  if (fs::exists(folder, error)) return;
  fs::create_directories(folder, error);
  if (error) throw OrvidCredentialStoreError::fileFailure("cannot create " + folder.string() + " (" + error.message() + ")");
  fs::permissions(folder, fs::perms::owner_all, fs::perm_options::replace, error);
}

// The whole document; an absent file is an empty document.
nlohmann::json readDocument(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    std::error_code error;
    if (!fs::exists(file, error)) return nlohmann::json::object();
    throw OrvidCredentialStoreError::fileFailure("cannot read " + file.string());
  }
  std::stringstream contents;
  contents << stream.rdbuf();
  // The parser's own message may quote the file's bytes, which are secrets.
  auto document = nlohmann::json::parse(contents.str(), nullptr, false);
  if (document.is_discarded() || !document.is_object()) {
    throw OrvidCredentialStoreError::fileFailure(file.string() + " is not a credentials file");
  }
  return document;
}

// The references and values of `service`; throws invalidData for a malformed entry.
std::map<std::string, std::string> serviceValues(const nlohmann::json& document, const std::string& service) {
  std::map<std::string, std::string> values;
  auto credentials = document.find("credentials");
  if (credentials == document.end()) return values;
  if (!credentials->is_object()) throw OrvidCredentialStoreError::invalidData();
  auto entries = credentials->find(service);
  if (entries == credentials->end()) return values;
  if (!entries->is_object()) throw OrvidCredentialStoreError::invalidData();
  for (const auto& [reference, value] : entries->items()) {
    if (!value.is_string()) throw OrvidCredentialStoreError::invalidData();
    values.emplace(reference, value.get<std::string>());
  }
  return values;
}

void writeDocument(const fs::path& file, const nlohmann::json& document) {
  std::string contents;
  try {
    contents = document.dump(2) + "\n";
  } catch (const nlohmann::json::type_error&) {
    // A reference or value that is not UTF-8 text; the error's own message would quote it.
    throw OrvidCredentialStoreError::invalidData();
  }
  try {
    writeFileAtomically(file, contents, fs::perms::owner_read | fs::perms::owner_write);
  } catch (const fs::filesystem_error& error) {
    throw OrvidCredentialStoreError::fileFailure("cannot write " + file.string() + " (" + error.code().message() + ")");
  }
}

}  // namespace

FileOrvidCredentialStore::FileOrvidCredentialStore(fs::path file, std::string service)
    : file_(std::move(file)), service_(std::move(service)) {}

fs::path FileOrvidCredentialStore::defaultFile() { return UserDefaults::configDirectory() / "credentials.json"; }

std::optional<std::string> FileOrvidCredentialStore::readCredential(const std::string& reference) const {
  std::error_code error;
  if (!fs::exists(file_, error)) return std::nullopt;
  FileLock lock(file_, false);
  const auto values = serviceValues(readDocument(file_), service_);
  auto it = values.find(reference);
  if (it == values.end()) return std::nullopt;
  return it->second;
}

void FileOrvidCredentialStore::writeCredential(const std::string& value, const std::string& reference) {
  prepareFolder(file_);
  FileLock lock(file_, true);
  auto document = readDocument(file_);
  serviceValues(document, service_);
  document["credentials"][service_][reference] = value;
  writeDocument(file_, document);
}

void FileOrvidCredentialStore::deleteCredential(const std::string& reference) {
  std::error_code error;
  if (!fs::exists(file_, error)) return;
  FileLock lock(file_, true);
  auto document = readDocument(file_);
  if (serviceValues(document, service_).count(reference) == 0) return;
  auto& entries = document["credentials"][service_];
  entries.erase(reference);
  if (entries.empty()) document["credentials"].erase(service_);
  writeDocument(file_, document);
}

std::vector<std::string> FileOrvidCredentialStore::credentialReferences() const {
  std::error_code error;
  if (!fs::exists(file_, error)) return {};
  FileLock lock(file_, false);
  std::vector<std::string> references;
  for (const auto& entry : serviceValues(readDocument(file_), service_)) references.push_back(entry.first);
  return references;
}

}  // namespace orvid
