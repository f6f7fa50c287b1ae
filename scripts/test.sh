#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds every flavour and runs every test.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
bash scripts/setup.sh

# ThreadSanitizer cannot map its shadow memory with the kernel's widest address randomisation.
tsan_run=()
if [ "$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ]; then tsan_run=(setarch "$(uname -m)" -R); fi

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$here/tests/sanitizers/tsan.supp

for flavour in release asan tsan; do
  echo "== build $flavour"
  bash scripts/build.sh "$flavour"
done

status=0
for flavour in release asan tsan; do
  echo "== tests ($flavour)"
  runner=()
  [ "$flavour" = tsan ] && runner=("${tsan_run[@]}")
  # A few tests cross processes and compare wall-clock pauses; on a busy machine such a test gets
  # one more try, while a real fault fails both.
  "${runner[@]}" ctest --test-dir "build/$flavour" --output-on-failure -j "$(nproc)" --timeout 300 \
    --repeat until-pass:2 || status=1
done

for extra in scripts/test.d/*.sh; do
  [ -e "$extra" ] || continue
  echo "== $(basename "$extra" .sh)"
  bash "$extra" || status=1
done

if [ "$status" -eq 0 ]; then echo "test.sh: every suite passed"; else echo "test.sh: FAILED" >&2; fi
exit "$status"
