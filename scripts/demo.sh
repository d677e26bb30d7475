#!/usr/bin/env bash
# Shows what the share prior does, on a made-up micrograph or on one's own picture.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
  cat <<'USAGE'
scripts/demo.sh [FOLDER] [options]

Builds ratseg and segments a picture three times: by the pixelwise best label, without the share
prior, and with it. Prints the shares of the labels and, where the truth is known, how many of the
pixels that are not marked get their true label.

FOLDER has image.* (any format) and scribbles.png (8-bit grey or indexed; label + 1 where marked),
and for the prior proportions.txt (a line "mean spread" for each label that shares are of) or
truth.png (label numbers, the background last), from which the shares are taken where there is no
proportions.txt. With neither, the run with the prior is left out. Without FOLDER a micrograph is
drawn; where its three pictures are in demo-out/ already, they are used as they are.

-shares foreground|image   what the shares are of         (foreground)
                           (give "image" for two labels: shares of the foreground say nothing then)
-lambda L                  weight of the boundary length  (5)
-mu M                      weight of the share prior      (500)
-epsilon E                 tolerance of the share prior   (10)
-spread S                  spread of the shares           (0.02)
-model colour|forest|both  what makes costs of the marks  (both)
-sigma S                   width of the colour kernel     (5)
-thr T                     greatest cost                  (10)
-tolerance X               end when the certified gap is this small (1e-3)
-accelerate 0|1            the accelerated iteration      (1)
-iterations N              at most so many iterations     (5000)

Results go to demo-out/ in the project's folder, for FOLDER to demo-out/<name of FOLDER>/, over
those of any other folder of that name.
RATSEG_DEVICE=auto|cuda|host chooses where to compute.
USAGE
}

folder=
declare -A option=([shares]=foreground [lambda]=5 [mu]=500 [epsilon]=10 [spread]=0.02 [model]=both [sigma]=5
                   [thr]=10 [tolerance]=1e-3 [accelerate]=1 [iterations]=5000)
while (($# > 0)); do
  case $1 in
    -h | -help | --help)
      usage
      exit 0
      ;;
    -*)
      name=${1#-}
      [[ -n $name && -v option[$name] ]] || die "unknown option $1; see scripts/demo.sh -help"
      (($# > 1)) || die "$1 needs a value"
      option[$name]=$2
      shift 2
      ;;
    *)
      [[ -z $folder ]] || die "expected one folder, but found \"$folder\" and \"$1\""
      folder=$1
      shift
      ;;
  esac
done

# What ratseg writes, without the prefix.
result_files=(_result_labeling.gz _result_labeling.png _result_labeling_overlaid.png
  _regularizer_weight.png)

# Whether the demo without a folder writes a file of this name.
is_demo_file() {
  case $1 in
    / | image.png | scribbles.png | truth.png | dataterm.gz | dataterm.log | proportions.txt | \
      sheet.png | pixelwise.log | without.log | with.log)
      return 0
      ;;
  esac
  local prefix suffix
  for prefix in pixelwise without with; do
    for suffix in "${result_files[@]}"; do
      [[ $1 != "$prefix$suffix" ]] || return 0
    done
  done
  return 1
}

# Draws the micrograph unless its pictures are there.
draw_pictures() {
  if [[ -e $image && -e $scribbles && -e $truth ]]; then
    echo "The pictures in $out are used as they are" >&2
  else
    "$bin/make_micrograph" "$out"
  fi
}

# Sets image, scribbles, truth and shares (the last two empty where there are none), and out.
find_pictures() {
  out=$root/demo-out
  if [[ -z $folder ]]; then
    image=$out/image.png
    scribbles=$out/scribbles.png
    truth=$out/truth.png
    shares=
    return
  fi
  [[ -d $folder ]] || die "expected a folder, but found none at \"$folder\""
  folder=$(cd "$folder" && pwd)
  shopt -s nullglob
  local images=("$folder"/image.*)
  shopt -u nullglob
  ((${#images[@]} == 1)) || die "expected one file image.* in \"$folder\", but found ${#images[@]}"
  image=${images[0]}
  scribbles=$folder/scribbles.png
  [[ -f $scribbles ]] || die "expected a file \"$scribbles\", but found none"
  truth=
  [[ ! -e $folder/truth.png ]] || truth=$folder/truth.png
  shares=
  [[ ! -e $folder/proportions.txt ]] || shares=$folder/proportions.txt
  local name
  name=$(basename "$folder")
  ! is_demo_file "$name" || die "expected a folder of another name: \"$name\" in demo-out is for a" \
    "file of the demo itself"
  out=$out/$name
}

# Shows the warnings in a log that were not shown before.
declare -A warned=()
show_warnings() {
  local line
  while IFS= read -r line; do
    [[ $line == "ratseg: warning: "* && -z ${warned[$line]:-} ]] || continue
    warned[$line]=1
    printf '%s\n' "$line" >&2
  done <"$1"
}

# Makes dataterm.gz and, where there are shares, proportions.txt.
make_dataterm() {
  local command=("$bin/ratseg-dataterm" -image "$image" -scribbles "$scribbles"
    -out "$out/dataterm.gz" -model "${option[model]}" -sigma "${option[sigma]}" -thr "${option[thr]}"
    -shares "${option[shares]}")
  if [[ -n $truth ]]; then
    command+=(-truth "$truth" -proportions "$out/proportions.txt" -spread "${option[spread]}")
  else
    rm -f "$out/proportions.txt"
  fi
  "${command[@]}" >"$out/dataterm.log"
  [[ -z $shares ]] || cp "$shares" "$out/proportions.txt"
}

# ratseg wants shares also where mu is 0: one for each label but the last.
any_shares() {
  local labels
  labels=$(sed -n 's/.*(data term of \([0-9]*\) labels.*/\1/p' "$out/dataterm.log")
  local k
  for ((k = 1; k < labels; ++k)); do echo "0.5 1"; done
}

# Runs ratseg, whose output goes to a log: name of the results, mu, iterations.
solve() {
  local log=$out/$1.log
  local command=("$bin/ratseg" -image "$image" -dataterm "$out/dataterm.gz"
    -proportions "$proportions" -lambda "${option[lambda]}" -mu "$2"
    -epsilon "${option[epsilon]}" -iterations "$3" -outprefix "$out/$1")
  [[ $3 == 0 ]] ||
    command+=(-tolerance "${option[tolerance]}" -accelerate "${option[accelerate]}")
  if ! "${command[@]}" >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    die "this failed: ${command[*]}"
  fi
  show_warnings "$log"
}

find_pictures
install_missing_packages
build release ratseg ratseg-dataterm make_micrograph compare_labelings
bin=$root/build/release/bin
mkdir -p "$out"
echo "Results go to $out" >&2
[[ -n $folder ]] || draw_pictures
rm -f "${result_files[@]/#/$out/pixelwise}" "${result_files[@]/#/$out/without}" \
  "${result_files[@]/#/$out/with}"

make_dataterm
proportions=$out/proportions.txt
runs=(pixelwise without with)
names=(pixelwise "without prior" "with prior")
if [[ ! -e $proportions ]]; then
  echo "Without the prior only: $folder has neither proportions.txt nor truth.png" >&2
  runs=(pixelwise without)
  names=(pixelwise "without prior")
  proportions=$(mktemp)
  trap 'rm -f "$proportions"' EXIT
  any_shares >"$proportions"
fi
for run in "${runs[@]}"; do
  case $run in
    pixelwise) solve pixelwise 0 0 ;;
    without) solve without 0 "${option[iterations]}" ;;
    with) solve with "${option[mu]}" "${option[iterations]}" ;;
  esac
done

labelings=("${runs[@]/#/$out/}")
labelings=("${labelings[@]/%/_result_labeling.gz}")
known=()
[[ -z $truth ]] || known=(-truth "$truth")
echo
"$bin/compare_labelings" "${known[@]}" -scribbles "$scribbles" -shares "${option[shares]}" \
  -labelings "${labelings[@]}" -names "${names[@]}" -image "$image" -sheet "$out/sheet.png"
echo
echo "Pictures in $out:"
echo "  sheet.png: image,${truth:+ truth,} $(IFS=, && echo "${names[*]}" | sed 's/,/, /g')"
echo "  {$(IFS=, && echo "${runs[*]}")}_result_labeling.png: the labelings"
echo "  {$(IFS=, && echo "${runs[*]}")}_result_labeling_overlaid.png: the labelings over the image"
[[ -n $folder ]] || echo "  image.png, scribbles.png, truth.png: the drawn micrograph"
