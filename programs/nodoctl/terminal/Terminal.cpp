#include <NODOCore/base/Files.h>
#include <NODOCore/base/Text.h>
#include <programs/nodoctl/terminal/Terminal.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace nodo::nodoctl {
namespace {

class PosixTerminal : public Terminal {
 public:
  explicit PosixTerminal(int descriptor) : descriptor_(descriptor) {}

  bool isTerminal() const override { return ::isatty(descriptor_) == 1; }

  TerminalSize size() const override {
    winsize told{};
    TerminalSize size;
    if (::ioctl(descriptor_, TIOCGWINSZ, &told) == 0 && told.ws_col > 0 && told.ws_row > 0) {
      size = {.columns = told.ws_col, .rows = told.ws_row};
    }
    return size;
  }

  void write(std::string_view text) override {
    while (!text.empty()) {
      const auto written = ::write(descriptor_, text.data(), text.size());
      if (written >= 0) {
        text.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno != EINTR) {
        throwErrno("Unable to write to", "the terminal");
      }
    }
  }

  // To switch it off from the background stops this process until it comes to the front, as is
  // usual for programs that take the whole terminal. To switch it on must not: the process may be
  // ending.
  void setEcho(bool on) override {
    termios settings{};
    if ((on && ::tcgetpgrp(descriptor_) != ::getpgrp()) ||
        ::tcgetattr(descriptor_, &settings) != 0) {
      return;
    }
    const auto echo = static_cast<tcflag_t>(ECHO);
    settings.c_lflag = on ? settings.c_lflag | echo : settings.c_lflag & ~echo;
    ::tcsetattr(descriptor_, TCSANOW, &settings);
  }

 private:
  int descriptor_;
};

// Of the variables that name the locale the first that is not empty counts.
bool isUTF8Locale(const Environment& environment) {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    if (const auto value = nonEmptyValue(environment, name)) {
      const std::string locale = lowercased(*value);
      return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
    }
  }
  return false;
}

}  // namespace

std::shared_ptr<Terminal> terminalAt(int descriptor) {
  return std::make_shared<PosixTerminal>(descriptor);
}

bool canRedraw(const Environment& environment, bool isTerminal) {
  const auto kind = nonEmptyValue(environment, "TERM");
  return isTerminal && kind && *kind != "dumb";
}

TextStyle textStyle(const Environment& environment, bool isTerminal) {
  return {.colour = canRedraw(environment, isTerminal) && !nonEmptyValue(environment, "NO_COLOR"),
          .utf8 = isUTF8Locale(environment)};
}

}  // namespace nodo::nodoctl
