#include "orvid/platform/temporary_directory.h"

#include <fstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace orvid {
namespace {

namespace fs = std::filesystem;

void fill(const fs::path& folder) {
  fs::create_directories(folder / "a" / "b");
  std::ofstream(folder / "a" / "b" / "file.bin") << "data";
  std::ofstream(folder / "top.txt") << "top";
}

TEST(TemporaryDirectoryTest, CreatesAFreshEmptyFolderUnderTheSystemTemporaryFolder) {
  TemporaryDirectory first("orvid-test");
  TemporaryDirectory second("orvid-test");
  EXPECT_TRUE(fs::is_directory(first.path()));
  EXPECT_TRUE(fs::is_empty(first.path()));
  EXPECT_NE(first.path(), second.path());
  EXPECT_EQ(first.path().parent_path(), fs::temp_directory_path());
  EXPECT_EQ(first.path().filename().string().rfind("orvid-test-", 0), 0u);
  EXPECT_EQ(first / "x.wav", first.path() / "x.wav");
  // Only the owner may enter it.
  EXPECT_EQ(fs::status(first.path()).permissions() & fs::perms::all, fs::perms::owner_all);
}

TEST(TemporaryDirectoryTest, RemovesTheFolderWithEverythingInItWhenDestroyed) {
  fs::path path;
  {
    TemporaryDirectory folder;
    path = folder.path();
    fill(path);
    ASSERT_TRUE(fs::exists(path / "a" / "b" / "file.bin"));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(TemporaryDirectoryTest, DestructionToleratesAFolderAlreadyRemoved) {
  fs::path path;
  {
    TemporaryDirectory folder;
    path = folder.path();
    fs::remove_all(path);
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(TemporaryDirectoryTest, MovingHandsOverOwnership) {
  fs::path path;
  {
    TemporaryDirectory moved;
    {
      TemporaryDirectory original;
      path = original.path();
      fill(path);
      moved = TemporaryDirectory(std::move(original));
      EXPECT_TRUE(original.path().empty());
    }
    // The moved-from object removed nothing.
    EXPECT_TRUE(fs::exists(path / "top.txt"));
    EXPECT_EQ(moved.path(), path);
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(TemporaryDirectoryTest, MoveAssignmentRemovesTheFolderItReplaces) {
  TemporaryDirectory target;
  const fs::path replaced = target.path();
  fill(replaced);
  TemporaryDirectory source;
  const fs::path kept = source.path();

  target = std::move(source);

  EXPECT_FALSE(fs::exists(replaced));
  EXPECT_TRUE(fs::is_directory(kept));
  EXPECT_EQ(target.path(), kept);
  EXPECT_TRUE(source.path().empty());
}

TEST(TemporaryDirectoryTest, ThrowsWhenTheFolderCannotBeCreated) {
  EXPECT_THROW(TemporaryDirectory("no/such/parent/prefix"), fs::filesystem_error);
}

}  // namespace
}  // namespace orvid
