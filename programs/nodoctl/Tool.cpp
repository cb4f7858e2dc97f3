#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/Commands.h>
#include <programs/nodoctl/Tool.h>

namespace nodo::nodoctl {
namespace {

int performAndPrint(const Invocation& invocation, const ToolContext& context) {
  const Answer answer = perform(invocation, context);
  for (const std::string& hint : answer.hints) {
    context.console().complain(hint);
  }
  if (!answer.output.empty()) {
    context.console().print(answer.output);
  }
  return answer.exitStatus.value_or(answer.failed ? exitFailure : exitSuccess);
}

}  // namespace

int runTool(const std::vector<std::string>& arguments, const ToolContext& context) {
  return runProgram<Invocation>(
      context.console(), arguments, parseCommandLine,
      [&context](const Invocation& invocation) { return performAndPrint(invocation, context); });
}

}  // namespace nodo::nodoctl
