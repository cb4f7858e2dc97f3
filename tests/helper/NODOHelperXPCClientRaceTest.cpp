#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tests/helper/HelperClientFixture.h>

namespace nodo {
namespace {

constexpr int rounds = 10000;

/// A thread that does what it is given, one after another; all of it before it is destroyed.
class Worker {
 public:
  Worker() : thread_([this] { work(); }) {}

  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  ~Worker() {
    run(nullptr);
    thread_.join();
  }

  void run(std::function<void()> task) {
    const std::lock_guard guard(mutex_);
    tasks_.push_back(std::move(task));
    added_.notify_one();
  }

 private:
  void work() {
    while (const auto task = next()) {
      task();
    }
  }

  std::function<void()> next() {
    std::unique_lock guard(mutex_);
    added_.wait(guard, [this] { return !tasks_.empty(); });
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  std::mutex mutex_;
  std::condition_variable added_;
  std::deque<std::function<void()>> tasks_;
  std::thread thread_;
};

/// One way in which a request can end, and what its caller is told then.
struct Ending {
  std::string outcome;
  std::function<void(const FakeHelperRequest&)> happen;
};

class NODOHelperXPCClientRaceTest : public HelperClientFixture {
 protected:
  const std::string statusText =
      encodeJSON(NODOHelperCommandResponse{.status = helper->status}, JSONLayout::compact);
  const std::vector<Ending> endings{
      {"ok", [this](const auto& request) { request.reply(statusText); }},
      {"Helper unavailable: refused", [](const auto& request) { request.refuse("refused"); }},
      {"Invalid helper response: non-UTF8 payload",
       [](const auto& request) { request.reply("\xFF"); }},
      {"failed", [](const auto& request) { request.fail("failed"); }},
      {"Helper unavailable: connection interrupted",
       [](const auto& request) { request.interrupt(); }},
      {"Helper unavailable: connection invalidated",
       [](const auto& request) { request.invalidate(); }},
  };

  std::mt19937 random{20260131};

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
  }
};

TEST_F(NODOHelperXPCClientRaceTest, WhoeverComesFirstTheOutcomeIsOneThatHappened) {
  std::map<std::string, int> counts;
  {
    std::vector<Ending> racing;
    Worker workers[3];
    helper->answer("status", [&](const FakeHelperRequest& request) {
      for (std::size_t index = 0; index < racing.size(); ++index) {
        workers[index].run([request, happen = racing[index].happen] { happen(request); });
      }
    });
    for (int round = 0; round < rounds; ++round) {
      racing.clear();
      for (std::size_t count = 2 + below(2); racing.size() < count;) {
        racing.push_back(endings[below(endings.size())]);
      }
      const bool mayTimeOut = below(4) == 0;
      client.timeout = mayTimeOut ? static_cast<double>(below(100)) * 1e-6 : patience;

      const std::string outcome = outcomeOfStatus();
      ++counts[outcome];
      const bool happened = std::any_of(racing.begin(), racing.end(), [&](const Ending& ending) {
        return ending.outcome == outcome;
      });
      ASSERT_TRUE(happened || (mayTimeOut && outcome == "Helper request timed out"))
          << "round " << round << ": " << outcome;
    }
  }
  EXPECT_EQ(helper->openConnections(), 0U);
  EXPECT_GE(counts.size(), endings.size()) << "the rounds did not reach every outcome";
}

TEST_F(NODOHelperXPCClientRaceTest, AReplyAndItsErrorHandlerAtOnceGiveOneOfThem) {
  Worker replying;
  Worker failing;
  helper->answer("status", [&](const FakeHelperRequest& request) {
    const auto ready = std::make_shared<std::atomic<int>>(0);
    // Both wait for each other, so that they are under way at the same time.
    const auto meet = [ready] {
      ++*ready;
      while (*ready < 2) {
        std::this_thread::yield();
      }
    };
    replying.run([this, request, meet] {
      meet();
      request.reply(statusText);
    });
    failing.run([request, meet] {
      meet();
      request.fail("failed");
    });
  });
  for (int round = 0; round < 500; ++round) {
    const std::string outcome = outcomeOfStatus();
    ASSERT_TRUE(outcome == "ok" || outcome == "failed") << outcome;
  }
}

TEST_F(NODOHelperXPCClientRaceTest, SeveralThreadsOnOneClientGetTheirOwnAnswers) {
  constexpr int threads = 4;
  constexpr int requests = 100;
  std::atomic<int> wrong = 0;
  {
    Worker workers[2];
    helper->answer("enableManual", [&](const FakeHelperRequest& request) {
      workers[request.text.size() % 2].run(
          [this, request] { request.reply(reportWithStopReason(request.text)); });
    });
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
      callers.emplace_back([&, thread] {
        for (int index = 0; index < requests; ++index) {
          const int minutes = thread * requests + index;
          const StatusReport report = client.enableManual(minutes, false, std::nullopt, noon);
          if (report.state.lastStopReason != "enableManual " + std::to_string(minutes)) {
            ++wrong;
          }
        }
      });
    }
    for (std::thread& caller : callers) {
      caller.join();
    }
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(helper->requests().size(), static_cast<std::size_t>(threads * requests));
  EXPECT_EQ(helper->openConnections(), 0U);
}

}  // namespace
}  // namespace nodo
