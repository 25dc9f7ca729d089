#!/usr/bin/env bash
# Builds the research fits that bench/fitting/fit_bench.py runs side by side with ours, outside
# the project tree: build_peers.sh [DIR] (default ../peer-builds beside the checkout).
# Sources come from their public repositories at fixed commits; a folder DIR/<name> that is
# already there is used as it is (unpacked from a mirror, say). Needs git, cmake, g++,
# Eigen 3.4 and OpenMesh (Debian: libeigen3-dev libopenmesh-dev).
# Prints the fit_bench.py options for the built binaries.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
dir=$(mkdir -p "${1:-$here/../../../../peer-builds}" && cd "${1:-$here/../../../../peer-builds}" && pwd)
jobs=${JOBS:-2}

fetch() { # name owner/repo commit [paths...]
    local name=$1 repo=$2 commit=$3; shift 3
    [[ -d $dir/$name ]] && return
    local tmp; tmp=$(mktemp -d)
    git clone --quiet --filter=blob:none --no-checkout "https://github.com/$repo" "$tmp"
    mkdir -p "$dir/$name"
    git -C "$tmp" archive "$commit" "$@" | tar -x -C "$dir/$name" || { rm -rf "$dir/$name"; return 1; }
    rm -rf "$tmp"
}

# Only what the builds read: their data folders are large.
fetch spare yaoyx689/spare 15eed7dd CMakeLists.txt cmake include src
fetch Fast_RNRR Juyong/Fast_RNRR 9c6e336e CMakeLists.txt cmake include src
fetch AMM_NRR yaoyx689/AMM_NRR 3621366d CMakeLists.txt cmake include src
fetch meshmonk TheWebMonks/meshmonk 7debc59 library vendor

for p in spare Fast_RNRR AMM_NRR; do
    # Each carries its own nanoflann 1.2.3 under include/; SPARE's CMake file names its data
    # folder, which is not fetched.
    mkdir -p "$dir/$p/data"
    cmake -S "$dir/$p" -B "$dir/build/$p" -DCMAKE_BUILD_TYPE=Release -DNANOFLANN_INCLUDE_DIR="$dir/$p/include" >/dev/null
    cmake --build "$dir/build/$p" -j"$jobs" >/dev/null
done

# MeshMonk: its library with its bundled Eigen 3.4 and nanoflann, Debian's OpenMesh, and our driver.
m=$dir/meshmonk out=$dir/build/meshmonk
mkdir -p "$out"
flags=(-std=c++20 -O3 -DNDEBUG -I"$m/library/include" -I"$m/library/src" -I"$m/vendor" -I"$m/vendor/eigen-3.4.0")
printf '%s\n' "$m"/library/src/*.cpp "$here/meshmonk_fit.cpp" |
    xargs -P"$jobs" -I{} sh -c 'g++ "$@" -c "{}" -o "'"$out"'/$(basename "{}" .cpp).o"' _ "${flags[@]}"
g++ -o "$out/meshmonk_fit" "$out"/*.o -lOpenMeshTools -lOpenMeshCore

b=$dir/build
echo "--spare $b/spare/spare --fast-rnrr $b/Fast_RNRR/Fast_RNRR --amm-nrr $b/AMM_NRR/AMM_NRR --meshmonk $b/meshmonk/meshmonk_fit"
