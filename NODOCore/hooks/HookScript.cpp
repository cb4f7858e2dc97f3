#include <NODOCore/base/Files.h>
#include <NODOCore/base/System.h>
#include <NODOCore/base/Text.h>
#include <NODOCore/hooks/Agents.h>
#include <NODOCore/hooks/HookScript.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

namespace nodo {

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char character : text) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  return quoted + "'";
}

std::string fingerprint(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325U;
  for (const char character : text) {
    value ^= static_cast<unsigned char>(character);
    value *= 0x100000001b3U;
  }
  return fmt::format("{:016x}", value);
}

namespace {

// The script in three pieces, between which stand what depends on where nodoctl is and on the
// agents. Every byte counts: an installed script is compared with what these make.
//
// It runs under the bash 3.2 of macOS as well as under current ones. An agent waits for it at every
// tool call, so it starts no program whose answer it can do without, and its functions answer in
// variables, as each $(function) would be a process of its own.

constexpr std::string_view upToCandidates = R"hook(#!/usr/bin/env bash
# Asks nodo to keep this machine awake for as long as a coding agent works. The agent runs this at
# each of its events; whatever goes wrong in here stays in here.
set -u
umask 077
: "${HOME:=}"

MINUTES="${NODO_HOOK_MINUTES:-20}"
MIN_INTERVAL_SECONDS="${NODO_HOOK_MIN_INTERVAL_SECONDS:-120}"
STAMP_PATH="${NODO_HOOK_STAMP:-$HOME/.nodo/last-extend.stamp}"
FALLBACK_SECONDS="${NODO_HOOK_FALLBACK_SECONDS:-600}"
LOG_PATH="${NODO_HOOK_LOG:-/tmp/nodo-agent-hook.log}"
HOOK_AGENT="${NODO_HOOK_AGENT:-agent}"
HOOK_EVENT="${NODO_HOOK_EVENT:-}"

# Agents read what a hook prints, and take some exit statuses as a refusal.
exec >/dev/null 2>&1
PAYLOAD_READER=""
trap finish EXIT

# Node gives up what it has not written when the hook ends, and its agents report that. Whoever writes
# without a pause is through by now or in moments; nobody else is waited for.
# shellcheck disable=SC2317 # called by the trap
finish() {
  local turns=10
  while [[ -n $PAYLOAD_READER && $turns -gt 0 ]] && kill -0 "$PAYLOAD_READER"; do
    sleep 0.02
    turns=$((turns - 1))
  done
  exit 0
}

HOOK_PAYLOAD=""
if [[ ! -t 0 ]]; then
  HOOK_PAYLOAD=$(exec head -c 65536)
  # An agent whose pipe breaks takes the hook for a failed one, so the rest is read, too, by a process
  # that outlives the script. 65536 bytes are at least 16384 characters, whatever the locale.
  if [[ ${#HOOK_PAYLOAD} -gt 16000 ]]; then
    cat <&0 &
    PAYLOAD_READER=$!
    disown
  fi
fi

# Whether this user or root made what those options of ls show of the path.
is_ours() {
  local owner
  read -r _ _ owner _ < <(exec ls "$1" -- "$2")
  [[ $owner == "$EUID" || $owner == 0 ]]
}

# Whether the way to the log is no link that somebody else planted.
log_is_reached() {
  [[ ! -L $LOG_PATH ]] || is_ours -dln "$LOG_PATH"
}

# Adds a line to the log. That may lie in /tmp, which is open to everybody: a link there may lead to
# any file, and a pipe would hold the agent up. As others may exchange at any moment what is theirs, it
# is looked at once it is open: in both directions, which does not wait for the other end of a pipe.
write_log() {
  if [[ ! -e $LOG_PATH && ! -L $LOG_PATH ]]; then
    set -C
    : >"$LOG_PATH"
    set +C
  fi
  if [[ -e $LOG_PATH && ! -f $LOG_PATH ]] || ! log_is_reached; then
    return
  fi
  {
    if [[ -f /dev/fd/3 ]] && { [[ -O /dev/fd/3 ]] || is_ours -dlnL /dev/fd/3; } &&
      [[ $LOG_PATH -ef /dev/fd/3 ]] && log_is_reached; then
      {
        [[ /dev/fd/4 -ef /dev/fd/3 ]] && printf '%s\n' "$1" >&4
      } 4>>"$LOG_PATH"
    fi
  } 3<>"$LOG_PATH"
}

# One line, whatever the words hold, as the log is read by all that Unicode knows as an end of a line,
# and not so long that it would be written in pieces, between which others' lines may come.
log() {
  local message="$*" line_end now
  for line_end in $'\n' $'\r' $'\v' $'\f' $'\xC2\x85' $'\xE2\x80\xA8' $'\xE2\x80\xA9'; do
    message=${message//"$line_end"/ }
  done
  now=$(exec date '+%Y-%m-%d %H:%M:%S')
  write_log "$now ${message:0:900}"
}

# Sets DECIMAL to the number without leading zeros; fails for anything but decimal digits.
decimal() {
  local pattern='^0*(0|[1-9][0-9]*)$'
  [[ $1 =~ $pattern ]] && DECIMAL=${BASH_REMATCH[1]}
}

# Sets BUNDLE_VERSION.
nodoctl_bundle_version() {
  local folder=. app version
  BUNDLE_VERSION=0
  if [[ $1 == */* ]]; then
    folder=${1%/*}
  fi
  app=$(CDPATH='' cd -- "$folder/../../.." && pwd -P)
  if [[ ! -f $app/Contents/Info.plist ]]; then
    return
  fi
  version=$(exec /usr/libexec/PlistBuddy -c "Print :CFBundleVersion" "$app/Contents/Info.plist")
  if decimal "$version"; then
    BUNDLE_VERSION=$DECIMAL
  fi
}

# Sets ctl.
resolve_nodoctl() {
  local candidate best=""
  ctl=${NODOCTL_PATH:-}
  if [[ -f $ctl && -x $ctl ]]; then
    return 0
  fi
  ctl=""
  local candidates=(
)hook";

constexpr std::string_view upToAgents = R"hook(
  )
  for candidate in "${candidates[@]}"; do
    if [[ ! -f $candidate || ! -x $candidate ]]; then
      continue
    fi
    nodoctl_bundle_version "$candidate"
    # Longer is higher, and of the same length what sorts later: bash cannot count that far.
    if [[ ${#BUNDLE_VERSION} -gt ${#best} ||
      (${#BUNDLE_VERSION} -eq ${#best} && "v$BUNDLE_VERSION" > "v$best") ]]; then
      best=$BUNDLE_VERSION
      ctl=$candidate
    fi
  done
  [[ -n $ctl ]]
}

# Sets REQUESTER_NAME.
requester_name() {
  case $HOOK_AGENT in
)hook";

constexpr std::string_view behindAgents = R"hook(    *) REQUESTER_NAME="Agent" ;;
  esac
}

# Whether it takes a parser to know if the payload has this key. It has not when the name occurs
# nowhere, nor an escape of a character that names are made of (tools print many escapes of others),
# or when the payload was cut: no document with keys ends like that.
may_have_key() {
  case $HOOK_PAYLOAD in
    *"\"$1\""* | *'\u00'[4-7]*) ;;
    *) return 1 ;;
  esac
  case ${HOOK_PAYLOAD: -1} in
    '}' | ']' | ' ' | $'\t' | $'\r' | $'\n') return 0 ;;
  esac
  return 1
}

# Whether there is a python3 that just runs. That of macOS is none without the developer tools: it opens
# a dialog that offers to install them.
has_python() {
  command -v python3 || return 1
  if [[ -x /usr/bin/xcode-select && $(command -v python3) == /usr/bin/python3 ]]; then
    /usr/bin/xcode-select -p
  fi
}

# Sets SESSION, PROJECT and EVENT to what the payload says of them, each as one short line: of the keys
# in its argument, those of the first that has a value which says something. Isolated (-I), as python3
# would otherwise import a json.py that lies in the agent's folder. What stands for python3 may be a
# version manager that takes its time: these words are not worth more than half a second.
json_values() {
  local program='
import json, os, sys
document = json.loads(sys.stdin.buffer.read().decode("utf-8") or "{}")

def line(key):
    values = [document]
    while values:
        value = values.pop()
        if isinstance(value, dict):
            if value.get(key) not in (None, ""):
                text = str(value[key]).replace("\r", " ").replace("\n", " ").strip()[:200]
                return text.replace("\0", "").encode("utf-8")
            value = list(value.values())
        if isinstance(value, list):
            values.extend(reversed(value))

for keys in os.environ["JSON_KEYS"].split(","):
    for key in keys.split():
        try:
            found = line(key)
        except Exception:
            continue
        if found:
            sys.stdout.buffer.write(found)
            break
    sys.stdout.buffer.write(b"\n")
'
  local keys key sought="" list="" python limit=0.5
  SESSION="" PROJECT="" EVENT=""
  for keys in "$@"; do
    for key in $keys; do
      if may_have_key "$key"; then
        sought=yes
        list+=" $key"
      fi
    done
    list+=,
  done
  if [[ -n $sought ]] && has_python; then
    if [[ ${BASH_VERSINFO[0]} -lt 4 ]]; then
      limit=1 # which counts in whole seconds only
    fi
    {
      read -r python
      if IFS= read -r -t "$limit" SESSION; then
        IFS= read -r PROJECT
        IFS= read -r EVENT
      else
        SESSION=""
        kill "$python"
      fi
    } < <(printf '%s' "$HOOK_PAYLOAD" |
      JSON_KEYS=$list /bin/sh -c 'echo "$$"; exec python3 -I -S -c "$0"' "$program")
  fi
}

# Sets SESSION_SHORT.
short_session() {
  local name=${1##*/}
  name=${name%.jsonl}
  name=${name%.json}
  SESSION_SHORT=${name:0:8}
}

# Sets REQUESTER_CONTEXT.
hook_context() {
  local project=${PROJECT:-${PWD:-}}
  project=${project##*/}
  short_session "$SESSION"
  if [[ -n $project && -n $SESSION ]]; then
    REQUESTER_CONTEXT="$project - session $SESSION_SHORT"
  elif [[ -n $SESSION ]]; then
    REQUESTER_CONTEXT="session $SESSION_SHORT"
  elif [[ $project != . ]]; then
    REQUESTER_CONTEXT=$project
  else
    REQUESTER_CONTEXT=""
  fi
}

# Sets REQUESTER_EVENT.
hook_event() {
  REQUESTER_EVENT=${HOOK_EVENT:-$EVENT}
}

# Whether the last accepted request is too recent for another one. A stamp in the future, which only
# a changed clock leaves, counts as recent.
should_skip_extend() {
  local stamp="" now plain=$'^[0-9]*\n?$'
  if [[ ! -f $STAMP_PATH ]]; then
    return 1
  fi
  # The end of the file before 32 characters and a NUL: then this is all of it.
  if IFS= read -r -d '' -n 32 stamp <"$STAMP_PATH" || [[ ! $stamp =~ $plain ]]; then
    stamp=$(exec tr -dc '0-9' <"$STAMP_PATH")
  fi
  stamp=${stamp%$'\n'}
  decimal "$stamp" || return 1
  stamp=$DECIMAL
  if [[ ${#stamp} -gt 15 ]]; then
    return 0
  fi
  now=$(exec date +%s)
  decimal "$now" || return 1
  # Not [[ ]], which would evaluate an interval that is no number.
  [ "$((DECIMAL - stamp))" -lt "$MIN_INTERVAL_SECONDS" ]
}

record_extend_stamp() {
  local folder=.
  if [[ $STAMP_PATH == */* ]]; then
    folder=${STAMP_PATH%/*}/
  fi
  if [[ ! -d $folder ]]; then
    mkdir -p -- "$folder"
  fi
  if [[ ! -p $STAMP_PATH ]]; then
    date +%s >"$STAMP_PATH"
  fi
}

fallback_caffeinate() {
  record_extend_stamp
  if ! command -v caffeinate; then
    log "fallback unavailable: caffeinate not found"
    return
  fi
  caffeinate -is -t "$FALLBACK_SECONDS" </dev/null >/dev/null 2>&1 &
  disown
  log "fallback caffeinate started seconds=$FALLBACK_SECONDS"
}

event_keys="hook_event_name hookEventName eventName event"
if [[ -n $HOOK_EVENT ]]; then
  event_keys=""
fi

requester_name
if should_skip_extend; then
  json_values "" "" "$event_keys"
  hook_event
  log "nodo extend throttled seconds=$MIN_INTERVAL_SECONDS requester=$REQUESTER_NAME" \
    "event=$REQUESTER_EVENT"
  exit 0
fi
json_values "session_id sessionId conversation_id conversationId transcript_path" \
  "cwd project_dir project" "$event_keys"
hook_context
hook_event

if ! resolve_nodoctl; then
  log "nodoctl not found"
  fallback_caffeinate
  exit 0
fi

arguments=(manual --minutes "$MINUTES" --extend-only --requester "$REQUESTER_NAME" --json)
if [[ -n $REQUESTER_CONTEXT ]]; then
  arguments+=(--context "$REQUESTER_CONTEXT")
fi
if [[ -n $REQUESTER_EVENT ]]; then
  arguments+=(--event "$REQUESTER_EVENT")
fi
if ! "$ctl" "${arguments[@]}" </dev/null >/dev/null 2>&1; then
  log "nodo manual failed ctl=$ctl requester=$REQUESTER_NAME"
  fallback_caffeinate
  exit 0
fi

report=$("$ctl" doctor </dev/null 2>&1)
if [[ $report == *"Status source: local fallback"* ]]; then
  log "helper unavailable; using fallback"
  fallback_caffeinate
elif [[ $'\n'$report == *$'\n'"Status: active"* || $report == *"macOS SleepDisabled: on"* ]]; then
  record_extend_stamp
  log "nodo active minutes=$MINUTES requester=$REQUESTER_NAME context=$REQUESTER_CONTEXT" \
    "event=$REQUESTER_EVENT"
else
  log "nodo helper reachable but sleep lock is off"
fi

exit 0)hook";

std::string candidateLines(const std::optional<std::string>& nodoctlPath) {
  std::string lines =
      "    \"/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"\n"
      "    \"$HOME/Applications/nodo.app/Contents/Library/Helpers/nodoctl\"";
  const std::string configured = nodoctlPath ? *nodoctlPath : startedPath();
  const std::string_view path = trimmed(configured);
  if (!path.empty()) {
    lines += "\n    " + shellQuoted(path);
  }
  return lines;
}

std::string agentLines() {
  std::string lines;
  for (const Agent& agent : allAgents()) {
    lines += fmt::format("    {}) REQUESTER_NAME=\"{}\" ;;\n", rawValue(agent.target),
                         agent.displayName);
  }
  return lines;
}

}  // namespace

std::string hookScriptText(const std::optional<std::string>& nodoctlPath) {
  std::string text(upToCandidates);
  text += candidateLines(nodoctlPath);
  text += upToAgents;
  text += agentLines();
  text += behindAgents;
  return text;
}

std::optional<std::string> readHookScriptFile(const std::filesystem::path& path) {
  try {
    auto content = readFile(path);
    return content && isValidUTF8(*content) ? content : std::nullopt;
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

bool isExecutableFile(const std::filesystem::path& path) {
  return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

bool writeHookScriptFile(const std::filesystem::path& path, std::string_view text) {
  if (readHookScriptFile(path) == text && isExecutableFile(path)) {
    return false;
  }
  replaceFile(path, text, std::filesystem::perms(0755));
  return true;
}

bool removeHookScriptFile(const std::filesystem::path& path) {
  if (::unlink(path.c_str()) == 0) {
    return true;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    throwErrno("Unable to remove", path.string());
  }
  return false;
}

}  // namespace nodo
