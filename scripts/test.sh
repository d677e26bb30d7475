#!/usr/bin/env bash
# scripts/test.sh [PRESET]: builds everything and runs every test. The preset is ci (as release,
# warnings are errors) unless another one is named, such as asan (sanitizers). The CUDA backend is
# built where nvcc is found.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

(($# <= 1)) || die "expected at most one preset, but found: $*"
preset=${1:-ci}
install_missing_packages
build "$preset"
ctest --test-dir "$root/build/$preset" --output-on-failure --no-tests=error -j "$(nproc)" </dev/null
