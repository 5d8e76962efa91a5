# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# How good and how fast the vitals are: sourced by scripts/bench.

# needs_records FOLDER: ends the script when there is no record in it.
needs_records() {
  [ -d "$1" ] || fail "there is no folder $1: give one with annotated records of WFDB (.hea, .dat, .atr)"
  [ -n "$(find "$1" -maxdepth 1 -name '*.hea' -print -quit)" ] || fail "$1 has no records of WFDB (.hea)"
}

# bench_vitals FOLDER WRITE: also in build/bench/vitals.md, breathing.md and vitals_speed.md.
bench_vitals() {
  local folder=$1 write=$2 programs=build/bench/bench/vitals load_before
  needs_records "$folder"
  needs "${bench_packages[@]}"
  build bench zephly_vitals_bench zephly_breathing_bench zephly_vitals_speed >&2
  timeout --kill-after=10 1800 $programs/zephly_vitals_bench "$folder" >build/bench/vitals.md
  cat build/bench/vitals.md
  timeout --kill-after=10 1800 $programs/zephly_breathing_bench >build/bench/breathing.md
  echo
  cat build/bench/breathing.md
  load_before=$(load)
  timeout --kill-after=10 600 $programs/zephly_vitals_speed >build/bench/speed.md
  {
    machine_table "$load_before" "$(compiler_of build/bench), Release (-O3)" '' vitals bench/vitals simulator cmake
    cat build/bench/speed.md
  } >build/bench/vitals_speed.md
  echo
  cat build/bench/vitals_speed.md
  [ "$write" = no ] && return
  write_section build/bench/vitals.md results docs/vitals.md
  write_section build/bench/breathing.md breathing docs/vitals.md
  write_section build/bench/vitals_speed.md speed docs/vitals.md
}

# bench_vitals_unseen FOLDER WRITE: also in build/bench/vitals_unseen.md.
bench_vitals_unseen() {
  local folder=$1 write=$2
  needs_records "$folder"
  needs "${bench_packages[@]}"
  build bench zephly_vitals_train >&2
  timeout --kill-after=10 3600 build/bench/bench/vitals/zephly_vitals_train "$folder" 20 --leave-out 6 \
    >build/bench/vitals_unseen.md
  cat build/bench/vitals_unseen.md
  [ "$write" = no ] || write_section build/bench/vitals_unseen.md unseen docs/vitals.md
}

# bench_vitals_peers FOLDER WRITE: also in build/bench/vitals_peers.md. Debian's SciPy and MNE-Python are unpacked, not
# installed, because of SciPy's conflict with the Boost of the hosts (see scripts/lib/peers.sh).
bench_vitals_peers() {
  local folder=$1 write=$2 python=build/bench/python found=build/bench/found record header load_before
  needs_records "$folder"
  needs "${page_packages[@]}" "${vitals_peers_packages[@]}"
  build bench zephly_vitals_score zephly >&2
  if [ ! -d $python ]; then
    mkdir -p $python.new
    (cd $python.new && apt-get download -q python3-scipy python3-mne >/dev/null 2>&1 &&
      for record in *.deb; do dpkg -x "$record" .; done) || fail "cannot download the packages python3-scipy and python3-mne"
    mv $python.new $python
  fi
  load_before=$(load)
  rm -rf $found
  mkdir -p $found/zephly
  for header in "$folder"/*.hea; do
    record=$(basename "$header" .hea)
    build/bench/tools/zephly vitals "$header" --annotations "$found/zephly/$record.atr" >/dev/null
  done
  PYTHONPATH=$python/usr/lib/python3/dist-packages PYTHONDONTWRITEBYTECODE=1 OPENBLAS_NUM_THREADS=1 \
    timeout --kill-after=10 1800 /usr/bin/python3 bench/vitals/peers/detect.py "$folder" $found
  build/bench/bench/vitals/zephly_vitals_score "$folder" \
    "files of \`zephly vitals --annotations\`=$found/zephly" \
    "Pan and Tompkins 1985, on SciPy=$found/pan-tompkins" \
    "the same, thresholds never halved=$found/pan-tompkins-unhalved" \
    "MNE-Python, \`qrs_detector\`=$found/mne" >build/bench/scores.md
  {
    machine_table "$load_before" "$(compiler_of build/bench), Release (-O3)" "$(/usr/bin/python3 --version)" \
      vitals tools bench/vitals cmake
    cat build/bench/scores.md
  } >build/bench/vitals_peers.md
  cat build/bench/vitals_peers.md
  [ "$write" = no ] || write_section build/bench/vitals_peers.md peers docs/vitals.md
}
