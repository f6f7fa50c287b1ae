#!/usr/bin/env bash
# The main job: installs what is missing, builds the tool and shows it at work on a fresh root.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
bash scripts/setup.sh
bash scripts/build.sh release
root="$here/build/demo-root"
rm -rf "$root"
./build/release/tactora --root "$root" --help
