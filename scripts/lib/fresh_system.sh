# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Fresh Debian systems to try things in: sourced by scripts that run as root.
#   make_system RELEASE FOLDER       a minimal system of the release (bookworm, trixie) in FOLDER, in place of what was
#                                    there. It is fetched once and kept as build/systems/RELEASE.tar.
#   enter_system FOLDER COMMAND...   runs the command in it as root, with a clean environment. What it needs of the
#                                    machine (/proc, /dev) is mounted in a mount namespace that ends with the last
#                                    process.

make_system() {
  local release=$1 folder=$2 systems=$PWD/build/systems
  local base=$systems/$release.tar
  mkdir -p "$systems"
  if [ ! -e "$base" ]; then
    echo "== fetching a minimal Debian $release (once)"
    rm -rf "$systems/$release.new"
    debootstrap --variant=minbase "$release" "$systems/$release.new" http://deb.debian.org/debian \
      >"$systems/$release.log" 2>&1 || { tail -n 20 "$systems/$release.log" >&2; return 1; }
    tar -C "$systems/$release.new" -cf "$base.part" .
    rm -rf --one-file-system "$systems/$release.new"
    mv "$base.part" "$base"
  fi
  rm -rf --one-file-system "$folder"
  mkdir -p "$folder"
  tar -C "$folder" -xf "$base"
  # The registries that this machine reaches are reached by the same names, proxy and certificate.
  cp -L /etc/resolv.conf /etc/hosts "$folder/etc/"
  local name
  for name in http_proxy https_proxy; do
    [ -z "${!name:-}" ] || echo "$name=${!name}" >>"$folder/etc/environment"
  done
  if [ -n "${NODE_EXTRA_CA_CERTS:-}" ]; then
    cp -L "$NODE_EXTRA_CA_CERTS" "$folder/etc/ssl-of-the-machine.crt"
    echo "NODE_EXTRA_CA_CERTS=/etc/ssl-of-the-machine.crt" >>"$folder/etc/environment"
  fi
}

enter_system() {
  # shellcheck disable=SC2016
  unshare --mount bash -c 'mount -t proc proc "$1/proc" && mount --rbind /dev "$1/dev" && exec chroot "$@"' \
    enter "$1" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
    LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} "${@:2}"
}
