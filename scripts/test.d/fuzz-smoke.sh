#!/usr/bin/env bash
# Short libFuzzer runs (about 8 s each) of the ports other processes and scripts can reach: the
# injection and settings ports, the recorder's event handler and the script interpreter. Each
# starts from its seed corpus in fuzz/corpus/<target>; any crash, leak or broken invariant fails.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
targets=(fuzz_injection_port fuzz_lua_script)
if [ -f "$here/build/fuzz/build.ninja" ]; then
  cmake --build "$here/build/fuzz" --target "${targets[@]}" -j 2 >/dev/null
else
  bash "$here/scripts/build.sh" fuzz >/dev/null
fi
seconds=${FUZZ_SMOKE_SECONDS:-8}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
status=0
for target in "${targets[@]}"; do
  corpus="$work/$target"
  mkdir -p "$corpus"
  cp "$here/fuzz/corpus/${target#fuzz_}"/* "$corpus"/ 2>/dev/null || true
  log="$work/$target.log"
  if (cd "$work" && "$here/build/fuzz/$target" "$corpus" -max_total_time="$seconds" -max_len=4096 \
        -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$work/$target-" >"$log" 2>&1); then
    echo "$target: no crash, $(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$') executions"
  else
    echo "$target: FAILED" >&2
    tail -40 "$log" >&2
    for crash in "$work/$target"-*; do [ -f "$crash" ] && { echo "input:" >&2; xxd "$crash" | head -20 >&2; }; done
    status=1
  fi
done
exit $status
