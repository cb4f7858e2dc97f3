// A stand-in for nodod around the real loop and the real lock, that says on standard output what
// reaches it. For scripts that play its clients, its machine and its service manager.
//
// usage: nodo_daemon_driver loop [BUS]
//        nodo_daemon_driver lock    takes "take", "release", "sleep", "held", "because WHY",
//                                   "display WHY" on standard input
//        nodo_daemon_driver choose  auto|logind|simulated|pmset
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/power/PowerManaging.h>
#include <platform/DaemonMachine.h>
#include <platform/linux/senses/LinuxSystemSnapshotProvider.h>
#include <programs/shared/ProgramFrame.h>

#include <csignal>
#include <cstddef>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include <unistd.h>

namespace {

using nodo::HelperReply;
using nodo::Seconds;

constexpr std::size_t moreThanABusTakes = 40 * std::size_t{1024} * 1024;

void say(const std::string& line) {
  std::cout << line << std::endl;
}

std::string textOr(const std::optional<std::string>& text) {
  return text ? "'" + *text + "'" : "-";
}

// Says what was asked and answers with its number. Some numbers of minutes ask for a misdeed or for
// something to be told to the loop.
class Service : public nodo::NODOHelperXPCProtocol {
 public:
  explicit Service(nodo::DaemonLoop& loop) : loop_(loop) {}

  void perform(nodo::HelperRequest request, HelperReply reply) override {
    std::visit([&](const auto& asked) { serve(asked, reply); }, request);
  }

  // What the daemon does at whatever happens: it looks at the machine.
  void pass(const std::string& occasion) {
    pass();
    say(occasion);  // whoever reads this may change the machine
  }

  void pass() {
    const nodo::LinuxSystemSnapshotProvider machine([] { return std::nullopt; });
    loop_.afterPass(isLockHeld_, machine.snapshot({}));
  }

 private:
  void serve(const nodo::StatusRequest&, const HelperReply& reply) { answer("status", reply); }

  void serve(const nodo::EnableManualRequest& request, const HelperReply& reply) {
    switch (request.minutes) {
      case -1:
        throw std::runtime_error("the driver fails");
      case -2:
        reply(std::nullopt);
        break;
      case -3:
        reply("\xff");
        break;
      case -4:
        break;
      case -5:
        kept_ = reply;
        break;
      case -6:
        reply("\"\uFFFF\"");
        break;
      case -7:
        throw std::runtime_error("no \xff, no \uFFFF");
      case -8:
        reply(std::string(moreThanABusTakes, 'a'));
        break;
      case -9:
        throw std::runtime_error(std::string(moreThanABusTakes, 'e'));
      default:
        answer("enableManual " + std::to_string(request.minutes), reply);
    }
  }

  void serve(const nodo::EnableManualV2Request& request, const HelperReply& reply) {
    if (request.requesterName == "timer") {
      loop_.setTimer(request.minutes < 0
                         ? std::nullopt
                         : std::optional(Seconds(0.001 * static_cast<double>(request.minutes))));
    } else if (request.requesterName == "lock") {
      isLockHeld_ = request.minutes != 0;
      pass();
    } else if (request.requesterName == "failing pass") {
      loop_.afterPass(isLockHeld_, std::nullopt);
    }
    answer("enableManualV2 " + std::to_string(request.minutes) +
               (request.extendOnly ? " extend " : " replace ") + textOr(request.requesterName) +
               " " + textOr(request.requesterContext) + " " + textOr(request.requesterEvent),
           reply);
  }

  void serve(const nodo::StopRequest&, const HelperReply& reply) {
    answer("stop", reply);
    if (kept_) {
      std::exchange(kept_, nullptr)("late");
    }
  }

  void serve(const nodo::ReconcileRequest&, const HelperReply& reply) {
    pass();
    answer("reconcile", reply);
  }

  void serve(const nodo::RepairRequest&, const HelperReply& reply) { answer("repair", reply); }

  void answer(const std::string& what, const HelperReply& reply) {
    say("request " + what);
    reply("answer " + std::to_string(++count_));
  }

  nodo::DaemonLoop& loop_;
  HelperReply kept_;
  bool isLockHeld_ = false;
  int count_ = 0;
};

void runLoop(const std::optional<std::string>& bus) {
  nodo::LogStream log(STDERR_FILENO, "nodod");
  const nodo::Console console{.program = "nodod", .output = std::cout, .error = log};
  const auto loop =
      nodo::makeDaemonLoop(bus, [&console](const std::string& line) { console.complain(line); });
  Service service(*loop);
  loop->serve(service);
  service.pass();
  say("serving");
  loop->run({.machineChanged =
                 [&](const std::vector<nodo::News>& news) {
                   service.pass("changed " + nodo::listed(news));
                 },
             .timerFired = [&] { service.pass("timer"); },
             .hungUp = [&] { service.pass("hangup"); },
             .terminate = [] { say("terminate"); }});
  say("over");
}

std::string textOf(std::optional<bool> held) {
  return !held ? "unknown" : *held ? "yes" : "no";
}

std::string attempt(const std::function<nodo::PowerOperationResult()>& operation) {
  try {
    return encodeJSON(operation(), nodo::JSONLayout::compact);
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

std::string attemptTerms(const nodo::SleepLock& lock, const nodo::LockTerms& terms) {
  try {
    lock.setTerms(terms);
    return "set";
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

void runLock() {
  const std::string because = "because ";
  const std::string display = "display ";
  nodo::SleepLock lock = nodo::makeSleepLock(nodo::PowerChoice::logind);
  for (std::string command; std::getline(std::cin, command);) {
    if (command == "take" || command == "release") {
      say(attempt([&] { return lock.manager->setSleepDisabled(command == "take"); }));
    } else if (command == "sleep") {
      say(attempt([&] { return lock.manager->requestSleepNow(); }));
    } else if (command.starts_with(because)) {
      say(attemptTerms(lock, {.why = command.substr(because.size())}));
    } else if (command.starts_with(display)) {
      say(attemptTerms(lock, {.why = command.substr(display.size()), .keepsDisplayOn = true}));
    } else {
      say(textOf(lock.isHeld()));
    }
  }
}

void choose(const std::string& name) {
  const std::map<std::string, nodo::PowerChoice> choices{
      {"auto", nodo::PowerChoice::automatic},
      {"logind", nodo::PowerChoice::logind},
      {"simulated", nodo::PowerChoice::simulated},
      {"pmset", nodo::PowerChoice::pmset}};
  const nodo::SleepLock lock = nodo::makeSleepLock(choices.at(name));
  say(lock.isSimulated ? "simulated" : "real");
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "loop") {
      runLoop(argc > 2 ? std::optional<std::string>(argv[2]) : std::nullopt);
    } else if (what == "lock") {
      runLock();
    } else if (what == "choose" && argc > 2) {
      choose(argv[2]);
    } else {
      throw std::runtime_error("no such thing to drive: " + what);
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "driver: " << error.what() << std::endl;
    return 1;
  }
}
