#!/usr/bin/env bash
# Builds oneTBB with ThreadSanitizer for `scripts/sanitize.sh tsan`. Debian's
# libtbb is not instrumented: TSan then sees none of the ordering that TBB's
# scheduler gives (a task's writes before the tasks it enables), and every
# hand-over of data between tasks looks like a race.
#
#   scripts/build-tsan-tbb.sh SOURCE PREFIX
#
# SOURCE is oneTBB's source tree at the version Debian ships (2021.8.0), e.g.
# from `apt-get source onetbb` (needs a deb-src line) or the v2021.8.0 tag of
# the oneTBB repository; PREFIX is where it is installed (outside this tree),
# and what sanitize.sh takes as ZWELK_TSAN_TBB.
set -euo pipefail
SOURCE=${1:?oneTBB source folder}
PREFIX=${2:?install folder}
BUILD="$PREFIX-build"
# The compiler must be the one that builds the project: GCC's and clang's
# TSan runtimes do not mix.
cmake -S "$SOURCE" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_C_COMPILER=gcc -DTBB_SANITIZE=thread -DTBB_TEST=OFF -DTBB_EXAMPLES=OFF -DTBB_STRICT=OFF \
    -DTBBMALLOC_BUILD=OFF -DCMAKE_INSTALL_PREFIX="$PREFIX" >/dev/null
cmake --build "$BUILD" -j "${ZWELK_JOBS:-$(nproc)}"
cmake --install "$BUILD" >/dev/null
echo "oneTBB with TSan in $PREFIX"
