#pragma once

#include <platform/linux/BusConnection.h>
#include <platform/linux/BusHelperMailbox.h>

#include <cstddef>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include <systemd/sd-bus.h>

namespace nodo {

/// What the thread of a BusHelperConnection does: connects, sends what comes into the mailbox, and
/// passes on what comes back, until the mailbox is closed. For one thread.
class BusHelperLink {
 public:
  BusHelperLink(std::optional<std::string> bus, std::string serviceName, BusHelperMailbox& mailbox,
                HelperConnection::Handler interrupted);
  BusHelperLink(const BusHelperLink&) = delete;
  BusHelperLink& operator=(const BusHelperLink&) = delete;
  ~BusHelperLink();

  /// Serves until the mailbox is closed, even when the bus cannot be reached: then every request is
  /// told why.
  void run();

 private:
  struct Pending;

  void connectTo(const std::string& bus);
  void serve();
  void serveOrInterrupt();
  void send(const BusHelperRequest& request);
  void sendOrThrow(const BusHelperRequest& request);
  void refuse(const std::string& reason);
  void wait();

  static int received(sd_bus_message* message, void* pending, sd_bus_error* error);
  void answer(const BusHelperRequest& request, sd_bus_message* message);
  std::string explained(const sd_bus_error& error) const;

  std::optional<std::string> choice_;
  std::string serviceName_;
  BusHelperMailbox& mailbox_;
  HelperConnection::Handler interrupted_;
  std::string busName_;         // of the one connected to, for people
  std::string startCommand_;    // which starts the daemon there
  std::list<Pending> pending_;  // all that were sent
  std::size_t answers_ = 0;     // how many of them have been answered
  BusHandle bus_;               // goes first: it knows addresses of `pending_`
};

}  // namespace nodo
