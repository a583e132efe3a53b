#!/usr/bin/env bash
# Build the module with AddressSanitizer and UndefinedBehaviorSanitizer and run the tests on it, or with
# `--run module ...` any Python module. SANITIZE_PYTHON names another interpreter of this version than
# that of .venv, whose packages it uses.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/.venv/bin
python=${SANITIZE_PYTHON:-$bin/python}
export ASAN_OPTIONS=detect_leaks=0:handle_segv=0:${ASAN_OPTIONS:-}
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}
packages=$("$bin/python" -c 'import sysconfig; print(sysconfig.get_path("purelib"))')
build=$PWD/build/sanitize$("$python" -c 'import sys; print(sys.abiflags)')

PYTHONPATH=$packages "$bin/cmake" -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTYPED_SHAPES_SANITIZE=ON -DTYPED_SHAPES_WERROR=ON -DPython_EXECUTABLE="$python" \
  -DCMAKE_MAKE_PROGRAM="$bin/ninja" -DCMAKE_INSTALL_PREFIX="$build/site" >/dev/null
"$bin/cmake" --build "$build" --target install >/dev/null

# The runtimes come in front, and the interpreter's allocator hands every block to them. Leaks are looked
# for elsewhere, by counting references.
compiler=${CXX:-c++}
export LD_PRELOAD="$($compiler -print-file-name=libasan.so) $($compiler -print-file-name=libubsan.so) $($compiler -print-file-name=libstdc++.so)"
export PYTHONMALLOC=malloc TYPED_SHAPES_SANITIZED=1
export PYTHONPATH="$build/site:$PWD/cli:$PWD/tests:$packages"
if [ "${1:-}" = --run ]; then
  exec "$python" -m "${@:2}"
fi
exec "$python" -m pytest -p no:cacheprovider "$@"
