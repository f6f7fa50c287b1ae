#!/usr/bin/env bash
# A short libFuzzer run of the PNG decoder (about 15 s), starting from small valid PNG files.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
binary="$here/build/fuzz/fuzz_png_decode"
if [ -f "$here/build/fuzz/build.ninja" ]; then
  cmake --build "$here/build/fuzz" --target fuzz_png_decode -j 2 >/dev/null
else
  bash "$here/scripts/build.sh" fuzz >/dev/null
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$here"/fuzz/corpus/png/* "$work"/ 2>/dev/null || true
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
"$binary" "$work" -max_total_time=15 -max_len=4096 -rss_limit_mb=1024 -print_final_stats=1 2>"$work.log" || {
  tail -40 "$work.log" >&2
  rm -f "$work.log"
  exit 1
}
grep -E "stat::number_of_executed_units" "$work.log" || true
rm -f "$work.log"
echo "fuzz-png: no crash"
