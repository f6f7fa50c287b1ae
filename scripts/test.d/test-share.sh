#!/usr/bin/env bash
# Keeps the tests a quarter to a third of the code, as the project asks: counted in non-blank lines
# of source files (C, C++, Objective-C, JavaScript, Lua, Python, shell) that git tracks; tests are
# those under tests/ and fuzz/, code all the rest but bench/ and examples/. Outside the band the
# suite fails with both counts, so that a change that grows the tests past it trims them too.
set -euo pipefail
cd "$(dirname "$0")/../.."
if ! git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  echo "test share: not a git checkout, nothing to count"
  exit 0
fi
count() { xargs -r cat 2>/dev/null | grep -cv '^[[:space:]]*$' || true; }
sources=$(git ls-files | grep -E '\.(c|cc|cpp|h|hpp|m|mm|js|mjs|ts|lua|py|sh)$')
tests=$(grep -E '(^|/)(tests?|fuzz)/' <<<"$sources" | count)
code=$(grep -vE '(^|/)(tests?|fuzz|bench|examples)/' <<<"$sources" | count)
share=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.1f", 100 * t / c }')
echo "test share: $tests test lines beside $code lines of code ($share %; the band is 25-33 %)"
if awk -v s="$share" 'BEGIN { exit !(s < 25 || s > 33) }'; then
  echo "test share: outside the band; group or trim tests (docs/mutation.md says how without losing a catch)" >&2
  exit 1
fi
