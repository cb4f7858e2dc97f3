#include <testing/JSONRows.h>
#include <testing/TestData.h>

#include <stdexcept>

namespace nodo::test {

JSONValue::Array testRows(const std::string& name) {
  const JSONValue document = testData(name);
  if (document.array() == nullptr || document.array()->empty()) {
    throw std::runtime_error("no rows in " + name);
  }
  return *document.array();
}

const JSONValue& memberOf(const JSONValue& row, std::string_view key) {
  const JSONValue* member = row.member(key);
  if (member == nullptr) {
    throw std::runtime_error("a row without " + std::string(key));
  }
  return *member;
}

double numberOf(const JSONValue& row, std::string_view key) {
  const auto* number = memberOf(row, key).number();
  if (number == nullptr) {
    throw std::runtime_error("no number: " + std::string(key));
  }
  return std::stod(number->digits);
}

std::optional<double> optionalNumberOf(const JSONValue& row, std::string_view key) {
  return memberOf(row, key).isNull() ? std::nullopt : std::optional(numberOf(row, key));
}

Date dateOf(const JSONValue& row, std::string_view key) {
  return dateFromSeconds(numberOf(row, key));
}

}  // namespace nodo::test
