#pragma once

#include <stdexcept>
#include <string>

namespace nodo {

/// The bus, or a service on it, could not be reached or did not answer as it should; or the library
/// for it, which brings the event loop and the devices too, failed at these. The text says what
/// and why.
class BusError : public std::runtime_error {
 public:
  explicit BusError(const std::string& message) : std::runtime_error(message) {}
};

/// The bus did not answer in time while it was connected to.
class BusTimeout : public BusError {
 public:
  explicit BusTimeout(const std::string& message) : BusError(message) {}
};

/// A service on the bus, or the bus by its policy, answered "no". The text is its own.
class BusRefusal : public BusError {
 public:
  explicit BusRefusal(const std::string& message) : BusError(message) {}
};

}  // namespace nodo
