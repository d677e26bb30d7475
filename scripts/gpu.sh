#!/usr/bin/env bash
# scripts/gpu.sh [--quick] [STAGE...]: what can only be shown on a machine with a GPU. The stages, all
# in this order when none is named:
#
#   build     configures the preset "gpu" and builds it (machine code for sm_90, PTX for all others)
#   tests     the device tests on the GPU; bands are tried with 1, 2 and 3 on one GPU
#   compare   host against GPU in one process: the stored cases, random problems, 1000 iterations
#   sanitize  compute-sanitizer's memcheck, racecheck, initcheck and synccheck over small problems
#   limits    1 to 1024 labels; a problem larger than the GPU's memory, and one after it; the choice of
#             a device with the GPU in sight and out of it
#   bench     the benchmark, one whole solve of 2048 x 2048 x 8 in 5000 iterations, the accelerated
#             iteration
#   shapes    the benchmark with strips of several shapes (RATSEG_STRIP_ROWS, _PIXELS and _THREADS);
#             not with --quick
#
# Each stage takes less than ten minutes and can be run by itself; what failed in one keeps no other
# from running. Logs and one report per stage go to build/gpu/report; at the end the reports of all
# stages that have run so far are printed, to be pasted into docs/benchmarks.md. The status is 1 when
# a stage of this call failed. --quick does less of each and ends within four minutes.
#
# Needed: g++, CMake 3.25, ninja, nvcc 12 or newer, zlib; no Qt, no network. To carry along:
#   ../shared/cases            or the folder "shared" elsewhere, named by RATSEG_SHARED_DIR;
#   GTEST_SOURCE=DIR           GoogleTest's sources (Debian: googletest, in /usr/src/googletest),
#                              or a copy in third-party/googletest, where its package is missing;
#   ZLIB_ROOT=DIR              a folder with include/z*.h and lib/libz.a, or a copy in
#                              third-party/zlib, where zlib's headers are missing.
# On a machine without nvcc a folder build/gpu that was built elsewhere is used as it is.
set -uo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

all_stages=(build tests compare sanitize limits bench shapes)
quick=0
stages=()
for word; do
  case $word in
    --quick) quick=1 ;;
    build | tests | compare | sanitize | limits | bench | shapes) stages+=("$word") ;;
    *) die "expected --quick or one of ${all_stages[*]}, but found \"$word\"" ;;
  esac
done
((${#stages[@]} > 0)) || stages=("${all_stages[@]}")

build=$root/build/gpu
report=$build/report
mkdir -p "$report"
[[ -n ${RATSEG_SHARED_DIR:-} || ! -d $root/shared/cases ]] || export RATSEG_SHARED_DIR=$root/shared
export RATSEG_TEST_DEVICE=cuda
failed=()

# Seconds that a command may take: what it asks for, or what --quick has left.
allowed() {
  local left=$((225 - SECONDS))
  if ((quick && left < $1)); then echo $((left > 0 ? left : 0)); else echo "$1"; fi
}

# step SECONDS NAME COMMAND...: runs a command with a time limit into the stage's log and adds a line
# to its report.
step() {
  local seconds name=$2 status=0 start=$SECONDS result=passed
  seconds=$(allowed "$1")
  shift 2
  if ((seconds == 0)); then
    result="NOT RUN, no time left"
  else
    echo "== $name: $*" >>"$log"
    [[ ! -f $log.step ]] || cp "$log.step" "$log.kept"
    timeout -k 5 "$seconds" "$@" >"$log.step" 2>&1 </dev/null || status=$?
    cat "$log.step" >>"$log"
    if ((status == 124 || status == 137)); then
      result="FAILED: not done after $seconds s"
    elif ((status != 0)); then
      result="FAILED, status $status"
    elif grep -q 'no CUDA GPU on this machine' "$log.step"; then
      result="FAILED: no CUDA GPU on this machine"
    elif grep -q 'SKIPPED' "$log.step"; then
      result="passed, with tests that say SKIPPED"
    fi
  fi
  echo "$name: $result ($((SECONDS - start)) s)"
  echo "| $stage | $name | $result |" >>"$report/$stage.md"
  [[ $result == passed* ]] || failed+=("$stage: $name")
  [[ $result == passed* ]]
}

# A line of its own in the report, above what follows.
heading() { echo "    $1:" >>"$report/$stage.txt"; }

# The greatest differences of the last step's comparisons, per engine, for the report.
quote_differences() {
  grep -E '^compare: .* mean +[0-9.e+-]+$' "$log.step" | awk '
    {
      for (k = 2; k < NF && $(k + 1) != "on"; ++k) continue
      engine = $k
      ++count[engine]
      if ($(NF - 2) + 0 >= largest[engine] + 0) { largest[engine] = $(NF - 2); where[engine] = $0 }
      if ($NF + 0 >= mean[engine] + 0) mean[engine] = $NF
    }
    END {
      for (e in count) {
        sub(/^compare: */, "", where[e])
        sub(/ *largest.*/, "", where[e])
        gsub(/  +/, " ", where[e])
        printf "    %s: %d comparisons, largest difference of u %s (%s), greatest mean %s\n",
          e, count[e], largest[e], where[e], mean[e]
      }
    }' | sort >>"$report/$stage.txt"
}

# Lines of the last step's output for the report.
quote_lines() { grep -E "$1" "$log.step" | sed 's/^/    /' >>"$report/$stage.txt"; }

stage_build() {
  if ! command -v nvcc >/dev/null && [[ -x $build/bin/ratseg_bench ]]; then
    step 10 "no nvcc here: build/gpu as it is" test -s "$build/tests-bin/device_tests.txt"
    return
  fi
  local options=() targets=()
  local gtest=${GTEST_SOURCE:-$root/third-party/googletest} zlib=${ZLIB_ROOT:-$root/third-party/zlib}
  [[ ! -d $gtest ]] || options+=("-DRATSEG_GTEST_SOURCE=$gtest")
  [[ ! -d $zlib ]] || options+=("-DZLIB_ROOT=$zlib" -DZLIB_USE_STATIC_LIBS=ON)
  ((!quick)) || options+=(-DCMAKE_CUDA_ARCHITECTURES=90)
  step 120 configure cmake --preset gpu -S "$root" -B "$build" "${options[@]}" || return
  mapfile -t targets <"$build/tests-bin/device_tests.txt"
  ((!quick)) || targets=(alg_cases_test alg_kernels_test sum_test alg_device_compare_test)
  step 470 build cmake --build "$build" --target "${targets[@]}" ratseg_bench
}

stage_tests() {
  local programs=() program
  mapfile -t programs <"$build/tests-bin/device_tests.txt"
  ((!quick)) || programs=(sum_test alg_kernels_test alg_cases_test)
  for program in "${programs[@]}"; do
    [[ $program != alg_device_compare_test ]] || continue  # the stages compare and limits
    step 70 "$program" "$build/tests-bin/$program"
    quote_lines '^\[  FAILED  '
  done
}

stage_compare() {
  local test=$build/tests-bin/alg_device_compare_test
  local filter='-*.From1To1024Labels:*.AProblemLarger*' # the stage limits has these
  ((!quick)) || filter='*.StoredCases:*.RunsRepeatThemselvesToTheByte'
  step 500 "host against GPU" "$test" "--gtest_filter=$filter"
  quote_differences
  quote_lines '^\[  FAILED  '
}

stage_sanitize() {
  local tools=(memcheck racecheck initcheck synccheck) tool
  local tests=$build/tests-bin
  local small='*.AFewStepsOfEveryKernel:*.AFewAcceleratedSteps:*.AProblemLarger*'
  ((!quick)) || tools=(memcheck racecheck)
  if ! command -v compute-sanitizer >/dev/null; then
    step 1 "compute-sanitizer is missing" false
    return
  fi
  for tool in "${tools[@]}"; do
    local run=(compute-sanitizer --tool "$tool" --error-exitcode 9)
    # A refused allocation is no finding.
    [[ $tool != memcheck ]] || run+=(--report-api-errors no)
    step 45 "$tool, sums" "${run[@]}" "$tests/sum_test"
    ((quick)) || step 45 "$tool, kernels" "${run[@]}" "$tests/alg_kernels_test"
    step 55 "$tool, solver" "${run[@]}" "$tests/alg_device_compare_test" "--gtest_filter=$small"
    quote_lines 'ERROR SUMMARY|RACECHECK SUMMARY'
  done
}

# expect_status STATUS TEXT COMMAND...: the command ends with that status and says the text.
expect_status() {
  local wanted=$1 text=$2 status=0 output
  shift 2
  output=$("$@" 2>&1) || status=$?
  echo "$output"
  [[ $status == "$wanted" && $output == *"$text"* ]]
}

stage_limits() {
  local test=$build/tests-bin/alg_device_compare_test
  ((quick)) || step 200 "1 to 1024 labels" "$test" '--gtest_filter=*.From1To1024Labels'
  quote_differences
  step 100 "larger than the GPU's memory" "$test" '--gtest_filter=*.AProblemLarger*'
  export -f expect_status
  local check=(bash -c 'expect_status "$@"' -) bench=$build/bin/ratseg_bench
  step 100 "a program with such a problem: status 1" "${check[@]}" 1 "ERROR: Insufficient GPU memory" \
    "$bench" -device cuda 262144x262144x8 64x64x3
  step 10 "and the next problem runs" grep -q 'M pli/s' "$log.kept"
  step 60 "the host although there is a GPU" "${check[@]}" 0 "device: Host" \
    "$bench" -device host -engine fused 64x64x3
  step 60 "no GPU in sight: -device cuda is an error" "${check[@]}" 1 "ERROR: no device" \
    env CUDA_VISIBLE_DEVICES= "$bench" -device cuda 64x64x3
  step 60 "no GPU in sight: the host, and a line that says so" "${check[@]}" 0 \
    "ratseg: no CUDA GPU found, computing on the host" \
    env CUDA_VISIBLE_DEVICES= "$bench" -device auto -engine fused 64x64x3
}

stage_bench() {
  local bench=$build/bin/ratseg_bench sizes=()
  ((!quick)) || sizes=(64x64x3 512x512x5 2048x2048x8)
  heading "plain and fused engine"
  step 240 benchmark "$bench" -device cuda --json "$report/bench.json" "${sizes[@]}"
  quote_lines '^(ERROR|device:)|M pli/s'
  ((quick)) && return
  heading "whole solve"
  step 120 "whole solve" "$bench" -device cuda -engine fused --whole 5000 2048x2048x8
  quote_lines 'iterations|transfer|set-up|file'
  heading "accelerated iteration"
  step 60 "accelerated iteration" "$bench" -device cuda -engine fused --accelerate 64x64x3 \
    512x512x5 2048x2048x8
  quote_lines 'M pli/s'
}

stage_shapes() {
  local bench=$build/bin/ratseg_bench shape
  ((!quick)) || return
  for shape in ROWS=1 ROWS=2 ROWS=3 ROWS=8 ROWS=16 ROWS=32 PIXELS=1 PIXELS=2 THREADS=32 THREADS=128; do
    heading "RATSEG_STRIP_$shape"
    step 55 "RATSEG_STRIP_$shape" env "RATSEG_STRIP_$shape" "$bench" -device cuda -engine fused \
      64x64x3 512x512x5 2048x2048x8
    quote_lines 'M pli/s'
  done
}

print_summary() {
  local stage
  echo
  echo "Paste into docs/benchmarks.md:"
  echo
  echo "$(date -u +%Y-%m-%d), $(nvidia-smi --query-gpu=name,driver_version --format=csv,noheader \
    2>/dev/null || echo 'no GPU'), $(nvcc --version 2>/dev/null | sed -n 's/.*release \([^,]*\),.*/CUDA \1/p')," \
    "$(git -C "$root" rev-parse --short HEAD 2>/dev/null || echo 'no revision')$( ((quick)) && echo ', --quick')"
  echo
  echo "| stage | step | result |"
  echo "|---|---|---|"
  for stage in "${all_stages[@]}"; do
    [[ ! -f $report/$stage.md ]] || cat "$report/$stage.md"
  done
  for stage in "${all_stages[@]}"; do
    [[ -s $report/$stage.txt ]] || continue
    printf '\n%s:\n\n' "$stage"
    cat "$report/$stage.txt"
  done
}

for stage in "${stages[@]}"; do
  log=$report/$stage.log
  : >"$log"
  : >"$log.step"
  : >"$report/$stage.md"
  : >"$report/$stage.txt"
  echo "-- $stage"
  if [[ $stage != build && ! -s $build/tests-bin/device_tests.txt ]]; then
    step 1 "nothing is built: run the stage build" false
    continue
  fi
  "stage_$stage"
done
rm -f "$report"/*.log.step "$report"/*.log.kept

print_summary | tee "$report/summary.md"
((${#failed[@]} == 0)) && exit 0
echo
printf 'FAILED  %s\n' "${failed[@]}"
exit 1
