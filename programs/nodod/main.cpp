#include <NODOCore/base/System.h>
#include <platform/DaemonMachine.h>
#include <programs/nodod/Program.h>

#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

int main(int argc, char** argv) {
  nodo::prepareProcess();
  // A client that goes away is no reason to end; and the state names people's projects, so only its
  // owner may read it.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGHUP, SIG_IGN);  // until the loop takes it
  ::umask(077);
  nodo::LogStream log(STDERR_FILENO, "nodod");
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return nodo::nodod::runDaemon(
      arguments, {.environment = nodo::processEnvironment(),
                  .machine = nodo::daemonMachine,
                  .makeSleepLock = nodo::makeSleepLock,
                  .makeLoop = nodo::makeDaemonLoop,
                  .stateFolder = nodo::daemonStateFolder,
                  .settingsFile = nodo::settingsFile(),
                  .now =
                      [] {
                        return nodo::Moment{nodo::currentDate(), nodo::runningTime()};
                      },
                  .useLog = [&log](const std::string& path) { log.follow(path); },
                  .output = std::cout,
                  .error = log});
}
