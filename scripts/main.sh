#!/usr/bin/env bash
# The main job: installs what is missing, builds everything, shows the tool at work on a fresh root,
# and ends with the demo run to its end (scripts/demo.sh), which prints the command to watch it live.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
bash scripts/setup.sh
bash scripts/build.sh release
root="$here/build/tour-root"
rm -rf "$root"
tactora() { ./build/release/tactora --root "$root" "$@"; }

echo "== a fresh device: no scripts yet (the directories and the database are made on the way)"
tactora scripts
printf 'touchDown(0, 100, 200)\nusleep(50000)\ntouchUp(0, 100, 200)\n' \
  >"$root/var/mobile/Library/Tactora/Scripts/tap.lua"
printf 'usleep(1000000)\n' >"$root/var/mobile/Library/Tactora/Scripts/wait.lua"

echo "== store play settings for tap.lua: 3 times, 2 s apart, at 1.5x, without asking"
tactora settings --script tap.lua --repeat 3 --interval 2 --speed 1.5 --play-directly on
echo "== turn off the finished alert"
tactora settings --set show-play-finished-alert=off

echo "== the scripts, marked as the control panel marks them"
tactora scripts

echo "== play examples/tap.lua twice by its title on the simulated iPhone SE (the receiver takes the touches)"
cp examples/tap.lua "$root/var/mobile/Library/Tactora/Scripts/example-tap.lua"
tactora play example-tap.lua --repeat 2 --interval 0 \
  --trace "$root/hid-trace.jsonl"
echo "== the touches the device received (one JSON line per hand event)"
cat "$root/hid-trace.jsonl"
echo "== the script log"
cat "$root/var/mobile/Library/Tactora/Library/log.log"

bash scripts/demo.sh
