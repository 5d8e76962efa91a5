# SPDX-License-Identifier: MIT
"""A folder of captures on Dask: `python3 -m zephly.cohort captures/ --out results`.

Each capture is one task, which runs `zephly process` for it. Only paths and a few numbers travel: captures and results
are on a file system that all machines have. docs/cohorts.md describes the command.
"""
