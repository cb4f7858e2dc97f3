#include <NODOCore/base/DecodingError.h>

#include <utility>

namespace nodo {

DecodingError::DecodingError(std::string path, const std::string& expected,
                             const std::string& found)
    : path_(std::move(path)),
      message_((path_.empty() ? std::string() : path_ + ": ") + "expected " + expected +
               ", found " + found) {}

DecodingError DecodingError::inFile(const std::string& file) const {
  DecodingError error = *this;
  error.message_ = file + ": " + message_;
  return error;
}

}  // namespace nodo
