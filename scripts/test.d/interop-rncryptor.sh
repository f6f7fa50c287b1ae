#!/usr/bin/env bash
# Encrypted scripts against an independent RNCryptor v3 implementation from npm, both directions.
# Uses the tool of the release build (scripts/test.sh builds it first); builds nothing itself.
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
tool="$here/build/release/tactora"
if [ ! -x "$tool" ]; then
  echo "interop-rncryptor: $tool is missing; run: bash scripts/build.sh release" >&2
  exit 1
fi
cd "$here/tests/js"
npm ci --no-audit --no-fund --loglevel=error >/dev/null
TACTORA_CLI="$tool" node --test --test-reporter=spec interop.test.js
