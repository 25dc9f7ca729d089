#!/usr/bin/env bash
# Added fold-overs of both fits at the defaults and at nine settings near them, on the shared
# pairs, the demo pair and its stylised target (the demo scan sheared and scaled unevenly, as
# fit_bench.py makes it): fold_sweep.sh [BUILD] [DATA]. One line per fit: pair, setting, fit,
# then fit_measure's added folds, fwd and back RMS (% of the target's diagonal).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../../build}
data=${2:-$here/../../../shared/data}
batch=$build/tools/zwelk-batch/zwelk-batch measure=$build/bench/fit_measure
demo=${ZWELK_BENCH_CACHE:-$HOME/.cache/zwelk-bench}/demo-24-6
[[ -f $demo/scan.obj ]] || "$batch" demo-models "$demo" >/dev/null
[[ -f $demo/scan-stylised.obj ]] ||
    awk '/^v /{printf "v %.6f %.6f %.6f\n", 1.5*$2+0.3*$3, 0.8*$3, 1.2*$4; next} {print}' \
        "$demo/scan.obj" >"$demo/scan-stylised.obj"
source "$here/shared_pairs.sh"
pairs=(
    "${shared_pairs[@]}"
    "demo $demo/base.obj $demo/scan.obj"
    "stylised-demo $demo/base.obj $demo/scan-stylised.obj"
)
settings=(defaults Smoothness_final=0.02 Smoothness_final=0.0499 Smoothness_final=0.0501 Smoothness_final=0.1
          Subdivisions=2 Subdivisions=4 Sampling_final=0.5 ICP_iterations=5 Normals_threshold=0.5)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for pair in "${pairs[@]}"; do
    read -r name base target <<<"$pair"
    for setting in "${settings[@]}"; do
        options=()
        if [[ $setting != defaults ]]; then
            printf '[welkingSettings]\n%s\n' "$setting" >"$work/settings.ini"
            options=(--settings "$work/settings.ini")
        fi
        for fit in fast cartoon; do
            if ! "$batch" welk --engine "$fit" --base "$base" --target "$target" -o "$work/out.obj" \
                "${options[@]}" >/dev/null 2>&1; then
                echo "$name $setting $fit failed"
                continue
            fi
            "$measure" "$base" "$target" "$work/out.obj" | python3 -c \
                'import json, sys; d = json.load(sys.stdin); print(sys.argv[1], d["addedFolds"], d["fwdRms"], d["backRms"])' \
                "$name $setting $fit"
        done
    done
done
