# Shared by the checks of this folder, after lib.sh.

# need_tool TOOL PACKAGE: installs Debian's PACKAGE where TOOL is missing, and says so.
need_tool() {
  local tool=$1 package=$2 as_root=()
  ! command -v "$tool" >/dev/null || return 0
  command -v apt-get >/dev/null || die "$tool is missing, and there is no apt to install $package"
  if ((EUID != 0)); then
    command -v sudo >/dev/null || die "$tool is missing, and there is no sudo to install $package"
    as_root=(sudo)
  fi
  echo "Installing through apt: $package"
  quietly "${as_root[@]}" apt-get update -q
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "$package"
}
