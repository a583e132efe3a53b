"""Runs the command: `typed-shapes`, or `python -m typed_shapes_cli`."""

import sys


def hidden() -> str:
    """Why the module is not found, although both come in one wheel."""
    import quillmere

    where = ", ".join(quillmere.__path__)
    return (
        "typed-shapes needs quillmere.functions._typed_shapes, "
        f"and the package in {where} hides it: "
        "put both into one folder, or pkgutil.extend_path into the package's __init__.py"
    )


def main() -> None:
    try:
        from typed_shapes_cli import app
    except ModuleNotFoundError as error:
        if (error.name or "").startswith("quillmere."):
            sys.exit(hidden())
        if error.name not in ("graphviz", "msgspec", "rich", "typer"):
            raise
        sys.exit("typed-shapes needs its extra: pip install 'quillmere-typed-shapes[cli]'")
    except KeyboardInterrupt:  # while the libraries load; the commands see to it themselves
        sys.exit(130)
    app.main()


if __name__ == "__main__":
    main()
