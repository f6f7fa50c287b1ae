#!/usr/bin/env bash
# Short libFuzzer runs (about 12 s each) of the inputs other processes, scripts and pages can
# reach: the injection and settings ports, the recorder's event handler, the script interpreter,
# the simulator's scene files and its JSON API. Each starts from its seed corpus in
# fuzz/corpus/<target>; any crash, leak or broken invariant fails.
#
# fuzz_recorder_events once failed in about one short run in three: the harness expected a pause
# line before every event after the first, but the recorder (by design) takes a last time of 0 as
# "nothing written yet", and the provider hands out timestamps of 0 once its bytes run out. The
# harness now expects what the recorder does.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
targets=(fuzz_injection_port fuzz_lua_script fuzz_recorder_events fuzz_scene_file fuzz_sim_api)
if [ -f "$here/build/fuzz/build.ninja" ]; then
  cmake --build "$here/build/fuzz" --target "${targets[@]}" -j 2 >/dev/null
else
  bash "$here/scripts/build.sh" fuzz >/dev/null
fi
seconds=${FUZZ_SMOKE_SECONDS:-12}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
# Undefined behaviour counts as a crash, not as a line in the log.
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
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
