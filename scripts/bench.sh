#!/usr/bin/env bash
# scripts/bench.sh [WxHxN...]: builds the preset "release", measures the iteration with all threads
# and with one, and a run of the whole program, and appends a dated section to docs/benchmarks.md.
# Leave the machine alone meanwhile; it takes about six minutes on two cores.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$(dirname "${BASH_SOURCE[0]}")/tools.sh"

install_missing_packages
need_tool python3 python3
build release ratseg ratseg_bench make_problem
build scalar ratseg_bench
# Threads that wait spin, as the programs' do when nothing is set: here the machine is idle.
unset OMP_WAIT_POLICY
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
PYTHONDONTWRITEBYTECODE=1 python3 "$root/scripts/bench_report.py" "$root/build" "$work" "$@" >"$work/section.md"
{
  echo
  cat "$work/section.md"
} >>"$root/docs/benchmarks.md"
cat "$work/section.md"
