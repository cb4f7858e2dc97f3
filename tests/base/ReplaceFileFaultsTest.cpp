#include <NODOCore/base/Files.h>
#include <testing/TemporaryFolder.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace nodo {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// A call of the kernel; of those that differ by a flag in their fourth argument, the one with it.
struct SystemCall {
  std::uint32_t number;
  std::uint32_t flag = 0;
};

// What the C library calls for readlink and mkdir.
#ifdef SYS_mkdir
constexpr SystemCall readingALink{SYS_readlink};
constexpr SystemCall makingAFolder{SYS_mkdir};
#else
constexpr SystemCall readingALink{SYS_readlinkat};
constexpr SystemCall makingAFolder{SYS_mkdirat};
#endif

// From now on this process's `calls` fail with `error`, and nothing can undo that.
void letFail(const std::vector<SystemCall>& calls, int error) {
  constexpr std::uint32_t flags = offsetof(seccomp_data, args) + 3 * sizeof(std::uint64_t);
  const sock_filter fail = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | std::uint32_t(error));
  std::vector<sock_filter> filter;
  for (const SystemCall& call : calls) {
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    if (call.flag == 0) {
      filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 1));
    } else {
      filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 3));
      filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, flags));
      filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, call.flag, 0, 1));
    }
    filter.push_back(fail);
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    throwErrno("Unable to let fail", "a call");
  }
}

class ReplaceFileFaultsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.write("file", "old");
    fs::permissions(folder / "file", fs::perms(0600));
    fs::create_symlink("file", folder / "link");
    hasAttribute = ::setxattr((folder / "file").c_str(), "user.mine", "x", 1, 0) == 0;
  }

  // What `save` says of its failure, in a process in which `calls` fail; nothing where it has none.
  static std::string complaint(const std::vector<SystemCall>& calls, int error,
                               const std::function<void()>& save) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
      std::string text;
      try {
        letFail(calls, error);
        save();
      } catch (const std::exception& failure) {
        text = failure.what();
      }
      ::_exit(::write(writer.get(), text.data(), text.size()) < 0 ? 1 : 0);
    }
    writer.reset();
    std::string text = readToEnd(reader, "the complaint");
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return text;
  }

  void expectNothingChanged() const {
    EXPECT_EQ(folder.read("file"), "old");
    EXPECT_EQ(fs::status(folder / "file").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::read_symlink(folder / "link"), "file");
    EXPECT_THAT(folder.names(), ElementsAre("file", "link"));
  }

  void expectRefusal(const std::vector<SystemCall>& calls, const std::string& action) const {
    const std::string text = complaint(calls, EIO, [this] { replaceFile(folder / "file", "new"); });
    EXPECT_EQ(text, action + " " + (folder / "file").string() +
                        " (it is as it was; see to the cause and try again): Input/output error");
    expectNothingChanged();
  }

  TemporaryFolder folder;
  bool hasAttribute = false;
};

TEST_F(ReplaceFileFaultsTest, AFileThatCannotBeLookedAtIsNotTakenForAMissingOne) {
  expectRefusal({{SYS_newfstatat, AT_SYMLINK_NOFOLLOW}}, "Unable to look at");
}

TEST_F(ReplaceFileFaultsTest, ATemporaryFileThatCannotBeLookedAtIsRemoved) {
  expectRefusal({{SYS_newfstatat, AT_EMPTY_PATH}, {SYS_fstat}}, "Unable to write");
}

TEST_F(ReplaceFileFaultsTest, WhatCannotBeSyncedIsNotPutInPlace) {
  expectRefusal({{SYS_fsync}}, "Unable to write");
}

TEST_F(ReplaceFileFaultsTest, ListsAndAttributesThatCannotBeReadOrGivenAreNotLost) {
  const char* const action = "Unable to keep the permissions and attributes of";
  expectRefusal({{SYS_lgetxattr}}, action);
  expectRefusal({{SYS_llistxattr}}, action);
  expectRefusal({{SYS_fchmod}}, action);
  if (hasAttribute) {
    expectRefusal({{SYS_fsetxattr}}, action);
  }
}

TEST_F(ReplaceFileFaultsTest, AFileSystemWithoutAttributesHasNoneToKeep) {
  EXPECT_EQ(complaint({{SYS_lgetxattr}, {SYS_llistxattr}}, ENOTSUP,
                      [this] { replaceFile(folder / "file", "new"); }),
            "");
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(fs::status(folder / "file").permissions(), fs::perms(0600));
}

TEST_F(ReplaceFileFaultsTest, AnOwnerWhomTheDiskRefusesIsNotLost) {
  if (::geteuid() != 0 || ::chown((folder / "file").c_str(), 12345, 23456) != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  expectRefusal({{SYS_fchown}}, "Unable to keep the owner of");
}

TEST_F(ReplaceFileFaultsTest, ALinkThatCannotBeFollowedIsNotReplaced) {
  const std::string text = complaint({readingALink}, EIO, [this] {
    updateFileThroughLinks(folder / "link", [](const FileContent&) { return "new"; });
  });
  EXPECT_THAT(text, HasSubstr("Unable to follow the links at " + (folder / "link").string()));
  expectNothingChanged();
}

TEST_F(ReplaceFileFaultsTest, FilesThatCannotBeLockedAreNotTakenForAbandonedOnes) {
  folder.write(".file.nodo-tmp-0123456789abcdef", "somebody's");
  EXPECT_EQ(complaint({{SYS_flock}}, ENOLCK, [this] { replaceFile(folder / "file", "new"); }), "");
  EXPECT_EQ(folder.read("file"), "new");
  EXPECT_EQ(folder.read(".file.nodo-tmp-0123456789abcdef"), "somebody's");
}

TEST_F(ReplaceFileFaultsTest, AFolderThatCannotBeLookedAtIsNotTakenForAMissingOne) {
  const fs::path inner = folder / "one/two";
  EXPECT_EQ(complaint({makingAFolder}, EIO, [&] { makeFolder(inner); }),
            "Unable to make the folder " + (folder / "one").string() + ": Input/output error");
  EXPECT_EQ(complaint({{SYS_newfstatat}}, EACCES, [&] { makeFolder(inner); }),
            "Unable to make the folder " + inner.string() + ": Permission denied");
}

}  // namespace
}  // namespace nodo
