#include <NODOCore/daemon/LockLife.h>

#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <tests/daemon/LockWorld.h>

namespace nodo {
namespace {

using test::FollowRule;
using test::Letter;
using test::LockWorld;

/// What a walk through all that can happen has come to.
struct Walk {
  std::size_t states = 0;
  int depth = 0;
  bool isComplete = false;  ///< no letter leads to a new state any more
  std::string complaint;    ///< with the shortest way to it; empty when there is none
};

/// Walks through every sequence of letters, each state once, shortest sequences first, until
/// something is wrong, nothing is new or sequences are `depth` letters long.
class Explorer {
 public:
  Explorer(bool lasting, FollowRule rule) : lasting_(lasting), rule_(std::move(rule)) {}

  Walk walk(int depth) {
    Walk result;
    visit(LockWorld::beginning(lasting_, rule_), 0, Letter::wake);
    while (!next_.empty() && complaint_.empty() && result.depth < depth) {
      ++result.depth;
      std::vector<Place> places = std::exchange(next_, {});
      for (const Place& place : places) {
        leave(place);
      }
    }
    result.states = arrivals_.size();
    result.isComplete = next_.empty();
    result.complaint = complaint_;
    return result;
  }

 private:
  struct Arrival {
    std::size_t from;
    Letter by;
  };

  struct Place {
    LockWorld world;
    std::size_t arrival;
  };

  void leave(const Place& place) {
    for (int number = 0; number < test::letterCount && complaint_.empty(); ++number) {
      const auto letter = static_cast<Letter>(number);
      if (place.world.isPossible(letter)) {
        LockWorld world = place.world;
        world.apply(letter, rule_);
        visit(std::move(world), place.arrival, letter);
      }
    }
  }

  void visit(LockWorld world, std::size_t from, Letter by) {
    if (world.fault.empty() && !known_.insert(world.key()).second) {
      return;
    }
    const std::size_t arrival = arrivals_.size();
    arrivals_.push_back({from, by});
    if (const std::string complaint = world.complaint(rule_); !complaint.empty()) {
      complaint_ = complaint + ", after: " + wayTo(arrival);
    }
    next_.push_back({std::move(world), arrival});
  }

  std::string wayTo(std::size_t arrival) const {
    std::string way;
    for (; arrival != 0; arrival = arrivals_[arrival].from) {
      way = test::letterNames[static_cast<std::size_t>(arrivals_[arrival].by)] +
            (way.empty() ? "" : ", " + way);
    }
    return way;
  }

  bool lasting_;
  FollowRule rule_;
  std::unordered_set<std::string> known_;
  std::vector<Arrival> arrivals_;
  std::vector<Place> next_;
  std::string complaint_;
};

class LockLifeExplorationTest : public ::testing::TestWithParam<std::tuple<bool, int>> {};

TEST_P(LockLifeExplorationTest, NoSequenceOfEventsLeavesTheLockAsItShouldNotBe) {
  const auto& [lasting, depth] = GetParam();
  const Walk walk = Explorer(lasting, follow).walk(depth);
  EXPECT_EQ(walk.complaint, "");
  EXPECT_TRUE(walk.isComplete || walk.depth == depth);
  EXPECT_GT(walk.states, 1000U);
  std::cout << walk.states << " states by sequences of up to " << walk.depth << " events\n";
}

// The shallow walks are for those who wait.
INSTANTIATE_TEST_SUITE_P(BothKindsOfLock, LockLifeExplorationTest,
                         ::testing::Combine(::testing::Bool(),
                                            ::testing::Values(5, NODO_EXPLORATION_DEPTH)),
                         [](const auto& parameters) {
                           const std::string kind = std::get<0>(parameters.param)
                                                        ? "OutlivesTheProcess"
                                                        : "DiesWithTheProcess";
                           return kind + (std::get<1>(parameters.param) == 5 ? "Shallow" : "Deep");
                         });

// ---- what one look or one step tells

class LockLifeStepTest : public ::testing::Test {
 protected:
  LockLook lookAt(double running, LockReading lock, bool owesRelease) const {
    return {.at = {.civil = noon + Seconds(running), .running = Seconds(running)},
            .lock = lock,
            .owesRelease = owesRelease};
  }

  static StateAmendment amendmentOf(const LockStep& step) {
    for (const LockEffect& effect : step.effects) {
      if (const auto* pass = std::get_if<MakePass>(&effect)) {
        return pass->amendment;
      }
    }
    ADD_FAILURE() << "no pass is made";
    return {};
  }

  const Date noon = dateFromSeconds(1769860800);
};

TEST_F(LockLifeStepTest, PhasesOfALockThatIsNotNodosDependOnTheLockAndTheTimer) {
  LockLife life = LockLife::beginning(lookAt(0, LockReading::on, false));
  EXPECT_EQ(life.phase(), LockPhase::foreign);
  life.look.lock = LockReading::off;
  EXPECT_EQ(life.phase(), LockPhase::resting);
  life.timer = KnownTimer{noon + Seconds(60)};
  EXPECT_EQ(life.phase(), LockPhase::vetoed);
  life.look.lock = LockReading::on;
  EXPECT_EQ(life.phase(), LockPhase::foreign);
}

TEST_F(LockLifeStepTest, ALockOfWhichOnlyTheMarkIsKnownIsNotOwnedByTheState) {
  LockLife life = LockLife::beginning(lookAt(0, LockReading::unknown, true));
  EXPECT_EQ(life.amendment(life.look.at).ownsLock, false);
  life.mustGo = true;
  EXPECT_EQ(life.amendment(life.look.at).ownsLock, true);
  life.look.lock = LockReading::on;
  EXPECT_EQ(life.amendment(life.look.at).ownsLock, true);
  life.mustGo = false;
  life.look.owesRelease = false;
  EXPECT_EQ(life.amendment(life.look.at).ownsLock, std::nullopt) << "it is somebody else's";
}

TEST_F(LockLifeStepTest, WhatHadToBeWrittenFirstIsWrittenOnce) {
  LockLife life = LockLife::beginning(lookAt(0, LockReading::off, false));
  life.mustWriteFirst = true;
  LockStep step = follow(std::move(life),
                         {.look = lookAt(1, LockReading::off, false), .what = Occasion::woken});
  EXPECT_TRUE(amendmentOf(step).mustBeWritten);
  step = follow(std::move(step.life), {.look = lookAt(1, LockReading::off, false),
                                       .what = PassOutcome{.isAmended = true}});
  step = follow(std::move(step.life),
                {.look = lookAt(2, LockReading::off, false), .what = Occasion::woken});
  EXPECT_FALSE(amendmentOf(step).mustBeWritten);
}

TEST_F(LockLifeStepTest, ALockThatIsWantedAgainAfterARefusedRepairOutlastsAPassThatFails) {
  const LockLook on = lookAt(1, LockReading::on, true);
  LockStep step = follow(LockLife::beginning(on), {.look = on, .what = Occasion::repairAsked});
  step =
      follow(std::move(step.life),
             {.look = on, .what = PassOutcome{.verdict = PassVerdict{.wasReleaseRefused = true}}});
  EXPECT_EQ(step.life.phase(), LockPhase::releasing);
  step = follow(
      std::move(step.life),
      {.look = on,
       .what = PassOutcome{.isAmended = true,
                           .isTimerSet = true,
                           .state = StateFacts{.timerEnd = noon + Seconds(600), .ownsLock = true},
                           .verdict = PassVerdict{.isWanted = true}}});
  EXPECT_EQ(step.life.phase(), LockPhase::held);
  step = follow(std::move(step.life), {.look = on, .what = PassOutcome{}});
  EXPECT_EQ(step.life.phase(), LockPhase::unconfirmed);
}

// ---- defects, each of which the walk has to find

struct Defect {
  const char* name;
  bool isOfLastingLocks;
  FollowRule rule;
};

template <class Effect>
void drop(LockStep& step) {
  std::erase_if(step.effects,
                [](const LockEffect& effect) { return std::holds_alternative<Effect>(effect); });
}

bool isOccasion(const LockEvent& event, Occasion wanted) {
  const auto* const occasion = std::get_if<Occasion>(&event.what);
  return occasion != nullptr && *occasion == wanted;
}

LockStep changed(const LockStep& step, const std::function<void(LockStep& step)>& change) {
  LockStep other = step;
  change(other);
  return other;
}

const std::vector<Defect>& defects() {
  static const std::vector<Defect> all{
      {"a refused repair counts as done", true,
       [](const LockLife& life, const LockEvent& event) {
         return changed(follow(life, event), [](LockStep& step) { step.life.mustGo = false; });
       }},
      {"what is believed of the lock is never corrected", true,
       [](const LockLife& life, LockEvent event) {
         if (life.look.lock == LockReading::on && life.isWanted) {
           event.look.lock = LockReading::on;
         }
         return follow(life, event);
       }},
      {"a clock that steps is not followed", false,
       [](LockLife life, const LockEvent& event) {
         life.look.at.civil += (event.look.at.civil - life.look.at.civil) -
                               (event.look.at.running - life.look.at.running);
         return follow(life, event);
       }},
      {"a release that is refused counts as made", true,
       [](const LockLife& life, LockEvent event) {
         if (isOccasion(event, Occasion::releaseTried)) {
           event.look.lock = LockReading::off;
           event.look.owesRelease = false;
         }
         return follow(life, event);
       }},
      {"the lock is forgotten at the end", true,
       [](const LockLife& life, const LockEvent& event) {
         return changed(follow(life, event), [&](LockStep& step) {
           if (isOccasion(event, Occasion::terminating)) {
             drop<ReleaseLock>(step);
             step.life.look.owesRelease = false;
             step.life.look.lock = LockReading::off;
           }
         });
       }},
      {"sleep is asked for once", false,
       [](const LockLife& life, const LockEvent& event) {
         return changed(follow(life, event), [](LockStep& step) { step.life.isSleepDue = false; });
       }},
      {"sleep is asked for after it was had", false,
       [](const LockLife& life, LockEvent event) {
         if (isOccasion(event, Occasion::resumed)) {
           event.what = Occasion::woken;
         }
         return follow(life, event);
       }},
      {"the mark goes before the sleep that is due", true,
       [](const LockLife& life, const LockEvent& event) {
         return changed(follow(life, event), [](LockStep& step) {
           if (step.life.isSleepDue) {
             step.effects.emplace_back(ForgetMark{});
           }
         });
       }},
      {"patience has no end", true,
       [](LockLife life, const LockEvent& event) {
         life.confirmedAt = event.look.at.running;
         return follow(life, event);
       }},
      {"the first loss is taken for the last word", false,
       [](const LockLife& life, const LockEvent& event) {
         return changed(follow(life, event), [](LockStep& step) {
           step.life.hasYielded = step.life.hasYielded || !step.life.losses.empty();
         });
       }},
      {"every lock is taken for nodo's", true,
       [](const LockLife& life, LockEvent event) {
         event.look.owesRelease = event.look.owesRelease || event.look.lock == LockReading::on;
         return follow(life, event);
       }},
      {"a stop that could not be written outlives the next timer", false,
       [](const LockLife& life, LockEvent event) {
         if (auto* const outcome = std::get_if<PassOutcome>(&event.what)) {
           outcome->isTimerSet = false;
         }
         return follow(life, event);
       }},
      {"nobody looks after a lock that is held", true,
       [](const LockLife& life, const LockEvent& event) {
         return changed(follow(life, event), [](LockStep& step) {
           if (step.life.phase() == LockPhase::held) {
             step.life.attemptedAt += Seconds(3600);
             step.life.deadline.reset();
           }
         });
       }},
  };
  return all;
}

class SeededDefectTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(SeededDefectTest, IsFound) {
  const Defect& defect = defects()[GetParam()];
  const Walk walk = Explorer(defect.isOfLastingLocks, defect.rule).walk(7);
  EXPECT_NE(walk.complaint, "") << defect.name << ", after " << walk.states << " states";
}

INSTANTIATE_TEST_SUITE_P(EachOnce, SeededDefectTest,
                         ::testing::Range(std::size_t{0}, defects().size()));

}  // namespace
}  // namespace nodo
