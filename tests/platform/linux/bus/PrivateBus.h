#pragma once

#include <testing/TemporaryFolder.h>

#include <string>

#include <sys/types.h>

namespace nodo {

/// A message bus of the test's own.
class PrivateBus {
 public:
  /// Whether this machine has the program for it.
  static bool isInstalled();

  /// Starts it and returns once it can be connected to.
  PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  const std::string& address() const { return address_; }

  /// Ends it at once, with all connections to it.
  void kill();

  /// Stops it, so that it takes connections and messages but answers none.
  void hang();

  /// Lets it go on after that.
  void goOn();

 private:
  test::TemporaryFolder folder_;
  std::string address_;
  pid_t pid_ = -1;
};

}  // namespace nodo
