# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# The comparison with other libraries: sourced by scripts/bench.

# bench_peers: its tables, also in build/peers/results.md.
bench_peers() {
  local build=build/peers scipy header what load_before results
  needs "${peers_packages[@]}"
  # Debian's SciPy wants Boost 1.74 for building with it, which excludes the 1.81 of the hosts. It runs without.
  scipy=$build/scipy/usr/lib/python3/dist-packages
  if [ ! -d $scipy ]; then
    mkdir -p $build
    (cd $build && apt-get download -q python3-scipy >/dev/null 2>&1 && dpkg -x python3-scipy_*.deb scipy) ||
      fail "cannot download the package python3-scipy"
  fi

  if [ ! -f $build/build.ninja ]; then
    quietly $build/configure.log cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ \
      -DZEPHLY_BUILD_TOOLS=OFF -DZEPHLY_BUILD_EXAMPLES=OFF -DZEPHLY_BUILD_TESTS=OFF -DZEPHLY_BUILD_PYTHON=ON \
      -DZEPHLY_BUILD_PEERS=ON -DZEPHLY_VECTORS=ON -DPython_EXECUTABLE=/usr/bin/python3
  fi
  cmake --build $build --parallel "$(nproc)" --target zephly_peers zephly_stages zephly_python >&2

  load_before=$(load)
  header="| task | peer | ours, ns | peer, ns | peer / ours | greatest difference (allowed) |
|---|---|--:|--:|--:|--:|"
  for what in kit offline; do
    timeout --kill-after=10 900 $build/bench/peers/zephly_peers $build/samples.f32 $what >$build/$what.cpp.md
    PYTHONPATH=$scipy:$build/bindings/python:$build/bench/peers timeout --kill-after=10 900 \
      /usr/bin/python3 bench/peers/peers.py $build/samples.f32 $what >$build/$what.python.md
  done
  results=$build/results.md
  {
    machine_table "$load_before" "$(compiler_of $build), Release (-O3)" \
      "$(/usr/bin/python3 --version), NumPy $(/usr/bin/python3 -c 'import numpy; print(numpy.__version__)')" \
      zephly offline hosts simulator bench bindings cmake CMakeLists.txt
    echo "Input: a minute of ECG and a minute of respiration of the simulated strap, 30,000 samples each."
    for what in kit offline; do
      echo
      [ $what = kit ] && echo "The kit, from C++:" || echo "For whole recordings (\`offline/\`), from C++:"
      echo
      echo "$header"
      cat $build/$what.cpp.md
      echo
      echo "From Python:"
      echo
      echo "$header"
      cat $build/$what.python.md
    done
  } >$results
  cat $results
}
