"""Reads the arrays of an .npz archive, each into one piece of memory and none beyond a limit."""

import math
import struct
import zipfile
from collections.abc import Callable
from io import BytesIO
from typing import IO, Any

import numpy as np

from typed_shapes_cli.outcomes import InputError, reason, too_large

CHUNK = 1 << 20
Tell = Callable[[int], None]
# The reader of the others expands a chunk of any size at once, which a limit cannot bound.
COMPRESSIONS = (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED)
HEADER_ENCODINGS = {(2, 0): "latin-1", (3, 0): "utf-8"}
LONGEST_HEADER = 10_000  # that of NumPy, which refuses longer ones as unsafe to parse


def read_arrays(stream: IO[bytes], max_bytes: int, tell: Tell) -> dict[str, Any]:
    """The members of an archive by name: arrays, or bytes where a member is not a .npy file."""
    try:
        with zipfile.ZipFile(stream) as archive:
            members = archive.infolist()
            if sum(member.file_size for member in members) > max_bytes:
                raise too_large(max_bytes)
            arrays: dict[str, Any] = {}
            for member in members:
                name = member.filename.removesuffix(".npy")
                if name in arrays:
                    raise InputError(f"holds two arrays named {name!r}")
                arrays[name] = _read_member(archive, member, tell)
            return arrays
    except InputError:
        raise
    except Exception as error:  # zipfile and NumPy let through what their parsers raise
        raise InputError(f"is not a readable .npz archive: {reason(error)}") from error


def read_up_to(stream: IO[bytes], size: int, tell: Tell) -> BytesIO:
    """What a stream holds, at most `size` bytes of it; memory grows with what is there only.

    `tell` hears now and then how much was read.
    """
    content = BytesIO()
    while chunk := stream.read(min(size - content.tell(), CHUNK)):
        content.write(chunk)
        tell(content.tell())
    content.seek(0)
    return content


def _read_member(archive: zipfile.ZipFile, member: zipfile.ZipInfo, tell: Tell) -> Any:
    if member.compress_type not in COMPRESSIONS:
        raise InputError(f"holds {member.filename!r} in a compression that NumPy does not write")
    with archive.open(member) as stream:
        start = stream.read(len(np.lib.format.MAGIC_PREFIX))
        stream.seek(0)
        if start != np.lib.format.MAGIC_PREFIX:
            return read_up_to(stream, member.file_size, tell).getvalue()
        try:
            shape, fortran_order, dtype = _read_header(stream)
        except Exception as error:  # NumPy evaluates a header as Python code, in several ways
            raise InputError(f"holds {member.filename!r}, whose header is not valid") from error
        if dtype.hasobject:
            raise InputError(f"holds pickled objects in {member.filename!r}; they are not loaded")
        cells = math.prod(shape)
        # Cells of no bytes count as well: without any content there could be billions of them.
        if cells * max(dtype.itemsize, 1) > member.file_size - stream.tell():
            raise InputError(f"holds {member.filename!r}, which is shorter than its header says")
        content = read_up_to(stream, cells * dtype.itemsize, tell).getbuffer()
        return np.ndarray(shape, dtype, content, order="F" if fortran_order else "C")


def _read_header(stream: IO[bytes]) -> tuple[tuple[int, ...], bool, np.dtype[Any]]:
    version = np.lib.format.read_magic(stream)
    if version == (1, 0):
        header = np.lib.format.read_array_header_1_0(stream)
    else:
        # NumPy has no public reader of version 3.0, which is 2.0 in UTF-8. A header is a Python
        # literal, where an escape means the same character.
        (length,) = struct.unpack("<I", stream.read(4))
        text = stream.read(min(length, LONGEST_HEADER)).decode(HEADER_ENCODINGS[version])
        ascii_text = text.encode("ascii", "backslashreplace")
        prefix = struct.pack("<I", len(ascii_text))
        header = np.lib.format.read_array_header_2_0(BytesIO(prefix + ascii_text))
    shape, _, dtype = header
    if dtype.subdtype is not None or any(type(length) is not int or length < 0 for length in shape):
        raise ValueError("a shape in the dtype, or lengths that are not numbers of cells")
    return header
