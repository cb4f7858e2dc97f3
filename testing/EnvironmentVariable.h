#pragma once

#include <optional>
#include <string>

namespace nodo::test {

/// Sets a variable of this process's environment, and with it of the tools that it runs, while it
/// lives. Not safe while other threads use the environment.
class EnvironmentVariable {
 public:
  EnvironmentVariable(const std::string& name, const std::string& value);
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable();

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace nodo::test
