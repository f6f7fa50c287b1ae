#!/usr/bin/env bash
# Runs the demo to its end on a fresh root: draws the example scene, installs the example script,
# plays it on the simulated device without a browser, and keeps its touch trace and a screenshot
# of the result under build/demo/. Needs build/release/tactora (scripts/build.sh release).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
tactora=./build/release/tactora
root=build/demo-root
out=build/demo
scripts="$root/var/mobile/Library/Tactora/Scripts"

rm -rf "$root" "$out"
mkdir -p "$scripts" "$out"
"$tactora" --root "$root" make-demo-scene "$root/demo-scene" >/dev/null
cp examples/demo/demo.lua "$scripts/demo.lua"
cp "$root/demo-scene/icon.png" "$scripts/demo-icon.png"

echo "== the demo: find the Demo icon, open the app, find the green button, tap it"
"$tactora" --root "$root" --language en sim --scene "$root/demo-scene/scene.json" --headless --run demo.lua \
    --expect-screen done --trace "$out/trace.jsonl"
cp "$scripts/demo-result.png" "$out/result.png"
sed 's/^/log: /' "$root/var/mobile/Library/Tactora/Library/log.log"
echo
echo "The demo ran to its end: $(grep -c '"digitizer"' "$out/trace.jsonl") touch events in $out/trace.jsonl;"
echo "the screen it left is in $out/result.png."
echo
echo "Watch the same demo live in the browser simulator (open the address it prints; Ctrl-C ends it):"
echo
echo "    ./build/release/tactora --root $root sim --run demo.lua"
