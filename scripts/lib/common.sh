# Shared by the scripts: installs what is missing (Debian 12) and builds.
# Source it; it changes into the repository root.

set -euo pipefail
VH_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
cd "$VH_ROOT"
VH_BUILD_DIR="${VH_BUILD_DIR:-$VH_ROOT/build}"

VH_PACKAGES=(
  build-essential cmake ninja-build pkg-config lld
  qt6-base-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools qtkeychain-qt6-dev
  qt6-qpa-plugins libqt6svg6 fonts-dejavu-core
  libfuse3-dev fuse3
  libcurl4-openssl-dev nlohmann-json3-dev libsqlite3-dev libssl-dev libcpp-httplib-dev
  libgtest-dev libgmock-dev
  openssl ca-certificates curl
  git rsync attr vim tar xdg-utils
  # QtKeychain reaches the Secret Service through libsecret, which it loads
  # at run time; the credential tests run a keyring on a private bus.
  libsecret-1-0 gnome-keyring libsecret-tools dbus-daemon
)

# GNOME Files with the project's extension under Xvfb (scripts/nautilus-screenshot);
# Xvfb also serves the window tests (tests/ui) and scripts/screenshots.
VH_DESKTOP_PACKAGES=(nautilus python3-nautilus librsvg2-common xvfb dbus-daemon imagemagick)

# vh_missing_packages PACKAGE...: prints those not installed, one a line.
vh_missing_packages() {
  for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
      echo "$package"
    fi
  done
}

vh_install_packages() {
  local missing
  mapfile -t missing < <(vh_missing_packages "${VH_PACKAGES[@]}")
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# vh_build [DIR [CMAKE_ARGS...]]: configures DIR (default $VH_BUILD_DIR) the
# first time, then builds it; VH_TARGETS, when set, limits what is built.
# CI (CI=true) runs no debugger, so its builds keep line tables only.
vh_build() {
  local dir="${1:-$VH_BUILD_DIR}"
  [ $# -gt 0 ] && shift
  local ci_args=()
  [ "${CI:-}" = "true" ] && ci_args=(-DVH_LINE_TABLES_ONLY=ON)
  if [ ! -f "$dir/build.ninja" ]; then
    cmake -S "$VH_ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${ci_args[@]}" "$@"
  fi
  local targets=()
  for target in ${VH_TARGETS:-}; do targets+=(--target "$target"); done
  cmake --build "$dir" --parallel "$(nproc)" "${targets[@]}"
}
