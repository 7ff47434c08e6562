#!/bin/sh
# Lines that say something: no blank lines, no comment lines. Tests against all else.
set -eu
cd "$(dirname "$0")/.."
count() {
    git ls-files -- "$@" | grep -E '\.(cpp|h|js|mjs|css|html|sh|cmake)$|CMakeLists\.txt$|^dev$|\.ci/run$' |
        xargs -r cat | grep -cvE '^[[:space:]]*(//|#[^!a-z]|#$|/\*|\*|<!--)|^[[:space:]]*$' || true
}
tests=$(count tests fuzz)
code=$(count . ':!tests' ':!fuzz')
echo "code  $code"
echo "tests $tests"
awk -v t="$tests" -v c="$code" 'BEGIN { printf "ratio %.2f\n", t / c }'
