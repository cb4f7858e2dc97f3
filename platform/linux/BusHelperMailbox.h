#pragma once

#include <NODOCore/base/FileDescriptor.h>
#include <NODOCore/helper/HelperConnection.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

namespace nodo {

/// One request on its way to the daemon.
struct BusHelperRequest {
  std::string member;                              ///< the method's name
  std::function<void(sd_bus_message*)> arguments;  ///< appends them; throws BusError
  HelperReply reply;
  HelperConnection::ErrorHandler failed;
};

/// Where requests wait for the thread that serves the bus, and how that thread is told to end.
/// Safe from any thread.
class BusHelperMailbox {
 public:
  /// Throws std::system_error.
  BusHelperMailbox();

  /// Hands in a request; false when the connection has ended already.
  bool post(BusHelperRequest request);

  /// Tells the thread to end.
  void close();

  bool isClosed() const;

  /// The requests that came since the last call.
  std::vector<BusHelperRequest> take();

  /// Readable since something was posted or it was closed, until `acknowledge`.
  int descriptor() const { return wakeUp_.get(); }

  void acknowledge();

 private:
  void wake();

  mutable std::mutex mutex_;
  std::vector<BusHelperRequest> requests_;
  bool closed_ = false;
  FileDescriptor wakeUp_;
};

}  // namespace nodo
