#include <NODOCore/base/Text.h>
#include <programs/shared/ProgramFrame.h>

#include <cerrno>
#include <cstring>
#include <ostream>
#include <stdexcept>

namespace nodo {

void Console::print(const std::string& text) const {
  errno = 0;
  // A full disk shows itself only when the buffer is written out.
  output << text << std::flush;
  if (!output) {
    throw std::runtime_error(std::string("the answer cannot be written: ") +
                             (errno != 0 ? std::strerror(errno) : "the output is closed"));
  }
}

void Console::complain(std::string_view message) const {
  // In one piece, so that lines of two processes do not mix.
  error << std::string(program) + ": " + escapedForDisplay(message) + "\n" << std::flush;
}

int Console::refuse(const UsageError& usage) const {
  complain(usage.message);
  error << usage.hint << '\n';
  return exitWrongUse;
}

}  // namespace nodo
