#pragma once

#include <NODOCore/base/Files.h>

#include <filesystem>

namespace nodo::menu {

/// Lets one nodo-menu of a user run at a time: a second one has the first show its window. Two
/// files are its meeting point: a lock, which the system frees when the first ends, however it
/// does, and a socket, at which connecting says it all.
class FirstInstance {
 public:
  /// `folder` is this user's own, for what runs.
  explicit FirstInstance(const std::filesystem::path& folder);

  /// True when this is the first one, from now on. Else the first one has been told.
  ///
  /// Throws std::system_error, with the path in its text, when the meeting point cannot be made, or
  /// the first one does not listen within two seconds.
  bool claim();

  /// Can be read once another one has been started. After `claim` was true.
  int descriptor() const { return listener_.get(); }

  /// From now on another one waits until this one has ended.
  void stopListening() { listener_.reset(); }

  /// Takes note of all others that have been started.
  void takeOthers() const;

 private:
  bool tellsFirst() const;

  std::filesystem::path lockPath_;
  std::filesystem::path socketPath_;
  FileDescriptor lock_;
  FileDescriptor listener_;
};

}  // namespace nodo::menu
