#include <NODOCore/base/Files.h>
#include <testing/TemporaryFolder.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/xattr.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;

constexpr const char* ownList = "system.posix_acl_access";
constexpr const char* listForNewFiles = "system.posix_acl_default";

// An access-control list as the kernel stores it, in which the owner and one other user may read
// and write, as far as `mask` allows, and the owning group and everybody else may not.
std::string accessControlList(std::uint32_t user, char mask = 6) {
  std::string list{2, 0, 0, 0};  // its version
  const auto entry = [&list](char tag, char rights, std::uint32_t who) {
    list += std::string{tag, 0, rights, 0};
    for (int shift = 0; shift < 32; shift += 8) {
      list += static_cast<char>(who >> static_cast<unsigned>(shift) & 0xFFU);
    }
  };
  constexpr std::uint32_t nobody = 0xFFFFFFFF;
  entry(0x01, 6, nobody);
  entry(0x02, 6, user);
  entry(0x04, 0, nobody);
  entry(0x10, mask, nobody);
  entry(0x20, 0, nobody);
  return list;
}

class ReplaceFileAttributesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.write("file", "old");
    if (!setAttribute("file", "user.nodo-test", "kept") ||
        !setAttribute("file", ownList, accessControlList(12345))) {
      GTEST_SKIP() << "this file system has no extended attributes or access-control lists";
    }
  }

  bool setAttribute(const char* name, const char* attribute, std::string_view value) const {
    return ::setxattr((folder / name).c_str(), attribute, value.data(), value.size(), 0) == 0;
  }

  std::optional<std::string> attributeOf(const char* name, const char* attribute) const {
    std::string value(1000, ' ');
    const ssize_t size = ::getxattr((folder / name).c_str(), attribute, value.data(), value.size());
    if (size < 0) {
      return std::nullopt;
    }
    return value.substr(0, static_cast<std::size_t>(size));
  }

  unsigned modeOf(const char* name) const {
    return static_cast<unsigned>(fs::status(folder / name).permissions());
  }

  test::TemporaryFolder folder;
};

TEST_F(ReplaceFileAttributesTest, AccessControlListAndAttributesStay) {
  // Longer than any guess at a size, and not a text.
  const std::string large = std::string(2000, '\0') + "end";
  ASSERT_TRUE(setAttribute("file", "user.large", large));
  ASSERT_TRUE(setAttribute("file", "user.empty", ""));
  replaceFile(folder / "file", "new");
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(attributeOf("file", ownList), accessControlList(12345));
  EXPECT_EQ(modeOf("file"), 0660U);
  EXPECT_EQ(attributeOf("file", "user.nodo-test"), "kept");
  EXPECT_EQ(attributeOf("file", "user.empty"), "");
  EXPECT_EQ(::getxattr((folder / "file").c_str(), "user.large", nullptr, 0),
            static_cast<ssize_t>(large.size()));
}

TEST_F(ReplaceFileAttributesTest, TheyStayBehindLinksToo) {
  fs::create_symlink("file", folder / "link");
  EXPECT_TRUE(updateFileThroughLinks(folder / "link", [](const FileContent&) { return "new"; }));
  EXPECT_EQ(attributeOf("file", ownList), accessControlList(12345));
  EXPECT_EQ(attributeOf("file", "user.nodo-test"), "kept");
}

TEST_F(ReplaceFileAttributesTest, AMaskStaysAsNarrowAsItWas) {
  ASSERT_TRUE(setAttribute("file", ownList, accessControlList(12345, 4)));
  replaceFile(folder / "file", "new");
  EXPECT_EQ(attributeOf("file", ownList), accessControlList(12345, 4));
  EXPECT_EQ(modeOf("file"), 0640U);
}

TEST_F(ReplaceFileAttributesTest, AFileWithoutAListGetsNoneFromItsFolder) {
  folder.write("shared/file", "old");
  fs::permissions(folder / "shared/file", fs::perms(0660));
  ASSERT_TRUE(setAttribute("shared", listForNewFiles, accessControlList(12345)));
  ASSERT_EQ(attributeOf("shared/file", ownList), std::nullopt);
  replaceFile(folder / "shared/file", "new");
  EXPECT_EQ(attributeOf("shared/file", ownList), std::nullopt);
  EXPECT_EQ(modeOf("shared/file"), 0660U);
}

TEST_F(ReplaceFileAttributesTest, ANewFileGetsTheListOfItsFolder) {
  fs::create_directory(folder / "shared");
  ASSERT_TRUE(setAttribute("shared", listForNewFiles, accessControlList(12345)));
  replaceFile(folder / "shared/file", "new");
  EXPECT_TRUE(attributeOf("shared/file", ownList).has_value());
}

}  // namespace
}  // namespace nodo
