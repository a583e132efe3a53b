#!/usr/bin/env bash
# Build the module with AddressSanitizer and UndefinedBehaviorSanitizer and run the tests on it.
# SANITIZE_PYTHON names another interpreter than that of the environment.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build_for.sh
python=${SANITIZE_PYTHON:-$PWD/${VENV:-.venv}/bin/python}
export ASAN_OPTIONS=detect_leaks=0:handle_segv=0:${ASAN_OPTIONS:-}
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}
# No build type: a named one would switch off the assertions of the interpreter's headers.
build_for "$python" "sanitize${SANITIZE_PYTHON:+-other}" -DCMAKE_BUILD_TYPE= \
  -DCMAKE_CXX_FLAGS="-O1 -D_GLIBCXX_ASSERTIONS" -DTYPED_SHAPES_SANITIZE=ON

# The runtimes come in front, and the interpreter's allocator hands every block to them. Leaks are looked
# for elsewhere, by counting references.
compiler=${CXX:-c++}
export LD_PRELOAD="$($compiler -print-file-name=libasan.so) $($compiler -print-file-name=libubsan.so) $($compiler -print-file-name=libstdc++.so)"
export PYTHONMALLOC=malloc TYPED_SHAPES_SANITIZED=1
exec "$python" -m pytest -p no:cacheprovider "$@"
