"""Runs the command as `python -m typed_shapes_cli`."""

from typed_shapes_cli.app import main

if __name__ == "__main__":
    main()
