#pragma once

#include <NODOCore/base/JSONValue.h>

#include <string>

namespace nodo::test {

/// The content of a file below tests/data. Throws when there is none.
std::string testDataText(const std::string& name);

/// The same, read as JSON.
JSONValue testData(const std::string& name);

}  // namespace nodo::test
