#include <testing/TemporaryFolder.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

// Each system has mkdtemp in another of these.
#include <stdlib.h>
#include <unistd.h>

namespace nodo::test {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() : TemporaryFolder(fs::temp_directory_path()) {}

TemporaryFolder TemporaryFolder::inMemory() {
  const fs::path memory = "/dev/shm";
  return TemporaryFolder(fs::is_directory(memory) ? memory : fs::temp_directory_path());
}

TemporaryFolder::TemporaryFolder(const fs::path& parent) {
  std::string pattern = (parent / "nodo-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
  }
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;  // a test that failed may have left anything here
  fs::remove_all(path_, ignored);
}

void TemporaryFolder::write(const fs::path& name, std::string_view content) const {
  const fs::path file = path_ / name;
  fs::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << content;
  stream.close();
  if (!stream) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

std::string TemporaryFolder::read(const fs::path& name) const {
  std::ifstream stream(path_ / name, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("cannot read " + (path_ / name).string());
  }
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> TemporaryFolder::names() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(path_)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace nodo::test
