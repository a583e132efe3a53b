#!/usr/bin/env bash
# Build the module with AddressSanitizer and UndefinedBehaviorSanitizer and run the tests on it.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/.venv/bin
build=$PWD/build/sanitize

"$bin/cmake" -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTYPED_SHAPES_SANITIZE=ON \
  -DTYPED_SHAPES_WERROR=ON -DPython_EXECUTABLE="$bin/python" -DCMAKE_MAKE_PROGRAM="$bin/ninja" \
  -DCMAKE_INSTALL_PREFIX="$build/site" >/dev/null
"$bin/cmake" --build "$build" --target install >/dev/null

# The interpreter is not instrumented: the runtimes come in front, and its allocator hands every block
# to them. Leaks are looked for elsewhere, by counting references.
compiler=${CXX:-c++}
export LD_PRELOAD="$($compiler -print-file-name=libasan.so) $($compiler -print-file-name=libubsan.so) $($compiler -print-file-name=libstdc++.so)"
export PYTHONMALLOC=malloc ASAN_OPTIONS=detect_leaks=0:handle_segv=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export PYTHONPATH="$build/site:$PWD/cli" TYPED_SHAPES_SANITIZED=1
exec "$bin/python" -m pytest -p no:cacheprovider "$@"
