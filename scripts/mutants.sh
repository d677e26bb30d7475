#!/usr/bin/env bash
# scripts/mutants.sh [--resume] [--list] [PATTERN...]
#
# Are the tests sharp? Puts one small fault at a time (a mutant, tests/mutants/*.txt) into a private
# copy of the sources under build/mutants, builds the test programs that the mutant names and runs
# them: at least one must fail. Prints "caught" or "SURVIVED" for each and the totals; ends with
# status 1 when one survived that is not expected to, when an expected survivor was caught, when one
# did not compile, or when one was refused because its snippet does not stand once in its file.
#
#   PATTERN    only mutants whose name matches one of the patterns (as in the shell, "sum-*")
#   --resume   go on where the last run ended: keep what build/mutants/results says of mutants, and
#              build/mutants/limits of programs that passed without a fault
#   --list     print the names and end
#
# The format of the lists stands in tests/mutants/README.md.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

work=$root/build/mutants
tree=$work/tree
build=$work/build
results=$work/results
limits=$work/limits
jobs=${JOBS:-$(nproc)}
build_timeout=600

names=() files=() tests=() whys=() befores=() afters=() expected=()

# Reads one list into the arrays above.
read_list() {
  local list=$1 line key rest i=-1 number=0
  while IFS= read -r line || [[ -n $line ]]; do
    number=$((number + 1))
    [[ -n $line && $line != \#* ]] || continue
    key=${line%% *}
    rest=${line#"$key"}
    rest=${rest# }
    if [[ $key == mutant ]]; then
      names+=("$rest") files+=("") tests+=("") whys+=("") befores+=("") afters+=("") expected+=(caught)
      i=$((${#names[@]} - 1))
      continue
    fi
    ((i >= 0)) || die "$list:$number: expected a line \"mutant NAME\" first"
    case $key in
      file) files[i]=$rest ;;
      tests) tests[i]=$rest ;;
      why) whys[i]=$rest ;;
      survives) expected[i]=SURVIVED ;;
      '<') befores[i]+=${befores[i]:+$'\n'}$rest ;;
      '>') afters[i]+=${afters[i]:+$'\n'}$rest ;;
      *) die "$list:$number: expected mutant, file, tests, why, survives, < or >, but found: $key" ;;
    esac
  done <"$list"
}

# How often text $2 stands in text $1.
count() {
  local rest=${1//"$2"/}
  echo $(((${#1} - ${#rest}) / ${#2}))
}

# Ends the script unless the lists are complete.
check_lists() {
  local i
  local -A seen=()
  for i in "${!names[@]}"; do
    [[ -z ${seen[${names[i]}]:-} ]] || die "two mutants are called ${names[i]}"
    seen[${names[i]}]=1
    [[ -n ${files[i]} && -n ${tests[i]} && -n ${whys[i]} && -n ${befores[i]} ]] ||
      die "mutant ${names[i]}: file, tests, why and < are all needed"
    [[ ${befores[i]} != "${afters[i]}" ]] || die "mutant ${names[i]}: changes nothing"
  done
}

# Sets remark, and fails, unless the snippet of mutant $1 stands once in its file.
fits() {
  local i=$1 found text
  remark="there is no file ${files[i]}"
  [[ -f $tree/${files[i]} ]] || return 1
  text=$(<"$tree/${files[i]}")
  found=$(count "$text" "${befores[i]}")
  remark="its snippet must stand once in ${files[i]}, but stands there $found times"
  ((found == 1))
}

matches() {
  local name=$1 pattern
  shift
  (($# > 0)) || return 0
  for pattern in "$@"; do
    # shellcheck disable=SC2053
    [[ $name != $pattern ]] || return 0
  done
  return 1
}

# Makes the private copy equal to the working tree; files that are equal keep their times, so that
# only what changed is built again.
copy_tree() {
  local file
  mkdir -p "$tree"
  cd "$root"
  local inputs=(CMakeLists.txt CMakePresets.json cmake include src tests fuzz)
  while IFS= read -r file; do
    cmp -s "$file" "$tree/$file" && continue
    mkdir -p "$tree/$(dirname "$file")"
    cp "$file" "$tree/$file"
  done < <(find "${inputs[@]}" -type f)
  cd "$tree"
  while IFS= read -r file; do
    [[ -e $root/$file ]] || rm -f "$file"
  done < <(find "${inputs[@]}" -type f)
  # Data that some tests find beside the source tree.
  if [[ -d $root/../shared ]]; then ln -sfn "$root/../shared" "$work/shared"; fi
  cd "$root"
}

# Builds the test programs named, "cuda:" before a name apart.
build_tests() {
  timeout "$build_timeout" cmake --build "$build" --parallel "$jobs" --target "${@#cuda:}" \
    >"$work/build.log" 2>&1 </dev/null
}

# Runs one test program for at most $2 seconds; on the emulated GPU with "cuda:" before its name.
run_test() {
  local memory=$((16 << 20)) device=(RATSEG_TEST_DEVICE=host) # KiB: a mutant may ask for all there is
  if [[ $1 == cuda:* ]]; then
    memory=$((16 << 30)) # of addresses, of which each GPU takes very many
    device=(RATSEG_TEST_DEVICE=cuda RATSEG_EMULATED_GPUS=3 RATSEG_TEST_QUICK=1)
  fi
  mkdir -p "$work/cwd"
  (
    cd "$work/cwd"
    ulimit -v "$memory"
    export RATSEG_DEVICE=host GTEST_BRIEF=1 GTEST_FAIL_FAST=1 "${device[@]}"
    timeout -k 5 "$2" "$build/tests-bin/${1#cuda:}" || exit
  ) >"$work/test.log" 2>&1 </dev/null
}

# Builds and runs all programs without any fault: they must pass, and tell how long they may take.
declare -A limit
run_without_faults() {
  local programs program begin
  mapfile -t programs < <(printf '%s\n' "$@" | tr ' ' '\n' | sort -u)
  echo "Without faults: ${#programs[@]} test programs"
  quietly cmake -S "$tree" -B "$build" --preset mutants
  build_tests "${programs[@]}" || { tail -n 30 "$work/build.log" >&2; die "the tests do not build"; }
  for program in "${programs[@]}"; do
    [[ -z ${limit[$program]:-} ]] || continue
    begin=$SECONDS
    run_test "$program" 600 || { tail -n 30 "$work/test.log" >&2; die "$program fails without a fault"; }
    limit[$program]=$((20 + 10 * (SECONDS - begin)))
    echo "$program ${limit[$program]}" >>"$limits"
  done
}

# Judges mutant $1: sets verdict and remark.
verdict='' remark=''
judge() {
  local i=$1 program status
  local file=$tree/${files[i]} text programs
  verdict=refused
  fits "$i" || return 0
  read -ra programs <<<"${tests[i]}"
  text=$(<"$file")
  printf '%s\n' "${text/"${befores[i]}"/"${afters[i]}"}" >"$file"
  verdict=SURVIVED remark="passed: ${tests[i]}"
  if ! build_tests "${programs[@]}"; then
    verdict=uncompiled remark=$(grep -m1 -E 'error|ERROR' "$work/build.log" || echo "build failed")
  else
    for program in "${programs[@]}"; do
      status=0
      run_test "$program" "${limit[$program]}" || status=$?
      ((status != 0)) || continue
      verdict=caught
      remark=$(grep -m1 -oE '\[  FAILED  \] [A-Za-z0-9_/.]+' "$work/test.log" | sed 's/.*\] //' || true)
      ((status != 124 && status != 137)) || remark="ran too long"
      remark="$program: ${remark:-ended with status $status}"
      break
    done
  fi
  printf '%s\n' "$text" >"$file"
}

resume='' only_list='' patterns=() chosen=()

read_arguments() {
  local argument
  for argument; do
    case $argument in
      --resume) resume=yes ;;
      --list) only_list=yes ;;
      -*) die "unknown option $argument" ;;
      *) patterns+=("$argument") ;;
    esac
  done
}

choose_mutants() {
  local list i
  for list in "$root"/tests/mutants/*.txt; do read_list "$list"; done
  check_lists
  for i in "${!names[@]}"; do
    if matches "${names[i]}" "${patterns[@]}"; then chosen+=("$i"); fi
  done
  ((${#chosen[@]} > 0)) || die "no mutant has a name like: ${patterns[*]}"
}

# Judges the chosen mutants that have no result yet, and writes their results down.
declare -A judged=()
judge_mutants() {
  local i begin todo=() needed=()
  for i in "${chosen[@]}"; do
    [[ -z ${judged[${names[i]}]:-} ]] || continue
    todo+=("$i")
    needed+=("${tests[i]}")
  done
  ((${#todo[@]} > 0)) || return 0
  copy_tree
  run_without_faults "${needed[@]}"
  for i in "${todo[@]}"; do
    begin=$SECONDS
    judge "$i"
    printf '%-10s %-40s %4ds  %s\n' "$verdict" "${names[i]}" $((SECONDS - begin)) "$remark"
    printf '%s %s\n' "$verdict" "${names[i]}" >>"$results"
    judged[${names[i]}]=$verdict
  done
}

print_totals() {
  local i verdict caught=0 survived=0 invalid=0 wrong=()
  for i in "${chosen[@]}"; do
    verdict=${judged[${names[i]}]}
    case $verdict in
      caught) caught=$((caught + 1)) ;;
      SURVIVED) survived=$((survived + 1)) ;;
      *) invalid=$((invalid + 1)) ;;
    esac
    [[ $verdict == "${expected[i]}" ]] || wrong+=("${names[i]} ($verdict)")
  done
  echo "Mutants: $((caught + survived)), caught: $caught, survived: $survived," \
    "refused or not compiled: $invalid"
  ((${#wrong[@]} > 0)) || return 0
  printf 'Other than expected: %s\n' "${wrong[@]}"
  return 1
}

main() {
  local i verdict name
  read_arguments "$@"
  choose_mutants
  if [[ -n $only_list ]]; then
    for i in "${chosen[@]}"; do printf '%-40s %s: %s\n' "${names[i]}" "${files[i]}" "${whys[i]}"; done
    return 0
  fi
  install_missing_packages "${test_packages[@]}" libboost-context-dev
  mkdir -p "$work"
  [[ -n $resume ]] || rm -f "$results" "$limits"
  touch "$results" "$limits"
  while read -r verdict name; do judged[$name]=$verdict; done <"$results"
  while read -r name verdict; do limit[$name]=$verdict; done <"$limits"
  judge_mutants
  print_totals
}

main "$@"
exit
