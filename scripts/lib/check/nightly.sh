# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# What .ci/run leaves out, one after the other. CONTRIBUTING.md gives the reason for each.
source scripts/lib/side_by_side.sh
stage 4h scripts/check lint
stage 1h scripts/same-bits --unit-tests
stage 1h scripts/test-bluetooth --system trixie
stage 2h scripts/fuzz 10
stage 2h scripts/soak
stage 1h scripts/package --check-reproducible
stage 2h scripts/check --packages
stage 3h scripts/check --systems
stage_table
