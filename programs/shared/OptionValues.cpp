#include <programs/shared/OptionValues.h>

#include <cstddef>
#include <locale>
#include <sstream>
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
