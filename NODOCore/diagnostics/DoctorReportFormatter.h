#pragma once

#include <NODOCore/base/TextEnum.h>
#include <NODOCore/control/StatusReport.h>

#include <array>
#include <string>
#include <string_view>

namespace nodo {

/// Where a status came from.
enum class DoctorStatusSource {
  helper,  ///< the daemon
  local,   ///< the tool's own reading, as the daemon could not be reached
};

template <>
struct EnumTexts<DoctorStatusSource> {
  static constexpr std::array cases{EnumText{DoctorStatusSource::helper, "helper"},
                                    EnumText{DoctorStatusSource::local, "local"}};
};

/// The source as people read it: "helper" or "local fallback".
std::string_view displayName(DoctorStatusSource source);

/// Texts that explain a status to a person. Scripts search them, so their lines are fixed. Pure.
struct DoctorReportFormatter {
  /// What a repair led to: lines joined by line feeds, none at the end.
  static std::string formatRepairResult(const StatusReport& report, DoctorStatusSource source);
};

}  // namespace nodo
