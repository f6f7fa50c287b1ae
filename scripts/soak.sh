#!/usr/bin/env bash
# The long soak: one script of touches, colour and image searches and pauses played 10,000 passes
# (or $1) at speed 2.0 under the runner, against a real receiver process. Prints the process's
# memory, open descriptors and threads every twentieth of the run and fails if they grow.
# Takes about four minutes on a quiet 2-core machine (release build).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
passes=${1:-10000}
if [ ! -f "$here/build/release/build.ninja" ]; then bash "$here/scripts/build.sh" release >/dev/null; fi
ninja -C "$here/build/release" -j 2 tactora tactora_tests >/dev/null
TACTORA_SOAK_PASSES=$passes "$here/build/release/tactora_tests" --gtest_filter='Soak.*' --gtest_brief=1
