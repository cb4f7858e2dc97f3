#pragma once

#include <NODOCore/base/Files.h>
#include <platform/linux/bus/BusConnection.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace nodo {

/// A service under the daemon's name on a bus, whose answers a test scripts.
class ScriptedDaemon {
 public:
  /// What becomes of a request. Called on the daemon's thread, which also runs what it calls.
  using Answer = std::function<void(ScriptedDaemon& daemon, sd_bus_message* request)>;

  static Answer text(std::string text);
  static Answer number();
  static Answer error(std::string name, std::string message);
  static Answer silence();
  /// Drops the connection to the bus.
  static Answer death();

  /// Returns once the name is owned. Throws BusError.
  ScriptedDaemon(const std::string& address, Answer answer);
  ScriptedDaemon(const ScriptedDaemon&) = delete;
  ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;
  ~ScriptedDaemon();

  /// The requests so far, e.g. "EnableManualV2(xba{sv}) 20 true name=Codex".
  std::vector<std::string> requests() const;

 private:
  static int received(sd_bus_message* message, void* self, sd_bus_error* error);
  void serve();

  Answer answer_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  FileDescriptor end_;
  BusHandle bus_;
  std::thread thread_;
};

}  // namespace nodo
