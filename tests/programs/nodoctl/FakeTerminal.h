#pragma once

#include <programs/nodoctl/terminal/Terminal.h>

#include <string>
#include <utility>
#include <vector>

namespace nodo::nodoctl {

/// A terminal whose size a test sets, and that keeps what it was told.
class FakeTerminal : public Terminal {
 public:
  TerminalSize dimensions;
  std::vector<std::string> writes;
  std::vector<bool> echoes;
  std::string keys;  ///< that are typed

  bool isTerminal() const override { return true; }

  TerminalSize size() const override { return dimensions; }

  void write(std::string_view text) override { writes.emplace_back(text); }

  void setEcho(bool on) override { echoes.push_back(on); }

  pollfd events() const override { return {.fd = -1, .events = POLLIN, .revents = 0}; }

  std::string typed() override { return std::exchange(keys, {}); }
};

}  // namespace nodo::nodoctl
