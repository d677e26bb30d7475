#!/usr/bin/env bash
# scripts/coverage.sh [LINES]: builds the preset "coverage", runs every test and prints the line and
# branch coverage of src/ per file and in total; CUDA files are left out. Ends with status 1 when a
# test fails or when fewer than LINES per cent (95) of the lines were run.
#
# gcovr reads the counters; it is installed through apt where it is missing.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$(dirname "${BASH_SOURCE[0]}")/tools.sh"

least=${1:-95}
build_dir=$root/build/coverage
install_missing_packages "${test_packages[@]}"
need_tool gcovr gcovr
build coverage
find "$build_dir" -name '*.gcda' -delete
quietly ctest --test-dir "$build_dir" --output-on-failure --no-tests=error -j "$(nproc)"

measure=(gcovr --root "$root" --object-directory "$build_dir" --filter "$root/src/"
  --exclude '.*/cuda/.*' --exclude '.*_cuda\.cu' --exclude-throw-branches
  --exclude-unreachable-branches --exclude-directories '.*CompilerId.*' "$build_dir")
echo "Branches:"
"${measure[@]}" --branches
echo "Lines:"
"${measure[@]}" --fail-under-line "$least"
