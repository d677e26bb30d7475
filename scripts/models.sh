#!/usr/bin/env bash
# Compares the models of ratseg-dataterm on pictures whose labels are known.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'USAGE'
scripts/models.sh FOLDER [NAME...]

Builds ratseg and prints a table in Markdown: for each picture in FOLDER, or for those named, the part of the
pixels that get their true label, outside the scribbles, with each model (colour, forest, both) and in three
stages: the best label of each pixel, without the share prior, and with it (-lambda 2 -mu 500, the true shares
with a spread of 0.02: of the foreground, and of the image where there are two labels).

Each picture is a folder with image.* (any format), scribbles.png and truth.png (see scripts/demo.sh).
USAGE
}

if (($# == 0)) || [[ $1 == -h || $1 == -help || $1 == --help ]]; then
  usage
  exit 0
fi
[[ -d $1 ]] || die "expected a folder, but found none at \"$1\""
folder=$(cd "$1" && pwd)
shift
names=("$@")
if ((${#names[@]} == 0)); then
  mapfile -t names < <(cd "$folder" && ls -d */ | tr -d /)
fi

install_missing_packages
build release ratseg ratseg-dataterm compare_labelings
bin=$root/build/release/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Prints the accuracies of the three stages with one model, one a line.
accuracies() {
  local picture=$1 model=$2 shares=$3 image
  image=$(ls "$picture"/image.*)
  quietly "$bin/ratseg-dataterm" -image "$image" -scribbles "$picture/scribbles.png" -truth "$picture/truth.png" \
    -out "$work/dataterm.gz" -proportions "$work/proportions.txt" -shares "$shares" -model "$model"
  local common=(-image "$image" -dataterm "$work/dataterm.gz" -proportions "$work/proportions.txt" -lambda 2)
  quietly "$bin/ratseg" "${common[@]}" -mu 0 -iterations 0 -outprefix "$work/pixelwise"
  quietly "$bin/ratseg" "${common[@]}" -mu 0 -tolerance 1e-3 -accelerate 1 -outprefix "$work/without"
  quietly "$bin/ratseg" "${common[@]}" -mu 500 -tolerance 1e-3 -accelerate 1 -outprefix "$work/with"
  "$bin/compare_labelings" -truth "$picture/truth.png" -scribbles "$picture/scribbles.png" -shares "$shares" \
    -labelings "$work"/{pixelwise,without,with}_result_labeling.gz -names pixelwise without with |
    awk '$1 == "pixelwise" || $1 == "without" || $1 == "with" { printf "%.3f\n", $2 }'
}

# Foreground shares say nothing where there are two labels: the highest mark tells.
shares_of() {
  "$bin/ratseg-dataterm" -image "$(ls "$1"/image.*)" -scribbles "$1/scribbles.png" -model colour \
    -out "$work/count.gz" 2>/dev/null | grep -q 'background label 1:' && echo image || echo foreground
}

echo "| picture | colour | | | forest | | | both | | |"
echo "|---|---|---|---|---|---|---|---|---|---|"
echo "| | per pixel | without | with | per pixel | without | with | per pixel | without | with |"
for name in "${names[@]}"; do
  shares=$(shares_of "$folder/$name")
  row=()
  for model in colour forest both; do
    mapfile -t three < <(accuracies "$folder/$name" "$model" "$shares")
    ((${#three[@]} == 3)) || die "no accuracies for \"$name\" with -model $model"
    row+=("${three[@]}")
  done
  printf '| %s ' "$name"
  printf '| %s ' "${row[@]}"
  echo '|'
  printf '%s\n' "${row[*]}" >>"$work/rows"
done
awk '{ for (i = 1; i <= NF; ++i) sum[i] += $i }
     END { printf "| mean of %d ", NR; for (i = 1; i <= NF; ++i) printf "| %.3f ", sum[i] / NR; print "|" }' "$work/rows"
