#include <NODOCore/NODOCore.h>

#include <iostream>

// Decides for a machine on battery whose timer runs: once with charge enough, once without.
int main() {
  const nodo::Date now = nodo::dateFromSeconds(1'800'000'000);
  const nodo::PowerDecisionEngine engine{.policy = {.minimumBatteryPercent = 20,
                                                    .maxManualDurationMinutes = 720,
                                                    .lidOpenGraceSeconds = 60,
                                                    .noRouteGraceSeconds = 300}};
  nodo::NODOState state;
  state.manualUntil = now + nodo::Seconds(600);
  for (const int percent : {80, 10}) {
    const nodo::SystemSnapshot snapshot{
        .now = now, .powerSource = nodo::PowerSource::battery, .batteryPercent = percent};
    const nodo::PowerDecision decision = engine.evaluate(state, {}, snapshot);
    std::cout << nodo::encodeJSON(decision, nodo::JSONLayout::compact) << '\n';
  }
}
