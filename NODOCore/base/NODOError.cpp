#include <NODOCore/base/NODOError.h>

#include <utility>

namespace nodo {

NODOError::NODOError(Case errorCase, const char* text, std::string detail)
    : case_(errorCase), detail_(std::move(detail)), message_(text + detail_) {}

NODOError NODOError::processListingFailed(std::string detail) {
  return {Case::processListingFailed, "Unable to list processes: ", std::move(detail)};
}

NODOError NODOError::invalidDuration(std::string detail) {
  return {Case::invalidDuration, "Invalid duration: ", std::move(detail)};
}

NODOError NODOError::invalidCommand(std::string detail) {
  return {Case::invalidCommand, "Invalid command: ", std::move(detail)};
}

NODOError NODOError::stateDirectoryUnavailable() {
  return {Case::stateDirectoryUnavailable, "Unable to resolve nodo state directory", ""};
}

}  // namespace nodo
