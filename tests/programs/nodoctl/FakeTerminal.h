#pragma once

#include <programs/nodoctl/terminal/Terminal.h>

#include <string>
#include <vector>

namespace nodo::nodoctl {

/// A terminal whose size a test sets, and that keeps what it was told.
class FakeTerminal : public Terminal {
 public:
  TerminalSize dimensions;
  std::vector<std::string> writes;
  std::vector<bool> echoes;

  bool isTerminal() const override { return true; }

  TerminalSize size() const override { return dimensions; }

  void write(std::string_view text) override { writes.emplace_back(text); }

  void setEcho(bool on) override { echoes.push_back(on); }
};

}  // namespace nodo::nodoctl
