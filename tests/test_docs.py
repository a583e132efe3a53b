"""The examples in the documentation give the output that they show."""

from __future__ import annotations

import doctest
import re
from pathlib import Path

import pytest

ROOT = Path(__file__).parent.parent
RULES = ROOT / "docs" / "records" / "index.md"
PAGES = [ROOT / "README.md", *sorted(ROOT.glob("docs/**/*.md"))]
WITH_EXAMPLES = [page for page in PAGES if "\n>>> " in page.read_text()]


@pytest.mark.parametrize("page", WITH_EXAMPLES, ids=lambda page: f"{page.parent.name}/{page.name}")
def test_page(page: Path) -> None:
    # The pages of the records go on where that of their rules ends; all others stand alone.
    before = RULES.read_text() if page.parent == RULES.parent and page != RULES else ""
    text = re.sub("^```.*", "", before + page.read_text(), flags=re.M)
    test = doctest.DocTestParser().get_doctest(text, {}, page.name, str(page), 0)
    failed, attempted = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS).run(test)
    assert failed == 0
    assert attempted == text.count("\n>>> ")
