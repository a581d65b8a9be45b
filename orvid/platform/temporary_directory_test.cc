#include "orvid/platform/temporary_directory.h"

#include <fstream>
#include <utility>

#include <gtest/gtest.h>

namespace orvid {
namespace {

namespace fs = std::filesystem;

void fill(const fs::path& folder) {
  fs::create_directories(folder / "a" / "b");
  std::ofstream(folder / "a" / "b" / "file.bin") << "data";
}

TEST(TemporaryDirectoryTest, MakesAFreshPrivateFolderAndRemovesItWithEverythingInIt) {
  fs::path path;
  {
    TemporaryDirectory folder("orvid-test");
    TemporaryDirectory other("orvid-test");
    path = folder.path();
    EXPECT_TRUE(fs::is_empty(path));
    EXPECT_NE(path, other.path());
    EXPECT_EQ(path.parent_path(), fs::temp_directory_path());
    EXPECT_TRUE(path.filename().string().starts_with("orvid-test-"));
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::all, fs::perms::owner_all);
    fill(path);
    fs::remove_all(other.path());  // removing an already removed folder is no error
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_THROW(TemporaryDirectory("no/such/parent/prefix"), fs::filesystem_error);
}

TEST(TemporaryDirectoryTest, MovingHandsOverOwnershipAndAssignmentRemovesTheReplacedFolder) {
  TemporaryDirectory target;
  const fs::path replaced = target.path();
  fill(replaced);
  fs::path kept;
  {
    TemporaryDirectory original;
    kept = original.path();
    fill(kept);
    TemporaryDirectory moved(std::move(original));
    EXPECT_TRUE(original.path().empty());
    target = std::move(moved);
    EXPECT_TRUE(moved.path().empty());
  }
  // The moved-from objects removed nothing; the replaced folder is gone.
  EXPECT_TRUE(fs::exists(kept / "a" / "b" / "file.bin"));
  EXPECT_EQ(target.path(), kept);
  EXPECT_FALSE(fs::exists(replaced));
}

}  // namespace
}  // namespace orvid
