# shellcheck shell=bash
# What the scripts share. Sourced, never run. Works with the bash 3.2 of macOS, so no `mapfile`, and no
# expansion of an array that may be empty.

set -euo pipefail

script_name=${0##*/}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)

# Where a script is called from must not matter, nor what the caller's shell searches for folders.
unset CDPATH

say() {
  printf '%s: %s\n' "$script_name" "$*" >&2
}

fail() {
  say "error: $*"
  exit 1
}

# A wrong use: the reason, a hint, exit status 2.
misuse() {
  say "$*"
  say "try '$script_name --help'"
  exit 2
}

# The comment at the head of a script is its help text.
print_help() {
  awk 'NR == 1 { next } !/^#/ { exit } { sub(/^# ?/, ""); print }' "$0"
}

cores() {
  getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2
}

# Runs a command with its output kept in a file, which is shown only when the command fails.
# usage: quietly LOG COMMAND [ARG ...]
quietly() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  local status=0
  "$@" >"$log" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then
    cat "$log" >&2
    say "error: exit status $status from: $*"
  fi
  return "$status"
}

# Older thread sanitizers cannot live with the address-space randomisation of newer kernels. Prints the
# prefix under which such programs have to be built (tests are listed at build time) and run.
tsan_prefix() {
  local bits=/proc/sys/vm/mmap_rnd_bits
  if [ -r "$bits" ] && [ "$(cat "$bits")" -gt 28 ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    echo "setarch $(uname -m) -R"
  fi
}

# Configures and builds a preset. On a terminal the progress is shown, elsewhere only what fails; all
# of it on standard error. With `hush=1` nothing is said as long as nothing fails.
# usage: build_preset PRESET [TARGET ...]
build_preset() {
  local preset=$1
  shift
  local folder="$root/build/$preset" prefix=""
  if [ "$preset" = tsan ]; then
    prefix=$(tsan_prefix)
  fi
  local -a build
  # shellcheck disable=SC2206 # the prefix is several words
  build=($prefix cmake --build "$folder" --parallel "${CMAKE_BUILD_PARALLEL_LEVEL:-$(cores)}")
  if [ $# -gt 0 ]; then
    build+=(--target "$@")
  fi
  if [ -z "${hush-}" ]; then
    say "building the preset '$preset' in build/$preset"
  fi
  (cd "$root" && quietly "$folder/configure.log" cmake --preset "$preset") || return
  if [ -t 2 ] && [ -z "${hush-}" ]; then
    "${build[@]}" >&2
  else
    quietly "$folder/build.log" "${build[@]}"
  fi
}
