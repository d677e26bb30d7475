#!/usr/bin/env bash
# scripts/torture.sh [OPTION...] [STAGE...]: builds the preset "ci" and runs the programs where calls
# fail, signals come and disks are full; every run must end in time and by itself, say what it did
# and leave each result whole, the old one or the new one. Prints a table and, for each fault, the
# command that repeats it; ends with status 1 if there is any.
#
#   calls   each use of a call fails: allocations, open, write, rename, sync, close, unlink,
#           truncate, lock; once, and from there on
#   kills   SIGKILL, SIGTERM and SIGINT before each call that changes files, and at random times
#   disks   room for few blocks or files (a disk in memory; needs root)
#   places  results that are links, devices, mount points, or in folders of other users (needs root)
#   pairs   two runs at the same time
#
# Options: --help lists them (--short, --program, --call, --mode, --at, --stride, --seed, ...).
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$(dirname "${BASH_SOURCE[0]}")/tools.sh"

install_missing_packages "${test_packages[@]}"
need_tool python3 python3
build ci torture_tools
exec python3 "$root/tests/torture/torture.py" --bin "$root/build/ci/bin" \
  --tools "$root/build/ci/tests-bin" "$@"
