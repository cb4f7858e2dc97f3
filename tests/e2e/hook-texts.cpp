// Prints the texts that are installed for agents, for the checks that run them.
//
// usage: nodo_hook_texts script [NODOCTL]
//        nodo_hook_texts pi-extension SCRIPT

#include <NODOCore/hooks/HookScript.h>

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  std::string text;
  if (!arguments.empty() && arguments.size() <= 2 && arguments[0] == "script") {
    text = nodo::hookScriptText(arguments.size() == 2 ? arguments[1] : "");
  } else if (arguments.size() == 2 && arguments[0] == "pi-extension") {
    text = nodo::piExtensionText(arguments[1]);
  } else {
    std::cerr << "usage: nodo_hook_texts script [NODOCTL] | pi-extension SCRIPT\n";
    return 2;
  }
  std::cout << text << std::flush;
  return std::cout ? 0 : 1;
}
