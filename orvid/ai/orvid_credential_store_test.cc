#include "orvid/ai/orvid_credential_store.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "orvid/ai/file_orvid_credential_store.h"
#include "orvid/platform/temporary_directory.h"
#include "orvid/testing/scoped_environment_variable.h"
#include "orvid/testing/thrown.h"

namespace orvid {
namespace {

namespace fs = std::filesystem;

// Quotes `text` for /bin/sh.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

struct CommandResult { int exitCode = -1; std::string output; };

CommandResult run(const std::string& command) {
  CommandResult result;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return result;
  std::array<char, 4096> buffer{};
  size_t count;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.output.append(buffer.data(), count);
  const int status = ::pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string readFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::stringstream contents;
  contents << stream.rdbuf();
  return contents.str();
}

std::string helper(const fs::path& configHome, const std::string& store, const std::string& service,
                   const std::string& command, const std::string& reference = "") {
  std::string line = "ORVID_CONFIG_HOME=" + shellQuoted(configHome.string()) + " " +
                     shellQuoted(ORVID_CREDENTIAL_HELPER) + " " + store + " " + shellQuoted(service) + " " + command;
  if (!reference.empty()) line += " " + shellQuoted(reference);
  return line;
}

TEST(InMemoryOrvidCredentialStoreTest, CopiesShareTheirValuesAndConcurrentWritersAreAllKept) {
  InMemoryOrvidCredentialStore original({{"provider.a.api-key", "one"}});
  InMemoryOrvidCredentialStore copy = original;
  original.deleteCredential("provider.a.api-key");
  std::vector<std::jthread> writers;
  for (int thread = 0; thread < 8; ++thread) {
    writers.emplace_back([copy, thread]() mutable {
      for (int index = 0; index < 100; ++index) copy.writeCredential("v", "ref." + std::to_string(thread * 100 + index));
    });
  }
  writers.clear();  // joins them
  EXPECT_FALSE(copy.readCredential("provider.a.api-key"));
  EXPECT_EQ(original.credentialReferences().size(), 800u);
}

TEST(FileOrvidCredentialStoreTest, KeepsEachServicesValuesInAnOwnerOnlyFile) {
  TemporaryDirectory directory;
  const auto folder = directory.path() / "config";
  const auto file = folder / "credentials.json";
  FileOrvidCredentialStore store(file, "Brindle");
  FileOrvidCredentialStore otherService(file, "Other");

  store.writeCredential("first", "provider.a.api-key");
  store.writeCredential("second", "provider.a.api-key");
  store.writeCredential("ünï \"quoted\"\nline", "provider.b.x-secret");
  otherService.writeCredential("theirs", "provider.a.api-key");
  EXPECT_EQ(store.readCredential("provider.a.api-key"), "second");
  EXPECT_EQ(store.readCredential("provider.b.x-secret"), "ünï \"quoted\"\nline");
  EXPECT_EQ(store.credentialReferences(), (std::vector<std::string>{"provider.a.api-key", "provider.b.x-secret"}));

  store.deleteCredential("provider.a.api-key");
  EXPECT_FALSE(store.readCredential("provider.a.api-key"));
  EXPECT_EQ(otherService.readCredential("provider.a.api-key"), "theirs");

  EXPECT_EQ(fs::status(file).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2);  // with the lock file
}

TEST(FileOrvidCredentialStoreTest, DamagedFilesFailWithoutQuotingTheirContents) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "credentials.json";
  FileOrvidCredentialStore store(file, "Brindle");
  for (const auto& [contents, errorCase] :
       {std::pair{"{\"credentials\": {\"Brindle\": {\"provider.a.api-key\": \"sk-leak",
                  OrvidCredentialStoreError::Case::fileFailure},
        std::pair{"{\"credentials\": {\"Brindle\": {\"provider.a.api-key\": 42}}, \"x\": \"sk-leak\"}",
                  OrvidCredentialStoreError::Case::invalidData}}) {
    std::ofstream(file, std::ios::trunc) << contents;
    auto error = testing::thrown<OrvidCredentialStoreError>([&] { store.readCredential("provider.a.api-key"); });
    ASSERT_EQ(error.value().errorCase(), errorCase) << contents;
    EXPECT_EQ(std::string(error->what()).find("sk-leak"), std::string::npos) << error->what();
    // A damaged file is never overwritten by a write.
    EXPECT_THROW(store.writeCredential("new", "provider.b.api-key"), OrvidCredentialStoreError);
    EXPECT_EQ(readFile(file), contents);
  }
}

TEST(FileOrvidCredentialStoreTest, ValuesWrittenByOtherProcessesAtOnceAreAllKeptAndReadBack) {
  TemporaryDirectory directory;
  const auto configHome = directory.path() / "config";
  const testing::ScopedEnvironmentVariable environment("ORVID_CONFIG_HOME", configHome.string());
  const std::string value = "sk-live 'quoted' $HOME `x` \\ end";

  // Other processes write at once; this one reads, all in the configured folder. Without a bus
  // address or runtime folder the system store cannot reach the keyring and writes the file.
  constexpr int kProcesses = 8;
  std::string script = "printf '%s' " + shellQuoted(value) +
                       " | env -u DBUS_SESSION_BUS_ADDRESS -u ORVID_CREDENTIAL_STORE XDG_RUNTIME_DIR=" +
                       shellQuoted((directory.path() / "no-runtime").string()) + " " +
                       helper(configHome, "system", "Brindle", "write", "provider.a.api-key") + " & ";
  for (int index = 0; index < kProcesses; ++index) {
    script += "printf v" + std::to_string(index) + " | " +
              helper(configHome, "file", "Brindle", "write", "provider.p" + std::to_string(index) + ".api-key") + " & ";
  }
  ASSERT_EQ(run(script + "wait").exitCode, 0);
  FileOrvidCredentialStore store(FileOrvidCredentialStore::defaultFile(), "Brindle");
  EXPECT_EQ(store.readCredential("provider.a.api-key"), value);
  for (int index = 0; index < kProcesses; ++index) {
    EXPECT_EQ(store.readCredential("provider.p" + std::to_string(index) + ".api-key"), "v" + std::to_string(index));
  }

  store.writeCredential("from-test", "provider.b.api-key");
  EXPECT_EQ(run(helper(configHome, "file", "Brindle", "read", "provider.b.api-key")).output, "from-test");
  EXPECT_EQ(run(helper(configHome, "file", "Brindle", "delete", "provider.b.api-key")).exitCode, 0);
  EXPECT_FALSE(store.readCredential("provider.b.api-key"));
}

TEST(SecretServiceOrvidCredentialStoreTest, KeyringStoresAcrossProcessesInAPrivateSession) {
  if (run("command -v dbus-run-session >/dev/null && command -v gnome-keyring-daemon >/dev/null").exitCode != 0) {
    GTEST_SKIP() << "dbus-run-session or gnome-keyring-daemon is not installed";
  }
  TemporaryDirectory directory;
  const auto root = directory.path();
  for (const char* folder : {"home", "data", "config", "runtime"}) fs::create_directories(root / folder);
  fs::permissions(root / "runtime", fs::perms::owner_all, fs::perm_options::replace);

  const auto call = [&](const std::string& command, const std::string& reference = "") {
    return helper(root / "config", "keyring", "BrindleTest", command, reference);
  };
  // A private session bus with a fresh, unlocked keyring; each helper line is a separate process.
  std::string script =
      "printf test-password | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1 || exit 77\n" +
      // The daemon runs: from here on a missing keyring is a failure, not a skip.
      call("available") + " || exit 9\n" +
      "printf 'second value' | " + call("write", "provider.a.api-key") + " || exit 11\n" +
      "printf other | " + call("write", "provider.b.x-secret") + " || exit 12\n" +
      "echo \"read:$(" + call("read", "provider.a.api-key") + ")\"\n" +
      "echo list:; " + call("list") + "\n" +
      "echo \"system:$(ORVID_CONFIG_HOME=x " + shellQuoted(ORVID_CREDENTIAL_HELPER) +
      " system BrindleTest read provider.b.x-secret)\"\n" +
      call("delete", "provider.a.api-key") + " || exit 13\n" +
      call("read", "provider.a.api-key") + "; echo \"after-delete:$?\"\n";
  const std::string command = "cd " + shellQuoted(root.string()) + " && unset ORVID_CREDENTIAL_STORE && HOME=" +
                              shellQuoted((root / "home").string()) +
                              " XDG_DATA_HOME=" + shellQuoted((root / "data").string()) +
                              " XDG_RUNTIME_DIR=" + shellQuoted((root / "runtime").string()) +
                              " timeout 60 dbus-run-session -- sh -c " + shellQuoted(script) + " 2>" +
                              shellQuoted((root / "stderr.txt").string());
  const auto result = run(command);
  if (result.exitCode == 77) GTEST_SKIP() << "no keyring could be started: " << readFile(root / "stderr.txt");
  ASSERT_EQ(result.exitCode, 0) << result.output << readFile(root / "stderr.txt");
  EXPECT_EQ(result.output,
            "read:second value\n"
            "list:\nprovider.a.api-key\nprovider.b.x-secret\n"
            "system:other\n"
            "after-delete:3\n");
  EXPECT_FALSE(fs::exists(root / "config" / "credentials.json"));
}

}  // namespace
}  // namespace orvid
