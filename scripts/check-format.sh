#!/usr/bin/env bash
# Fails when a C or C++ source of the project differs from .clang-format's layout.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h' '*.hpp' 2>/dev/null || find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print)
[ ${#files[@]} -eq 0 ] && exit 0
clang-format --dry-run --Werror "${files[@]}"
echo "format: ${#files[@]} files clean"
