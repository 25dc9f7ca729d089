#!/usr/bin/env bash
# A fit's cost and quality at five settings a hair apart (Smoothness_final 0.0498 to 0.0502
# around the default 0.05) on the shared pairs: a change whose effect is smaller than the spread
# these give is rounding, not method. settings_spread.sh [BUILD] [DATA]; the fit from
# ZWELK_ENGINE (fast), the program from ZWELK_BATCH (BUILD's zwelk-batch), every other variable
# passes through. One line per fit: pair, setting, products of J^T J over all levels (0 for the
# cartoon fit, whose log does not count them), wall seconds, then fit_measure's fwd and back RMS
# (% of the target's diagonal) and added folds.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../../build}
data=${2:-$here/../../../shared/data}
batch=${ZWELK_BATCH:-$build/tools/zwelk-batch/zwelk-batch} measure=$build/bench/fit_measure
source "$here/shared_pairs.sh"
pairs=(
    "${shared_pairs[@]}"
    "ict-face $data/ict-face/generic_neutral_mesh.obj $data/ict-face/identity000.obj"
)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for pair in "${pairs[@]}"; do
    read -r name base target <<<"$pair"
    for smoothness in 0.0498 0.0499 0.05 0.0501 0.0502; do
        printf '[welkingSettings]\nSmoothness_final=%s\n' "$smoothness" >"$work/settings.ini"
        start=$(date +%s%N)
        if ! log=$(ZWELK_DEBUG=1 "$batch" welk --engine "${ZWELK_ENGINE:-fast}" --settings "$work/settings.ini" \
            --base "$base" --target "$target" -o "$work/out.obj" 2>&1); then
            echo "$name $smoothness failed"
            continue
        fi
        seconds=$(awk -v a="$start" -v b="$(date +%s%N)" 'BEGIN { printf "%.3f", (b - a) / 1e9 }')
        products=$({ grep -o '[0-9]* products' <<<"$log" || true; } | awk '{ sum += $1 } END { print sum + 0 }')
        "$measure" "$base" "$target" "$work/out.obj" | python3 -c \
            'import json, sys; d = json.load(sys.stdin); print(*sys.argv[1:], "%.4f %.4f %d" % (d["fwdRms"], d["backRms"], d["addedFolds"]))' \
            "$name" "$smoothness" "$products" "$seconds"
    done
done
