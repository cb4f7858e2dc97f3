#pragma once

#include <NODOCore/base/Environment.h>
#include <NODOCore/state/NODOState.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace nodo {

/// Keeps the one NODOState in a JSON file, "state.json" in a folder.
///
/// A plain value without locking: a save replaces the whole file atomically, so a reader sees one
/// state or the other, and of two writers the last one wins. The daemon is the only writer of its
/// own.
struct StateStore {
  /// What the file held when it was last read, and what that says.
  struct Memory {
    std::optional<std::string> content;
    NODOState state;
  };

  std::filesystem::path directory;

  /// For who loads again and again: content that is byte for byte the same is not decoded again.
  /// The file itself is always read, as no size, time or number of it tells for sure that nobody
  /// has changed it. The store's copies share it, so all of them belong to one thread then.
  std::shared_ptr<Memory> memory = nullptr;

  /// Where a person's own programs keep theirs: `NODO_STATE_DIR`, else ".nodo" under `HOME`; empty
  /// values count as absent. Throws NODOError::stateDirectoryUnavailable when both are.
  static StateStore defaultStore(const Environment& environment);

  /// Where the daemon keeps its own: `NODO_STATE_DIR` when present and not empty, else the system's
  /// folder "/Library/Application Support/nodo". Never fails.
  static StateStore daemon(const Environment& environment);

  std::filesystem::path stateURL() const;

  /// The stored state, or a fresh one (dated with the current time) when there is no file; nothing
  /// is written. Throws DecodingError for a file that holds something else, std::system_error for
  /// one that cannot be read, both with the path in their texts; a bad file is neither repaired nor
  /// replaced, and the first says so to people.
  NODOState load() const;

  /// Writes `state`, dates in whole seconds, making the folder with its parents if need be. Throws
  /// std::system_error with the path in its text; the old file is as it was then.
  void save(const NODOState& state) const;

  /// Whether both keep it in the same folder, however that is spelt ("/a" and "/a/" are one).
  bool operator==(const StateStore& other) const;
};

}  // namespace nodo
