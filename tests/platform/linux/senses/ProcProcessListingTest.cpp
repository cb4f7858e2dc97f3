#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/AgentDetector.h>
#include <platform/linux/senses/ProcProcessListing.h>
#include <testing/TemporaryFolder.h>
#include <testing/TestData.h>
#include <testing/UnprivilegedUser.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nodo {
namespace {

using namespace std::string_literals;

// A /proc that a test writes.
class ProcProcessListingTest : public ::testing::Test {
 protected:
  void addProcess(int pid, int ppid, const std::string& name, const std::string& cmdline) const {
    const std::string folderName = std::to_string(pid);
    proc.write(folderName + "/stat", std::to_string(pid) + " (" + name + ") S " +
                                         std::to_string(ppid) + " 1 1 0 -1 4194560 100\n");
    proc.write(folderName + "/cmdline", cmdline);
  }

  std::vector<RunningProcess> list() const {
    return ProcProcessListing(proc.path()).listProcesses();
  }

  test::TemporaryFolder proc;
};

constexpr std::size_t mostOfAText = BoundedRows::mostBytesOfAText;

std::string joinedWithNULs(const std::vector<std::string>& words) {
  std::string cmdline;
  for (const std::string& word : words) {
    cmdline += word + '\0';
  }
  return cmdline;
}

TEST_F(ProcProcessListingTest, AnAgeCountsFromTheTickOfTheStart) {
  const auto ticks = [](double seconds) {
    return std::to_string(static_cast<long>(seconds * static_cast<double>(::sysconf(_SC_CLK_TCK))));
  };
  proc.write("8/stat", "8 (a) b) S 1 8 8 0 -1 4194560 1 2 3 4 5 6 7 8 20 0 1 0 " + ticks(100) +
                           " 12345 678\n");
  EXPECT_EQ(ageOfOwnProcess(8, Seconds(160), proc.path()), Seconds(60));
  proc.write("9/stat", "9 (short) S 1 8 8 0 -1 4194560\n");
  EXPECT_EQ(ageOfOwnProcess(9, Seconds(160), proc.path()), std::nullopt);
  EXPECT_EQ(ageOfOwnProcess(10, Seconds(160), proc.path()), std::nullopt);
}

TEST_F(ProcProcessListingTest, ProcessorTimesHaveThoseOfEndedChildren) {
  const double second = static_cast<double>(::sysconf(_SC_CLK_TCK));
  proc.write("8/stat", "8 (a) b) S 1 8 8 0 -1 4194560 10 20 30 40 5 6 7 8 20 0 1 0 99 12345 678\n");
  proc.write("9/stat", "9 (short) S 1 8 8 0 -1 4194560\n");
  EXPECT_EQ(ProcProcessListing(proc.path()).processorTimes({8, 9, 10}),
            (std::map<std::int32_t, Seconds>{{8, Seconds(26 / second)}, {9, Seconds(0)}}));
  EXPECT_TRUE(ProcProcessListing().processorTimes({::getpid()}).contains(::getpid()));
}

TEST_F(ProcProcessListingTest, AnotherUsersProcessHasNoAge) {
  const auto age = ageOfOwnProcess(::getpid(), runningTime());
  ASSERT_TRUE(age);
  EXPECT_GE(*age, Seconds(0));
  EXPECT_LT(*age, Seconds(3600));
  if (::geteuid() != 0) {
    EXPECT_EQ(ageOfOwnProcess(1, runningTime()), std::nullopt);
    return;
  }
  const test::UnprivilegedUser user;
  EXPECT_EQ(ageOfOwnProcess(1, runningTime()), std::nullopt);
}

TEST_F(ProcProcessListingTest, NamesAProcessAfterItsFirstWord) {
  addProcess(42, 7, "node", joinedWithNULs({"/usr/bin/node", "cli.js", "--resume"}));
  EXPECT_EQ(list(), (std::vector<RunningProcess>{{.pid = 42,
                                                  .ppid = 7,
                                                  .executable = "/usr/bin/node",
                                                  .command = "/usr/bin/node cli.js --resume"}}));
}

TEST_F(ProcProcessListingTest, NamesAProcessWithoutCommandLineAsTheKernelDoes) {
  addProcess(2, 0, "kthreadd", "");
  EXPECT_EQ(list(), (std::vector<RunningProcess>{
                        {.pid = 2, .ppid = 0, .executable = "kthreadd", .command = "kthreadd"}}));
}

TEST_F(ProcProcessListingTest, KernelThreadsAreLeftOut) {
  addProcess(9, 2, "program", "program\0"s);
  proc.write("8/stat", "8 (kworker/0:1 (odd)) I 2 0 0 0 -1 69238880 0 0\n");
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().pid, 9);
}

TEST_F(ProcProcessListingTest, KernelThreadsThatTheirParentNamesAreNotEvenLookedAt) {
  proc.write("2/stat", "2 (kthreadd) S 0 0 0 0 -1 2129984 0 0\n");
  proc.write("2/task/2/children", "3 14 ");
  addProcess(3, 2, "would-be-read", "would-be-read\0"s);
  addProcess(4, 2, "program", "program\0"s);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().pid, 4);
}

TEST_F(ProcProcessListingTest, ChildrenOfAProgramWithTheNumberTwoAreListed) {
  addProcess(2, 1, "sh", "sh\0"s);
  proc.write("2/task/2/children", "3 ");
  addProcess(3, 2, "claude", "claude\0"s);
  EXPECT_EQ(list().size(), 2U);
}

TEST_F(ProcProcessListingTest, ACommandLineThatJustFillsABufferIsReadToItsEnd) {
  for (const std::size_t size : {4095U, 4096U, 4097U, 8192U, 16383U, 16384U}) {
    addProcess(9, 1, "long", std::string(size, 'x'));
    EXPECT_EQ(list().front().command.size(), size);
  }
}

TEST_F(ProcProcessListingTest, AnEmptyFirstWordGivesWayToTheKernelsName) {
  addProcess(3, 1, "odd", "\0--flag\0"s);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().executable, "odd");
  EXPECT_EQ(list().front().command, " --flag");
}

TEST_F(ProcProcessListingTest, AProcessThatRenamedItselfIsKnownByItsNewName) {
  addProcess(4, 1, "pi", "pi\0\0\0\0\0\0"s);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().executable, "pi");
  EXPECT_EQ(list().front().command, "pi");
}

TEST_F(ProcProcessListingTest, RecordedAgentsAreRecognised) {
  const JSONValue rows = test::testData("agents/linux-agents.json");
  ASSERT_FALSE(rows.array()->empty());
  for (const JSONValue& row : *rows.array()) {
    const test::TemporaryFolder folder;
    std::vector<std::string> words;
    for (const JSONValue& word : *row.member("argv")->array()) {
      words.push_back(*word.text());
    }
    const std::string name = *row.member("comm")->text();
    folder.write("100/stat", "100 (" + name + ") S 1 1 1 0\n");
    folder.write("100/cmdline", joinedWithNULs(words));

    const auto agents = AgentDetector().detect(ProcProcessListing(folder.path()));

    SCOPED_TRACE(*row.member("agent")->text());
    if (row.member("kind")->isNull()) {
      EXPECT_TRUE(agents.empty());
    } else {
      ASSERT_EQ(agents.size(), 1U);
      EXPECT_EQ(rawValue(agents.front().kind), *row.member("kind")->text());
    }
  }
}

TEST_F(ProcProcessListingTest, HostileNamesAndArgumentsHarmNoOtherRow) {
  addProcess(10, 1, ") R 999 (", joinedWithNULs({"a\nb", "c\r\n d", "\x1b[2J"}));
  addProcess(11, 1, "new\nline", "");
  addProcess(12, 1, "bytes", joinedWithNULs({"\xff\xfe", "caf\xe9"}));
  addProcess(13, 1, "fine", joinedWithNULs({"/bin/fine"}));
  const auto rows = list();
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[0].ppid, 1);
  EXPECT_EQ(rows[0].executable, "a\nb");
  EXPECT_EQ(rows[0].command, "a\nb c\r\n d \x1b[2J");
  EXPECT_EQ(rows[1].executable, "new\nline");
  EXPECT_EQ(rows[2].executable, "\uFFFD\uFFFD");
  EXPECT_EQ(rows[2].command, "\uFFFD\uFFFD caf\uFFFD");
  EXPECT_EQ(rows[3].command, "/bin/fine");
}

TEST_F(ProcProcessListingTest, AnAgentWithAPromptOfAnyLengthIsRecognised) {
  const std::string prompt(1'000'000, 'x');
  addProcess(20, 1, "node", joinedWithNULs({"/usr/bin/node", "/opt/claude-code/cli.js", prompt}));
  const auto rows = list();
  ASSERT_EQ(rows.size(), 1U);
  const std::string beginning = "/usr/bin/node /opt/claude-code/cli.js ";
  EXPECT_EQ(rows.front().command, beginning + prompt.substr(0, mostOfAText - beginning.size()));
  EXPECT_EQ(AgentDetector().classify(rows.front()), AgentKind::claudeCode);
}

TEST_F(ProcProcessListingTest, ALongCommandLineIsCutBetweenCharacters) {
  const std::string letter = "\u20AC";  // three bytes
  for (std::size_t before = 0; before < letter.size(); ++before) {
    std::string line(before, 'x');
    while (line.size() < mostOfAText + 10) {
      line += letter;
    }
    addProcess(20, 1, "long", line);
    const std::size_t size = before + (mostOfAText - before) / letter.size() * letter.size();
    EXPECT_EQ(list().front().command, line.substr(0, size));
    EXPECT_EQ(list().front().executable, line.substr(0, size));
  }
}

TEST_F(ProcProcessListingTest, ALongCommandLineOfInvalidBytesGrowsNoLongerByItsRepair) {
  for (const char byte : {'\xFF', '\x80', '\xE2'}) {
    addProcess(20, 1, "long", std::string(mostOfAText + 10, byte));
    const std::string command = list().front().command;
    EXPECT_TRUE(isValidUTF8(command));
    EXPECT_EQ(command.size(), mostOfAText / 3 * 3);
  }
}

TEST_F(ProcProcessListingTest, ACommandLineOfGigabytesIsNotReadToItsEnd) {
  addProcess(20, 1, "claude", "claude\0"s);
  std::filesystem::resize_file(proc / "20/cmdline", std::uintmax_t{3} << 30U);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().command, "claude");
}

TEST_F(ProcProcessListingTest, AFloodOfLongCommandLinesLeavesTheShortOnesAsTheyAre) {
  const std::string agent = "/home/someone/.grok/bin/grok --resume --model " + std::string(80, 'x');
  addProcess(9000, 1, "grok", agent);
  addProcess(1000, 1, "claude", "claude\0"s + std::string(mostOfAText, '\1'));
  for (int pid = 1001; pid < 3000; ++pid) {
    proc.write(std::to_string(pid) + "/stat", proc.read("1000/stat"));
    std::filesystem::create_hard_link(proc / "1000/cmdline",
                                      proc / std::to_string(pid) / "cmdline");
  }
  addProcess(1, 0, "init", agent);
  const auto rows = list();
  ASSERT_EQ(rows.size(), 2002U);
  EXPECT_EQ(rows.front().command, agent);
  EXPECT_EQ(rows.back().command, agent);
  std::size_t total = 0;
  for (const RunningProcess& row : rows) {
    total += row.executable.size() + row.command.size();
  }
  EXPECT_LE(total, BoundedRows::mostBytes);
  EXPECT_GT(total, BoundedRows::mostBytes / 3) << "no more is cut than has to be";
  EXPECT_EQ(AgentDetector().detect(rows).size(), 2002U);
}

TEST_F(ProcProcessListingTest, AProcessThatVanishesWhileItIsReadIsLeftOut) {
  addProcess(30, 1, "stays", joinedWithNULs({"stays"}));
  std::filesystem::create_directory(proc / "31");  // nothing left to read
  proc.write("32/stat", "32 (half) S 1 1 1 0\n");  // gone before its command line was read
  proc.write("33/stat", "");                       // an empty answer
  const auto rows = list();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows.front().pid, 30);
}

TEST_F(ProcProcessListingTest, OnlyNumbersAreProcesses) {
  addProcess(40, 1, "one", joinedWithNULs({"one"}));
  proc.write("self/stat", "1 (self) S 1 1 1 0\n");
  proc.write("4x/stat", "4 (four) S 1 1 1 0\n");
  proc.write("version", "Linux");
  EXPECT_EQ(list().size(), 1U);
}

TEST_F(ProcProcessListingTest, RowsAreOrderedByPid) {
  for (const int pid : {300, 2, 45, 1000}) {
    addProcess(pid, 1, "x", joinedWithNULs({"x"}));
  }
  const auto rows = list();
  EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end(), [](const auto& left, const auto& right) {
    return left.pid < right.pid;
  }));
  EXPECT_EQ(rows.size(), 4U);
}

TEST_F(ProcProcessListingTest, AMissingFolderIsAnErrorThatNamesIt) {
  try {
    ProcProcessListing(proc / "missing").listProcesses();
    ADD_FAILURE();
  } catch (const NODOError& error) {
    EXPECT_EQ(error.errorCase(), NODOError::Case::processListingFailed);
    EXPECT_NE(error.detail().find((proc / "missing").string()), std::string::npos);
  }
}

TEST(RealProcTest, ListsThisProcessWithItsParentAndCommandLine) {
  const auto rows = ProcProcessListing().listProcesses();
  const auto self =
      std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row.pid == ::getpid(); });
  ASSERT_NE(self, rows.end());
  EXPECT_EQ(self->ppid, ::getppid());
  EXPECT_NE(self->executable.find("nodo_tests"), std::string::npos);
  EXPECT_TRUE(self->command.starts_with(self->executable));
}

class Pipe {
 public:
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      throwErrno("Unable to make", "a pipe");
    }
    output = FileDescriptor(ends[0]);
    input = FileDescriptor(ends[1]);
  }

  FileDescriptor output;
  FileDescriptor input;
};

// A shell that waits for its input to end. It has begun: the kernel tells a new program's arguments
// only some time after it was started.
class WaitingShell {
 public:
  explicit WaitingShell(const std::string& argument) {
    Pipe begun;
    std::array<std::string, 5> words{"sh", "-c", "echo; read line", "claude", argument};
    std::array<char*, 30> arguments{};  // the last ones all alike
    for (std::size_t index = 0; index + 1 < arguments.size(); ++index) {
      arguments[index] = words[std::min(index, words.size() - 1)].data();
    }
    posix_spawn_file_actions_t actions{};
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, end_.output.get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, begun.input.get(), STDOUT_FILENO);
    const int failure =
        ::posix_spawn(&pid_, "/bin/sh", &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
      throw std::system_error(failure, std::generic_category(), "posix_spawn");
    }
    begun.input.reset();
    char line = 0;
    EXPECT_EQ(::read(begun.output.get(), &line, 1), 1);
  }

  WaitingShell(const WaitingShell&) = delete;
  WaitingShell& operator=(const WaitingShell&) = delete;

  ~WaitingShell() {
    end_.input.reset();
    ::waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }

 private:
  Pipe end_;
  pid_t pid_ = 0;
};

TEST(RealProcTest, HugeArgumentsAreCut) {
  const WaitingShell shell(std::string(60'000, '\1'));
  const auto rows = ProcProcessListing().listProcesses();
  const auto row = std::find_if(rows.begin(), rows.end(),
                                [&](const auto& each) { return each.pid == shell.pid(); });
  ASSERT_NE(row, rows.end());
  EXPECT_EQ(row->executable, "sh");
  EXPECT_EQ(row->command.size(), mostOfAText);
  EXPECT_TRUE(row->command.starts_with("sh -c echo; read line claude \1"));
}

}  // namespace
}  // namespace nodo
