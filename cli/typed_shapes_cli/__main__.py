"""Runs the command: `typed-shapes`, or `python -m typed_shapes_cli`."""

import sys


def main() -> None:
    try:
        from typed_shapes_cli import app
    except ModuleNotFoundError as error:
        if error.name not in ("graphviz", "msgspec", "rich", "typer"):
            raise
        sys.exit("typed-shapes needs its extra: pip install 'quillmere-typed-shapes[cli]'")
    except KeyboardInterrupt:  # while the libraries load; the commands see to it themselves
        sys.exit(130)
    app.main()


if __name__ == "__main__":
    main()
