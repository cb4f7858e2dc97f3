#pragma once

#include <NODOCore/base/Files.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nodo {

/// The bytes of a hook log, piece by piece, so that a log of any size can be searched in a bounded
/// amount of memory. A piece is valid until the next call.
class HookLogText {
 public:
  /// Pieces hold at least this many bytes, or all that was asked for.
  static constexpr std::size_t smallestPiece = 64;

  virtual ~HookLogText() = default;

  virtual std::uint64_t size() const = 0;

  /// The bytes from `begin` on, up to `end` at most.
  virtual std::string_view pieceFrom(std::uint64_t begin, std::uint64_t end) = 0;

  /// The bytes before `end`, as many as there are at once.
  virtual std::string_view pieceBefore(std::uint64_t end) = 0;
};

/// A log that is in memory. Its one piece is all of it.
class WholeLogText : public HookLogText {
 public:
  explicit WholeLogText(std::string_view text) : text_(text) {}

  std::uint64_t size() const override { return text_.size(); }

  std::string_view pieceFrom(std::uint64_t begin, std::uint64_t end) override {
    return text_.substr(begin, end - begin);
  }

  std::string_view pieceBefore(std::uint64_t end) override { return text_.substr(0, end); }

 private:
  std::string_view text_;
};

/// A log in a file, as long as the file was at first. The functions throw std::system_error, also
/// when the file has become shorter.
class LogFileText : public HookLogText {
 public:
  static constexpr std::size_t usualPiece = 65536;

  /// `pieceSize` is at least `smallestPiece`. Throws when there is no regular file at `path`.
  explicit LogFileText(std::string path, std::size_t pieceSize = usualPiece);

  std::uint64_t size() const override { return size_; }

  std::string_view pieceFrom(std::uint64_t begin, std::uint64_t end) override;
  std::string_view pieceBefore(std::uint64_t end) override;

 private:
  std::uint64_t loadedTo() const { return loadedFrom_ + loaded_.size(); }

  std::string_view bytes(std::uint64_t begin, std::uint64_t end) const;
  void load(std::uint64_t begin, std::uint64_t end);

  std::string path_;
  std::size_t pieceSize_;
  FileDescriptor file_;
  std::uint64_t size_ = 0;
  std::string loaded_;
  std::uint64_t loadedFrom_ = 0;
};

}  // namespace nodo
