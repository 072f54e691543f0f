#!/usr/bin/env bash
# Builds everything and runs the tests: scripts/test.sh [release|asan|tsan] [CTEST-ARGUMENT...]
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

kind=release
case ${1-} in
release | asan | tsan)
    kind=$1
    shift
    ;;
esac

options=()
run=()
case $kind in
asan) options=('-DSANITIZE=address,undefined' -DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
tsan)
    options=(-DSANITIZE=thread -DCMAKE_BUILD_TYPE=RelWithDebInfo)
    # Its older runtimes do not start where addresses are widely randomised.
    fixed=(setarch "$(uname -m)" --addr-no-randomize)
    ! "${fixed[@]}" true 2>/dev/null || run=("${fixed[@]}")
    ;;
esac

need build test "$kind"
build=build/$kind
echo "Building in $build ..."
quietly "$build.log" cmake -S . -B "$build" -DBUILD_TESTING=ON "${options[@]}"
# Building runs the tests' programs, too, to learn what tests they have.
quietly "$build.log" "${run[@]}" cmake --build "$build" -j"$(nproc)"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}
cd "$build"
"${run[@]}" ctest --no-tests=error --output-on-failure -j"$(nproc)" "$@"
