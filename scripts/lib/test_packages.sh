# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Tries Debian packages in a fresh Debian that has nothing but its minimum: sourced by scripts/package.

# test_packages [RELEASE [FOLDER]]: as root.
test_packages() {
  # shellcheck disable=SC1091
  local release=${1:-$(. /etc/os-release && echo "$VERSION_CODENAME")} packages=${2:-$PWD/build/packages}
  [[ $release =~ ^[a-z]+$ ]] || wrong_usage "no release of Debian: $release"
  compgen -G "$packages/*.deb" >/dev/null || fail "no packages in $packages: scripts/package builds them"
  source scripts/lib/fresh_system.sh
  needs "${fresh_system_packages[@]}"

  system=$PWD/build/systems/packages-$release
  make_system "$release" "$system"
  trap 'rm -rf --one-file-system "$system"' EXIT
  mkdir "$system/packages"
  cp "$packages"/*.deb "$system/packages"
  cp -R tests/packaging "$system/packages/checks"
  cp tools/man/zephly.1 "$system/packages/"
  timeout --foreground --kill-after=30 1800 bash -c "$(declare -f enter_system); enter_system \"\$@\"" enter \
    "$system" /packages/checks/in_a_fresh_system
}
