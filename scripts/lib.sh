# Shared by the scripts of this folder. Sets root to the project's folder.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# On a busy machine, threads that spin while they wait slow the solver down many times.
export OMP_WAIT_POLICY=${OMP_WAIT_POLICY:-passive}

die() {
  echo "ERROR: $*" >&2
  exit 1
}

# Runs a command without its output; where the command fails, shows the output and ends.
quietly() {
  local log
  log=$(mktemp)
  if ! "$@" >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    rm -f "$log"
    die "this failed: $*"
  fi
  rm -f "$log"
}

# What the tests need besides.
test_packages=(libgtest-dev libgmock-dev pkg-config python3-jsonschema python3-skimage python3-sklearn)

# The Debian packages that the programs need to be built, and those named, as far as they are not there,
# one a line. A tool counts as there wherever it comes from.
missing_packages() {
  command -v g++ >/dev/null || echo g++
  command -v cmake >/dev/null || echo cmake
  command -v ninja >/dev/null || echo ninja-build
  local package
  for package in zlib1g-dev libjpeg-dev libpng-dev libtiff-dev libvigraimpex-dev qt6-base-dev \
    qt6-image-formats-plugins nlohmann-json3-dev "$@"; do
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
      echo "$package"
  done
}

# install_missing_packages [PACKAGE...]: installs what is missing, these packages too; says so, and says
# nothing when all is there.
install_missing_packages() {
  if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    local tool
    for tool in g++ cmake ninja; do
      command -v "$tool" >/dev/null || die "$tool is missing, and there is no apt to install it"
    done
    return 0
  fi
  local missing
  mapfile -t missing < <(missing_packages "$@")
  ((${#missing[@]} > 0)) || return 0
  local as_root=()
  if ((EUID != 0)); then
    command -v sudo >/dev/null || die "not installed, and there is no sudo: ${missing[*]}"
    as_root=(sudo)
  fi
  echo "Installing through apt: ${missing[*]}"
  quietly "${as_root[@]}" apt-get update -q
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# Configures a preset into build/<preset> and builds the named targets, or all of them.
build() {
  local preset=$1
  shift
  local targets=()
  (($# == 0)) || targets=(--target "$@")
  cd "$root"
  quietly cmake --preset "$preset"
  quietly cmake --build "build/$preset" "${targets[@]}"
  cd "$OLDPWD"
}
