#!/usr/bin/env bash
# scripts/digests.sh FILE: builds the preset "digests" and writes the digests of everything that the
# solver and the programs answer into FILE, a line each, for changes that must change no byte: write
# them before and after and compare. The stored cases, 200 random problems and the real pictures (those
# of ../shared, or of RATSEG_SHARED_DIR), each engine and instruction set, 1, 2 and 3 devices of the
# host; of the programs all output files and standard output, without the seconds.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

(($# == 1)) || die "expected the file to write, but found: $*"
file=$(realpath -m "$1")
shared=${RATSEG_SHARED_DIR:-$root/../shared}
install_missing_packages "${test_packages[@]}"
build digests ratseg ratseg-dataterm ratseg_digests
bin=$root/build/digests/bin
export RATSEG_DEVICE=host
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Programs name their files: all paths are relative to the folder that they run in.
mkdir "$work/made"
ln -s "$(realpath "$shared")" "$work/shared"

solver() {
  local isa devices
  for isa in baseline avx2 avx512; do
    for devices in 1 2 3; do
      RATSEG_ISA=$isa RATSEG_HOST_DEVICES=3 "$bin/ratseg_digests" "$devices" 2>/dev/null |
        sed "s/\$/ $isa/" || true
    done
  done
}

# digest_run NAME COMMAND...: runs in the folder "run" and prints the digests of what comes out.
digest_run() {
  local name=$1 output
  shift
  rm -rf "$work/run"
  mkdir "$work/run"
  (cd "$work/run" && "$@" >stdout 2>/dev/null || echo "status $?" >>stdout)
  sed -i '/^Computation time: /d' "$work/run/stdout"
  for output in "$work/run"/*; do
    echo "$name $(basename "$output") $(sha256sum <"$output" | cut -c1-16)"
  done
}

programs() {
  local folder name image options
  cd "$work/made"
  for folder in ../shared/cases/*/; do
    name=$(basename "$folder")
    digest_run "case $name" "$bin/ratseg" -image "$folder/image.png" -dataterm "$folder/dataterm.gz" \
      -proportions "$folder/proportions.txt" -lambda 1 -mu 10 -iterations 50
  done
  for folder in ../shared/pictures/*/; do
    name=$(basename "$folder")
    image=$(find "$folder" -name 'image.*')
    digest_run "dataterm $name" "$bin/ratseg-dataterm" -image "$image" \
      -scribbles "$folder/scribbles.png" -truth "$folder/truth.png" -proportions p.txt -out d.gz \
      -shares image
    cp "$work/run/d.gz" "$work/run/p.txt" "$work/made/"
    for options in "" "-accelerate 1 -tolerance 1e-3"; do
      # shellcheck disable=SC2086
      digest_run "picture $name $options" "$bin/ratseg" -image "$image" -dataterm ../made/d.gz \
        -proportions ../made/p.txt -lambda 2 -mu 500 -iterations 30 $options
    done
  done
}

{
  solver
  programs
} >"$file"
echo "$(wc -l <"$file") digests in $file"
