#include <testing/EnvironmentVariable.h>

#include <stdlib.h>

namespace nodo::test {

EnvironmentVariable::EnvironmentVariable(const std::string& name, const std::string& value)
    : name_(name) {
  if (const char* before = ::getenv(name.c_str())) {
    before_ = before;
  }
  ::setenv(name.c_str(), value.c_str(), 1);
}

EnvironmentVariable::~EnvironmentVariable() {
  if (before_) {
    ::setenv(name_.c_str(), before_->c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

}  // namespace nodo::test
