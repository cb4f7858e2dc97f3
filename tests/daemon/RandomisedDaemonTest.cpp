#include <testing/DiskFull.h>

#include <random>

#include <tests/daemon/DaemonFixture.h>

namespace nodo {
namespace {

using Behaviour = test::FakePowerManager::Behaviour;

/// A daemon among failures that come and go.
class RandomisedDaemonTest : public DaemonFixture, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    lockDiesWithProcess = GetParam();
    power.beforeOperation = [this](PowerOperationAction action) {
      power.behaviour = action == PowerOperationAction::disableSleep  ? behaviourOfTaking
                        : action == PowerOperationAction::enableSleep ? behaviourOfReleasing
                                                                      : Behaviour::works;
      // A tool may fail and its wish be granted later, as a Mac does that with a preference.
      if (power.behaviour == Behaviour::fails && !lockDiesWithProcess && upTo(2) == 0) {
        lateLock = action == PowerOperationAction::disableSleep;
      }
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
    const auto response = askStop();
    EXPECT_TRUE(!power.isSleepDisabled || response.error) << "a stop left the lock on";
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
    switch (upTo(10)) {
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
      case 6:
        behaviourOfReleasing =
            behaviourOfReleasing == Behaviour::works ? Behaviour::fails : Behaviour::works;
        break;
      case 7:
        setClock(Seconds((upTo(1) == 0 ? -1 : 1) * upTo(40) * 86400.0));
        break;
      case 8:
        std::filesystem::remove(mark());
        break;
      case 9:
        if (lateLock) {
          power.isSleepDisabled = *std::exchange(lateLock, std::nullopt);
        }
        break;
      default:
        power.isSleepDisabled = false;
        break;
    }
  }

  // The timer keeps its length.
  void setClock(Seconds step) {
    now += step;
    end += step;
    unreleasableUntil += step;
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
    behaviourOfReleasing = Behaviour::works;
    lateLock.reset();
  }

  void kill() {
    heal();
    machineChanged();
    if (!lockDiesWithProcess) {
      wait(61);  // its mark may be lost, and then it is known by the state alone
    }
    end = std::max(end, stored().manualUntil.value_or(end));  // an unwritten stop dies as well
    start();
  }

  std::mt19937 random{20260131};
  Date end = now;  // until when at most the machine may be kept awake
  Behaviour behaviourOfTaking = Behaviour::works;
  Behaviour behaviourOfReleasing = Behaviour::works;
  std::optional<bool> lateLock;  // what a switch that failed will have made of the lock
  Date unreleasableUntil = now;
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
    if (behaviourOfReleasing != Behaviour::works || lateLock) {
      unreleasableUntil = now;
    }
    if (power.isSleepDisabled) {
      ++timesHeld;
      EXPECT_LE(now, std::max(end, unreleasableUntil) + LockLife::pollInterval)
          << "a lock without a timer";
      EXPECT_TRUE(loop.timer) << "a lock that nobody looks after";
    }
    if (step % 50 == 49) {
      heal();
      wait(61);
      askReconcile();  // a state that was mended while nothing was due is seen by then
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
