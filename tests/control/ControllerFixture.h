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
  static constexpr std::int64_t longestPeriod = 720;

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

  void advance(double seconds) { now += Seconds(seconds); }

  NODOState stored() const { return store().load(); }

  std::string storedText() const { return folder.read("state/state.json"); }

  bool isStored() const { return std::filesystem::exists(store().stateURL()); }

  void put(const NODOState& state) const { store().save(state); }

  static ActivationRequester requester(const std::string& name,
                                       const std::optional<std::string>& context = std::nullopt) {
    return {name, context, "PreToolUse", Date()};
  }

  StateStore store() const { return {folder / "state"}; }

  NODOController controller() const {
    return test::controllerFor(machine, store(),
                               {.minimumBatteryPercent = 20,
                                .maxManualDurationMinutes = longestPeriod,
                                .lidOpenGraceSeconds = 60,
                                .noRouteGraceSeconds = 300});
  }

  test::TemporaryFolder folder = test::TemporaryFolder::inMemory();
  std::shared_ptr<test::FakeMachine> machine = std::make_shared<test::FakeMachine>();
  test::FakePowerManager power;
  Date now = dateFromSeconds(startOfTest);
};

}  // namespace nodo
