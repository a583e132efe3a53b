"""Print the sizes of code and tests, in lines."""

from __future__ import annotations

from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
GROUPS = {
    "product": ["src/*/*.cpp", "src/*/*.h", "cli/*/*.py", "functions/*.pyi"],
    "tools, examples": ["scripts/*", "examples/*.py", "docs/conf.py"],
    "benchmarks": ["benchmarks/*.py"],
    "build, settings": ["Makefile", "CMakeLists.txt", "pyproject.toml", ".clang-*", ".ci/run"],
    "tests": ["tests/*.py"],
    "harness": ["tests/harden/*.*"],
    "reference": ["reference/*.py"],  # counts on neither side
}


def count(pattern: str) -> int:
    return sum(len(path.read_text().splitlines()) for path in ROOT.glob(pattern) if path.is_file())


def main() -> None:
    sizes = {group: sum(map(count, patterns)) for group, patterns in GROUPS.items()}
    for group, size in sizes.items():
        print(f"{group:22}{size:6} lines")
    tests = sizes.pop("tests") + sizes.pop("harness")
    del sizes["reference"]
    print(f"tests / the rest      {tests / sum(sizes.values()):6.2f}")


if __name__ == "__main__":
    main()
