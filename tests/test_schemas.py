"""The JSON Schemas and `check --strict` against what the library makes of generated payloads."""

import copy
import importlib.util
import json
import random
from collections.abc import Iterator
from typing import Any

import pytest
from jsonschema import Draft202012Validator
from test_cli import FITTING, kind_of, run
from typed_shapes_cli.misfits import SHAPES, format_path, misfit_path
from typed_shapes_cli.strictness import findings, schema_text

PAYLOADS: dict[str, list[Any]] = {}
for file in FITTING:
    if file.suffix != ".npz":
        texts = [file.read_text()] if file.suffix == ".json" else file.read_text().splitlines()
        short = [json.loads(text) for text in texts if len(text) < 1500]
        PAYLOADS.setdefault(kind_of(file), []).extend(short)
NAMES = """type op node name function_name children args config params canonical_id family value min
max default minimum window variadic signals nodes epochs schema_version extra""".split()
VALUES = [None, True, 0, 7, 0.5, "", "feature", "expression", "rank", "signal", [], ["a"], [[1, 2]]]
VALUES += [{}, {"type": "rank"}, {"op": "x"}, {"max": 5}]
OTHERS = {  # other values of the same type
    str: lambda value: [value + "!", "signal"],
    int: lambda value: [value + 1],
    list: lambda value: [[*value, {"type": "!"}]],
    dict: lambda value: [{**value, "!": {"type": "!"}}],
}


def holders(payload: Any, path: tuple[Any, ...] = ()) -> Iterator[tuple[tuple[Any, ...], Any]]:
    if isinstance(payload, dict | list):
        yield path, payload
        for step, part in payload.items() if isinstance(payload, dict) else enumerate(payload):
            yield from holders(part, (*path, step))


def edited(rng: random.Random, payload: Any) -> Any:
    """The payload after a few edits anywhere in it, most of keys that mean something."""
    payload = copy.deepcopy(payload)
    for _ in range(rng.randrange(5)):
        found = [holder for _, holder in holders(payload)]
        if not found or rng.random() < 0.02:
            return rng.choice(VALUES)
        value, holder = copy.deepcopy(rng.choice([*VALUES, *found])), rng.choice(found)
        if isinstance(holder, dict):
            holder[rng.choice(NAMES)] = value
        else:
            holder.insert(0, value)
        if rng.random() < 0.3:
            holder.pop(rng.choice([*holder]) if isinstance(holder, dict) else -1)
    return payload


def record_of(kind: str, payload: Any) -> str | None:
    try:
        return repr(SHAPES[kind].coercion(payload, None)(payload))
    except (ValueError, TypeError):
        return None


def is_read(kind: str, path: tuple[Any, ...]) -> bool:
    """Whether what stands there has keys that the library looks for."""
    if kind == "graph":
        return all(isinstance(step, int) or step in ("children", "args") for step in path)
    return len(path) == {"window": 0, "checkpoint": 0, "params": 1}.get(kind, -1)


@pytest.mark.parametrize("kind", PAYLOADS)
def test_a_schema_refuses_what_the_library_refuses_or_passes_over(kind: str) -> None:
    rng, schema = random.Random(kind), json.loads(schema_text(kind))
    Draft202012Validator.check_schema(schema)
    for _ in range(400):
        payload = edited(rng, rng.choice([*PAYLOADS[kind], {"op": "x"}]))
        record, found = record_of(kind, payload), findings(kind, payload, json.dumps(payload), 1)
        assert Draft202012Validator(schema).is_valid(payload) is not bool(found), payload
        assert record or found, payload
        assert record is None or misfit_path(kind, payload) == ()
        told = {finding.at: finding.text for finding in reversed(found)}
        for path, holder in [*holders(payload)] if record else ():
            ways = {format_path(path[:end]) for end in range(1, len(path) + 1)}
            for key in [*holder] if isinstance(holder, dict) and not ways & told.keys() else ():
                text, value = told.get(format_path((*path, key)), ""), holder[key]
                if text.startswith(("is not read", "is emptied")):
                    holder[key] = None if "read" in text else {}
                    assert record_of(kind, payload) == record, payload
                elif not text and is_read(kind, path) and type(value) in OTHERS:
                    records = set()
                    for holder[key] in OTHERS[type(value)](value):
                        records.add(record_of(kind, payload))
                    assert records != {record}, (payload, key)
                holder[key] = value


def test_strict_names_file_line_and_path(tmp_path: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    (file := tmp_path / "window.json").write_text('{"a": [\n1], "a": 2,\n "maximum": 5\n}')
    code, output = run("check", "--strict", "--as", "window", file)
    assert code == 1 and f"{file}:2: a is given more than once" in output
    assert f"{file}:3: maximum is not read; did you mean 'max'?\n" in output
    file.write_text('{"type": "list",\n "children": [{"op": "x\\"}"},\n  5]}')
    assert f"{file}:3: FunctionGraphNode JSON" in run("check", "--strict", "--as=graph", file)[1]
    (file := tmp_path / "a.jsonl").write_text('1\n{"min": 1, "mni": 2}\n')
    assert f"{file}:2: mni is not" in run("check", "--strict", "--as", "window", file)[1]
    chain = '{"type": "list", "children": [' * 400 + '{"type": "int", "family": 5}' + "]}" * 400
    (file := tmp_path / "deep.json").write_text(chain)
    assert (
        "].family should be string or null; got number"
        in run("check", "--strict", "--as=graph", file)[1]
    )
    assert "payloads of kind masks are arrays" in run("check", "--strict", "--as=masks", "x")[1]
    assert json.loads(run("schema", "--as", "graph")[1])["title"] == "Function graph"
    monkeypatch.setattr(importlib.util, "find_spec", lambda name: None)
    assert (
        "pip install 'quillmere-typed-shapes[cli,strict]'"
        in run("check", "--strict", "--as=window", "x")[1]
    )
