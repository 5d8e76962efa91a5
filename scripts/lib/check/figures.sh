# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Are the numbers behind the pictures of docs/streams still those of the kit, and the pictures drawn from them?
# `scripts/pictures streams` draws them again.
#   scripts/check figures
[ $# -eq 0 ] || wrong_usage "unknown argument $1"
source scripts/lib/packages.sh
source scripts/lib/build.sh
source scripts/lib/figures.sh
needs "${build_packages[@]}" python3
compute_figures build/figures/data
timeout --kill-after=10 300 /usr/bin/python3 docs/figures/check.py build/figures/data docs/figures/data docs/images/streams
