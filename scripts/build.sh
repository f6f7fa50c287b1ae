#!/usr/bin/env bash
# Configures and builds one flavour of the host build under build/<flavour>.
#   release  the tool, tests and benchmarks
#   asan     tests under AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     tests under ThreadSanitizer
#   fuzz     the libFuzzer targets (clang)
set -euo pipefail
flavour=${1:-release}
here=$(cd "$(dirname "$0")/.." && pwd)
dir="$here/build/$flavour"
# Let ccache share objects between checkouts and build directories of the same sources.
export CCACHE_BASEDIR="$here" CCACHE_NOHASHDIR=1
args=(-G Ninja -S "$here" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo)
case "$flavour" in
  release) ;;
  asan) args+=(-DTACTORA_SANITIZE=address,undefined -DTACTORA_BENCH=OFF) ;;
  tsan) args+=(-DTACTORA_SANITIZE=thread -DTACTORA_BENCH=OFF) ;;
  fuzz) args+=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTACTORA_FUZZ=ON
               -DTACTORA_TESTS=OFF -DTACTORA_BENCH=OFF) ;;
  *) echo "unknown flavour $flavour" >&2; exit 2 ;;
esac
cmake "${args[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)"
