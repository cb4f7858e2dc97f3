#include <NODOCore/helper/NODOHelperXPCClient.h>

#include <chrono>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using Clock = std::chrono::steady_clock;

NODOHelperCommandResponse envelope(const std::string& error) {
  return {.error = error};
}

std::exception_ptr failure(const std::string& text) {
  return std::make_exception_ptr(std::runtime_error(text));
}

/// The text of whichever outcome there is, without waiting.
std::string outcome(XPCRequestCompletion& completion) {
  try {
    return completion.wait(Clock::now()).error.value_or("empty envelope");
  } catch (const std::exception& error) {
    return error.what();
  }
}

class SignalledCompletion : public XPCRequestCompletion {
 public:
  void signalWithoutOutcome() { signal(); }
};

TEST(XPCRequestCompletionTest, AnOutcomeThatIsThereCountsThoughTheDeadlineHasPassed) {
  XPCRequestCompletion completion;
  completion.complete(envelope("first"));
  EXPECT_EQ(completion.wait(Clock::now() - std::chrono::hours(1)), envelope("first"));
}

TEST(XPCRequestCompletionTest, TheFirstOutcomeWinsWhateverItsKind) {
  XPCRequestCompletion first;
  first.complete(envelope("reply"));
  first.complete(failure("error"));
  first.complete(envelope("second reply"));
  EXPECT_EQ(outcome(first), "reply");

  XPCRequestCompletion second;
  second.complete(failure("error"));
  second.complete(envelope("reply"));
  second.complete(failure("second error"));
  EXPECT_EQ(outcome(second), "error");
}

TEST(XPCRequestCompletionTest, AnErrorIsThrownAsItIs) {
  XPCRequestCompletion completion;
  completion.complete(std::make_exception_ptr(5));
  EXPECT_THROW(completion.wait(Clock::now()), int);
}

TEST(XPCRequestCompletionTest, WithoutAnOutcomeTheWaitEndsAtTheDeadlineAndNotBefore) {
  XPCRequestCompletion completion;
  const auto deadline = Clock::now() + std::chrono::milliseconds(20);
  try {
    completion.wait(deadline);
    FAIL() << "there was an outcome";
  } catch (const NODOHelperClientError& error) {
    EXPECT_EQ(error, NODOHelperClientError::timedOut());
  }
  EXPECT_GE(Clock::now(), deadline);
}

TEST(XPCRequestCompletionTest, AnOutcomeAfterTheTimeOutDoesNoHarm) {
  XPCRequestCompletion completion;
  EXPECT_EQ(outcome(completion), "Helper request timed out");
  completion.complete(envelope("late"));
  completion.complete(failure("later"));
}

TEST(XPCRequestCompletionTest, ASignalWithoutAnOutcomeIsAnInvalidResponse) {
  SignalledCompletion completion;
  completion.signalWithoutOutcome();
  EXPECT_EQ(outcome(completion), "Invalid helper response: missing completion");
}

TEST(XPCRequestCompletionTest, AWaitingCallerIsWokenByAnotherThread) {
  XPCRequestCompletion completion;
  std::thread other([&] { completion.complete(envelope("from afar")); });
  EXPECT_EQ(completion.wait(Clock::now() + std::chrono::minutes(1)), envelope("from afar"));
  other.join();
}

TEST(NODOHelperClientErrorTest, EachCaseHasItsText) {
  EXPECT_STREQ(NODOHelperClientError::unavailable("gone").what(), "Helper unavailable: gone");
  EXPECT_STREQ(NODOHelperClientError::unavailable("").what(), "Helper unavailable: ");
  EXPECT_STREQ(NODOHelperClientError::invalidResponse("odd").what(),
               "Invalid helper response: odd");
  EXPECT_STREQ(NODOHelperClientError::timedOut().what(), "Helper request timed out");
}

TEST(NODOHelperClientErrorTest, ErrorsAreEqualWhenCaseAndReasonAre) {
  using Error = NODOHelperClientError;
  EXPECT_EQ(Error::unavailable("a"), Error::unavailable("a"));
  EXPECT_NE(Error::unavailable("a"), Error::unavailable("b"));
  EXPECT_NE(Error::unavailable("a"), Error::invalidResponse("a"));
  EXPECT_NE(Error::unavailable(""), Error::timedOut());
}

}  // namespace
}  // namespace nodo
