#include <NODOCore/base/DecodingError.h>

#include <utility>

namespace nodo {

DecodingError::DecodingError(std::string path, const std::string& expected,
                             const std::string& found)
    : path_(std::move(path)),
      message_((path_.empty() ? std::string() : path_ + ": ") + "expected " + expected +
               ", found " + found) {}

DecodingError DecodingError::inFile(const std::string& file) const {
  return saying(file + ": " + message_);
}

DecodingError DecodingError::saying(std::string message) const {
  DecodingError error = *this;
  error.message_ = std::move(message);
  return error;
}

}  // namespace nodo
