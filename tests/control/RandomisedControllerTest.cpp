#include <NODOCore/base/JSONCoding.h>

#include <algorithm>
#include <random>
#include <system_error>

#include <tests/control/ControllerFixture.h>

namespace nodo {
namespace {

using Behaviour = test::FakePowerManager::Behaviour;

constexpr unsigned seeds = 20;
constexpr int stepsPerSeed = NODO_RANDOMISED_STEPS / static_cast<int>(seeds);

// A machine and its users who do anything at any time, from a fixed seed; after every step it must
// hold what nodo promises.
class RandomisedControllerTest : public ControllerFixture,
                                 public ::testing::WithParamInterface<unsigned> {
 protected:
  void SetUp() override { random.seed(GetParam()); }

  std::int64_t pick(std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random);
  }

  bool chance(int percent) { return pick(1, 100) <= percent; }

  std::optional<bool> pickOptional() {
    const auto which = pick(0, 2);
    return which == 2 ? std::nullopt : std::optional(which == 1);
  }

  void changeMachine() {
    switch (pick(0, 4)) {
      case 0:
        machine->lidClosed = pickOptional();
        break;
      case 1:
        machine->defaultRouteAvailable = pickOptional();
        break;
      case 2:
        machine->powerSource = allCases<PowerSource>()[static_cast<std::size_t>(pick(0, 2))];
        break;
      case 3:
        machine->batteryPercent = chance(20) ? std::nullopt : std::optional(pick(0, 100));
        break;
      default:
        power.behaviour = chance(70) ? Behaviour::works : static_cast<Behaviour>(pick(1, 3));
    }
  }

  void turnClock() {
    // Mostly in small steps with fractions, at times through a night.
    advance(chance(90) ? static_cast<double>(pick(0, 900)) + static_cast<double>(pick(0, 3)) / 4
                       : static_cast<double>(pick(3600, 60000)));
  }

  void command() {
    const std::optional<Date> endBefore = stored().manualUntil;
    const std::int64_t minutes = pick(-1, longestTimer + 1);
    const bool extendOnly = chance(70);
    std::optional<ActivationRequester> who;
    if (chance(80)) {
      who =
          requester("agent " + std::to_string(pick(0, 9)), "project " + std::to_string(pick(0, 3)));
    }
    try {
      const StatusReport report = controller().enableManual(minutes, now, extendOnly, who);
      check(report);
      if (extendOnly && endBefore) {
        ASSERT_GE(*report.state.manualUntil, *endBefore) << "an extension shortened the timer";
      }
    } catch (const std::exception&) {
      ASSERT_TRUE(minutes < 1 || minutes > longestTimer);
      ASSERT_EQ(stored().manualUntil, endBefore);
    }
  }

  void run(bool isRepair) {
    const std::size_t operationsBefore = power.operations.size();
    const std::optional<bool> live =
        chance(80) ? std::optional(power.isSleepDisabled) : std::nullopt;
    // A tool that failed may have left the lock on without an owner; a pass sees that when it is
    // told the live setting.
    const bool seesTheLock = live || isInStep;
    try {
      const DaemonRunReport report = isRepair ? controller().repair(power, live, now)
                                              : controller().reconcile(power, live, now);
      check(report.status);
      checkCoding(report);
      if (power.behaviour == Behaviour::works && seesTheLock) {
        checkLock(report.status.decision);
      }
    } catch (const std::system_error&) {
      ASSERT_EQ(power.behaviour, Behaviour::cannotRun);
      ASSERT_GT(power.operations.size(), operationsBefore);
    }
    const bool toolFailed =
        power.operations.size() > operationsBefore && power.behaviour != Behaviour::works;
    isInStep = !toolFailed && seesTheLock;
  }

  void checkLock(const PowerDecision& decision) const {
    const NODOState state = stored();
    ASSERT_EQ(state.ownsSleepDisable, power.isSleepDisabled);
    ASSERT_EQ(power.isSleepDisabled, decision.shouldPreventSleep);
    if (!decision.safetyBlocks.empty()) {
      ASSERT_FALSE(power.isSleepDisabled) << "a safety block left the lock on";
    }
    if (!state.manualUntil || *state.manualUntil <= now) {
      ASSERT_FALSE(power.isSleepDisabled) << "the lock outlived its timer";
    }
  }

  void check(const StatusReport& report) {
    const NODOState& state = report.state;
    ASSERT_LE(state.recentRequesters.size(), 6U);
    ASSERT_LE(state.triggerHistory.size(), 500U);
    ASSERT_LE(state.triggerActivityBuckets.size(), 720U);
    ASSERT_LE(state.powerOperationHistory.size(), 20U);
    ASSERT_EQ(report.decision.shouldPreventSleep, !report.decision.stopReason);
    ASSERT_EQ(report.decision.shouldPreventSleep, !report.decision.reasons.empty());
    checkCoding(report);
  }

  // JSON has dates in whole seconds; so what is compared is the second text with the first.
  template <class Report>
  static void checkCoding(const Report& report) {
    const std::string text = encodeJSON(report, JSONLayout::compact);
    ASSERT_EQ(encodeJSON(decodeJSON<Report>(text), JSONLayout::compact), text);
  }

  void step() {
    switch (pick(0, 9)) {
      case 0:
      case 1:
        changeMachine();
        break;
      case 2:
      case 3:
        turnClock();
        break;
      case 4:
      case 5:
        command();
        break;
      case 6:
        if (chance(50)) {
          check(chance(50) ? stop() : status());
        } else {
          run(chance(30));
        }
        break;
      default:
        run(false);
    }
  }

  std::mt19937 random;
  bool isInStep = true;  // the stored ownership and the machine's lock agree
};

// A restart loses nothing: every command above begins from what is on disk, with a new controller.
TEST_P(RandomisedControllerTest, KeepsItsPromisesWhateverHappens) {
  for (int count = 0; count < stepsPerSeed && !HasFatalFailure(); ++count) {
    SCOPED_TRACE(::testing::Message() << "seed " << GetParam() << ", step " << count);
    step();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomisedControllerTest, ::testing::Range(1U, seeds + 1));

}  // namespace
}  // namespace nodo
