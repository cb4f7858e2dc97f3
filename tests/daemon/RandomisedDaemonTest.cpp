#include <testing/DiskFull.h>

#include <random>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using Behaviour = test::FakePowerManager::Behaviour;

/// A daemon among failures that come and go, whose lock can be trusted to let go: it is freed with
/// the process, or the tool works.
class RandomisedDaemonTest : public DaemonFixture, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    lockDiesWithProcess = GetParam();
    power.beforeOperation = [this](PowerOperationAction action) {
      power.behaviour =
          action == PowerOperationAction::disableSleep ? behaviourOfTaking : Behaviour::works;
    };
    start();
  }

  int upTo(int highest) { return std::uniform_int_distribution<int>(0, highest)(random); }

  void request() {
    switch (upTo(5)) {
      case 0:
        stop();
        break;
      case 1:
        askRepair();
        end = now;
        break;
      case 2:
        askReconcile();
        break;
      default:
        extend(1 + upTo(9));
        break;
    }
  }

  void stop() {
    askStop();
    EXPECT_FALSE(power.isSleepDisabled) << "a stop left the lock on";
    end = now;
  }

  // A request that fails may have set the timer all the same.
  void extend(std::int64_t minutes) {
    const Date asked = now + Seconds(static_cast<double>(60 * minutes));
    const auto response = askManualV2(minutes, upTo(1) == 0, "Pi");
    const Date latest = std::max(end, asked);
    end = response.status ? response.status->state.manualUntil.value_or(now) : latest;
    EXPECT_LE(end, latest) << "a timer that was ended is back";
  }

  void trouble() {
    switch (upTo(6)) {
      case 0:
        machine->snapshotFails = !machine->snapshotFails;
        break;
      case 1:
        machine->listingFails = !machine->listingFails;
        break;
      case 2:
        breakOrMendState();
        break;
      case 3:
        full ? full.reset() : static_cast<void>(full.emplace());
        break;
      case 4:
        lockIsReadable = !lockIsReadable;
        break;
      case 5:
        behaviourOfTaking = std::array{Behaviour::works, Behaviour::fails, Behaviour::cannotRun,
                                       Behaviour::simulates}[static_cast<std::size_t>(upTo(3))];
        break;
      default:
        if (lockDiesWithProcess) {
          power.isSleepDisabled = false;
        }
        break;
    }
  }

  void breakOrMendState() {
    if (full) {
      return;
    }
    if (goodState) {
      folder.write("state/state.json", *goodState);
      goodState.reset();
    } else if (std::filesystem::exists(store().stateURL())) {
      goodState = folder.read("state/state.json");
      breakState();
    }
  }

  void news() {
    machine->lidClosed = upTo(1) == 0;
    machine->powerSource = upTo(1) == 0 ? PowerSource::battery : PowerSource::ac;
    machine->batteryPercent = upTo(3) == 0 ? 15 : 80;
    machine->defaultRouteAvailable = upTo(3) != 0;
    machineChanged();
  }

  // Everything works again, and nothing stands against keeping awake.
  void heal() {
    full.reset();
    if (goodState) {
      breakOrMendState();
    }
    *machine = test::FakeMachine();
    lockIsReadable = true;
    behaviourOfTaking = Behaviour::works;
  }

  void kill() {
    heal();
    if (!lockDiesWithProcess) {
      wait(61);  // a lock of this kind is known by the state alone
    }
    end = std::max(end, stored().manualUntil.value_or(end));  // an unwritten stop dies as well
    start();
  }

  std::mt19937 random{20260131};
  Date end = now;  // until when at most the machine may be kept awake
  Behaviour behaviourOfTaking = Behaviour::works;
  std::optional<test::DiskFull> full;
  std::optional<std::string> goodState;
};

TEST_P(RandomisedDaemonTest, NoLockOutlivesItsTimerAndEveryTimerGetsItsLockBack) {
  std::size_t timesHeld = 0;
  constexpr std::size_t steps = NODO_RANDOMISED_STEPS / 40;
  for (std::size_t step = 0; step < steps && !HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    switch (upTo(9)) {
      case 0:
      case 1:
      case 2:
        request();
        break;
      case 3:
      case 4:
        trouble();
        break;
      case 5:
        news();
        break;
      case 6:
        if (upTo(9) == 0) {
          kill();
        }
        break;
      default:
        wait(upTo(90));
        break;
    }
    if (power.isSleepDisabled) {
      ++timesHeld;
      EXPECT_LE(now, end + Seconds(LockLife::pollInterval)) << "a lock without a timer";
      EXPECT_TRUE(loop.timer) << "a lock that nobody looks after";
    }
    if (step % 50 == 49) {
      heal();
      wait(61);
      machineChanged();  // a state that was mended while nothing was due is seen with the next news
      EXPECT_EQ(power.isSleepDisabled, stored().manualIsActive(now));
      EXPECT_EQ(power.isSleepDisabled, stored().ownsSleepDisable);
      EXPECT_EQ(power.isSleepDisabled, loop.timer.has_value());
    }
  }
  EXPECT_GT(timesHeld, steps / 20);
}

INSTANTIATE_TEST_SUITE_P(BothKindsOfLock, RandomisedDaemonTest, ::testing::Bool(),
                         [](const auto& kind) {
                           return kind.param ? "DiesWithTheProcess" : "OutlivesTheProcess";
                         });

}  // namespace
}  // namespace nodo
