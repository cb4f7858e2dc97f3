#pragma once

#include <NODOCore/helper/NODOHelperXPCProtocol.h>
#include <platform/linux/helper/BusRequest.h>
#include <platform/linux/helper/CallerPolicy.h>
#include <platform/linux/news/EventLoop.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>

namespace nodo {

/// The bus on which the daemon offers itself.
struct DaemonBus {
  BusHandle connection;
  std::string name;  ///< what it is called, see systemBus
};

/// Connects, within startPatience, to the bus that is called `choice`; without one to the system
/// bus when it can be reached and else the session bus. The bus passes it no file descriptors.
/// Throws BusError.
DaemonBus openDaemonBus(const std::optional<std::string>& choice);

/// Offers the daemon's requests on a bus, to those who may make them.
///
/// A change waits only for polkit's word about its own caller, never for that about another's. One
/// whose caller has left meanwhile is dropped. A question for permission goes the same way and
/// changes nothing. Not thread-safe: all in the loop's thread.
class HelperListener {
 public:
  /// More requests than these do not wait for polkit at a time. The bus itself usually lets a peer
  /// wait for 128 answers.
  static constexpr std::size_t mostWaiting = 100;
  /// Nor more than these of one user, so that none keeps the others out.
  static constexpr std::size_t mostWaitingOfOneUser = mostWaiting / 4;
  /// Nor one whose arguments take more bytes. All that wait are kept in memory; a requester's texts
  /// are cut to some hundred characters each anyway.
  static constexpr std::size_t mostWaitingBytes = 16 * std::size_t{1024};

  /// Takes the helper's name. From then on requests reach `service` while the loop runs. Throws
  /// std::runtime_error when the name is taken or the bus does not give it.
  HelperListener(EventLoop& loop, const DaemonBus& bus, NODOHelperXPCProtocol& service);

  /// Sends `changedSignal`, to nobody in particular.
  void announceChange();

  HelperListener(const HelperListener&) = delete;
  HelperListener& operator=(const HelperListener&) = delete;
  ~HelperListener() = default;

 private:
  struct Waiting {
    HelperListener& listener;
    BusCall request;
    std::uint32_t user = 0;
    SystemdHandle<sd_bus_slot> question;
  };

  static const sd_bus_vtable* methods();
  template <class Request>
  static int onCall(sd_bus_message* call, void* listener, sd_bus_error* error);
  static int onPermission(sd_bus_message* call, void* listener, sd_bus_error* error);
  static int onSettings(sd_bus_message* call, void* listener, sd_bus_error* error);
  static int onAuthority(sd_bus_message* reply, void* waiting, sd_bus_error* error);

  void receive(const BusCall& request);
  void askAuthority(const BusCall& request, std::uint32_t user);
  // Throws BusError for arguments that cannot be read.
  std::optional<std::string> reasonNotToWait(const BusCall& request, std::uint32_t user) const;
  void receiveAuthority(const Waiting& asked, sd_bus_message* reply);
  void serve(const BusCall& request);
  void deny(const BusCall& request, std::optional<std::uint32_t> user, const std::string& reason);
  void refuse(const BusCall& request, std::optional<std::uint32_t> user, const char* error,
              const std::string& reason);
  void logCounts();
  void takeName(const std::string& bus);

  EventLoop& loop_;
  sd_bus* bus_;
  NODOHelperXPCProtocol& service_;
  CallerPolicy policy_;
  CallerDirectory callers_;
  RefusalLog refusals_;
  LoopTimer countsDue_;
  std::list<Waiting> waiting_;
  SystemdHandle<sd_bus_slot> object_;
};

}  // namespace nodo
