#include <NODOCore/helper/NODOHelperClientError.h>
#include <NODOCore/helper/XPCRequestCompletion.h>

#include <utility>

namespace nodo {

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
  semaphore.release();
}

NODOHelperCommandResponse XPCRequestCompletion::wait(
    std::chrono::steady_clock::time_point deadline) {
  if (!semaphore.try_acquire_until(deadline)) {
    throw NODOHelperClientError::timedOut();
  }
  const std::lock_guard guard(lock);
  if (!result) {
    throw NODOHelperClientError::invalidResponse("missing completion");
  }
  if (const auto* error = std::get_if<std::exception_ptr>(&*result)) {
    std::rethrow_exception(*error);
  }
  return std::get<NODOHelperCommandResponse>(*result);
}

}  // namespace nodo
