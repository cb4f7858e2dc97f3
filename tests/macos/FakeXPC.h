#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace nodo::test {

/// The XPC system between clients and listeners of this process: messages and their replies travel
/// on a thread of its own, as the real ones do. One for the process, to be `reset` before each
/// test; the knobs are set while nothing is under way.
class FakeXPC {
 public:
  enum class Delivery { works, interrupted, failed, never };

  static FakeXPC& instance();

  void reset();

  // ---- knobs

  Delivery delivery = Delivery::works;
  bool proxyConforms = true;
  /// What the listener's end of a connection gives; absent when its class has no such method.
  std::optional<std::array<unsigned, 8>> auditToken;
  /// Replied to every request in place of the listener's answer.
  std::optional<std::u16string> replyInstead;

  // ---- what happened

  /// What the system itself was told to demand of the listener's clients, before it was resumed.
  std::string requirement;

  /// What was done to the clients' connections, in order.
  std::vector<std::string> steps() const;

  /// What the listener's delegate did to the connections it was shown.
  std::vector<std::string> listenerSteps() const;

  /// The kinds of objects that were made and not yet deallocated.
  std::multiset<std::string> liveObjects() const;

  /// The instances of the adapters' own class of that name that are alive.
  static int liveInstances(const char* className);

  /// Waits until nothing is under way any more.
  void drain();

  // ---- for the classes behind it

  void note(const std::string& step);
  void noteListener(const std::string& step);
  void made(const std::string& kind);
  void gone(const std::string& kind);

  /// Done on the thread of the XPC system.
  void post(std::function<void()> work);

 private:
  FakeXPC();
  void work();

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> work_;
  bool isWorking_ = false;
  std::vector<std::string> steps_;
  std::vector<std::string> listenerSteps_;
  std::multiset<std::string> live_;
};

}  // namespace nodo::test
