#include <NODOCore/helper/NODOHelperClientError.h>
#include <NODOCore/helper/XPCRequestCompletion.h>

#include <utility>

namespace nodo {

void XPCRequestCompletion::Semaphore::signal() {
  const std::lock_guard guard(mutex_);
  ++count_;
  signalled_.notify_one();
}

bool XPCRequestCompletion::Semaphore::waitUntil(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock guard(mutex_);
  if (!signalled_.wait_until(guard, deadline, [this] { return count_ > 0; })) {
    return false;
  }
  --count_;
  return true;
}

void XPCRequestCompletion::complete(NODOHelperCommandResponse response) {
  complete(Outcome(std::move(response)));
}

void XPCRequestCompletion::complete(std::exception_ptr error) {
  complete(Outcome(std::move(error)));
}

void XPCRequestCompletion::complete(Outcome outcome) {
  const std::lock_guard guard(lock);
  if (result) {
    return;
  }
  result = std::move(outcome);
  semaphore.signal();
}

NODOHelperCommandResponse XPCRequestCompletion::wait(
    std::chrono::steady_clock::time_point deadline) {
  if (!semaphore.waitUntil(deadline)) {
    throw NODOHelperClientError::timedOut();
  }
  const std::lock_guard guard(lock);
  if (!result) {
    throw NODOHelperClientError::invalidResponse("missing completion");
  }
  // Moved out, as a handler may let go of this completion at any later time: the error must not be
  // destroyed on its thread while the caller reads it.
  if (auto* error = std::get_if<std::exception_ptr>(&*result)) {
    std::rethrow_exception(std::move(*error));
  }
  return std::get<NODOHelperCommandResponse>(std::move(*result));
}

}  // namespace nodo
