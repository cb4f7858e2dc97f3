#include <NODOCore/base/Files.h>
#include <testing/TestData.h>

#include <filesystem>
#include <stdexcept>

namespace nodo::test {

std::string testDataText(const std::string& name) {
  const std::filesystem::path path = std::filesystem::path(NODO_TEST_DATA) / name;
  const auto content = readFile(path);
  if (!content) {
    throw std::runtime_error("no test data " + path.string());
  }
  return *content;
}

JSONValue testData(const std::string& name) {
  return JSONValue::parse(testDataText(name));
}

}  // namespace nodo::test
