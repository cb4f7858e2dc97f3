#pragma once

#include <csignal>

namespace nodo {

/// While it lives no signal reaches this thread; threads and children that it starts begin so.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }

  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  /// What was blocked before.
  const sigset_t& before() const { return before_; }

 private:
  sigset_t before_{};
};

}  // namespace nodo
