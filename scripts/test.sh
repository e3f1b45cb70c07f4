#!/usr/bin/env bash
# Builds and runs the whole test suite: every test under AddressSanitizer and
# UndefinedBehaviorSanitizer, and again under ThreadSanitizer (all but the benchmark
# smoke run and the soak test, whose memory check means nothing under ThreadSanitizer),
# the source-format check, the naming and readability checks (.clang-tidy), the Windows
# build (cross-built, checked under Wine), the Debian package (scripts/test-package.sh), and
# each fuzz target for a short run on its seed corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh test
# The files the tests write (registry and password files among them) are checked for
# who may write or read them: create them only their owner can write, whatever the
# caller's umask.
umask 022

jobs=$(nproc)
for preset in asan tsan; do
    echo "=== ${preset}: configure and build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
done

status=0
echo "=== format"
bash scripts/check-format.sh || status=1
echo "=== tidy"
bash scripts/tidy.sh build/asan || status=1
echo "=== windows"
bash scripts/test-windows.sh || status=1
echo "=== Debian package: build, lintian, install, run and purge in a Debian 12 root"
bash scripts/test-package.sh || status=1
echo "=== fuzz: 20 s per target"
bash scripts/fuzz.sh 20 || status=1
echo "=== tsan: all tests but the benchmark smoke run and the soak test"
ctest --preset tsan -j "$jobs" || status=1
echo "=== asan: all tests"
ctest --preset asan -j "$jobs" || status=1
exit $status
