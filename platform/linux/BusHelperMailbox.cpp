#include <platform/linux/BusHelperMailbox.h>

#include <cstdint>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace nodo {

BusHelperMailbox::BusHelperMailbox() : wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wakeUp_) {
    throwErrno("Unable to make", "an event descriptor");
  }
}

bool BusHelperMailbox::post(BusHelperRequest request) {
  {
    const std::lock_guard guard(mutex_);
    if (closed_) {
      return false;
    }
    requests_.push_back(std::move(request));
  }
  wake();
  return true;
}

void BusHelperMailbox::close() {
  {
    const std::lock_guard guard(mutex_);
    closed_ = true;
  }
  wake();
}

bool BusHelperMailbox::isClosed() const {
  const std::lock_guard guard(mutex_);
  return closed_;
}

std::vector<BusHelperRequest> BusHelperMailbox::take() {
  const std::lock_guard guard(mutex_);
  return std::exchange(requests_, {});
}

// Neither can fail: the counter is far from full, and an empty one needs no reading.
void BusHelperMailbox::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(wakeUp_.get(), &one, sizeof one);
}

void BusHelperMailbox::acknowledge() {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto read = ::read(wakeUp_.get(), &count, sizeof count);
}

}  // namespace nodo
