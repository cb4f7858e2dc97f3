# shellcheck shell=bash
# How the scripts of this folder measure whole programs with hyperfine. Sourced, never run.

set -euo pipefail

# In short turns, as a busy moment of the machine would otherwise hit only one of the commands.
turns=${NODO_BENCH_TURNS:-25}

bench_folder=$(mktemp -d "${TMPDIR:-/tmp}/nodo-bench.XXXXXX")

# Measures the commands in alternating turns; each turn's medians in milliseconds go to one line of the
# file "turns", in the order of the commands.
# usage: measure COMMAND ...
measure() {
  local turn
  for ((turn = 0; turn < turns; ++turn)); do
    hyperfine -N --warmup 5 --runs 40 --style none --export-csv "$bench_folder/csv" "$@" \
      >/dev/null 2>"$bench_folder/hyperfine.log" || {
      cat "$bench_folder/hyperfine.log" >&2
      return 1
    }
    awk -F, 'NR > 1 { printf "%.4f ", $(NF - 4) * 1000 } END { print "" }' "$bench_folder/csv"
  done >"$bench_folder/turns"
}

# Prints the middle one over all turns of an awk expression of their columns, e.g. '$2 / $1'.
middle() {
  awk "{ print $1 }" "$bench_folder/turns" | sort -n | sed -n "$(((turns + 1) / 2))p"
}

# usage: print_time NAME COLUMN
print_time() {
  printf '%-44s %7.2f ms\n' "$1" "$(middle "\$$2")"
}

# Prints a ratio, and fails when it is above its target.
# usage: print_ratio NAME EXPRESSION TARGET
print_ratio() {
  local ratio
  ratio=$(middle "$2")
  printf '%-44s %7.2f (at most %.2f)\n' "$1" "$ratio" "$3"
  awk "BEGIN { exit !($ratio <= $3) }"
}
