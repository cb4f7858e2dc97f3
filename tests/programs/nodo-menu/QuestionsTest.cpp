#include <programs/nodo-menu/Questions.h>

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace nodo::menu {
namespace {

// A worker whose first wish waits until the test lets it go on.
class QuestionsTest : public ::testing::Test {
 protected:
  Reply serve(const Wish& wish) {
    std::unique_lock guard(lock);
    served.push_back(wish);
    changed.notify_all();
    changed.wait(guard, [this] { return isOpen; });
    return {.wish = wish};
  }

  void awaitBegun(std::size_t count) {
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return served.size() >= count; });
  }

  void open() {
    const std::lock_guard guard(lock);
    isOpen = true;
    changed.notify_all();
  }

  std::vector<std::uint64_t> awaitReplies(Questions& questions, std::size_t count) {
    {
      std::unique_lock guard(lock);
      changed.wait(guard, [&] { return woken >= count; });
    }
    std::vector<std::uint64_t> numbers;
    for (const Reply& reply : questions.take()) {
      numbers.push_back(reply.number);
    }
    return numbers;
  }

  Questions::Serve serving() {
    return [this](const Wish& wish) { return serve(wish); };
  }

  Questions::Wake waking() {
    return [this] {
      const std::lock_guard guard(lock);
      ++woken;
      changed.notify_all();
    };
  }

  std::mutex lock;
  std::condition_variable changed;
  bool isOpen = false;
  std::size_t woken = 0;
  std::vector<Wish> served;
};

TEST_F(QuestionsTest, AnswersComeInTheOrderOfTheirQuestions) {
  Questions questions(serving(), waking());
  EXPECT_EQ(questions.ask(Stop()), 1U);
  EXPECT_EQ(questions.ask(Pause()), 2U);
  EXPECT_EQ(questions.ask(Resume()), 3U);
  open();
  EXPECT_EQ(awaitReplies(questions, 3), (std::vector<std::uint64_t>{1, 2, 3}));
  EXPECT_EQ(served, (std::vector<Wish>{Stop(), Pause(), Resume()}));
  EXPECT_TRUE(questions.take().empty());
}

TEST_F(QuestionsTest, AskingWaitsForNoAnswerAndOneIsServedAtATime) {
  Questions questions(serving(), waking());
  questions.ask(Stop());
  awaitBegun(1);
  questions.ask(Pause());
  EXPECT_TRUE(questions.take().empty());
  {
    const std::lock_guard guard(lock);
    EXPECT_EQ(served.size(), 1U);
  }
  open();
  EXPECT_EQ(awaitReplies(questions, 2), (std::vector<std::uint64_t>{1, 2}));
}

TEST_F(QuestionsTest, ALookThatWaitsServesALaterOneToo) {
  Questions questions(serving(), waking());
  questions.ask(Look());
  awaitBegun(1);
  EXPECT_EQ(questions.ask(Look()), 2U);
  EXPECT_EQ(questions.ask(Look{.listens = true}), 2U);
  EXPECT_EQ(questions.ask(Look()), 2U);
  open();
  EXPECT_EQ(awaitReplies(questions, 2), (std::vector<std::uint64_t>{1, 2}));
  EXPECT_EQ(served, (std::vector<Wish>{Look(), Look{.listens = true}}));
}

TEST_F(QuestionsTest, ALookThatIsBeingServedMayBeTooEarlyForALaterOne) {
  Questions questions(serving(), waking());
  questions.ask(Look());
  awaitBegun(1);
  EXPECT_EQ(questions.ask(Look()), 2U);
  open();
  EXPECT_EQ(awaitReplies(questions, 2).size(), 2U);
}

TEST_F(QuestionsTest, AtItsEndWhatWaitsIsDropped) {
  {
    Questions questions(serving(), waking());
    questions.ask(Stop());
    awaitBegun(1);
    questions.ask(Pause());
    questions.end();
    open();
  }
  EXPECT_EQ(served, std::vector<Wish>{Stop()});
}

}  // namespace
}  // namespace nodo::menu
