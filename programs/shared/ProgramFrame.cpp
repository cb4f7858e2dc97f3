#include <NODOCore/base/Text.h>
#include <programs/shared/ProgramFrame.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <locale>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <CLI/Error.hpp>

namespace nodo {
namespace {

// Who may ask for the lock is this computer's matter, and the library would look up such an
// address's host for as long as that takes, whatever the time limit. It may be one of several
// addresses, which are tried in turn.
bool isInANetwork(const std::string& busAddress) {
  for (std::string_view left = busAddress;;) {
    const std::size_t end = left.find(';');
    if (left.starts_with("tcp:") || left.starts_with("nonce-tcp:")) {
      return true;
    }
    if (end == std::string_view::npos) {
      return false;
    }
    left.remove_prefix(end + 1);
  }
}

}  // namespace

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

std::optional<double> decimalNumber(const std::string& text) {
  double value = 0;
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  if (text.find_first_not_of("0123456789.") != std::string::npos || !(stream >> value) ||
      !stream.eof()) {
    return std::nullopt;
  }
  return value;
}

std::string busChoice(const std::string& text) {
  if (text != "system" && text != "session" && text.find(':') == std::string::npos) {
    throw CLI::ValidationError("--bus", "\"" + text +
                                            "\" is neither system nor session nor a bus address "
                                            "such as unix:path=/run/bus");
  }
  if (isInANetwork(text)) {
    throw CLI::ValidationError("--bus", "\"" + text +
                                            "\" is in a network; daemon and tools meet on a bus of "
                                            "this computer");
  }
  return text;
}

}  // namespace nodo
