# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# The quick parts of scripts/check, side by side: none of them measures time. What they need is installed first, because
# two installations cannot run at a time.
source scripts/lib/packages.sh
source scripts/lib/side_by_side.sh
needs "${check_packages[@]}"
side_by_side 20m "scripts/check coverage" "scripts/check lint --kit" "scripts/check cppcheck" "scripts/check figures" \
  "scripts/check docs"
stage_table
