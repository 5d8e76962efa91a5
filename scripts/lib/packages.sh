# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Which Debian packages each job needs, for scripts/lib/install-packages. Sourced by the scripts.
#
# An entry is a package, with ">=VERSION" where an older one does not do, or several with "|" between them: the first
# that the system offers is taken. So one list serves Debian 12, Debian 13 and Ubuntu 24.04.

# The version of the system's own clang: 14 on Debian 12, 19 on Debian 13, 18 on Ubuntu 24.04. A freshly
# installed system has no lists of packages yet.
if [ ! -d /var/lib/apt/lists ] || [ -z "$(find /var/lib/apt/lists -name '*_Packages*' -print -quit)" ]; then
  scripts/lib/install-packages --refresh || echo "The lists of packages could not be fetched: continuing with what is installed." >&2
fi
clang=$(apt-cache policy clang 2>/dev/null | sed -nE 's/^  Candidate: ([0-9]+:)?([0-9]+)\..*/\2/p')
clang=${clang:-14}

# To build and test the kit alone.
kit_packages=(g++ 'cmake>=3.25' ninja-build libgtest-dev libgmock-dev)

# To build the kit, the hosts and the program.
build_packages=(g++ 'cmake>=3.25' ninja-build 'libboost-dev>=1.81|libboost1.81-dev' libcli11-dev nlohmann-json3-dev
  'libsdbus-c++-dev>=1.2' libsystemd-dev pkg-config libedf-dev libssl-dev libhwy-dev libhdf5-dev)

# To build the page of `zephly view`: Node.js 18 or newer, and npm. Where they were installed from elsewhere, Debian's
# packages would conflict with them.
page_packages=()
if ! command -v npm >/dev/null || ! node -e 'process.exit(parseInt(process.versions.node) < 18 ? 1 : 0)' 2>/dev/null; then
  page_packages=('nodejs>=18' npm)
fi

# To test that page, and to make pictures of it.
browser_packages=(chromium)

# To build the programs of the tests, and what they run: a message bus for tests.
program_packages=("${build_packages[@]}" libgtest-dev libgmock-dev dbus-daemon biosig-tools)

# The second compiler and its sanitizers.
clang_packages=(clang "libclang-rt-$clang-dev" "llvm-$clang")

# To build and run the tests.
test_packages=("${program_packages[@]}" "${clang_packages[@]}" binutils procps)

# To check format, static analysis and documentation.
tidy_packages=(clang "clang-tidy-$clang" "clang-format-$clang")
lint_packages=("${test_packages[@]}" "${tidy_packages[@]}" cppcheck python3 doxygen libbenchmark-dev)

# To build the kit's tests for another processor, and to run them.
same_bits_packages=("${test_packages[@]}" g++-aarch64-linux-gnu qemu-user googletest)

# To measure what the tests reach.
coverage_packages=("${program_packages[@]}" gcovr)

# What scripts/check needs without arguments.
check_packages=("${build_packages[@]}" "${tidy_packages[@]}" "${coverage_packages[@]}" cppcheck python3 doxygen)

# To draw the pictures of docs/streams.
figure_packages=(python3 python3-matplotlib)

bench_packages=("${build_packages[@]}" libbenchmark-dev)

# To build, test and use the Python module.
python_packages=("${build_packages[@]}" python3-dev pybind11-dev python3-pybind11 python3-numpy python3-pandas
  python3-matplotlib python3-h5py hdf5-tools python3-pytest python3-pytest-timeout python3-venv python3-pip mypy
  python3-distributed python3-cryptography)

# To process captures by Slurm's jobs.
slurm_packages=(slurm-wlm munge procps)

# To compare with other libraries. SciPy itself is downloaded and unpacked (see scripts/lib/peers.sh); these are
# its dependencies.
peers_packages=("${build_packages[@]}" python3-dev pybind11-dev python3-numpy python3-bottleneck python3-pandas
  python3-decorator libblas3 liblapack3 liblbfgsb0 libgfortran5 libgsl-dev libliquid-dev)

# To run other detectors of heart beats. SciPy and MNE-Python are unpacked (see scripts/lib/vitals.sh); these are what
# they import.
vitals_peers_packages=("${bench_packages[@]}" python3-numpy python3-decorator python3-packaging python3-jinja2 libblas3
  liblapack3 liblbfgsb0 libgfortran5)

# The guest itself and the emulator that it runs in: downloaded and unpacked, never installed. Its kernel: see
# tests/bluetooth/guest/fetch.
bluetooth_guest_packages=(bluez bluez-test-tools dbus-daemon dbus-bin busybox-static kmod cpio qemu-system-x86
  seabios)

# To build Debian packages, and to try things in a fresh system.
package_packages=("${build_packages[@]}" dpkg-dev file lintian)
fresh_system_packages=(debootstrap debian-archive-keyring)
