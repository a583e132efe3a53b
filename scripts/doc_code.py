"""Write the code that the documentation shows into modules, for the type checkers to read."""

from __future__ import annotations

import doctest
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TARGET = ROOT / "build" / "doc_code"
# The pages that show how the records are used; others misuse them to show what is refused.
NAMES = ["index", "quickstart", "typing", "writing_back", "reading_records", "why"]
PAGES = ["README.md", "PACKAGE.md", *(f"docs/{name}.md" for name in NAMES)]
BLOCK = re.compile(r"^```python\n(.*?)^```", re.MULTILINE | re.DOTALL)


def code_of(block: str) -> str:
    """The statements of an interactive session, or the block itself."""
    examples = doctest.DocTestParser().get_examples(block)
    return "".join(example.source for example in examples) or block


def main() -> None:
    TARGET.mkdir(parents=True, exist_ok=True)
    for page in map(ROOT.joinpath, PAGES):
        code = "\n".join(map(code_of, BLOCK.findall(page.read_text())))
        if code:
            (TARGET / f"{page.stem.lower()}.py").write_text(code)
    sys.stdout.write(f"{TARGET.relative_to(ROOT)}\n")


if __name__ == "__main__":
    main()
