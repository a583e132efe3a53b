"""The binary of one minor version of CPython under another."""

import os
import sys
from pathlib import Path

import pytest
from quillmere.functions import _typed_shapes as ts
from support import run_alone

# A binary of 3.12 or 3.13 needs functions that 3.11 has not.
OTHER_PYTHONS = sorted(
    path
    for path in Path("build").glob("python3.1[23]/venv/bin/python")
    if path.parts[1] != "python{}.{}".format(*sys.version_info)
)

OTHER_VERSION = """
import importlib.machinery, pathlib, warnings, copy, pickle
sys.path.append(str(pathlib.Path(MODULE_FILE).parents[2]))
loader = importlib.machinery.ExtensionFileLoader(name, MODULE_FILE)
spec = importlib.util.spec_from_loader(name, loader)
with warnings.catch_warnings(record=True) as caught:
    warnings.simplefilter("always")
    ts = importlib.util.module_from_spec(spec)
    loader.exec_module(ts)
print([str(w.message) for w in caught if w.category is RuntimeWarning][0])
import numpy as np
node = ts.coerce_graph({"type": "rotation", "name": "rank", "children": [{"op": "x"}]})
assert node.children[0].node == "x" and copy.deepcopy(node).type == "rotation"
states = [{"a": [1, (2.5, None)], "b": np.array([1.0, np.nan])} for _ in range(2)]
assert ts.states_equal(*states) is True
assert ts.UniverseMasks({"a": np.ones(3, np.float16)}, 3).get("b") is None
assert pickle.loads(pickle.dumps(ts.WindowSpec(1, 5))) == ts.WindowSpec(1, 5)
stage = ts.StageData.from_mapping({"x": np.zeros((4, 2)), "n": {"y": np.ones(4)}, "o": 1})
assert stage.slice_t(1, 3).flat["x"].shape == (2, 2) and stage.has_value("o")
assert refusal(ts.WindowSpec, 1.5) == (
    "SchemaError: WindowSpec.minimum must be int or None; got float")
"""


@pytest.mark.parametrize("python", OTHER_PYTHONS, ids=lambda path: path.parts[1])
def test_another_minor_version_warns_and_works(python: Path) -> None:
    if os.environ.get("TYPED_SHAPES_SANITIZED"):
        pytest.skip("the sanitizer's runtime is preloaded for one interpreter")
    version = python.parts[1].removeprefix("python")
    assert run_alone(f"MODULE_FILE = {ts.__file__!r}{OTHER_VERSION}", python).strip() == (
        "compile time Python version {}.{} of module 'quillmere.functions._typed_shapes' "
        "does not match runtime version {}".format(*sys.version_info[:2], version)
    )
