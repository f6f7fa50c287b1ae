#!/usr/bin/env bash
# Plants one fault at a time in a scratch copy of the sources, rebuilds and runs the tests, and
# reports every fault that no test noticed. The faults are listed in tests/mutants.txt:
#
#   @ core/Kernel/TouchInjector.cpp   the touch bit of the digitizer mask is wrong
#   - constexpr std::uint32_t maskTouch = 0x2;
#   + constexpr std::uint32_t maskTouch = 0x8;
#
# The "-" text must occur exactly once in the file, so a fault survives edits of the lines around
# it. Usage: scripts/mutate.sh [grep pattern over the "@" lines]   (MUTATE_DIR moves the scratch
# copy, MUTATE_REPORT the report; MUTATE_TIMEOUT is the seconds one test may take before it counts
# as hung; MUTATE_EXCLUDE a ctest regex of tests to leave out).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
only=${1:-}
work=${MUTATE_DIR:-/tmp/tactora-mutate}
report=${MUTATE_REPORT:-$work/report.txt}
timeout=${MUTATE_TIMEOUT:-120}
exclude=${MUTATE_EXCLUDE:-^$}
src=$work/src
build=$src/build/release

# The scratch copy holds the tracked files as they are in the checkout, edits included. Each file
# gets the time of the copy (tar -m): a file whose checkout time is older than the scratch build
# would otherwise keep its stale object (ccache makes the rebuild cheap).
mkdir -p "$src"
find "$src" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
(cd "$here" && git ls-files -z --cached --others --exclude-standard | \
  while IFS= read -r -d '' f; do [ -f "$f" ] && printf '%s\0' "$f"; done | tar --null -T - -cf -) | \
  tar -C "$src" -m -xf -
# A run that was interrupted may have left a planted fault behind: the copy above put the file
# back, with its old time, so make sure it is compiled again.
if [ -f "$work/planted" ]; then touch "$src/$(cat "$work/planted")"; rm -f "$work/planted"; fi
export CCACHE_BASEDIR="$src" CCACHE_NOHASHDIR=1
# Each fault relinks the test binary, so a faster linker saves most of the time per fault.
link=()
if command -v ld.lld >/dev/null; then link=(-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld); fi
cmake -G Ninja -S "$src" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTACTORA_BENCH=OFF "${link[@]}" >/dev/null
echo "building the scratch copy in $build"
cmake --build "$build" --target tactora_tests >/dev/null

# Runs the tests named after the mutated file first (they fail fastest), then all the others.
run_tests() {
  local file=$1 log=$2 first
  first=$(basename "$file"); first=${first%.*}
  if ctest --test-dir "$build" -N -R "^$first\." | grep -q 'Test *#'; then
    ctest --test-dir "$build" -R "^$first\." -E "$exclude" --stop-on-failure -j "$(nproc)" \
      --timeout "$timeout" >"$log" 2>&1 || return 1
  fi
  ctest --test-dir "$build" -E "$exclude" --stop-on-failure -j "$(nproc)" --timeout "$timeout" \
    >>"$log" 2>&1 || return 1
  return 0
}

apply() {  # file, old text, new text: replaces the one occurrence, or fails
  python3 - "$@" <<'EOF'
import sys
path, old, new = sys.argv[1:4]
text = open(path, encoding="utf-8").read()
count = text.count(old)
if count != 1:
    sys.exit(f"{count} occurrences")
open(path, "w", encoding="utf-8").write(text.replace(old, new, 1))
EOF
}

: >"$report"
caught=0 survived=0 broken=0 total=0
file="" desc="" old="" new=""
run_one() {
  [ -n "$file" ] || return 0
  if [ -n "$only" ] && ! grep -q -- "$only" <<<"$file $desc"; then file=""; return 0; fi
  total=$((total + 1))
  local target=$src/$file saved log verdict start
  saved=$(mktemp) log=$work/last.log start=$SECONDS
  cp -p "$target" "$saved"
  echo "$file" >"$work/planted"
  if ! problem=$(apply "$target" "$old" "$new" 2>&1); then
    verdict="BAD    ($problem)"; broken=$((broken + 1))
  elif ! cmake --build "$build" --target tactora_tests >"$log" 2>&1; then
    verdict="BAD    (does not build)"; broken=$((broken + 1))
  elif run_tests "$file" "$log"; then
    verdict="SURVIVED"; survived=$((survived + 1))
  else
    how=$(grep -m1 -E '\*\*\*(Failed|Timeout|Exception)|Failed  ' "$log" | sed -E 's/^.*Test +#[0-9]+: //; s/ \.+/ /; s/ +/ /g' || true)
    verdict="caught  ${how# }"; caught=$((caught + 1))
  fi
  cp "$saved" "$target"; touch "$target"; rm -f "$saved" "$work/planted"
  printf '%-8s %4ss  %s: %s\n' "${verdict%% *}" "$((SECONDS - start))" "$file" "$desc" | tee -a "$report"
  [ "${verdict%% *}" = caught ] || [ "${verdict%% *}" = SURVIVED ] || echo "         ${verdict#* }" | tee -a "$report"
  [ "${verdict%% *}" != caught ] || echo "         ${verdict#caught  }" >>"$report"
  file=""
}

while IFS= read -r line || [ -n "$line" ]; do
  case "$line" in
    "@ "*) run_one; rest=${line#@ }; file=${rest%% *}; desc=$(sed -E 's/^[^ ]+ +//' <<<"$rest"); old=""; new="" ;;
    "- "*) old+=${old:+$'\n'}${line#- } ;;
    "+ "*) new+=${new:+$'\n'}${line#+ } ;;
    "+") ;;  # the line goes away
  esac
done <"$here/tests/mutants.txt"
run_one
# Leave the scratch build as the sources are, so that the next run starts incrementally.
cmake --build "$build" --target tactora_tests >/dev/null 2>&1 || true

summary="$caught of $total faults caught, $survived survived, $broken not applied"
echo "$summary" | tee -a "$report"
echo "report: $report"
