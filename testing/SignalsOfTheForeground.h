#pragma once

#include <csignal>
#include <utility>
#include <vector>

namespace nodo::test {

/// While it lives, no signal is ignored: as a shell starts a program that a person waits for.
///
/// Whoever runs the tests in the background, or under "nohup", may have signals ignored. Programs
/// that a test starts would inherit that, and a shell cannot undo it.
class SignalsOfTheForeground {
 public:
  SignalsOfTheForeground();
  SignalsOfTheForeground(const SignalsOfTheForeground&) = delete;
  SignalsOfTheForeground& operator=(const SignalsOfTheForeground&) = delete;
  ~SignalsOfTheForeground();

 private:
  std::vector<std::pair<int, struct sigaction>> ignored_;
};

}  // namespace nodo::test
