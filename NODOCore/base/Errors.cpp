#include <NODOCore/base/Errors.h>

#include <cstdio>
#include <cstdlib>
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

DecodingError::DecodingError(std::string path, const std::string& expected,
                             const std::string& found)
    : path_(std::move(path)),
      message_((path_.empty() ? std::string() : path_ + ": ") + "expected " + expected +
               ", found " + found) {}

DecodingError DecodingError::atLine(std::int64_t line) const {
  DecodingError error = *this;
  error.line_ = line;
  return error;
}

DecodingError DecodingError::inFile(const std::string& file) const {
  return saying(file + ": " + message_);
}

DecodingError DecodingError::saying(std::string message) const {
  DecodingError error = *this;
  error.message_ = std::move(message);
  return error;
}

void programmingFault(const char* what) noexcept {
  std::fprintf(stderr, "nodo: programming fault: %s\n", what);
  std::abort();
}

std::int64_t checkedDifference(std::int64_t minuend, std::int64_t subtrahend) {
  std::int64_t difference = 0;
  if (__builtin_sub_overflow(minuend, subtrahend, &difference)) {
    programmingFault("a difference of whole seconds does not fit in 64 bits");
  }
  return difference;
}

}  // namespace nodo
