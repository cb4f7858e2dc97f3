// Lets /bin/ps say what a test wants. Preloaded into it (LD_PRELOAD), it ends with the exit status
// in NODO_PS_STATUS before it does anything else, having written NODO_PS_OUTPUT and NODO_PS_ERROR.

#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace {

void say(int stream, const char* text) {
  if (text == nullptr || ::write(stream, text, std::strlen(text)) < 0) {
    std::_Exit(99);
  }
}

[[gnu::constructor]] void standIn() {
  const char* status = std::getenv("NODO_PS_STATUS");
  say(STDOUT_FILENO, std::getenv("NODO_PS_OUTPUT"));
  say(STDERR_FILENO, std::getenv("NODO_PS_ERROR"));
  std::_Exit(status == nullptr ? 99 : std::atoi(status));
}

}  // namespace
