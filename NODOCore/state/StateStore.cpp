#include <NODOCore/base/Errors.h>
#include <NODOCore/base/Files.h>
#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/state/StateStore.h>

#include <utility>

namespace nodo {

namespace {

std::filesystem::path normalFolder(const std::filesystem::path& folder) {
  return (folder / "").lexically_normal();
}

}  // namespace

StateStore StateStore::defaultStore(const Environment& environment) {
  if (const auto folder = nonEmptyValue(environment, "NODO_STATE_DIR")) {
    return {*folder};
  }
  if (const auto home = nonEmptyValue(environment, "HOME")) {
    return {std::filesystem::path(*home) / ".nodo"};
  }
  throw NODOError::stateDirectoryUnavailable();
}

StateStore StateStore::daemon(const Environment& environment) {
  return {
      nonEmptyValue(environment, "NODO_STATE_DIR").value_or("/Library/Application Support/nodo")};
}

std::filesystem::path StateStore::stateURL() const {
  return directory / "state.json";
}

NODOState StateStore::load() const {
  auto content = readFile(stateURL());
  if (!content) {
    return NODOState::fresh(currentDate());
  }
  if (memory && memory->content == content) {
    return memory->state;
  }
  try {
    auto state = decodeJSON<NODOState>(*content);
    if (memory) {
      *memory = {std::move(content), state};
    }
    return state;
  } catch (const DecodingError& error) {
    throw error.saying("the state file " + stateURL().string() +
                       " cannot be read: " + error.what() +
                       ". It was left as it is; move it away to begin with a fresh state");
  }
}

void StateStore::save(const NODOState& state) const {
  const std::string content = encodeJSON(state, JSONLayout::prettySorted) + "\n";
  makeFolder(directory);
  replaceFile(stateURL(), content);
}

bool StateStore::operator==(const StateStore& other) const {
  return normalFolder(directory) == normalFolder(other.directory);
}

}  // namespace nodo
