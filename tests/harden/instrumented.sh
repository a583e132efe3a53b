#!/usr/bin/env bash
# Run the suite on the instrumented interpreter with the module built under both sanitizers. Nothing is
# suppressed. A report or a failed assertion ends the process that made it, and is counted from its log
# wherever that process was.
set -euo pipefail
cd "$(dirname "$0")/../.."
tests/harden/instrumented_python.sh >&2
logs=$PWD/build/instrumented-logs
rm -rf "$logs" && mkdir -p "$logs"
export SANITIZE_PYTHON=$(tests/harden/instrumented_python.sh)
export ASAN_OPTIONS=log_path=$logs/report UBSAN_OPTIONS=log_path=$logs/report
status=0
scripts/sanitize.sh "$@" > >(tee "$logs/output") 2>&1 || status=$?
# A note that ASan knows little of stacks made by hand is none.
reports=$({ grep -lErs 'ERROR: |runtime error: ' "$logs" --include='report.*' || true; } | wc -l)
assertions=$(grep -c "Assertion .* failed\|_PyObject_AssertFailed\|Fatal Python error" "$logs/output" || true)
if [ "$reports" -gt 0 ]; then head -n 60 "$logs"/report.*; fi
summary=$(grep -E '^(figures:|[0-9]+ (passed|failed))|=== .*(passed|failed)' "$logs/output" || echo "no summary was printed")
figures=$(tail -n 1 <<<"$summary" | sed -E 's/^(figures: |=+ )//; s/ =+$//')
echo "figures: on the instrumented interpreter: $figures; $reports sanitizer reports, $assertions failed assertions"
[ "$status" -eq 0 ] && [ "$reports" -eq 0 ] && [ "$assertions" -eq 0 ]
