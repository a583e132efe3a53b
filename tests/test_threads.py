"""Stacks of all sizes and threads that end, each in a process of its own."""

import os

import pytest
from support import run_alone

SCRIPTS = {
    "a_stack_that_the_thread_library_does_not_know": """
import ctypes
import quillmere.functions._typed_shapes as ts
results = []
@ctypes.CFUNCTYPE(None)
def entry():
    results.append(ts.coerce_state([1]))
outside, inside = ctypes.create_string_buffer(4096), ctypes.create_string_buffer(4096)
stack = ctypes.create_string_buffer(2**20)
library = ctypes.PyDLL(None)
library.getcontext(inside)
# uc_link, uc_stack.ss_sp, uc_stack.ss_size
address = ctypes.addressof
for at, word in (8, address(outside)), (16, address(stack)), (32, len(stack)):
    ctypes.c_size_t.from_buffer(inside, at).value = word
library.makecontext(inside, entry, 0)
library.swapcontext(outside, inside)
assert results == [ts.coerce_state([1])]
""",
    "a_flat_payload_on_the_smallest_stacks": """
import threading
sys.path.insert(0, "tests")
from support import both_paths, ts
graph = {"op": "x", "children": [{"type": "feature", "name": str(i)} for i in range(99)]}
for size in (64, 96, 128):
    threading.stack_size(size * 1024)
    results = []
    thread = threading.Thread(target=lambda: results.extend(
        both_paths(lambda: (ts.coerce_graph, graph))))
    thread.start()
    thread.join()
    assert [result[0][0] for result in results] == ["returns"] * 2, (size, results)
""",
    "a_stack_that_ends_at_another_mapping": """
import ctypes, os, resource
# Without randomisation there are 128 MiB below the main thread's stack.
if ctypes.CDLL(None).personality(0x40000) == 0 and not os.environ.get("AGAIN"):
    os.environ["AGAIN"] = "yes"
    os.execv(sys.executable, sys.orig_argv)
import quillmere.functions._typed_shapes as ts
most = resource.getrlimit(resource.RLIMIT_STACK)[1]
resource.setrlimit(resource.RLIMIT_STACK, (most, most))
sys.setrecursionlimit(10**6)
node = {"op": "x"}
for _ in range(400_000):
    node = {"op": "x", "children": [node]}
assert "RecursionError" in refusal(ts.coerce_graph, node)
""",
    "daemon_threads_in_our_middle_when_the_interpreter_shuts_down": """
import threading, time
import quillmere.functions._typed_shapes as ts
class Slow:
    def slow(self, *_):
        time.sleep(0.001)
        return NotImplemented if _ else "slow"
    __hash__, __eq__, __str__, __repr__, __del__ = object.__hash__, slow, slow, slow, slow
calls = [
    lambda: ts.states_equal([[Slow()]], [[Slow()]]),
    lambda: ts.coerce_state({"a": {Slow(): 1}}),
    lambda: ts.coerce_graph({"type": "rank", "children": [{"type": Slow()}]}),
    lambda: ts.CostResult({"a": Slow()}),
]
def work(call):
    while True:
        refusal(call)
for call in calls * 3:
    threading.Thread(target=work, args=(call,), daemon=True).start()
time.sleep(0.05)
""",
}


@pytest.mark.parametrize("name", SCRIPTS)
def test_in_a_process_of_its_own(name: str) -> None:
    if "TYPED_SHAPES_SANITIZED" in os.environ and name.endswith(("smallest_stacks", "mapping")):
        pytest.skip("the sanitizer takes more stack, and keeps to the first limits of one")
    run_alone(SCRIPTS[name])
