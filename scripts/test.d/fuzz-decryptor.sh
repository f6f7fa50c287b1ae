#!/usr/bin/env bash
# A short run of the decryptor fuzzer (about 20 s) from the fuzz build, building it if missing.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
cd "$here"
fuzzer=build/fuzz/fuzz_decryptor
if [ ! -x "$fuzzer" ]; then
  bash scripts/build.sh fuzz >/dev/null
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/corpus"
status=0
"$fuzzer" -max_total_time=20 -timeout=60 -rss_limit_mb=2048 -print_final_stats=1 \
  -artifact_prefix="$work/" "$work/corpus" >"$work/log" 2>&1 || status=$?
if [ "$status" -ne 0 ]; then
  tail -60 "$work/log" >&2
  for artifact in "$work"/crash-* "$work"/timeout-* "$work"/leak-*; do
    [ -e "$artifact" ] && { echo "failing input (base64):" >&2; base64 "$artifact" >&2; }
  done
  echo "fuzz-decryptor: FAILED" >&2
  exit "$status"
fi
grep -E 'stat::number_of_executed_units' "$work/log" || true
echo "fuzz-decryptor: no failure found"
