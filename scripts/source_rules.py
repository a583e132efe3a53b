"""Check the C++ sources against the rules that keep the interpreter alive:
1. Every function of the interpreter's or NumPy's API that is called stands in source_rules.toml.
2. A new reference goes to an owner at once; a status is checked, compared or returned.
3. Borrowed references, dropped errors and references counted by hand stay in the places listed
   there, each with its reason. The error of a borrowed look-up is asked for in the same function.
4. No function reaches itself without a RecursionLevel on the way.
5. No two arguments of a call can run Python code: C++ evaluates them in any order.
6. What is known of one minor version of the interpreter stands in interpreter*.h and .cpp.

The sources are read as text: a tool formats them, and a lambda counts as part of the function that
it stands in, which a compiler's tree hides. Calls through the interpreter are not followed.
"""

import re
import sys
import tomllib
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent
TABLES = tomllib.loads((HERE / "source_rules.toml").read_text())
KINDS = {kind: re.compile("|".join(names.split())) for kind, names in TABLES["kinds"].items()}
RUNS_CODE = re.compile("|".join(TABLES["order"]["runs"].split()))
ALLOWED = {(place, rule) for rule, places in TABLES["places"].items() for place in places}
OWNERS = {"own", "own_attribute", "steal", "PyErr_Restore", "PyErr_SetRaisedException"}
OWNERS |= {"PyTuple_SET_ITEM", "PyList_SET_ITEM"}
CALL = re.compile(r"\b(_import_array|_?Py[A-Z]?\w*_\w+|tp_\w+)\s*\(")
VERSIONED = re.compile(rf"\b({'|'.join(TABLES['versions']['names'].split())})\b")
NO_TEXT = r"""//[^\n]*|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+'"""
NO_CODE = NO_TEXT + r"|^\#(?:\\\n|[^\n])*"


@dataclass(eq=False)
class Function:
    file: str
    name: str
    start: int
    text: str = ""
    is_method: bool = False
    is_local: bool = False  # to its file


def functions(file: str, text: str) -> Iterator[Function]:
    """Every function that the file defines, with its head; then what stands outside of them."""
    scopes: list[str] = []
    rest, start, function = text, 0, None
    for match in re.finditer(r"[{};]", text):
        head, end = text[start : match.start()], match.end()
        if match[0] == "{":
            called = re.search(r"(operator\W+|\w+)\s*\(", head)
            scope = re.search(r"\b(namespace|class|struct|enum|union)\b\s*(\w*)", head)
            if "body" not in scopes and called:
                in_class = any(not name.startswith("namespace") for name in scopes)
                is_method = in_class or f"::{called[1]}(" in head
                function = Function(file, called[1], start, "", is_method, "namespace " in scopes)
            is_scope = scope and not called and "body" not in scopes
            scopes.append(" ".join(scope.groups()) if scope and is_scope else "body")
        elif match[0] == "}" and scopes.pop() == "body" and "body" not in scopes and function:
            function.text = text[start:end]
            rest = rest[:start] + re.sub(r"\S", " ", function.text) + rest[end:]
            yield function
            function = None
        if "body" not in scopes:
            start = end
    yield Function(file, "", 0, rest)


def bracket(text: str, at: int, step: int = 1, pair: str = "()") -> int:
    """Where the bracket that opens here closes; with step -1, where the one around opens."""
    depth = 0
    while 0 <= at < len(text):
        depth += (text[at] == pair[0]) - (text[at] == pair[1])
        if depth == (step < 0):
            break
        at += step
    return at


def misuse(function: Function, call: re.Match[str]) -> tuple[str, str] | None:
    """The rule that a call of the API breaks unless its place is allowed to, and how."""
    name, text, before = call[1], function.text, function.text[: call.start()]
    kind = next((kind for kind, names in KINDS.items() if names.fullmatch(name)), None)
    owner = re.split(r"\W+", text[: max(bracket(text, call.start() - 1, -1), 0)].rstrip())[-1]
    returned = re.search(r"\breturn\s+([^;{}(]*[?:]\s*)?$", before)
    compared = re.match(r"\)\s*([=!]=|<|>)", text[bracket(text, call.end() - 1) :])
    if kind is None:
        return name, f"{name} does not stand in source_rules.toml"
    if kind == "new" and owner not in OWNERS and not returned:
        return name, f"the new reference of {name} has no owner"
    if kind == "status" and not (returned or compared or owner == "check"):
        return name, f"the status of {name} is not looked at"
    if kind in ("borrowed", "restricted"):
        unasked = name == "PyDict_GetItemWithError" and "check_indicator()" not in text
        return name + " unasked" * unasked, f"{name} may not stand here"
    return None


def called(found: list[Function], file: str, text: str) -> Iterator[Function]:
    """The functions of the sources that a text of a file calls or names."""
    for before, name, after in re.findall(r"(\.|->|\w+::)?\b(\w+)\s*([(,)])", text):
        named = [f for f in found if f.name == name]
        here = [f for f in named if f.file == file]
        others = [f for f in named if f.file != file and not f.is_local]
        if before in (".", "->"):
            yield from (f for f in here + others if f.is_method and "static" not in f.text)
        elif before and before != "typed_shapes::":
            yield from [f for f in named if f.file.startswith(before[:-2] + ".")] or others
        elif here and not before:
            yield from here
        elif after == "(":
            yield from (f for f in others if not f.is_method)


def body_of(function: Function) -> str:
    return function.text[function.text.index("(") :]


def recursions(found: list[Function]) -> Iterator[tuple[Function, str]]:
    """The functions that reach themselves without a guard, with the way."""

    def unguarded(function: Function) -> str:
        body = body_of(function)
        while guard := re.search(r"\bRecursionLevel \w+;", body):  # holds to the end of its block
            rest = "{" + body[guard.end() :]
            body = body[: guard.start()] + rest[bracket(rest, 0, 1, "{}") :]
        return body

    edges = {function: [*called(found, function.file, unguarded(function))] for function in found}
    for function in found:
        seen, ways = set(), [(f, f.name) for f in edges[function]]
        while ways and function not in seen:
            at, way = ways.pop()
            if at is function:
                yield function, way
            if at not in seen:
                seen.add(at)
                ways += [(f, f"{way} > {f.name}") for f in edges[at]]


def arguments(text: str, at: int) -> list[str]:
    """The arguments of the call whose bracket opens here, without the bodies of lambdas."""
    inside = text[at + 1 : bracket(text, at)]
    while head := re.search(r"\[[^][]*\]\s*(\([^()]*\)\s*)?(mutable\s*|-> \w+\s*)?\{", inside):
        end = bracket(inside, head.end() - 1, 1, "{}") + 1
        inside = inside[: head.start()] + " " * (end - head.start()) + inside[end:]
    found, depth, start = list[str](), 0, 0
    for i, c in enumerate(inside + ","):
        depth += (c in "({[") - (c in ")}]")
        if c == "," and depth == 0:
            found.append(inside[start:i])
            start = i + 1
    return found


def unordered(found: list[Function]) -> Iterator[tuple[Function, int, str]]:
    """The calls of which two arguments can run Python code."""
    calls = {f: {*called(found, f.file, body_of(f))} for f in found}
    runs = {f for f in found if RUNS_CODE.search(f.text)}
    while more := {f for f in found if f not in runs and calls[f] & runs}:
        runs |= more

    def can_run(function: Function, argument: str) -> bool:
        api = re.search(rf"\b({RUNS_CODE.pattern})\s*\(", argument)
        names = [f"{f}(" for f in re.findall(r"((?:\.|->|\w+::)?\w+)\s*\(", argument)]
        return bool(api) or any(f in runs for f in called(found, function.file, " ".join(names)))

    for function in found:
        for call in re.finditer(r"\b(\w+)\s*\(", body_of(function)):
            given = arguments(body_of(function), call.end() - 1)
            if sum(can_run(function, argument) for argument in given) > 1:
                at = function.text.index("(") + call.start()
                yield function, at, f"arguments of {call[1]} run Python code in any order"


def versioned(file: str, text: str) -> Iterator[tuple[Function, int, str, str]]:
    """Where a file that is not of the seam to the interpreter knows its version."""
    if not file.startswith("interpreter"):
        for name in VERSIONED.finditer(text):
            report = f"{name[0]} may stand in interpreter*.h and .cpp only"
            yield Function(file, "", 0), name.start(), "version", report


def main() -> int:
    root = Path(sys.argv[1]) if len(sys.argv) > 1 else HERE.parent
    paths = {path.name: path for path in sorted((root / "src").glob("*/*.*"))}
    found: list[Function] = []
    broken: list[tuple[Function, int, str, str]] = []
    for name, path in paths.items():
        text, code = (
            re.sub(blank, lambda m: re.sub(r"\S", " ", m[0]), path.read_text(), flags=re.M)
            for blank in (NO_TEXT, NO_CODE)
        )
        broken += versioned(name, text)
        found += functions(name, code)
    calls = [(function, call) for function in found for call in CALL.finditer(function.text)]
    broken += [(f, call.start(), *rule) for f, call in calls if (rule := misuse(f, call))]
    for f, way in recursions([function for function in found if function.name]):
        broken.append((f, f.text.index("("), "recursion", f"{f.name} reaches itself: {way}"))
    for f, at, text in unordered([function for function in found if function.name]):
        broken.append((f, at, "order", text))
    unused = ALLOWED - {(f"{f.file}:{f.name}", rule) for f, _, rule, _ in broken}
    findings = [e for e in broken if (f"{e[0].file}:{e[0].name}", e[2]) not in ALLOWED]
    for f, at, _, text in findings:
        line = paths[f.file].read_text().count("\n", 0, f.start + at) + 1
        print(f"{paths[f.file].relative_to(root)}:{line}: {text}")
    for place, rule in sorted(unused):
        print(f"scripts/source_rules.toml: {place} does nothing that {rule} would allow")
    bad, real = len(findings) + len(unused), len(found) - len(paths)
    print(f"source rules: {len(calls)} API calls in {real} functions, {bad} findings")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
