#pragma once

#include <NODOCore/control/DaemonRunReport.h>
#include <NODOCore/control/StatusReport.h>

#include <exception>
#include <optional>
#include <string>

namespace nodo {

/// The daemon's reply to every request. Exactly one field is set in what the constructors below
/// build; a foreign envelope may hold any.
struct NODOHelperCommandResponse {
  std::optional<StatusReport> status;  ///< after the request
  std::optional<DaemonRunReport> run;  ///< of a reconcile; its status is not repeated in `status`
  std::optional<std::string> error;    ///< why the request failed; an empty text is a failure too

  static NODOHelperCommandResponse success(StatusReport status);
  static NODOHelperCommandResponse success(DaemonRunReport run);
  static NODOHelperCommandResponse failure(const std::exception& error);

  bool operator==(const NODOHelperCommandResponse&) const = default;
};

JSONValue encode(const NODOHelperCommandResponse& response);
void decode(const JSONReader& from, NODOHelperCommandResponse& response);

}  // namespace nodo
