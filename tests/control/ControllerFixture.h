#pragma once

#include <NODOCore/control/NODOController.h>
#include <testing/FakeMachine.h>
#include <testing/FakePowerManager.h>
#include <testing/TemporaryFolder.h>

#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace nodo {

/// A controller over a state of its own, a machine that the test sets, and a clock that it turns.
class ControllerFixture : public ::testing::Test {
 protected:
  static constexpr double startOfTest = 1769847300;  // 2026-01-31T08:15:00Z
  static constexpr std::int64_t longestTimer = 720;

  StatusReport status() const { return controller().status(now); }

  StatusReport start(std::int64_t minutes,
                     const std::optional<ActivationRequester>& requester = std::nullopt) const {
    return controller().enableManual(minutes, now, false, requester);
  }

  StatusReport extend(std::int64_t minutes,
                      const std::optional<ActivationRequester>& requester = std::nullopt) const {
    return controller().enableManual(minutes, now, true, requester);
  }

  StatusReport stop() const { return controller().stop(now); }

  DaemonRunReport reconcile(std::optional<bool> live = std::nullopt) {
    return controller().reconcile(power, live, now);
  }

  DaemonRunReport repair(std::optional<bool> live = std::nullopt) {
    return controller().repair(power, live, now);
  }

  void closeLidOnBattery() const {
    machine->lidClosed = true;
    machine->powerSource = PowerSource::battery;
    machine->batteryPercent = 80;
  }

  void heatUp(ThermalPressure pressure) const { machine->thermalPressure = pressure; }

  void advance(double seconds) { now += Seconds(seconds); }

  NODOState stored() const { return store().load(); }

  std::string storedText() const { return folder.read("state/state.json"); }

  bool isStored() const { return std::filesystem::exists(store().stateURL()); }

  void put(const NODOState& state) const { store().save(state); }

  /// A state in which every field holds something, a timer of half an hour among it, on a machine
  /// whose lid and route are as it says.
  NODOState fullState() const {
    NODOState state = NODOState::fresh(now - Seconds(7200));
    state.manualUntil = now + Seconds(1800);
    state.ownsSleepDisable = true;
    state.lastActivationReason = "manual_timer,lid_open_grace";
    state.lastStopReason = "not_armed";
    state.recordRequester(requester("Codex", "project"), now - Seconds(60), 6, 500);
    state.recordPowerOperation({true, false, "lock", 0, "", ""}, now - Seconds(60), "enable:x", 20);
    state.noRouteUnavailableSince = now - Seconds(10);
    machine->defaultRouteAvailable = false;
    state.lidOpenedAt = now - Seconds(20);
    state.lastLidClosed = false;
    machine->lidClosed = false;
    state.updatedAt = now - Seconds(60);
    return state;
  }

  static ActivationRequester requester(const std::string& name,
                                       const std::optional<std::string>& context = std::nullopt) {
    return {name, context, "PreToolUse", Date()};
  }

  StateStore store() const { return {folder / "state"}; }

  NODOController controller() const {
    return test::controllerFor(machine, store(),
                               {.minimumBatteryPercent = 20,
                                .maxManualDurationMinutes = longestTimer,
                                .lidOpenGraceSeconds = 60,
                                .noRouteGraceSeconds = 300,
                                .stopAtThermalPressure = true,
                                .stopInLowPowerMode = true});
  }

  test::TemporaryFolder folder = test::TemporaryFolder::inMemory();
  std::shared_ptr<test::FakeMachine> machine = std::make_shared<test::FakeMachine>();
  test::FakePowerManager power;
  Date now = dateFromSeconds(startOfTest);
};

}  // namespace nodo
