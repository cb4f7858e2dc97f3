#include <NODOCore/hooks/AgentHookLogInspector.h>
#include <platform/HelperMachine.h>
#include <programs/nodo-menu/CommandLine.h>
#include <programs/nodo-menu/Desktop.h>
#include <programs/nodo-menu/FirstInstance.h>
#include <programs/nodo-menu/Program.h>
#include <programs/nodoctl/Tool.h>

#include <QApplication>
#include <QSettings>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using nodo::nodoctl::isProgram;
using nodo::nodoctl::placesOfProgram;

// Nobody waits for it here but the menu, which says meanwhile what it knew.
constexpr std::chrono::seconds patience(1);

const nodo::Console console{.program = "nodo-menu", .output = std::cout, .error = std::cerr};

// How a shell would call nodoctl, which the agents' hooks call; else where nodo's programs lie.
std::string nodoctlName(const nodo::Environment& environment) {
  const auto path = environment.find("PATH");
  const auto places = placesOfProgram("nodoctl", path == environment.end() ? "" : path->second);
  if (std::any_of(places.begin(), places.end(), isProgram)) {
    return "nodoctl";
  }
  const auto beside = QCoreApplication::applicationDirPath().toStdString() + "/nodoctl";
  return isProgram(beside) ? beside : "/usr/local/bin/nodoctl";
}

std::filesystem::path runtimeFolder() {
  const QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  if (folder.isEmpty()) {
    throw std::runtime_error(
        "there is no folder for this user's running programs: is XDG_RUNTIME_DIR set?");
  }
  return folder.toStdString();
}

// Qt ends the process where it cannot show anything, as on a display that is gone.
void complain(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text) {
  if (type == QtFatalMsg) {
    console.complain(text.toStdString());
    _exit(nodo::exitFailure);
  }
  std::cerr << text.toStdString() << "\n";
}

int show(const nodo::menu::Options& options, int argc, char** argv) {
  const nodo::Environment environment = nodo::processEnvironment();
  if (const auto reason = nodo::menu::whyNothingCanBeShown(environment)) {
    throw std::runtime_error(*reason);
  }
  qInstallMessageHandler(complain);
  QApplication application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("nodo-menu"));
  QApplication::setApplicationDisplayName(QStringLiteral("nodo"));
  QApplication::setOrganizationName(QStringLiteral("nodo"));
  QApplication::setDesktopFileName(QStringLiteral("com.quintavel.nodo.menu"));
  QApplication::setQuitOnLastWindowClosed(false);
  nodo::menu::FirstInstance first(runtimeFolder());
  if (!first.claim()) {
    return nodo::exitSuccess;
  }
  const auto tool = nodo::nodoctl::systemContext(patience, nodoctlName(environment));
  // A daemon that somebody has stopped stays so until a person wants something of it.
  nodo::nodoctl::ToolContext looking = tool;
  looking.helperConnecting = nodo::helperWatching;
  QSettings settings;
  nodo::menu::Program program(
      {.serve =
           [&](const nodo::menu::Wish& wish) {
             const bool onlyLooks = std::holds_alternative<nodo::menu::Look>(wish);
             return nodo::menu::serve(wish, options.daemon, onlyLooks ? looking : tool);
           },
       .restartCommand = tool.restartCommand,
       .now = tool.now,
       .hookLog = nodo::AgentHookLogInspector::logPath(environment),
       .login = {nodo::menu::loginItemKind(), environment,
                 QCoreApplication::applicationFilePath().toStdString()},
       .settings = settings});
  QSocketNotifier others(first.descriptor(), QSocketNotifier::Read);
  QObject::connect(&others, &QSocketNotifier::activated, &others, [&first, &program] {
    first.takeOthers();
    program.showWindow();
  });
  program.start();
  if (options.showsWindow) {
    program.showWindow();
  }
  const int status = QApplication::exec();
  // The last question may take a while: who starts another one meanwhile shall not meet this one.
  others.setEnabled(false);
  first.stopListening();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  nodo::prepareProcess();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const nodo::Environment environment = nodo::processEnvironment();
  return nodo::runProgram<nodo::menu::Options>(
      console, arguments,
      [&](const auto& words) {
        return nodo::menu::parseCommandLine(
            words, nodo::helpColumns(environment, nodo::columnsOfTerminal(STDOUT_FILENO)));
      },
      [&](const nodo::menu::Options& options) { return show(options, argc, argv); });
}
