#include <programs/nodoctl/ToolPath.h>

#include <algorithm>
#include <string_view>

#include <unistd.h>

namespace nodo::nodoctl {
namespace fs = std::filesystem;

bool isProgram(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored) && ::access(path.c_str(), X_OK) == 0;
}

fs::path absolutePath(const fs::path& path) {
  const fs::path absolute = fs::absolute(path);
  const bool goesUp = std::find(absolute.begin(), absolute.end(), "..") != absolute.end();
  const fs::path plain = goesUp ? absolute : absolute.lexically_normal();
  return plain.has_filename() || !plain.has_relative_path() ? plain : plain.parent_path();
}

std::optional<fs::path> toolPath(const std::string& startedAs, const Environment& environment) {
  if (startedAs.find('/') != std::string::npos) {
    return absolutePath(startedAs);
  }
  const auto path = environment.find("PATH");
  if (startedAs.empty() || path == environment.end()) {
    return std::nullopt;
  }
  std::string_view rest = path->second;
  for (;;) {
    const auto end = std::min(rest.find(':'), rest.size());
    const fs::path folder(rest.substr(0, end));  // an empty one is the working folder
    if (isProgram((folder.empty() ? fs::path(".") : folder) / startedAs)) {
      return absolutePath(folder / startedAs);
    }
    if (end == rest.size()) {
      return std::nullopt;
    }
    rest.remove_prefix(end + 1);
  }
}

}  // namespace nodo::nodoctl
