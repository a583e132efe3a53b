#!/usr/bin/env bash
# Run the tests under valgrind's memcheck, undefined values included, on Debian's interpreter. Left out:
# what starts other processes, and searches, depth and size that only take time. The verdict is over
# reports with a frame of ours in any of their stacks. Nothing is suppressed; those of others are counted.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/build_for.sh
python=/usr/bin/python3.11
need valgrind python3.11 python3.11-dev
build_for "$python" valgrind -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-O1 -g"

export PYTHONMALLOC=malloc TYPED_SHAPES_CASES=${TYPED_SHAPES_CASES:-400}
report=$PWD/build/valgrind/report.xml
status=0
valgrind --quiet --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite \
  --num-callers=40 --xml=yes --xml-file="$report" "$python" -m pytest -q -p no:cacheprovider \
  --ignore=tests/test_cli.py --ignore=tests/test_module.py --ignore=tests/test_versions.py --ignore=tests/test_threads.py \
  -k 'not depth and not million' "$@" | tee build/valgrind/output || status=$?
"$python" - "$report" "$(tail -n 1 build/valgrind/output)" "$status" <<'PYTHON'
import sys
import xml.etree.ElementTree as tree

errors = [*tree.parse(sys.argv[1]).iter("error")]
ours = [e for e in errors if any("_typed_shapes" in f.findtext("obj", "") for f in e.iter("frame"))]
leaks = [e for e in ours if e.findtext("kind", "").startswith("Leak_")]
print(*(tree.tostring(error, "unicode") for error in ours), sep="\n")
print(f"figures: {sys.argv[2]} under memcheck; {len(ours) - len(leaks)} errors and {len(leaks)} definite leaks "
      f"of ours, {len(errors) - len(ours)} errors of others")
sys.exit(bool(ours) or int(sys.argv[3]))
PYTHON
