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
  --ignore=tests/test_cli.py --ignore=tests/test_module.py \
  -k 'not depth and not million' "$@" | tee build/valgrind/output || status=$?
"$python" - "$report" "$(tail -n 1 build/valgrind/output)" "$status" <<'PYTHON'
import sys
import xml.etree.ElementTree as tree

reports = {"ours": [], "others'": []}
for error in tree.parse(sys.argv[1]).iter("error"):
    text = error.findtext("what") or error.findtext("xwhat/text")
    frames = [(f.findtext("fn"), f.findtext("obj", "")) for f in error.iter("frame")]
    whose = "ours" if any("_typed_shapes" in obj for _, obj in frames) else "others'"
    reports[whose].append((error.findtext("kind"), text, [fn for fn, _ in frames[:25]]))
for kind, text, functions in reports["ours"]:
    print(kind, text, *functions, sep="\n    ")
counts = [
    f"{sum(leak == kind.startswith('Leak_') for kind, *_ in found)} {whose} among the {what}"
    for leak, what in ((False, "errors"), (True, "definite leaks"))
    for whose, found in reports.items()
]
print("figures:", sys.argv[2], "under memcheck;", ", ".join(counts))
sys.exit(bool(reports["ours"]) or int(sys.argv[3]))
PYTHON
