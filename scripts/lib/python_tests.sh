# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# The tests of the Python module, in a build folder of their own: it is built for Debian's Python.

# test_python [PYTEST ARGUMENTS...]
test_python() {
  local build=build/python program=demo wheels
  needs "${python_packages[@]}"
  if [ ! -f $build/build.ninja ]; then
    quietly $build/configure.log cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ \
      -DCMAKE_UNITY_BUILD=ON -DZEPHLY_BUILD_TOOLS=OFF -DZEPHLY_BUILD_EXAMPLES=OFF -DZEPHLY_BUILD_TESTS=OFF \
      -DZEPHLY_BUILD_PYTHON=ON -DZEPHLY_WARNINGS_AS_ERRORS=ON -DPython_EXECUTABLE=/usr/bin/python3
  fi
  cmake --build $build --parallel "$(nproc)" --target zephly_python zephly_wheel zephly_python_digest
  # The program that the arrays of captures are compared with.
  [ ! -f build/normal/build.ninja ] || program=normal
  build $program zephly
  wheels=("$PWD/$build"/bindings/python/dist/*.whl)
  # One test may take five minutes, all of them a quarter of an hour.
  PYTHONPATH="$PWD/$build/bindings/python" ZEPHLY_WHEEL="${wheels[0]}" \
    ZEPHLY_PROGRAM="$PWD/build/$program/tools/zephly" \
    ZEPHLY_DIGEST="$PWD/$build/bindings/python/zephly_python_digest" timeout --kill-after=10 900 \
    /usr/bin/python3 -X faulthandler -m pytest -q -p no:cacheprovider --timeout 300 bindings/python/tests "$@"
}
