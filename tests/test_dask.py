"""The example for a Dask cluster: its batches, and that a lost worker costs nothing but time.

It runs in processes of its own: the threads and messages of a cluster meet no other test.
"""

import contextlib
import importlib.util
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import pytest

EXAMPLE = Path(__file__).resolve().parent.parent / "examples" / "batches_on_dask.py"
FOLDER = EXAMPLE.parent.parent / "build" / "dask"  # else Dask writes beside the clone
PATH = f"{EXAMPLE.parent}{os.pathsep}{os.environ.get('PYTHONPATH', '')}".rstrip(os.pathsep)
pytestmark = pytest.mark.skipif(
    importlib.util.find_spec("distributed") is None or "TYPED_SHAPES_SANITIZED" in os.environ,
    reason="needs Dask, and workers that load no sanitizer",
)
BATCHES = """
import batches_on_dask as example
from quillmere.functions._typed_shapes import states_equal

def joined(cut):
    return example.join([example.aggregate(*batch) for batch in cut]).by_dotted_key

stage = example.make_stage(90, 7)
whole = example.aggregate(stage, 0).by_dotted_key
for count in (1, 2, 3, 11, 90):
    assert states_equal(joined(example.cut(stage, count)), whole), count
first, second, third = example.cut(stage, 3)
assert not states_equal(joined([first, third, second]), whole)
without_lead = [(batch.slice_t(lead, None), 0) for batch, lead in (first, second, third)]
assert not states_equal(joined(without_lead), whole)
"""


def anything_left(group: int) -> bool:
    with contextlib.suppress(ProcessLookupError):
        return os.killpg(group, 0) is None
    return False


def run(*words: str) -> str:
    """Run Python in a process group of its own, and see that it leaves no process behind."""
    env = {**os.environ, "PYTHONPATH": PATH, "DASK_TEMPORARY_DIRECTORY": f"{FOLDER}"}
    with tempfile.TemporaryFile("w+") as log:  # a pipe stays open as long as anything is left
        command = [sys.executable, *words]
        child = subprocess.Popen(command, env=env, stdout=log, stderr=log, start_new_session=True)
        try:
            child.wait(timeout=150)
            until = time.monotonic() + 20
            while (left := anything_left(child.pid)) and time.monotonic() < until:
                time.sleep(0.05)
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(child.pid, signal.SIGKILL)
        log.seek(0)
        output = log.read()
    assert (child.returncode, left) == (0, False), output
    return output


def test_batches_join_to_the_whole() -> None:
    run("-W", "error", "-c", BATCHES)


def test_the_result_arrives_whole_though_a_worker_is_killed() -> None:
    words = "--workers 2 --batches 12 --rows 3000 --lose-a-worker".split()
    output = run(str(EXAMPLE), *words).splitlines()
    assert any(line.startswith("killed ") for line in output), output
    assert output[-1] == "equal", output
