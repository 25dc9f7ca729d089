#!/usr/bin/env bash
# One entry point for a fresh Debian 12 machine:
#   ./zwelk.sh demo [texture]  install what is missing, build, and open ZWelk on a demo exchange
#   ./zwelk.sh test    install what is missing, build, and run every test
#   ./zwelk.sh build   install what is missing and build
set -euo pipefail
cd "$(dirname "$0")"

BUILD_DIR=${ZWELK_BUILD_DIR:-build}
BUILD_TYPE=${ZWELK_BUILD_TYPE:-RelWithDebInfo}
JOBS=${ZWELK_JOBS:-$(nproc)}
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$(mktemp -d -t zwelk-runtime-XXXXXX)}
chmod 700 "$XDG_RUNTIME_DIR"

usage() {
    sed -n '2,5p' "$0" | sed 's/^# \{0,1\}//'
}

install_deps() {
    scripts/install-deps.sh
}

build() {
    local strict=OFF
    if [ "${CI:-}" = "true" ]; then strict=ON; fi
    cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE="$BUILD_TYPE" -DZWELK_STRICT="$strict" >/dev/null
    cmake --build "$BUILD_DIR" -j "$JOBS"
}

run_tests() {
    # The GUI tests need a display; everything runs under one virtual screen.
    xvfb-run -a -s "-screen 0 1600x1000x24" \
        ctest --test-dir "$BUILD_DIR" --output-on-failure --timeout 600 -j "$JOBS"
}

demo() {
    local mode="${1:-welk}"
    local batch="$BUILD_DIR/tools/zwelk-batch/zwelk-batch"
    local demo_dir="${ZWELK_DEMO_DIR:-$BUILD_DIR/demo}"
    "$batch" demo-models "$demo_dir/meshes"
    # TempDirPath.txt beside the program points it at the demo exchange.
    "$batch" exchange "$demo_dir/meshes/base.obj" "$demo_dir/meshes/scan.obj" \
        --folder "$demo_dir/exchange" --texture-second "$demo_dir/meshes/scan_texture.tif" \
        --mode "$mode" --app-dir "$BUILD_DIR/app"
    if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
        echo "Starting ZWelk on $demo_dir/exchange"
        "$BUILD_DIR/app/ZWelk" "$mode"
    elif [ "$mode" = texture ]; then
        echo "No display: carrying the demo texture headlessly through zwelk-batch."
        "$batch" texture --exchange "$demo_dir/exchange" --size 1024x1024
        echo "The transferred texture is $(cd "$demo_dir/exchange/Files" && pwd)/1_base_TXTR.tif"
    else
        echo "No display: fitting the demo exchange headlessly through zwelk-batch."
        "$batch" check "$demo_dir/exchange"
        "$batch" welk --exchange "$demo_dir/exchange" --report "$demo_dir/fit-report.json" >/dev/null
        echo "The fitted basemesh is $(cd "$demo_dir/exchange/Files" && pwd)/base.GoZ"
        echo "The fit report is $(cd "$demo_dir" && pwd)/fit-report.json"
    fi
}

case "${1:-}" in
    demo)
        case "${2:-welk}" in
            welk|texture) ;;
            *) usage; exit 2 ;;
        esac
        install_deps; build; demo "${2:-welk}" ;;
    test) install_deps; build; run_tests ;;
    build) install_deps; build ;;
    *) usage; exit 2 ;;
esac
