#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/diagnostics/SleepBlocker.h>

namespace nodo {
namespace {

template <class Fields, class Blocker>
void describe(Fields& fields, Blocker& blocker) {
  fields.required("pid", blocker.pid);
  fields.required("processName", blocker.processName);
  fields.required("duration", blocker.duration);
  fields.required("assertionType", blocker.assertionType);
  fields.required("assertionName", blocker.assertionName);
  fields.required("scope", blocker.scope);
  fields.required("rawLine", blocker.rawLine);
}

}  // namespace

std::string SleepBlocker::id() const {
  return std::to_string(pid) + "-" + assertionType + "-" + assertionName;
}

SleepBlockerScope sleepBlockerScope(std::string_view assertionType) {
  if (assertionType == "NoDisplaySleepAssertion" ||
      assertionType == "PreventUserIdleDisplaySleep") {
    return SleepBlockerScope::displaySleep;
  }
  if (assertionType == "NoIdleSleepAssertion" || assertionType == "PreventUserIdleSystemSleep" ||
      assertionType == "PreventSystemSleep") {
    return SleepBlockerScope::systemSleep;
  }
  return SleepBlockerScope::other;
}

JSONValue encode(const SleepBlocker& blocker) {
  ObjectEncoder fields;
  describe(fields, blocker);
  return fields.finish();
}

void decode(const JSONReader& from, SleepBlocker& blocker) {
  ObjectDecoder fields(from);
  describe(fields, blocker);
}

}  // namespace nodo
