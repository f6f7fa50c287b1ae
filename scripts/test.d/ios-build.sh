#!/usr/bin/env bash
# The iOS tweak builds, links without undefined symbols or warnings, and packages correctly (when
# an iPhoneOS SDK is given; otherwise one line says it was skipped).
set -euo pipefail
exec bash "$(dirname "$0")/../build-ios.sh"
