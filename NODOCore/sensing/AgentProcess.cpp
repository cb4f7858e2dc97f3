#include <NODOCore/base/JSONCoding.h>
#include <NODOCore/sensing/AgentProcess.h>

namespace nodo {
namespace {

template <class Fields, class Agent>
void describe(Fields& fields, Agent& agent) {
  fields.required("pid", agent.pid);
  fields.optional("ppid", agent.ppid);
  fields.required("executable", agent.executable);
  fields.required("command", agent.command);
  fields.required("kind", agent.kind);
}

}  // namespace

std::string_view displayName(AgentKind kind) {
  switch (kind) {
    case AgentKind::claudeCode:
      return "Claude Code";
    case AgentKind::codex:
      return "Codex";
    case AgentKind::grokBuild:
      return "Grok Build";
    case AgentKind::pi:
      return "Pi";
  }
  programmingFault("a kind of agent that is none of its cases");
}

JSONValue encode(const AgentProcess& agent) {
  ObjectEncoder fields;
  describe(fields, agent);
  return fields.finish();
}

void decode(const JSONReader& from, AgentProcess& agent) {
  ObjectDecoder fields(from);
  describe(fields, agent);
}

}  // namespace nodo
