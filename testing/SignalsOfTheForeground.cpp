#include <testing/SignalsOfTheForeground.h>

namespace nodo::test {

SignalsOfTheForeground::SignalsOfTheForeground() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};

    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
      ignored_.emplace_back(signal, action);
      ::signal(signal, SIG_DFL);
    }
  }
}

SignalsOfTheForeground::~SignalsOfTheForeground() {
  for (const auto& [signal, action] : ignored_) {
    ::sigaction(signal, &action, nullptr);
  }
}

}  // namespace nodo::test
