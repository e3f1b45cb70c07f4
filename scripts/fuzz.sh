#!/usr/bin/env bash
# Builds the libFuzzer targets (the "fuzz" preset, build/fuzz) and runs each one on
# its seed corpus for a while. Prints one line per target; exits non-zero when a
# target fails to build or finds a crash, a leak, a timeout or sanitizer report.
#
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
#   SECONDS_PER_TARGET  default 20 (or HM_FUZZ_SECONDS)
#   TARGET              names without the fuzz_ prefix (default: every target)
# HM_FUZZ_JOBS (default 2) sets the build's parallelism and how many targets run at once.
# Inputs found along the way go to build/fuzz/fuzz-work/<target>/ (the seed corpora
# in fuzz/corpus/ are never written); a failing input is saved as
# build/fuzz/fuzz-work/<target>/crash-* (or leak-*, timeout-*, oom-*).
set -uo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-${HM_FUZZ_SECONDS:-20}}"
shift $(( $# > 0 ? 1 : 0 ))
jobs="${HM_FUZZ_JOBS:-2}"
build="$root/build/fuzz"

all=(config registry path platform_file sdr sel state_strings smbios agent)
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=("${all[@]}")

if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [ "$seconds" -eq 0 ]; then
    echo "fuzz.sh: seconds per target must be a positive number, not '$seconds'" >&2
    exit 2
fi

cd "$root" || exit 2
mkdir -p "$root/build"
if ! cmake --preset fuzz >"$root/build/fuzz-configure.log" 2>&1; then
    echo "fuzz.sh: configure failed" >&2
    tail -n 40 "$root/build/fuzz-configure.log" >&2
    exit 1
fi
build_targets=()
for t in "${targets[@]}"; do build_targets+=("fuzz_$t"); done
if ! cmake --build "$build" -j"$jobs" --target "${build_targets[@]}" >"$build/fuzz-build.log" 2>&1; then
    echo "fuzz.sh: build failed (see $build/fuzz-build.log)" >&2
    tail -n 40 "$build/fuzz-build.log" >&2
    exit 1
fi

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

# Runs one target; writes its one-line result to $work/result and returns its status.
run_target() {
    local t="$1" corpus="$root/fuzz/corpus/$1" work="$build/fuzz-work/$1"
    mkdir -p "$work/corpus"
    local log="$work/run.log"
    if [ ! -d "$corpus" ]; then
        echo "fuzz_$t: FAILED: no seed corpus $corpus" >"$work/result"
        return 1
    fi
    "$build/bin/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$work/" "$work/corpus" "$corpus" >"$log" 2>&1
    local rc=$?
    local runs cov
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
    if [ $rc -eq 0 ]; then
        echo "fuzz_$t: ok, ${seconds}s, ${runs:-?} runs, coverage ${cov:-?}" >"$work/result"
    else
        local artifact summary
        artifact=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -n 1)
        summary=$(grep -m1 -E '^SUMMARY|ERROR: libFuzzer' "$log")
        echo "fuzz_$t: FAILED (exit $rc): ${summary:-see $log}; input: ${artifact:-none}; log: $log" >"$work/result"
    fi
    return $rc
}

# At most $jobs targets at a time; results printed in the order asked.
pids=()
for t in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do
        wait -n || true
    done
    rm -f "$build/fuzz-work/$t/result"
    run_target "$t" &
    pids+=($!)
done
failed=0
for i in "${!targets[@]}"; do
    wait "${pids[$i]}" || failed=1
    cat "$build/fuzz-work/${targets[$i]}/result"
done
exit $failed
