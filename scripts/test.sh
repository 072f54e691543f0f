#!/usr/bin/env bash
# Builds everything and runs the tests:
# scripts/test.sh [release|debug|asan|tsan] [CTEST-ARGUMENT...]
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
source scripts/dependencies.sh

preset=release
case ${1-} in
release | debug | asan | tsan)
    preset=$1
    shift
    ;;
esac

run=()
if [[ $preset == tsan ]]; then
    # Old thread sanitizer runtimes do not start if addresses are randomised over a wide range.
    fixed=(setarch "$(uname -m)" --addr-no-randomize)
    ! "${fixed[@]}" true 2>/dev/null || run=("${fixed[@]}")
fi

need build test "$preset"
log=build/$preset.log
echo "Building in build/$preset ..."
quietly "$log" cmake --preset "$preset" -DBUILD_TESTING=ON
# The build runs the test programs, too, to list their tests.
quietly "$log" "${run[@]}" cmake --build --preset "$preset" -j"$(nproc)"
"${run[@]}" ctest --preset "$preset" -j"$(nproc)" "$@"
