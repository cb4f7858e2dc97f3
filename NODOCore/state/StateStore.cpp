#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/NODOError.h>
#include <NODOCore/state/StateStore.h>

#include <optional>
#include <string>

namespace nodo {
namespace {

std::optional<std::string> nonEmpty(const Environment& environment, const std::string& name) {
  const auto entry = environment.find(name);
  if (entry == environment.end() || entry->second.empty()) {
    return std::nullopt;
  }
  return entry->second;
}

}  // namespace

StateStore StateStore::defaultStore(const Environment& environment) {
  if (const auto folder = nonEmpty(environment, "NODO_STATE_DIR")) {
    return {*folder};
  }
  if (const auto home = nonEmpty(environment, "HOME")) {
    return {std::filesystem::path(*home) / ".nodo"};
  }
  throw NODOError::stateDirectoryUnavailable();
}

StateStore StateStore::daemon(const Environment& environment) {
  return {nonEmpty(environment, "NODO_STATE_DIR").value_or("/Library/Application Support/nodo")};
}

std::filesystem::path StateStore::stateURL() const {
  return directory / "state.json";
}

NODOState StateStore::load() const {
  const auto content = readFile(stateURL());
  return content ? decodeJSON<NODOState>(*content) : NODOState::fresh(currentDate());
}

void StateStore::save(const NODOState& state) const {
  const std::string content = encodeJSON(state, JSONLayout::prettySorted) + "\n";
  makeFolder(directory);
  replaceFile(stateURL(), content);
}

}  // namespace nodo
