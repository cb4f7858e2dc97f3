#pragma once

#include <cstdint>
#include <filesystem>

namespace nodo::menu {

/// What is added to the hook log, which is looked at each time that it changes and so must not be
/// read whole.
class HookLog {
 public:
  /// What stands there already is known.
  explicit HookLog(std::filesystem::path path);

  const std::filesystem::path& path() const { return path_; }

  /// Whether what was added since the last call speaks of a fallback that began or was resolved. Of
  /// much only the end is read. What cannot be read, or is no file, says nothing.
  bool tellsOfFallback();

 private:
  std::filesystem::path path_;
  std::uint64_t known_ = 0;  // bytes
};

}  // namespace nodo::menu
