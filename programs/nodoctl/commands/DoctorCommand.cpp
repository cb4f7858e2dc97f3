#include <NODOCore/diagnostics/DoctorReport.h>
#include <programs/nodoctl/ReportAnswer.h>
#include <programs/nodoctl/commands/DoctorCommand.h>
#include <programs/nodoctl/health/HealthFacts.h>
#include <programs/nodoctl/health/VerboseText.h>

namespace nodo::nodoctl {

Answer performDoctor(const Invocation& invocation, const ToolContext& context) {
  const HealthFacts facts =
      gatherHealth({.bus = invocation.bus, .timeout = invocation.helperTimeout}, context);
  const DoctorReport report(facts.status.source, facts.status.report,
                            facts.diagnostics.sleepDisabled, facts.hookFallback,
                            facts.hookInspection);
  Answer answer{.output = invocation.json ? jsonDocument(report) : report.text() + "\n",
                .hints = healthHints(facts),
                .failed = !isReady(report.verdict)};
  if (invocation.verbose && !invocation.json) {
    answer.output += verboseText(facts, context.environment);
  }
  return answer;
}

}  // namespace nodo::nodoctl
