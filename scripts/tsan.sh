#!/usr/bin/env bash
# scripts/tsan.sh [NAME...]: builds the preset "tsan" and runs the host device's tests under the
# thread sanitizer, all or those whose names match the regular expressions.
#
# GCC's OpenMP runtime is not instrumented, so that the sanitizer would call every parallel loop a
# race. LLVM's runtime tells the sanitizer through libarcher where threads wait for each other. A
# planted race shows first that races are seen, the same loop without one that nothing else is.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$(dirname "${BASH_SOURCE[0]}")/tools.sh"

install_missing_packages "${test_packages[@]}"
need_tool clang++ clang
library=$(dirname "$(readlink -f "$(command -v clang++)")")/../lib/libarcher.so
if [[ ! -e $library ]]; then
  version=$(clang++ -dumpversion)
  need_tool libarcher "libomp-${version%%.*}-dev"
fi
[[ -e $library ]] || die "there is no $library"
export OMP_TOOL_LIBRARIES=$library
export OMP_NUM_THREADS=${OMP_NUM_THREADS:-4}
# GoogleTest and the runtime itself are not instrumented.
export TSAN_OPTIONS="ignore_noninstrumented_modules=1 exitcode=66"

# Runs the planted program; 66 is the sanitizer's status.
planted() {
  local program=$root/build/tsan/planted_race_$1 status=0
  mkdir -p "$root/build/tsan"
  quietly clang++ -std=c++20 -g -O1 -fopenmp -fsanitize=thread -DRATSEG_WITH_CUDA=0 -DRACE="$1" \
    -I "$root/src" "$root/tests/checks/planted_race.cpp" -o "$program"
  "$program" >"$program.log" 2>&1 || status=$?
  echo "$status"
}
[[ $(planted 1) == 66 ]] || die "the sanitizer does not see a planted race"
[[ $(planted 0) == 0 ]] || die "the sanitizer sees a race where there is none"
echo "The planted race is seen, and nothing else."

build tsan
# ctest would take the last of several expressions only.
filter=()
(($# == 0)) || filter=(-R "$(IFS='|' && echo "$*")")
# Left out: the checks of the sources; two tests that fork once threads run, which LLVM's runtime
# does not outlive when the child ends; two programs that end while threads compute, which it does not
# outlive either.
left_out='^checks\.|EndTheProcessOnARefusedLaunch|MoreLabelsThanABlockHasThreadsEndTheProcess'
left_out+='|^exit_program\.(main_returns|thread_exits)$'
ctest --test-dir "$root/build/tsan" --output-on-failure --no-tests=error -j "$(nproc)" \
  -E "$left_out" "${filter[@]}" </dev/null
