#!/usr/bin/env bash
# Evolve calls from bytes (fuzz_bytes.py) by the coverage of the C++, under AddressSanitizer.
#   fuzz_bytes.sh              evolve the corpus for ten minutes; what is found stays in build/found
#   fuzz_bytes.sh <file> ...   run files once more, each alone
#   fuzz_bytes.sh -merge=1 <new folder> build/found   pick the smallest set with all the coverage
set -euo pipefail
cd "$(dirname "$0")/../.."
bin=$PWD/.venv/bin
build=$PWD/build/atheris
. scripts/build_for.sh
need clang

[ $# -gt 0 ] || set -- -max_total_time=600 build/found tests/harden/corpus

# The runtimes are not linked in: atheris has its own with libFuzzer inside, and that is preloaded.
build_for "$bin/python" atheris -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTYPED_SHAPES_WERROR=OFF \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY \
  -DCMAKE_CXX_FLAGS="-fsanitize=address,fuzzer-no-link -fno-omit-frame-pointer" \
  -DCMAKE_MODULE_LINKER_FLAGS=-fno-sanitize=all

mkdir -p build/found
preloaded=$("$bin/python" -c 'import atheris; print(atheris.path())')/asan_with_fuzzer.so
status=0
LD_PRELOAD=$preloaded PYTHONMALLOC=malloc \
  ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1:quarantine_size_mb=64 \
  "$bin/python" -m harden.fuzz_bytes -max_len=1000 -len_control=0 -timeout=60 -rss_limit_mb=4096 \
  -print_final_stats=1 -artifact_prefix="$build/" "$@" >"$build/log" 2>&1 || status=$?
[ $status = 0 ] || tail -n 60 "$build/log"
grep -hoE 'Seed: .*|Executed .*|[0-9]+ PCs' "$build/log" || true
last=$(grep -aoE '^#[0-9]+\s.*cov: [0-9]+ ft: [0-9]+ corp: [^ ]+' "$build/log" | tail -n 1 | tr -s '\t ' ' ') || true
echo "figures: ${last:-files run again}, exit status $status"
exit $status
