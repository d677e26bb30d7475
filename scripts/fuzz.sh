#!/usr/bin/env bash
# scripts/fuzz.sh [MINUTES] [TARGET...]: builds the fuzz targets of fuzz/ with clang's libFuzzer and
# sanitizers (preset "fuzz") and lets each, or those that are named, look for MINUTES (5) for inputs
# at which a parser breaks its promises; as many at a time as there are cores (or JOBS), with the lowest
# priority. Prints for each target the inputs tried, the edges reached and what was found; ends with
# status 1 if anything was.
#
# Findings are kept in build/fuzz/findings/TARGET, and the inputs that reach new code in
# build/fuzz/corpus/TARGET. The smallest of those that together reach it go into fuzz/corpus/TARGET,
# whose files ctest tries again in every build (fuzz.TARGET). Files with names of 40 hexadecimal
# digits are replaced there; give an input a name of its own to keep it.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$(dirname "${BASH_SOURCE[0]}")/tools.sh"

most_files=60
cores=${JOBS:-$(nproc)}
most_bytes=100000
minutes=5
if [[ ${1-} =~ ^[0-9]+$ ]]; then
  minutes=$1
  shift
fi
install_missing_packages "${test_packages[@]}"
need_tool clang++ clang
version=$(clang++ -dumpversion)
libraries=$(dirname "$(readlink -f "$(command -v clang++)")")/../lib
[[ -e $libraries/libomp.so ]] || install_missing_packages "libomp-${version%%.*}-dev"
build fuzz fuzz_targets

work=$root/build/fuzz
mapfile -t targets <"$work/fuzz-bin/targets.txt"
for target in "$@"; do
  [[ " ${targets[*]} " == *" $target "* ]] || die "no target $target; there are: ${targets[*]}"
done
(($# == 0)) || targets=("$@")

# Pictures of any size are asked for: what is too large counts as memory that is missing.
export ASAN_OPTIONS=max_allocation_size_mb=512:allocator_may_return_null=1
export LSAN_OPTIONS=suppressions=$root/tests/support/lsan.supp:print_suppressions=0
# (From here on nproc would say 1.)
export OMP_NUM_THREADS=1 QT_LOGGING_RULES='*=false'

# Lets a target look for new inputs; in a process of its own, so that it goes on after a finding.
look() {
  local target=$1
  mkdir -p "$work/corpus/$target" "$work/findings/$target" "$work/log"
  nice -n 19 "$work/fuzz-bin/fuzz_$target" -fork=1 -ignore_crashes=1 -ignore_timeouts=1 \
    -ignore_ooms=1 -timeout=20 -max_len=4096 -max_total_time=$((60 * minutes)) \
    -artifact_prefix="$work/findings/$target/" "$work/corpus/$target" \
    "$root/fuzz/corpus/$target" >"$work/log/$target" 2>&1 </dev/null || true
}

# What an input breaks, in a line; nothing where it breaks nothing (any more).
broken_by() {
  local log
  if log=$(timeout 60 "$work/fuzz-bin/fuzz_$1" -artifact_prefix="$work/log/" "$2" 2>&1); then
    return 0
  fi
  grep -a -m 1 -o -E 'broken: .*|runtime error: .*|ERROR: (AddressSanitizer|LeakSanitizer): [a-z-]*' \
    <<<"$log" || echo "status other than 0, or more than 60 s"
}

# Keeps the findings that still break something and prints them, each kind once.
report_findings() {
  local target=$1 file kind
  declare -A seen=()
  for file in "$work/findings/$target"/*; do
    [[ -e $file ]] || continue
    kind=$(broken_by "$target" "$file")
    if [[ -z $kind || -n ${seen[$kind]-} ]]; then
      rm "$file"
      continue
    fi
    seen[$kind]=$file
    echo "    $kind"
    echo "        ${file#"$root/"}"
  done
  ((${#seen[@]} == 0))
}

# Replaces what the tree holds of a target's corpus.
keep_small() {
  local target=$1 to=$root/fuzz/corpus/$1 merged file files=0 bytes=0 size
  merged=$(mktemp -d)
  mkdir -p "$to"
  find "$to" -type f -regextype egrep -regex '.*/[0-9a-f]{40}' -exec mv -t "$work/corpus/$target" {} +
  cp -a "$to/." "$merged"
  nice -n 19 "$work/fuzz-bin/fuzz_$target" -merge=1 "$merged" "$work/corpus/$target" \
    >>"$work/log/$target" 2>&1 </dev/null || true
  for file in "$to"/*; do
    [[ -e $file ]] || continue
    files=$((files + 1)) bytes=$((bytes + $(stat -c %s "$file")))
    rm -f "$merged/${file##*/}"
  done
  while read -r size file; do
    ((files < most_files && bytes + size <= most_bytes)) || break
    [[ -z $(broken_by "$target" "$file") ]] || continue
    mv "$file" "$to"
    files=$((files + 1)) bytes=$((bytes + size))
  done < <(find "$merged" -type f -printf '%s %p\n' | sort -n)
  rm -rf "$merged"
}

running=0
for target in "${targets[@]}"; do
  if ((running == cores)); then
    wait -n
    running=$((running - 1))
  fi
  look "$target" &
  running=$((running + 1))
done
wait

found=0
printf '%-18s %12s %8s %8s %10s\n' target inputs edges features seconds
for target in "${targets[@]}"; do
  last=$(grep -a -E '^#[0-9]+: cov:' "$work/log/$target" | tail -1)
  number() { grep -o -E "$1:? [0-9]+" <<<"$last" | grep -o -E '[0-9]+' | head -1 || echo 0; }
  printf '%-18s %12s %8s %8s %10s\n' "$target" "$(sed -E 's/^#([0-9]+):.*/\1/' <<<"$last")" \
    "$(number cov)" "$(number ft)" "$(number time)"
  report_findings "$target" || found=1
  keep_small "$target"
done
exit $found
