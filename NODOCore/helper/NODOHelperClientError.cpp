#include <NODOCore/helper/NODOHelperClientError.h>

#include <utility>

namespace nodo {

NODOHelperClientError::NODOHelperClientError(Case errorCase, const char* text, std::string reason)
    : case_(errorCase), reason_(std::move(reason)), message_(text + reason_) {}

NODOHelperClientError NODOHelperClientError::unavailable(std::string reason) {
  return {Case::unavailable, "Helper unavailable: ", std::move(reason)};
}

NODOHelperClientError NODOHelperClientError::invalidResponse(std::string reason) {
  return {Case::invalidResponse, "Invalid helper response: ", std::move(reason)};
}

NODOHelperClientError NODOHelperClientError::timedOut() {
  return {Case::timedOut, "Helper request timed out", ""};
}

}  // namespace nodo
