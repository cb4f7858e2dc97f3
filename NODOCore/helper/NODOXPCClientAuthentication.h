#pragma once

#include <NODOCore/helper/CodeSigning.h>
#include <NODOCore/helper/XPCPeer.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <variant>

namespace nodo {

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

  /// What a caller's signature has to satisfy, in the code-signing requirement language.
  static std::string codeSigningRequirement();

  /// The line for the log, without its end; nothing for `Accepted`.
  static std::optional<std::string> rejectionLogMessage(const ValidationResult& result);

  /// Writes that line to `stream` in one piece, so that lines of several threads do not mix.
  /// Without a stream, nothing.
  static void logRejection(const ValidationResult& result, std::FILE* stream);
};

}  // namespace nodo
