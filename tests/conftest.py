"""The order of the tests: what takes long comes last, so that a fault shows within seconds."""

import pytest

LONG = ["agreement", "docs", "schemas", "threads", "drawing", "cli", "dask"]


def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    def place(item: pytest.Item) -> int:
        name = item.path.stem.removeprefix("test_")
        return LONG.index(name) + 1 if name in LONG else 0

    items.sort(key=place)
