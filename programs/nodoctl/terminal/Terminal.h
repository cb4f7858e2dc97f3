#pragma once

#include <NODOCore/base/Environment.h>

#include <memory>
#include <string_view>

namespace nodo::nodoctl {

struct TerminalSize {
  int columns = 80;
  int rows = 24;

  bool operator==(const TerminalSize&) const = default;
};

/// Where standard output goes, if that is a terminal.
class Terminal {
 public:
  virtual ~Terminal() = default;

  virtual bool isTerminal() const = 0;

  /// The size now; a usual one where the terminal does not tell.
  virtual TerminalSize size() const = 0;

  /// Writes all of `text`, in one go where the terminal takes it. Throws std::system_error.
  virtual void write(std::string_view text) = 0;

  /// Whether what is typed shows up. To switch it off waits until the terminal is this process's.
  virtual void setEcho(bool on) = 0;
};

/// The terminal behind an open descriptor, which must outlive it.
std::shared_ptr<Terminal> terminalAt(int descriptor);

/// What may be shown there.
struct TextStyle {
  bool colour = false;
  bool utf8 = false;

  bool operator==(const TextStyle&) const = default;
};

/// As the locale's variables and NO_COLOR say; colour only on a terminal that can show it.
TextStyle textStyle(const Environment& environment, bool isTerminal);

/// Whether a frame can be redrawn in place there.
bool canRedraw(const Environment& environment, bool isTerminal);

}  // namespace nodo::nodoctl
