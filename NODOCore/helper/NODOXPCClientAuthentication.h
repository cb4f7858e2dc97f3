#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

namespace nodo {

/// The kernel's name for one running process. Unlike a process identifier it is never used again.
using AuditToken = std::array<std::byte, 32>;

/// The process at the other end of a connection that was not yet accepted.
class XPCPeer {
 public:
  virtual ~XPCPeer() = default;

  /// Absent when the connection offers none. Must not throw.
  virtual std::optional<AuditToken> auditToken() const = 0;
};

/// The code of a running process, as the system knows it. Released with its last owner.
class GuestCode {
 public:
  virtual ~GuestCode() = default;
};

/// What a signature may be asked to satisfy. Released with its last owner.
class CodeRequirement {
 public:
  virtual ~CodeRequirement() = default;
};

/// What a call of the code-signing services gave: 0 and an object where it succeeded. Neither alone
/// is a success.
template <class Object>
struct CodeSigningResult {
  std::int32_t status = 0;
  std::unique_ptr<Object> object;
};

/// The system's code-signing services, with their own status codes (0 is success).
///
/// Exists so that the decision on a caller can be tested without signed programs. Must not throw;
/// safe from several threads at once.
class CodeSigning {
 public:
  virtual ~CodeSigning() = default;

  /// The code of the process with that token.
  virtual CodeSigningResult<GuestCode> guest(const AuditToken& token) const = 0;

  /// This process's own code.
  virtual CodeSigningResult<GuestCode> self() const = 0;

  /// A requirement from its text in the code-signing requirement language.
  virtual CodeSigningResult<CodeRequirement> requirement(const std::string& text) const = 0;

  /// 0 when the code's signature is valid and satisfies the requirement. Both are this service's
  /// own.
  virtual std::int32_t checkValidity(const GuestCode& code,
                                     const CodeRequirement& requirement) const = 0;
};

/// Whether the daemon, which runs as root, may serve a caller on macOS: only the product's own app
/// and tool, by their signature. Keeps no state; safe from several threads at once.
struct NODOXPCClientAuthentication {
  NODOXPCClientAuthentication() = delete;

  /// The verdict on one caller. Everything but `Accepted` means no.
  struct ValidationResult {
    /// Signed, but not by the product's team, or not as one of its programs.
    struct RejectedRequirement {
      std::int32_t status = 0;

      bool operator==(const RejectedRequirement&) const = default;
    };

    /// The services failed before the requirement could be tested.
    struct RejectedAPIFailure {
      std::int32_t status = 0;

      bool operator==(const RejectedAPIFailure&) const = default;
    };

    struct Accepted {
      bool operator==(const Accepted&) const = default;
    };

    struct RejectedUnsigned {
      bool operator==(const RejectedUnsigned&) const = default;
    };

    /// The connection offers no audit token.
    struct RejectedUnsupportedClient {
      bool operator==(const RejectedUnsupportedClient&) const = default;
    };

    // Whoever forgets to set it has refused the caller.
    std::variant<RejectedRequirement, RejectedAPIFailure, Accepted, RejectedUnsigned,
                 RejectedUnsupportedClient>
        value = RejectedUnsupportedClient{};

    bool isAccepted() const { return std::holds_alternative<Accepted>(value); }

    bool operator==(const ValidationResult&) const = default;
  };

  /// Every failure of the services is a refusal.
  static ValidationResult validate(const XPCPeer& peer, const CodeSigning& services) noexcept;

  /// The verdict that this process itself would get from a daemon of the same build.
  static ValidationResult validateSelf(const CodeSigning& services) noexcept;

  /// What a caller's signature has to satisfy, in the code-signing requirement language.
  static std::string codeSigningRequirement();

  /// The line for the log, without its end; nothing for `Accepted`.
  static std::optional<std::string> rejectionLogMessage(const ValidationResult& result);

  /// Writes that line to `stream` in one piece, so that lines of several threads do not mix.
  /// Without a stream, nothing.
  static void logRejection(const ValidationResult& result, std::FILE* stream);
};

/// The refusals of a daemon's life as lines of its log. Whoever is refused may come again as often
/// as they like, so each kind of verdict is told once a minute at most, with the number of those
/// that were not told since. Safe from several threads at once.
class XPCRejectionLog {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::minutes silence{1};

  /// Without a stream, nothing is written.
  explicit XPCRejectionLog(std::FILE* stream) : stream_(stream) {}

  void add(const NODOXPCClientAuthentication::ValidationResult& result, Clock::time_point now);

 private:
  struct Kind {
    std::optional<Clock::time_point> told;
    std::uint64_t untold = 0;
  };

  std::FILE* stream_;
  std::mutex mutex_;
  /// By the verdict's place among its kinds.
  std::array<Kind,
             std::variant_size_v<decltype(NODOXPCClientAuthentication::ValidationResult::value)>>
      kinds_;
};

}  // namespace nodo
