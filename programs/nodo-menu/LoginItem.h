#pragma once

#include <NODOCore/base/Environment.h>

#include <filesystem>
#include <string>

namespace nodo::menu {

/// The file by which a desktop, or launchd, starts nodo-menu when its user logs in. Whatever else
/// changes it, as a desktop's own settings do, is heeded: the file is read again each time.
class LoginItem {
 public:
  enum class Kind { xdgAutostart, launchAgent };

  /// `program` is what is started, absolute. Throws std::runtime_error when `environment` names no
  /// home folder.
  LoginItem(Kind kind, const Environment& environment, std::filesystem::path program);

  bool isOn() const;

  /// Throws std::system_error, with the path in its text.
  void turn(bool on) const;

  const std::filesystem::path& path() const { return path_; }

 private:
  Kind kind_;
  std::filesystem::path program_;
  std::filesystem::path path_;
};

}  // namespace nodo::menu
