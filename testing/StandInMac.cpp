#include <testing/StandInMac.h>

#include <cerrno>
#include <system_error>

namespace nodo::test {
namespace {

const std::string pmset = "/usr/bin/pmset";
constexpr std::int32_t sleepIsDisabled = 71;  // EX_OSERR, as pmset exits

[[noreturn]] void fail(int code, const std::string& executable) {
  throw std::system_error(code, std::generic_category(), executable);
}

}  // namespace

void StandInMac::pass(Seconds length) {
  awake += length;
  if (powerdApplies && *powerdApplies <= awake) {
    kernel = preference;
    powerdApplies.reset();
  }
}

void StandInMac::setLidClosed(bool closed) {
  lidClosed = closed;
  if (closed && source == PowerSource::battery) {
    sleepUnlessDisabled();
  }
}

void StandInMac::restart() {
  kernel.reset();
  isAsleep = false;
  if (preference) {
    powerdApplies = awake + powerdDelay;
  }
  pass(Seconds(0));
}

bool StandInMac::sleepUnlessDisabled() {
  isAsleep = isAsleep || !isSleepDisabled();
  return isAsleep;
}

CommandOutput StandInMac::run(const std::string& executable,
                              const std::vector<std::string>& arguments) {
  std::string commandLine = executable;
  for (const std::string& argument : arguments) {
    commandLine += " " + argument;
  }
  commandLines.push_back(commandLine);
  CommandOutput output{.executable = executable, .arguments = arguments};
  switch (faultOf(executable, commandLine)) {
    case ToolFault::none:
      perform(commandLine, output);
      break;
    case ToolFault::lies:
      break;
    case ToolFault::refuses:
      output.standardError = "refused\n";
      output.exitCode = 1;
      break;
    case ToolFault::hangs:
      pass(toolTimeLimit);
      fail(ETIMEDOUT, executable + " has no end");
    case ToolFault::missing:
      fail(ENOENT, "Unable to run " + executable);
  }
  pass(Seconds(0));
  return output;
}

ToolFault StandInMac::faultOf(const std::string& executable, const std::string& commandLine) const {
  for (const std::string& name : {commandLine, executable}) {
    if (const auto found = faults.find(name); found != faults.end()) {
      return found->second;
    }
  }
  return ToolFault::none;
}

void StandInMac::perform(const std::string& commandLine, CommandOutput& output) {
  if (commandLine == pmset + " -a disablesleep 1" || commandLine == pmset + " -a disablesleep 0") {
    preference = commandLine.back() == '1';
    powerdApplies = awake + powerdDelay;
  } else if (commandLine == pmset + " sleepnow") {
    if (!sleepUnlessDisabled()) {
      output.standardError = "Failed to sleep system: error 0xe00002bc\n";
      output.exitCode = sleepIsDisabled;
    }
  } else if (commandLine == pmset + " -g live") {
    output.standardOutput = "System-wide power settings:\n";
    if (preference) {
      output.standardOutput += std::string(" SleepDisabled\t\t") + (*preference ? "1" : "0") + "\n";
    }
  } else if (commandLine == pmset + " -g batt") {
    output.standardOutput = battery();
  } else if (commandLine == "/sbin/route -n get default") {
    output.standardOutput = hasRoute ? "    gateway: 192.0.2.1\n  interface: en0\n" : "";
    output.exitCode = hasRoute ? 0 : 1;
  } else if (commandLine == "/usr/sbin/ioreg -r -k AppleClamshellState -d 4") {
    output.standardOutput = lidClosed ? domain() : "";
  } else if (commandLine == "/usr/sbin/ioreg -r -c IOPMrootDomain -d 1") {
    output.standardOutput = domain();
  } else {
    output.exitCode = 64;  // EX_USAGE
  }
}

std::string StandInMac::battery() const {
  const bool isOnMains = source == PowerSource::ac;
  return std::string("Now drawing from '") + (isOnMains ? "AC Power" : "Battery Power") + "'\n" +
         " -InternalBattery-0 (id=1234567)\t" + std::to_string(batteryPercent) + "%; " +
         (isOnMains ? "charged" : "discharging") + "; 0:00 remaining present: true\n";
}

std::string StandInMac::domain() const {
  const auto word = [](bool value) { return value ? "Yes\n" : "No\n"; };
  std::string text =
      "+-o IOPMrootDomain  <class IOPMrootDomain, id 0x10000010e, registered>\n  {\n";
  if (lidClosed) {
    text += std::string("    \"AppleClamshellState\" = ") + word(*lidClosed);
  }
  if (kernel) {
    text += std::string("    \"SleepDisabled\" = ") + word(*kernel);
  }
  return text + "  }\n\n";
}

Waiting waitingOn(StandInMac& mac) {
  return {.now = [&mac] { return mac.awake; },
          .pause = [&mac](Seconds length) { mac.pass(length); }};
}

}  // namespace nodo::test
