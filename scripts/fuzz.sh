#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) in build-fuzz/ and runs
# each for SECONDS (default 600) at the lowest CPU priority.
#
#   scripts/fuzz.sh [SECONDS]
#
# Environment:
#   ZWELK_FUZZ_CPU      when set, SECONDS are CPU seconds instead: each target
#                       runs until its process has used that much CPU (user +
#                       system), however long that takes on a shared machine
#   ZWELK_FUZZ_TARGETS  targets to run, blank-separated (default: all), e.g. "goz obj_graph"
#   ZWELK_FUZZ_JOBS     targets run at the same time (default 1)
#   ZWELK_SHARED_DATA   folder of third-party meshes used as further seeds
#                       (default ../shared/data; skipped when absent)
#   ZWELK_FUZZ_BUILD_ONLY=1  build, then stop
#
# The growing corpus stays in build-fuzz/corpus/<target>/, crashes go to
# build-fuzz/artifacts/<target>/, logs to build-fuzz/logs/<target>.log. A
# crash is reproduced by running the target on the file alone:
#   build-fuzz/tests/fuzz/fuzz_goz build-fuzz/artifacts/goz/crash-...
# and then kept as a regression test in the normal suite.
set -euo pipefail
cd "$(dirname "$0")/.."

SECONDS_PER_TARGET=${1:-600}
BUILD_DIR=${ZWELK_FUZZ_BUILD_DIR:-build-fuzz}
SHARED_DATA=${ZWELK_SHARED_DATA:-../shared/data}
JOBS=${ZWELK_FUZZ_JOBS:-1}

# target -> seed folder under tests/fuzz/corpus, and the largest input.
# A new format adds one line here and one zwelk_add_fuzzer in
# tests/fuzz/CMakeLists.txt.
TABLE="
goz                 goz        8192
obj_graph           obj        32768
obj_plain           obj        16384
params              params     256
subtools            subtools   2048
point_file          points     4096
landmark_file       landmarks  4096
settings            settings   4096
image               image      8192
classic_parameters  classic    4096
splines             splines    16384
"

export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD} 
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++ -DZWELK_FUZZ=ON -DZWELK_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)" --target fuzzers
if [ "${ZWELK_FUZZ_BUILD_ONLY:-0}" = 1 ]; then exit 0; fi

# Seeds from the shared data, small files only, prepared once.
extra="$BUILD_DIR/seeds"
mkdir -p "$extra/obj" "$extra/landmarks" "$extra/image"
if [ -d "$SHARED_DATA" ]; then
    find "$SHARED_DATA" -type f -name '*.obj' -size -64k -exec cp -n {} "$extra/obj/" \;
    find "$SHARED_DATA" -type f -name '*.csv' -size -16k -exec cp -n {} "$extra/landmarks/" \;
    # Image seeds carry the extension byte first (1 = png, 0 = tif).
    find "$SHARED_DATA" -type f \( -name '*.png' -o -name '*.tif' \) -size -64k | while read -r f; do
        case "$f" in *.png) b='\x01' ;; *) b='\x00' ;; esac
        { printf "$b"; cat "$f"; } > "$extra/image/$(basename "$f")"
    done
fi

# Qt's logging would bury libFuzzer's output.
export QT_LOGGING_RULES='*=false'
# intercept_tls_get_addr=0: see sanitize.sh (the leak check's tracer crash).
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1:intercept_tls_get_addr=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1:suppressions=$PWD/tests/sanitize/ubsan.supp}
# Leaks inside the image decoders and Qt's JSON parser are theirs
# (tests/sanitize/lsan.supp says which); their frames are only seen when
# malloc's stacks are unwound fully, since those libraries keep no frame
# pointers, so the targets reading images and JSON do that.
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/sanitize/lsan.supp:print_suppressions=0}

selected=${ZWELK_FUZZ_TARGETS:-$(echo "$TABLE" | awk 'NF { print $1 }')}

# Interrupts the fuzzer under /usr/bin/time (process TIMER) once it has used
# BUDGET seconds of CPU; libFuzzer prints its final statistics on SIGINT.
stop_at_cpu() {
    local timer=$1 budget=$2 fuzzer="" ticks
    ticks=$(getconf CLK_TCK)
    while kill -0 "$timer" 2>/dev/null; do
        sleep 5
        [ -n "$fuzzer" ] || fuzzer=$(pgrep -P "$timer" | head -1 || true)
        [ -n "$fuzzer" ] && [ -r "/proc/$fuzzer/stat" ] || continue
        # utime and stime (fields 14 and 15, all threads) in clock ticks;
        # the command name in parentheses may hold blanks, so count after it.
        local used
        used=$(sed 's/.*) //' "/proc/$fuzzer/stat" 2>/dev/null | awk -v t="$ticks" '{ printf "%d", ($12 + $13) / t }')
        if [ -n "$used" ] && [ "$used" -ge "$budget" ]; then kill -INT "$fuzzer" 2>/dev/null || true; fi
    done
}

run_one() {
    local target=$1 seeds=$2 max_len=$3
    local corpus="$BUILD_DIR/corpus/$target" artifacts="$BUILD_DIR/artifacts/$target/"
    local log="$BUILD_DIR/logs/$target.log"
    mkdir -p "$corpus" "$artifacts" "$BUILD_DIR/logs"
    local dirs=("$corpus" "tests/fuzz/corpus/$seeds")
    if [ -d "$extra/$seeds" ] && [ -n "$(ls -A "$extra/$seeds")" ]; then dirs+=("$extra/$seeds"); fi
    # The run time is wall time; on a shared machine the CPU time (user +
    # system, in logs/<target>.cpu) is what the fuzzer really had.
    local wall=$SECONDS_PER_TARGET
    if [ -n "${ZWELK_FUZZ_CPU:-}" ]; then wall=$((SECONDS_PER_TARGET * 1000)); fi
    local started=$SECONDS
    local asan=$ASAN_OPTIONS
    case $target in image | splines | classic_parameters | point_file) asan="$asan:fast_unwind_on_malloc=0" ;; esac
    ASAN_OPTIONS=$asan /usr/bin/time -f "%U %S" -o "$BUILD_DIR/logs/$target.cpu" \
    nice -n 19 "$BUILD_DIR/tests/fuzz/fuzz_$target" -max_total_time="$wall" \
        -max_len="$max_len" -rss_limit_mb=2560 -timeout=60 -print_final_stats=1 \
        -artifact_prefix="$artifacts" "${dirs[@]}" >"$log" 2>&1 &
    local timer=$!
    if [ -n "${ZWELK_FUZZ_CPU:-}" ]; then stop_at_cpu "$timer" "$SECONDS_PER_TARGET"; fi
    wait "$timer" || true
    wall=$((SECONDS - started))
    local runs found
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | awk '{print $2}' | tail -1)
    # Slow units are reported, not counted: on a loaded machine any input can be slow.
    found=$(ls "$artifacts" | grep -vc '^slow-unit-' || true)
    local cpu
    cpu=$(awk 'END { printf "%.0f", $1 + $2 }' "$BUILD_DIR/logs/$target.cpu" 2>/dev/null)
    printf '%-20s %6ss wall %6ss CPU %10s runs %5s corpus %2s findings\n' "$target" "$wall" \
        "${cpu:-?}" "${runs:-?}" "$(ls "$corpus" | wc -l)" "$found"
}

status=0
running=0
for target in $selected; do
    line=$(echo "$TABLE" | awk -v t="$target" '$1 == t')
    if [ -z "$line" ]; then echo "Unknown fuzz target: $target" >&2; exit 2; fi
    set -- $line
    run_one "$1" "$2" "$3" &
    running=$((running + 1))
    if [ "$running" -ge "$JOBS" ]; then wait -n || true; running=$((running - 1)); fi
done
wait
for target in $selected; do
    if ls "$BUILD_DIR/artifacts/$target" 2>/dev/null | grep -vq '^slow-unit-'; then
        echo "Findings of $target in $BUILD_DIR/artifacts/$target (log: $BUILD_DIR/logs/$target.log)"
        status=1
    fi
done
exit $status
