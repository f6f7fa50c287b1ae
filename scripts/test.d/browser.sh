#!/usr/bin/env bash
# Browser tests of the simulator page: Playwright (playwright-core from npm, locked by
# tests/browser/package-lock.json) drives Debian's Chromium headless. Needs build/release/tactora.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
cd "$here/tests/browser"
npm ci --no-audit --no-fund --loglevel=error
export TACTORA_CLI="$here/build/release/tactora"
export TACTORA_ARTIFACTS="$here/build/browser-artifacts"
node --test --test-concurrency=1
