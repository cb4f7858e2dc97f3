#!/usr/bin/env bash
# Every script can be run as it stands and has a name by which it is checked, and those that people
# call explain themselves.
#
# usage: check-scripts.sh PROJECT-FOLDER

# shellcheck source=../common.sh source-path=SCRIPTDIR
. "$(dirname "$0")/../common.sh"

root=${1:?the folder of the project}
checked=0

explains_itself() {
  local help
  help=$("$1" --help </dev/null) && [[ $help == *usage:* ]]
}

refuses_unknown_options() {
  local status=0
  "$1" --no-such-option </dev/null >/dev/null 2>&1 || status=$?
  [ "$status" -eq 2 ]
}

for script in "$root"/scripts/* "$root/.ci/run"; do
  if [ -d "$script" ]; then
    continue
  fi
  explains_itself "$script" || complain "$script: --help does not explain its use"
done
# scripts/run and scripts/test hand unknown arguments on.
for script in setup format lint mutate; do
  refuses_unknown_options "$root/scripts/$script" ||
    complain "scripts/$script: an unknown option is not a wrong use (exit status 2)"
done

while IFS= read -r -d '' file; do
  first=$(head -n 1 "$file" | tr -d '\0')
  if [ "${first:0:2}" != '#!' ]; then
    continue
  fi
  checked=$((checked + 1))
  [ -x "$file" ] || complain "$file: begins like a script but cannot be run"
  [[ $first != *python* || $file == *.py ]] ||
    complain "$file: a Python program without .py in its name, which scripts/lint passes over"
done < <(find "$root" \( -path "$root/build" -o -path "$root/.git" -o -path "$root/tests/data" \
  -o -path "$root/fuzz/corpus" \) -prune -o -type f -print0)

[ "$checked" -ge 6 ] || complain "found only $checked scripts below $root"
[ "$failures" -eq 0 ]
