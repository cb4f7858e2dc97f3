# shellcheck shell=bash
# What the checks of the packaging share. Sourced, never run.

set -euo pipefail

check_name=${0##*/}

skip() {
  printf '%s: skipped: %s\n' "$check_name" "$*" >&2
  exit 77
}

fail() {
  printf '%s: %s\n' "$check_name" "$*" >&2
  exit 1
}

# Skips the check where a program is missing.
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

# usage: expect_failure TEXT COMMAND [ARGUMENT ...]; the command fails and says TEXT
expect_failure() {
  local text=$1 output
  shift
  if output=$("$@" 2>&1); then
    fail "succeeded, which it must not: $*"
  fi
  [[ $output == *"$text"* ]] || fail "failed otherwise than with '$text': $*: $output"
}
