#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The version record can be read out of the built library. Usage: check_version_record.sh LIBRARY
set -euo pipefail
strings -a "$1" | grep -Fx '@(#)PROGRAM:Zephly  PROJECT:Zephly-SDK-1'
