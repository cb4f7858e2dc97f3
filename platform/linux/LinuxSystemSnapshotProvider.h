#pragma once

#include <NODOCore/sensing/SystemSnapshot.h>

#include <filesystem>
#include <functional>
#include <optional>

namespace nodo {

/// Reads the machine from sysfs and /proc.
///
/// Power: a supply other than a battery that is online means mains; else a battery means battery;
/// else unknown. Batteries of peripherals and empty bays do not count; the charge is that of all
/// batteries together. Default route: one over IPv4 or IPv6 that is up, rejects nothing and does
/// not lead to `lo`. What cannot be read is absent; nothing is an error.
class LinuxSystemSnapshotProvider : public SystemSnapshotProviding {
 public:
  /// Whether the lid is closed, or nothing when that cannot be told. Must not throw.
  using LidReading = std::function<std::optional<bool>()>;

  /// `root`: the folder that holds "sys" and "proc".
  explicit LinuxSystemSnapshotProvider(LidReading lidClosed, std::filesystem::path root = "/");

  SystemSnapshot snapshot(Date now) const override;

 private:
  LidReading lidClosed_;
  std::filesystem::path root_;
};

}  // namespace nodo
