#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace nodo {

/// An error of the XPC system, as it stands.
class XPCError : public std::exception {
 public:
  XPCError(std::string domain, std::int64_t code, std::string description)
      : domain_(std::move(domain)), code_(code), description_(std::move(description)) {}

  const char* what() const noexcept override { return description_.c_str(); }

  const std::string& domain() const { return domain_; }

  std::int64_t code() const { return code_; }

  bool operator==(const XPCError& other) const {
    return domain_ == other.domain_ && code_ == other.code_ && description_ == other.description_;
  }

 private:
  std::string domain_;
  std::int64_t code_;
  std::string description_;
};

}  // namespace nodo
