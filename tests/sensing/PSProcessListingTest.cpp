#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/sensing/ProcessListing.h>
#include <testing/EnvironmentVariable.h>
#include <testing/JSONRows.h>
#include <testing/OpenDescriptors.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace nodo {

static std::ostream& operator<<(std::ostream& stream, const RunningProcess& process) {
  return stream << process.pid << '|' << process.ppid.value_or(-1) << '|' << process.executable
                << '|' << process.command << '|';
}

namespace {

using test::EnvironmentVariable;
using test::FewDescriptors;
using test::memberOf;
using test::testRows;
using test::valueOf;
using ::testing::HasSubstr;

using Processes = std::vector<RunningProcess>;

TEST(PSProcessListingTest, TheTablesRowsAreRead) {
  for (const JSONValue& row : testRows("vectors/ps_lines.json")) {
    Processes expected;
    for (const JSONValue& process : *memberOf(row, "expected").array()) {
      expected.push_back({.pid = valueOf<std::int32_t>(process, "pid"),
                          .ppid = valueOf<std::int32_t>(process, "ppid"),
                          .executable = valueOf<std::string>(process, "executable"),
                          .command = valueOf<std::string>(process, "command")});
    }
    const auto output = valueOf<std::string>(row, "output");
    EXPECT_EQ(PSProcessListing::parse(output), expected) << output;
  }
}

TEST(PSProcessListingTest, ColumnsAreSeparatedByBlanks) {
  const struct {
    const char* row;
    RunningProcess expected;
  } cases[] = {
      {"  123     1 /usr/local/bin/claude claude --resume",
       {123, 1, "/usr/local/bin/claude", "claude --resume"}},
      {"1 2 a", {1, 2, "a", "a"}},
      {"1 2 a ", {1, 2, "a", "a"}},
      {"1 2 a  ", {1, 2, "a", " "}},
      {"1 2 a   b  c ", {1, 2, "a", "  b  c "}},
      {"1 2 a\tb c", {1, 2, "a\tb", "c"}},
      {"+1 -2 a b", {1, -2, "a", "b"}},
      {"2147483647 -2147483648 a b", {2147483647, -2147483647 - 1, "a", "b"}},
      {"0001 2 a b", {1, 2, "a", "b"}},
      {"1 2 /Applications/My App.app/x x -y", {1, 2, "/Applications/My", "App.app/x x -y"}},
      {"1 2 a b\r", {1, 2, "a", "b\r"}},
      {"1 2 a \xFF", {1, 2, "a", "\xFF"}},
      {"1 2 a b \u0301c", {1, 2, "a", "b \u0301c"}},
      {"1 2 a \u0301b c", {1, 2, "a \u0301b", "c"}},
  };

  for (const auto& each : cases) {
    EXPECT_EQ(PSProcessListing::parse(each.row), Processes{each.expected}) << each.row;
  }
}

TEST(PSProcessListingTest, RowsThatNameNoProcessAreLeftOut) {
  for (const char* row :
       {"", "   ", "1", "1 2", "1 2 ", "x 2 a b", "1 x a b", "1.0 2 a b", "2147483648 2 a b",
        "1 -2147483649 a b", "\t1 2 a b", "1\t2 a b", "1 2\ta b", "+ 2 a b", "0x1 2 a b",
        "PID PPID COMM COMMAND", "\uFF11 2 a b", "1\u00A02 a b", "-1- 2 a b"}) {
    EXPECT_EQ(PSProcessListing::parse(row), Processes{}) << row;
  }
}

TEST(PSProcessListingTest, ABadRowDoesNotDisturbTheOthers) {
  EXPECT_EQ(PSProcessListing::parse("1 2 a\nnonsense\n\n 3 4 b c\n99999999999 1 x\n"),
            (Processes{{1, 2, "a", "a"}, {3, 4, "b", "c"}}));
}

TEST(PSProcessListingTest, AMegabyteLongRowIsRead) {
  const std::string command(1000000, 'x');
  EXPECT_EQ(PSProcessListing::parse("1 2 a " + command), (Processes{{1, 2, "a", command}}));
  EXPECT_EQ(PSProcessListing::parse(std::string(1000000, ' ') + "1 2 a"),
            (Processes{{1, 2, "a", "a"}}));
  EXPECT_EQ(PSProcessListing::parse(std::string(1000000, '1') + " 2 a"), Processes{});
}

TEST(PSProcessListingTest, TheRealTableHoldsThisProcess) {
  const Processes processes = PSProcessListing().listProcesses();
  const auto self = std::find_if(processes.begin(), processes.end(),
                                 [](const auto& process) { return process.pid == ::getpid(); });
  ASSERT_NE(self, processes.end());
  EXPECT_EQ(self->ppid, ::getppid());
  EXPECT_THAT(self->command, HasSubstr("nodo_tests"));
}

TEST(PSProcessListingTest, PsIsAskedForExactlyTheFourColumns) {
  const Processes processes = PSProcessListing().listProcesses();
  const auto ps = std::find_if(processes.begin(), processes.end(),
                               [](const auto& process) { return process.ppid == ::getpid(); });
  ASSERT_NE(ps, processes.end());
  EXPECT_EQ(trimmed(ps->command), "/bin/ps -axo pid=,ppid=,comm=,command=");
}

#ifdef NODO_PS_STAND_IN

// What the listing makes of what ps writes and answers.
Processes listingOf(const std::string& output, const std::string& error, int status) {
  const EnvironmentVariable preloaded("LD_PRELOAD", NODO_PS_STAND_IN);
  const EnvironmentVariable written("NODO_PS_OUTPUT", output);
  const EnvironmentVariable complained("NODO_PS_ERROR", error);
  const EnvironmentVariable answered("NODO_PS_STATUS", std::to_string(status));
  return PSProcessListing().listProcesses();
}

std::string failureOf(const std::string& output, const std::string& error, int status) {
  try {
    listingOf(output, error, status);
  } catch (const NODOError& failure) {
    EXPECT_EQ(failure.errorCase(), NODOError::Case::processListingFailed);
    return failure.what();
  }
  return "no failure";
}

TEST(PSProcessListingTest, WhatPsComplainsOfIsNoFailureWhileItSucceeds) {
  EXPECT_EQ(listingOf(" 1 2 a b\n", "ps: cannot tell all", 0), (Processes{{1, 2, "a", "b"}}));
}

TEST(PSProcessListingTest, OutputThatIsNoUTF8IsAnEmptyTable) {
  EXPECT_EQ(listingOf("1 2 a b\n3 4 c \xFF\n", "", 0), Processes{});
}

TEST(PSProcessListingTest, WhatPsSaysEndsTheErrorUnchanged) {
  EXPECT_EQ(failureOf("1 2 a b\n", " ps: no\n\n", 1), "Unable to list processes:  ps: no\n\n");
  EXPECT_EQ(failureOf("", "x", 255), "Unable to list processes: x");
}

TEST(PSProcessListingTest, AFailureWithoutAWordStaysWithoutOne) {
  EXPECT_EQ(failureOf("", "", 1), "Unable to list processes: ");
}

TEST(PSProcessListingTest, AnErrorThatIsNoUTF8IsReplaced) {
  EXPECT_EQ(failureOf("", "ps: \xFF", 1), "Unable to list processes: ps failed");
}

#endif

TEST(PSProcessListingTest, AFailureToStartIsPassedOn) {
  const FewDescriptors few(1);
  try {
    PSProcessListing().listProcesses();
    FAIL() << "there is no descriptor for a pipe";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::error_code(EMFILE, std::generic_category()));
  }
}

}  // namespace
}  // namespace nodo
