#!/usr/bin/env bash
# Measures how many small faults the tests catch: a fixed-seed sample of mutants over the
# production code, each built without sanitizers and run against the tests that link it.
# Slow (well under a minute a mutant); not part of the test command. See docs/testing.md.
# A compiler cache (ccache, CCACHE_DIR as the caller sets it) keeps the rebuilds short.
#   scripts/mutate.sh --seed N --count M [--tree DIR] [--build DIR] [--timeout S] [--first K] [--only N,M,...] [--list]
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
bash "$here/install-deps.sh" test
if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}"
    export CMAKE_C_COMPILER_LAUNCHER="${CMAKE_C_COMPILER_LAUNCHER:-ccache}"
fi
exec python3 "$here/mutate.py" "$@"
