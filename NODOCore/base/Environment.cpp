#include <NODOCore/base/Environment.h>

#include <string_view>

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX has no header for it

namespace nodo {

Environment processEnvironment() {
  Environment environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const auto equals = text.find('=');
    if (equals != std::string_view::npos) {
      environment.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
  }
  return environment;
}

std::optional<std::string> nonEmptyValue(const Environment& environment, const std::string& name) {
  const auto entry = environment.find(name);
  if (entry == environment.end() || entry->second.empty()) {
    return std::nullopt;
  }
  return entry->second;
}

std::string_view version() {
  return NODO_VERSION;  // given by the build from the project's version
}

}  // namespace nodo
