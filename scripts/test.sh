#!/usr/bin/env bash
# scripts/test.sh [PRESET]: builds everything and runs every test. The preset is ci (as release,
# warnings are errors) unless another one is named, such as asan (sanitizers). The CUDA backend is
# built where nvcc is found. Without a preset the CUDA files are also built for an emulated GPU, which
# needs neither nvcc nor a GPU, and their tests run on it.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

run_tests() {
  ctest --test-dir "$root/build/$1" --output-on-failure --no-tests=error -j "$(nproc)" "${@:2}" </dev/null
}

(($# <= 1)) || die "expected at most one preset, but found: $*"
if (($# == 1)); then
  install_missing_packages "${test_packages[@]}"
  build "$1"
  run_tests "$1"
else
  install_missing_packages "${test_packages[@]}" libboost-context-dev
  build ci
  run_tests ci
  build emulated emulated_tests
  run_tests emulated -R '^(cuda|emulator)\.'
fi
