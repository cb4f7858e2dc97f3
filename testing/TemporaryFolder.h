#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace nodo::test {

/// A new, empty folder of its own that is removed with all its content at the end.
class TemporaryFolder {
 public:
  /// Where the system keeps temporary files.
  TemporaryFolder();

  /// In memory where the system offers that: for tests that save so often that syncing to a disk
  /// would take most of their time.
  static TemporaryFolder inMemory();

  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::filesystem::path& path() const { return path_; }

  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

  /// Writes a file below this folder, making the folders on the way.
  void write(const std::filesystem::path& name, std::string_view content) const;

  /// The content of a file below this folder. Throws when it cannot be read.
  std::string read(const std::filesystem::path& name) const;

  /// The names in this folder, sorted.
  std::vector<std::string> names() const;

 private:
  explicit TemporaryFolder(const std::filesystem::path& parent);

  std::filesystem::path path_;
};

}  // namespace nodo::test
