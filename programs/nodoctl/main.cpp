#include <programs/nodoctl/Tool.h>

#include <chrono>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

// A hook runs two commands, and its agent waits for it: with a second for the daemon each, and
// whatever else hangs, it is over within 3.5 seconds.
constexpr std::chrono::milliseconds patience(300);

}  // namespace

int main(int argc, char** argv) {
  nodo::prepareProcess();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  auto context = nodo::nodoctl::systemContext(patience, argc > 0 ? argv[0] : "");
  context.terminal = nodo::nodoctl::terminalAt(STDOUT_FILENO);
  return nodo::nodoctl::runTool(arguments, context);
}
