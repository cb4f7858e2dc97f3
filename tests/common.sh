# shellcheck shell=bash
# What the tests that are shell scripts share. Sourced, never run.

set -euo pipefail

script_name=${0##*/}

say() {
  printf '%s: %s\n' "$script_name" "$*" >&2
}

skip() {
  say "skipped: $*"
  exit 77
}

fail() {
  say "FAILED: $*"
  exit 1
}

# Like fail, for what need not end the script: it ends well by [ "$failures" -eq 0 ].
failures=0
complain() {
  say "FAILED: $*"
  failures=$((failures + 1))
}

# Skips the test where a program is missing.
need() {
  local program
  for program in "$@"; do
    command -v "$program" >/dev/null 2>&1 || skip "$program is not installed"
  done
}

# Waits until a command succeeds: services say by an answer that they are ready.
await() {
  local tries
  for tries in $(seq 500); do
    ! "$@" >/dev/null 2>&1 || return 0
    sleep 0.02
  done
  fail "not so after $tries tries: $*"
}

# usage: expect WHAT ACTUAL EXPECTED
expect() {
  [ "$2" = "$3" ] || fail "$1: expected $3, got $2"
}

# usage: expect_failure TEXT COMMAND [ARGUMENT ...]; the command fails and says TEXT
expect_failure() {
  local text=$1 output
  shift
  if output=$("$@" 2>&1); then
    fail "succeeded, which it must not: $*"
  fi
  [[ $output == *"$text"* ]] || fail "failed otherwise than with '$text': $*: $output"
}

# usage: value EXPRESSION; of the JSON on standard input, which Python calls "document" there
value() {
  /usr/bin/python3 -c 'import json, sys
document = json.load(sys.stdin)
print(eval(sys.argv[1]))' "$1"
}
