#include <platform/linux/news/EventLoop.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

class EventLoopTest : public ::testing::Test {
 protected:
  // Makes a timer that notes its name when it fires; the one called "end" ends the loop.
  std::unique_ptr<LoopTimer> timer(const std::string& name) {
    return std::make_unique<LoopTimer>(loop, CLOCK_MONOTONIC, microseconds(1), [this, name] {
      fired.push_back(name);
      if (name == "end") {
        loop.end();
      }
    });
  }

  EventLoop loop{[](const std::string& line) { ADD_FAILURE() << line; }};
  std::vector<std::string> fired;
};

TEST_F(EventLoopTest, TimersFireInOrderAndOnce) {
  const auto first = timer("first");
  const auto end = timer("end");
  LoopTimer second(loop, CLOCK_MONOTONIC, microseconds(1), [&] {
    fired.emplace_back("second");
    end->set(milliseconds(20));
  });
  // Timers that are both due when the loop looks fire in either order, so a stall must not reach
  // from one to the other.
  second.set(milliseconds(250));
  first->set(milliseconds(1));
  loop.run();
  EXPECT_EQ(fired, (std::vector<std::string>{"first", "second", "end"}));
}

TEST_F(EventLoopTest, SettingReplacesAndCancels) {
  const auto cancelled = timer("cancelled");
  const auto replaced = timer("replaced");
  const auto end = timer("end");
  cancelled->set(milliseconds(1));
  cancelled->set(std::nullopt);
  replaced->set(milliseconds(1));
  replaced->set(std::chrono::hours(24 * 365 * 50));
  end->set(milliseconds(10));
  loop.run();
  EXPECT_EQ(fired, (std::vector<std::string>{"end"}));
}

TEST_F(EventLoopTest, ATimeThatHasPassedIsNow) {
  const auto end = timer("end");
  end->set(milliseconds(-5));
  loop.run();
  EXPECT_EQ(fired.size(), 1U);
}

TEST_F(EventLoopTest, ATimerMayBeSetAnewWhenItFires) {
  int count = 0;
  std::unique_ptr<LoopTimer> again;
  again = std::make_unique<LoopTimer>(loop, CLOCK_BOOTTIME, microseconds(1), [&] {
    if (++count == 3) {
      loop.end();
    } else {
      again->set(milliseconds(1));
    }
  });
  again->set(milliseconds(1));
  loop.run();
  EXPECT_EQ(count, 3);
}

TEST_F(EventLoopTest, AnExceptionEndsTheLoopAndComesOutOfIt) {
  LoopTimer failing(loop, CLOCK_MONOTONIC, microseconds(1),
                    [] { throw std::runtime_error("it broke"); });
  const auto later = timer("later");
  failing.set(milliseconds(1));
  later->set(std::chrono::hours(1));
  try {
    loop.run();
    FAIL() << "the loop ended without the error";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "it broke");
  }
  EXPECT_TRUE(fired.empty());
}

TEST_F(EventLoopTest, TheFirstOfTwoErrorsCounts) {
  loop.fail(std::make_exception_ptr(std::runtime_error("first")));
  loop.fail(std::make_exception_ptr(std::runtime_error("second")));
  try {
    loop.run();
    FAIL() << "the loop ended without the error";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "first");
  }
}

}  // namespace
}  // namespace nodo
