#include <NODOCore/base/JSONValue.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/HookScript.h>

namespace nodo {
namespace {

constexpr std::string_view head =
    R"pi(import type { ExtensionAPI } from "@earendil-works/pi-coding-agent";
import { spawn } from "node:child_process";

const hookPath = )pi";

constexpr std::string_view tail = R"pi(;

function trigger(eventName: string) {
  try {
    const child = spawn(hookPath, [], {
      detached: true,
      stdio: "ignore",
      env: { ...process.env, NODO_HOOK_AGENT: "pi", NODO_HOOK_EVENT: eventName },
    });
    child.on("error", () => {});
    child.unref();
  } catch {
    // Keep Pi fail-open if nodo is unavailable.
  }
}

export default function (pi: ExtensionAPI) {
  pi.on("session_start", async () => {
    trigger("session_start");
  });
  pi.on("input", async () => {
    trigger("input");
  });
  pi.on("turn_start", async () => {
    trigger("turn_start");
  });
  pi.on("tool_call", async () => {
    trigger("tool_call");
  });
  pi.on("tool_result", async () => {
    trigger("tool_result");
  });
  pi.on("turn_end", async () => {
    trigger("turn_end");
  });
}
)pi";

std::string stringLiteral(const std::string& text) {
  // JSON has no text for bytes that are no UTF-8. They stay as they are, which Node may not read as
  // the same path; but then the extension does nothing, and Pi goes on.
  if (!isValidUTF8(text)) {
    std::string quoted = "\"";
    for (const char character : text) {
      quoted += character == '"' ? "\\\"" : std::string(1, character);
    }
    return quoted + '"';
  }
  // A string literal of JSON is one of TypeScript, too.
  return jsonText(JSONValue(text), JSONLayout::compact);
}

}  // namespace

std::string piExtensionText(const std::filesystem::path& hookScriptPath) {
  std::string text(head);
  text += stringLiteral(hookScriptPath.string());
  text += tail;
  return text;
}

}  // namespace nodo
