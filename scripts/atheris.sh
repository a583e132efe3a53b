#!/usr/bin/env bash
# Build the module with clang for AddressSanitizer and libFuzzer's coverage, and run a Python module under
# atheris on it: scripts/atheris.sh <module> [its arguments].
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/.venv/bin
build=$PWD/build/atheris
command -v "${CLANG:-clang++}" >/dev/null || { echo "clang is missing (Debian: the package clang)"; exit 1; }

# The runtimes are not linked in: atheris brings its own with libFuzzer inside, and that is preloaded.
"$bin/cmake" -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTYPED_SHAPES_WERROR=ON \
  -DCMAKE_CXX_COMPILER="${CLANG:-clang++}" -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY \
  -DCMAKE_CXX_FLAGS="-fsanitize=address,fuzzer-no-link -fno-omit-frame-pointer" \
  -DCMAKE_MODULE_LINKER_FLAGS=-fno-sanitize=all -DPython_EXECUTABLE="$bin/python" \
  -DCMAKE_MAKE_PROGRAM="$bin/ninja" -DCMAKE_INSTALL_PREFIX="$build/site" >/dev/null
"$bin/cmake" --build "$build" --target install >/dev/null

preloaded=$("$bin/python" -c 'import atheris; print(atheris.path())')/asan_with_fuzzer.so
export PYTHONMALLOC=malloc ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1:quarantine_size_mb=64
export PYTHONPATH="$build/site:$PWD/tests" LD_PRELOAD="$preloaded"
exec "$bin/python" -m "$@"
