#include <programs/nodoctl/CommandLine.h>
#include <programs/nodoctl/StateAccess.h>
#include <programs/nodoctl/Tool.h>
#include <programs/nodoctl/commands/Commands.h>

#include <algorithm>
#include <iostream>
#include <system_error>
#include <utility>
#include <variant>

#include <unistd.h>

namespace nodo::nodoctl {
namespace {

namespace fs = std::filesystem;

int performAndPrint(const Invocation& invocation, const ToolContext& context) {
  Answer answer;
  try {
    answer = std::visit([&](const auto& command) { return perform(command, context); }, invocation);
  } catch (const RefusedValue& refused) {
    return context.console().refuse(
        {.message = refused.what(),
         .hint = "Whoever runs the daemon sets the limits: see nodod(8)."});
  }
  for (const std::string& hint : answer.hints) {
    context.console().complain(hint);
  }
  if (!answer.output.empty()) {
    context.console().print(answer.output);
  }
  return answer.exitStatus;
}

}  // namespace

ToolContext systemContext(std::chrono::milliseconds patience, std::string startedAs) {
  return {.environment = processEnvironment(),
          .machine = hostMachine(patience),
          .helperConnecting = nodo::helperConnecting,
          .refusalOfThisProgram = nodo::refusalOfThisProgram,
          .daemonStanding = nodo::daemonStanding,
          .daemonSettings = nodo::daemonSettings,
          .listenForChanges = nodo::listenForChanges,
          .restartCommand = nodo::restartCommand(),
          .now = currentDate,
          .output = std::cout,
          .error = std::cerr,
          .startedAs = std::move(startedAs)};
}

int runTool(const std::vector<std::string>& arguments, const ToolContext& context) {
  const int columns = helpColumns(
      context.environment,
      context.terminal ? std::optional(context.terminal->size().columns) : std::nullopt);
  return runProgram<Invocation>(
      context.console(), arguments,
      [columns](const auto& words) { return parseCommandLine(words, columns); },
      [&context](const Invocation& invocation) { return performAndPrint(invocation, context); });
}

std::optional<fs::path> toolPath(const ToolContext& context) {
  const std::string& name = context.startedAs;
  if (name.find('/') != std::string::npos) {
    return absolutePath(name);
  }
  const auto path = context.environment.find("PATH");
  if (path == context.environment.end()) {
    return std::nullopt;
  }
  const std::vector<fs::path> places = placesOfProgram(name, path->second);
  const auto found = std::find_if(places.begin(), places.end(), isProgram);
  return found == places.end() ? std::nullopt : std::optional(absolutePath(*found));
}

std::optional<fs::path> homeFolder(const Environment& environment) {
  const auto home = nonEmptyValue(environment, "HOME");
  return home ? std::optional(absolutePath(*home)) : std::nullopt;
}

HookSurroundings hookSurroundings(const Environment& environment) {
  std::error_code ignored;  // a folder that is gone has no settings
  return {.environment = environment, .workingFolder = fs::current_path(ignored)};
}

std::vector<fs::path> placesOfProgram(const std::string& name, std::string_view searchPath) {
  if (name.empty() || name.find('/') != std::string::npos) {
    return {name};
  }
  std::vector<fs::path> places;
  for (;;) {
    const auto end = std::min(searchPath.find(':'), searchPath.size());
    places.push_back(fs::path(searchPath.substr(0, end)) / name);
    if (end == searchPath.size()) {
      return places;
    }
    searchPath.remove_prefix(end + 1);
  }
}

bool isProgram(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored) && ::access(path.c_str(), X_OK) == 0;
}

fs::path absolutePath(const fs::path& path) {
  const fs::path absolute = fs::absolute(path);
  const bool goesUp = std::find(absolute.begin(), absolute.end(), "..") != absolute.end();
  const fs::path plain = goesUp ? absolute : absolute.lexically_normal();
  return plain.has_filename() || !plain.has_relative_path() ? plain : plain.parent_path();
}

}  // namespace nodo::nodoctl
