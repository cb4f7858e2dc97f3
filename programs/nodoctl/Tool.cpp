#include <NODOCore/base/Text.h>
#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/Commands.h>
#include <programs/nodoctl/Tool.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <ostream>
#include <stdexcept>
#include <variant>

namespace nodo::nodoctl {
namespace {

// A full disk shows itself only when the buffer is written out.
void write(std::ostream& output, const std::string& text) {
  errno = 0;
  output << text << std::flush;
  if (!output) {
    throw std::runtime_error(std::string("the answer cannot be written: ") +
                             (errno != 0 ? std::strerror(errno) : "the output is closed"));
  }
}

int performAndPrint(const Invocation& invocation, const ToolContext& context) {
  const Answer answer = perform(invocation, context);
  for (const std::string& hint : answer.hints) {
    complain(context.error, hint);
  }
  if (!answer.output.empty()) {
    write(context.output, answer.output);
  }
  return answer.exitStatus.value_or(answer.failed ? exitFailure : exitSuccess);
}

}  // namespace

void complain(std::ostream& error, const std::string& message) {
  error << "nodoctl: " << escapedForDisplay(message) << '\n';
}

int runTool(const std::vector<std::string>& arguments, const ToolContext& context) {
  try {
    const ParsedCommandLine parsed = parseCommandLine(arguments);
    if (const auto* usage = std::get_if<UsageError>(&parsed)) {
      complain(context.error, usage->message);
      context.error << usage->hint << '\n';
      return exitWrongUse;
    }
    if (const auto* help = std::get_if<HelpText>(&parsed)) {
      write(context.output, help->text);
      return exitSuccess;
    }
    return performAndPrint(std::get<Invocation>(parsed), context);
  } catch (const std::exception& error) {
    complain(context.error, error.what());
    return exitFailure;
  }
}

}  // namespace nodo::nodoctl
