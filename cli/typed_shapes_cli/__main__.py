"""Runs the command: `typed-shapes`, or `python -m typed_shapes_cli`."""

import sys


def main() -> None:
    try:
        from typed_shapes_cli import app
    except ModuleNotFoundError as error:
        if error.name not in ("rich", "typer"):
            raise
        sys.exit("typed-shapes needs its extra: pip install 'quillmere-typed-shapes[cli]'")
    app.main()


if __name__ == "__main__":
    main()
