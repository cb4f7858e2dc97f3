#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>

#include <csignal>
#include <utility>

#include <arpa/inet.h>
#include <tests/macos/FakeMac.h>
#include <unistd.h>

namespace nodo::test {
namespace {

constexpr std::chrono::seconds longTime(30);

}  // namespace

FakeMac& FakeMac::instance() {
  static FakeMac mac;
  return mac;
}

void FakeMac::reset() {
  offersPowerNews = offersLidService = offersLidNews = offersSleepNews = true;
  offersPathMonitor = offersSources = offersNotifications = true;
  runLoopEndsByItself = false;
  thermalState = 0;
  isInLowPowerMode = false;
  wasThermalStateRead = false;
  powerSource = nullptr;
  lid = nullptr;
  sleep = nullptr;
  path = nullptr;
  allowedChanges.clear();
  {
    const std::lock_guard guard(mutex_);
    work_.clear();
  }
  idleWork_.clear();
  stopped_ = false;
  now_ = 1'000'000'000;
  sources_.clear();
  handles_.clear();
  listeners_.clear();
}

void FakeMac::post(Work work) {
  const std::lock_guard guard(mutex_);
  work_.push_back(std::move(work));
  posted_.notify_one();
}

bool FakeMac::nextWork(Work& work) {
  std::unique_lock guard(mutex_);
  if (work_.empty() && !idleWork_.empty()) {
    work = std::move(idleWork_.front());
    idleWork_.pop_front();
    return true;
  }
  if (!posted_.wait_for(guard, longTime, [this] { return !work_.empty(); })) {
    return false;
  }
  work = std::move(work_.front());
  work_.pop_front();
  return true;
}

bool FakeMac::nextPosted(Work& work) {
  const std::lock_guard guard(mutex_);
  if (work_.empty()) {
    return false;
  }
  work = std::move(work_.front());
  work_.pop_front();
  return true;
}

void FakeMac::run() {
  if (runLoopEndsByItself) {
    return;
  }
  for (stopped_ = false; !stopped_;) {
    Work work;
    if (!nextWork(work)) {
      programmingFault("nothing happens on the main run loop");
    }
    work();
  }
  for (Work work; nextPosted(work);) {
    work();
  }
}

void FakeMac::resume(const void* key) {
  source(key).isResumed = true;
  post([this, key] {
    if (const auto found = sources_.find(key); found != sources_.end()) {
      found->second.isRegistered = true;
      if (found->second.registered) {
        found->second.registered();
      }
    }
  });
}

void FakeMac::pass(double seconds) {
  now_ += static_cast<std::int64_t>(seconds * 1e9);
  for (auto& [key, source] : sources_) {
    if (source.isTimer && source.isRegistered && source.due <= now_) {
      source.due = never;
      post([this, key = key] {
        if (const auto found = sources_.find(key); found != sources_.end()) {
          found->second.handler();
        }
      });
    }
  }
}

void FakeMac::raise(int number) {
  std::raise(number);
  for (const auto& [key, source] : sources_) {
    if (source.signal == number && source.isRegistered) {
      post(source.handler);
    }
  }
}

std::uint32_t FakeMac::open(const std::string& what) {
  handles_[++lastHandle_] = what;
  return lastHandle_;
}

bool FakeMac::close(std::uint32_t handle) {
  listeners_.erase(handle);
  return handles_.erase(handle) == 1;
}

std::uint32_t FakeMac::listen(const std::string& name, int& descriptor) {
  const std::uint32_t handle = open("listener");
  Listener& listener = listeners_[handle] = {.name = name, .pipe = makePrivatePipe()};
  descriptor = listener.pipe.readEnd.get();
  return handle;
}

void FakeMac::notify(const std::string& name) {
  for (const auto& [handle, listener] : listeners_) {
    // As on a Mac, what is read is the handle in the network's byte order.
    const std::uint32_t word = htonl(handle);
    if (listener.name == name &&
        ::write(listener.pipe.writeEnd.get(), &word, sizeof word) != sizeof word) {
      throwErrno("tell of", name);
    }
  }
}

std::multiset<std::string> FakeMac::openHandles() const {
  std::multiset<std::string> open;
  for (const auto& [handle, what] : handles_) {
    open.insert(what);
  }
  return open;
}

}  // namespace nodo::test

// What the runtime and GNUstep keep to the end of the process is no leak of ours. Objects are
// counted by the tests themselves. The names are the sanitizer's own.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {
const char* __lsan_default_suppressions();
const char* __lsan_default_options();

const char* __lsan_default_suppressions() {
  return "leak:libobjc.so\nleak:libgnustep-base.so\n";
}

const char* __lsan_default_options() {
  return "print_suppressions=0";
}
}
// NOLINTEND(readability-identifier-naming)
