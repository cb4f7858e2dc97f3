#pragma once

#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/control/DaemonSettings.h>
#include <NODOCore/daemon/Daemon.h>
#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <testing/FakeMachine.h>
#include <testing/FakePowerManager.h>
#include <testing/TemporaryFolder.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nodo {

/// A daemon's loop in which a test is the kernel: it keeps what the daemon set and asked for, and
/// its `run` does what the test says, by default returning at once.
class FakeLoop : public DaemonLoop {
 public:
  std::optional<Seconds> timer;
  std::size_t timersSet = 0;
  std::size_t announcements = 0;
  bool isLockHeld = false;
  std::optional<SystemSnapshot> seen;
  bool isNameTaken = false;
  NODOHelperXPCProtocol* service = nullptr;
  DaemonHandlers handlers;
  std::function<void()> onRun = [] {};

  void serve(NODOHelperXPCProtocol& offered) override {
    if (isNameTaken) {
      throw std::runtime_error("the name is taken");
    }
    service = &offered;
  }

  void setTimer(std::optional<Seconds> fromNow) override {
    timer = fromNow;
    ++timersSet;
  }

  void afterPass(bool lockHeld, const std::optional<SystemSnapshot>& snapshot) override {
    isLockHeld = lockHeld;
    seen = snapshot;
  }

  void announceChange() override { ++announcements; }

  void run(const DaemonHandlers& given) override {
    handlers = given;
    onRun();
  }
};

/// The test's power manager as a SleepLock wants it.
class BorrowedPowerManager : public PowerManaging {
 public:
  explicit BorrowedPowerManager(test::FakePowerManager& power) : power_(power) {}

  PowerOperationResult setSleepDisabled(bool disabled) override {
    return power_.setSleepDisabled(disabled);
  }

  PowerOperationResult requestSleepNow() override { return power_.requestSleepNow(); }

 private:
  test::FakePowerManager& power_;
};

/// A daemon on a machine, a lock, a state folder and a clock that the test sets.
class DaemonFixture : public ::testing::Test {
 protected:
  static constexpr double startOfTest = 1769847300;  // 2026-01-31T08:15:00Z

  // ---- the daemon's life

  SleepLock makeLock() {
    return {
        .manager = std::make_unique<BorrowedPowerManager>(power),
        .isHeld =
            [this] { return lockIsReadable ? std::optional(power.isSleepDisabled) : std::nullopt; },
        .diesWithProcess = lockDiesWithProcess,
        .isSimulated = false,
        .mark = lockDiesWithProcess ? std::nullopt : std::optional(mark()),
        .setTerms = [this](const LockTerms& each) { setTerms(each); },
        .lockSessions = [this] { lockSessions(); }};
  }

  void setTerms(const LockTerms& each) {
    if (termsAreRefused) {
      throw std::runtime_error("refused");
    }
    terms.push_back(each);
  }

  void lockSessions() {
    ++sessionLocks;
    if (sessionLocksFail) {
      throw std::runtime_error("refused");
    }
  }

  void start() {
    if (lockDiesWithProcess) {
      power.isSleepDisabled = false;
    }
    loop = FakeLoop();
    loop.isNameTaken = nameIsTaken;
    const DaemonLog log = [this](const std::string& line) { lines.push_back(line); };
    daemon.reset();
    keeper.reset();  // as the one before it has died, its mark is free
    keeper = std::make_unique<LockKeeper>(test::controllerFor(machine, store(), defaultPolicy),
                                          makeLock(), log, settings, moment());
    keeper->releaseLeftBehind(moment());
    daemon = std::make_unique<Daemon>(
        *keeper, loop, [this] { return moment(); }, log, EffectiveSettings{.settings = settings},
        [this] { return changedSettings; });
    daemon->run();
  }

  Moment moment() const { return {.civil = now, .running = running}; }

  /// Both clocks go on.
  void pass(Seconds time) {
    now += time;
    running += time;
  }

  /// Time goes by, and the daemon's timer fires when it is due.
  void wait(double seconds) {
    const Seconds end = running + Seconds(seconds);
    std::size_t fired = 0;
    while (loop.timer && running + *loop.timer <= end) {
      pass(*loop.timer);
      loop.timer.reset();
      loop.handlers.timerFired();
      ASSERT_LT(++fired, 10000U) << "the timer fires without end";
    }
    if (loop.timer) {
      loop.timer = *loop.timer - (end - running);
    }
    pass(end - running);
  }

  void terminate() { loop.handlers.terminate(); }

  void machineChanged() { loop.handlers.machineChanged({News::powerSupply}); }

  // ---- requests

  using Request = std::function<void(HelperReply)>;

  NODOHelperCommandResponse ask(const Request& request) {
    std::optional<std::string> text;
    request([&](std::optional<std::string> reply) {
      EXPECT_FALSE(text.has_value()) << "a second reply";
      text = std::move(reply);
    });
    EXPECT_TRUE(text.has_value()) << "no reply";
    return decodeJSON<NODOHelperCommandResponse>(text.value_or("{}"));
  }

  NODOHelperCommandResponse askStatus() {
    return ask([this](HelperReply reply) { daemon->status(std::move(reply)); });
  }

  /// A status that no earlier answer serves for.
  NODOHelperCommandResponse askForNewStatus() {
    pass(Daemon::answerLifetime);
    return askStatus();
  }

  NODOHelperCommandResponse askManual(std::int64_t minutes) {
    return ask([&](HelperReply reply) { daemon->enableManual(minutes, std::move(reply)); });
  }

  NODOHelperCommandResponse askManualV2(std::int64_t minutes, bool extendOnly,
                                        const std::optional<std::string>& name,
                                        const std::optional<std::string>& context = std::nullopt,
                                        const std::optional<std::string>& event = std::nullopt) {
    return ask([&](HelperReply reply) {
      daemon->enableManualV2(minutes, extendOnly, name, context, event, std::move(reply));
    });
  }

  NODOHelperCommandResponse askStop() {
    return ask([this](HelperReply reply) { daemon->stop(std::move(reply)); });
  }

  NODOHelperCommandResponse askReconcile() {
    return ask([this](HelperReply reply) { daemon->reconcile(std::move(reply)); });
  }

  NODOHelperCommandResponse askRepair() {
    return ask([this](HelperReply reply) { daemon->repair(std::move(reply)); });
  }

  // ---- what it left behind

  StateStore store() const { return {folder / "state"}; }

  std::filesystem::path mark() const { return folder / "lock-mark"; }

  NODOState stored() const { return store().load(); }

  void put(const NODOState& state) const { store().save(state); }

  /// A timer that ends then, and ownership as it says, as an earlier daemon left them.
  void putTimer(double endsIn, bool owned) const {
    NODOState state = NODOState::fresh(now);
    state.manualUntil = now + Seconds(endsIn);
    state.ownsSleepDisable = owned;
    put(state);
  }

  void breakState() const { folder.write("state/state.json", "{"); }

  void closeLidOnBattery() const {
    machine->lidClosed = true;
    machine->powerSource = PowerSource::battery;
    machine->batteryPercent = 80;
  }

  std::vector<std::string> auditReasons() const {
    std::vector<std::string> reasons;
    for (const PowerOperationAudit& audit : stored().powerOperationHistory) {
      reasons.push_back(audit.reason.value_or("none"));
    }
    return reasons;
  }

  test::TemporaryFolder folder = test::TemporaryFolder::inMemory();
  std::shared_ptr<test::FakeMachine> machine = std::make_shared<test::FakeMachine>();
  test::FakePowerManager power;
  DaemonSettings settings;
  EffectiveSettings changedSettings;  ///< what a hangup reads
  bool lockDiesWithProcess = true;
  bool lockIsReadable = true;
  bool nameIsTaken = false;
  std::vector<LockTerms> terms;  // each that was set
  bool termsAreRefused = false;
  int sessionLocks = 0;  // that were asked for
  bool sessionLocksFail = false;
  FakeLoop loop;
  std::vector<std::string> lines;
  Date now = dateFromSeconds(startOfTest);
  Seconds running{1000};  // the machine's own clock
  std::unique_ptr<LockKeeper> keeper;
  std::unique_ptr<Daemon> daemon;
};

}  // namespace nodo
