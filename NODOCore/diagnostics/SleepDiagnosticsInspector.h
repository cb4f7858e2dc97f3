#pragma once

#include <NODOCore/base/Date.h>
#include <NODOCore/diagnostics/SleepDiagnosticsReport.h>
#include <NODOCore/power/CommandRunning.h>

#include <memory>
#include <string_view>

namespace nodo {

/// Reads what affects the sleep of a Mac with `pmset -g live` and `pmset -g assertions`.
struct SleepDiagnosticsInspector {
  std::shared_ptr<const CommandRunning> runner;

  /// Runs both tools and reads their output, whatever their exit status. Throws the runner's error
  /// when one cannot be started; the second is not run then.
  SleepDiagnosticsReport report(Date now) const;

  /// The same for texts that are at hand. Pure; unexpected text gives absent values, an empty map
  /// and blockers with placeholders. Takes time linear in the texts' length.
  static SleepDiagnosticsReport parse(std::string_view liveOutput,
                                      std::string_view assertionsOutput, Date generatedAt);

  /// The blocker that one line of the assertions' list names.
  static SleepBlocker parseBlocker(std::string_view line);
};

}  // namespace nodo
