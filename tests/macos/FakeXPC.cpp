#include <thread>
#include <utility>

#include <tests/macos/FakeXPC.h>

namespace nodo::test {

FakeXPC& FakeXPC::instance() {
  // Never destroyed, as its thread goes on to the end of the process.
  static auto* const xpc = new FakeXPC();
  return *xpc;
}

FakeXPC::FakeXPC() {
  std::thread([this] { work(); }).detach();
}

void FakeXPC::reset() {
  drain();
  delivery = Delivery::works;
  proxyConforms = true;
  auditToken = {1, 2, 3, 4, 5, 6, 7, 8};
  replyInstead.reset();
  requirement.clear();
  const std::lock_guard guard(mutex_);
  steps_.clear();
  listenerSteps_.clear();
  live_.clear();
}

void FakeXPC::work() {
  std::unique_lock guard(mutex_);
  for (;;) {
    changed_.wait(guard, [this] { return !work_.empty(); });
    std::function<void()> task = std::move(work_.front());
    work_.pop_front();
    isWorking_ = true;
    guard.unlock();
    task();
    // What it holds goes before anybody is told that nothing is under way.
    task = nullptr;
    guard.lock();
    isWorking_ = false;
    changed_.notify_all();
  }
}

void FakeXPC::post(std::function<void()> task) {
  const std::lock_guard guard(mutex_);
  work_.push_back(std::move(task));
  changed_.notify_all();
}

void FakeXPC::drain() {
  std::unique_lock guard(mutex_);
  changed_.wait(guard, [this] { return work_.empty() && !isWorking_; });
}

void FakeXPC::note(const std::string& step) {
  const std::lock_guard guard(mutex_);
  steps_.push_back(step);
}

void FakeXPC::noteListener(const std::string& step) {
  const std::lock_guard guard(mutex_);
  listenerSteps_.push_back(step);
}

void FakeXPC::made(const std::string& kind) {
  const std::lock_guard guard(mutex_);
  live_.insert(kind);
}

void FakeXPC::gone(const std::string& kind) {
  const std::lock_guard guard(mutex_);
  if (const auto found = live_.find(kind); found != live_.end()) {
    live_.erase(found);
  }
}

std::vector<std::string> FakeXPC::steps() const {
  const std::lock_guard guard(mutex_);
  return steps_;
}

std::vector<std::string> FakeXPC::listenerSteps() const {
  const std::lock_guard guard(mutex_);
  return listenerSteps_;
}

std::multiset<std::string> FakeXPC::liveObjects() const {
  const std::lock_guard guard(mutex_);
  return live_;
}

}  // namespace nodo::test
