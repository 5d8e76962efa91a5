# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Whether the project builds and passes its tests on systems other than this one: in a fresh chroot of each, which has
# nothing but Debian's minimum, git, sudo and a user. Needs root or sudo. The last commit is used.
#   scripts/check --systems [RELEASE...]   scripts/demo and scripts/test, on bookworm and trixie or those named; a
#                                          table of versions, times and counts at the end. 15 to 40 minutes each on two
#                                          processors.
#   scripts/check --packages [RELEASE...]  the Debian packages, built there and tried by scripts/package --test
#   scripts/check --hosts-on RELEASE       the hosts' own tests only: two to four minutes
# The logs are in build/systems/RELEASE.*.log; a system that failed is left in build/systems/RELEASE.

arguments=("$@")
case ${1:-} in
  --systems)
    shift
    releases=("$@")
    [ $# -gt 0 ] || releases=(bookworm trixie)
    jobs=(demo test) ;;
  --packages)
    shift
    releases=("$@")
    [ $# -gt 0 ] || releases=(bookworm trixie)
    jobs=(package) ;;
  --hosts-on)
    [ $# -eq 2 ] || wrong_usage "--hosts-on takes one release"
    releases=("$2") jobs=(hosts) ;;
  *) wrong_usage "unknown argument ${1:-}" ;;
esac
for release in "${releases[@]}"; do
  [[ $release =~ ^[a-z]+$ ]] || wrong_usage "no release of Debian: $release"
done

if [ "$(id -u)" -ne 0 ]; then
  exec sudo --preserve-env=http_proxy,https_proxy,NODE_EXTRA_CA_CERTS "$PWD/scripts/check" "${arguments[@]}"
fi
source scripts/lib/packages.sh
source scripts/lib/fresh_system.sh
needs "${fresh_system_packages[@]}"
systems=$PWD/build/systems
mkdir -p "$systems"
# What is kept belongs to the owner of the checkout; a system that failed stays root's.
give_back() {
  local owner
  owner=$(stat -c %u:%g .)
  chown "$owner" build "$systems"
  find "$systems" -maxdepth 1 -type f -exec chown "$owner" {} +
  find "$systems" -maxdepth 1 -name '*.packages' -exec chown -R "$owner" {} +
}
trap give_back EXIT

# The jobs, as the user in the system.
declare -A commands=(
  [demo]='scripts/demo'
  [test]='scripts/test'
  [package]='scripts/package'
  [hosts]='source scripts/lib/packages.sh && scripts/lib/install-packages "${program_packages[@]}" &&
    cmake --preset normal -DZEPHLY_BUILD_PAGE=OFF && cmake --build --preset normal --target tests/hosts/all &&
    ctest --test-dir build/normal/tests/hosts --parallel "$(nproc)" --timeout 300 --output-on-failure --no-tests=error')

# prepare RELEASE: git, sudo, a user who may use it, and a clone of the last commit in his home.
prepare() {
  local system=$systems/$1
  make_system "$1" "$system"
  enter_system "$system" bash -c 'apt-get update -qq && apt-get install -y -qq --no-install-recommends git sudo &&
    useradd --create-home --shell /bin/bash newcomer && echo "newcomer ALL=(ALL) NOPASSWD: ALL" >/etc/sudoers.d/newcomer'
  git clone --quiet --no-hardlinks "file://$PWD" "$system/home/newcomer/zephly"
  enter_system "$system" chown -R newcomer: /home/newcomer
}

# work RELEASE JOB: its output is a log. Prints how long it took and what the tests counted.
work() {
  local log=$systems/$1.$2.log begin=$SECONDS
  if ! enter_system "$systems/$1" su - newcomer -c "cd zephly && ${commands[$2]}" >"$log" 2>&1 </dev/null; then
    tail -n 40 "$log" >&2
    echo "error: $2 failed on $1 after $((SECONDS - begin)) s; all of it: $log; the system: $systems/$1" >&2
    return 1
  fi
  printf '%s: %d:%02d' "$2" $(((SECONDS - begin) / 60)) $(((SECONDS - begin) % 60))
  sed -nE 's/^(100% tests passed), 0 tests failed out of ([0-9]+).*/, \2 passed/p; s/^([0-9]+ passed).* in .*/, Python \1/p;
    s/^([0-9]+ builds differ from .*)/, \1/p' "$log" | tr -d '\n'
  # As ctest and pytest report them; tests have the word in their names, too.
  if grep -E '\*\*\*Skipped|\(Skipped\)|[0-9]+ skipped' "$log" >&2; then
    echo "error: on $1 tests were skipped" >&2
    return 1
  fi
}

# versions RELEASE: of what matters.
versions() {
  # shellcheck disable=SC2016
  enter_system "$systems/$1" bash -c '. /etc/os-release
    version() { dpkg-query -W -f "\${Version}" "$1" 2>/dev/null | sed -E "s/^[0-9]+://; s/[-+~].*//"; }
    boost=$(version libboost1.81-dev)
    echo "$PRETTY_NAME | $(g++ -dumpfullversion) | $(version clang) | $(version cmake) | ${boost:-$(version libboost-dev)} | $(version libsdbus-c++-dev)"'
}

rows=()
for release in "${releases[@]}"; do
  echo "== $release"
  prepare "$release" >"$systems/$release.prepare.log" 2>&1 || {
    tail -n 20 "$systems/$release.prepare.log" >&2
    exit 1
  }
  results=''
  for job in "${jobs[@]}"; do
    result=$(work "$release" "$job")
    echo "$result"
    results+=${results:+; }$result
  done
  if [ "${jobs[0]}" = package ]; then
    rm -rf "$systems/$release.packages"
    cp -R "$systems/$release/home/newcomer/zephly/build/packages" "$systems/$release.packages"
    scripts/package --test "$release" "$systems/$release.packages"
    results+='; installed, used and purged'
  fi
  rows+=("| $(versions "$release") | $results |")
  rm -rf --one-file-system "${systems:?}/$release"
done

echo
echo "| system | g++ | clang | CMake | Boost | sdbus-c++ | passed on $(date +%F) |"
echo "|---|---|---|---|---|---|---|"
printf '%s\n' "${rows[@]}"
