"""Find out which protections a finished module lacks, though CMakeLists.txt asks for them.

A compiler or a linker may ignore an option silently, so the stripped binary itself is read. It does
not show _FORTIFY_SOURCE: the module calls nothing that has a checked variant, and the option leaves
its bytes as they are.
"""

from __future__ import annotations

from collections.abc import Iterator
from io import BytesIO
from typing import TypeVar

from elftools.construct.lib.container import Container
from elftools.dwarf.callframe import CIE
from elftools.elf.constants import P_FLAGS
from elftools.elf.descriptions import describe_reloc_type
from elftools.elf.dynamic import DynamicSection
from elftools.elf.elffile import ELFFile
from elftools.elf.enums import ENUM_DT_FLAGS, ENUM_DT_FLAGS_1
from elftools.elf.relocation import RelocationSection
from elftools.elf.sections import Section, SymbolTableSection

# How every compiler for Linux writes the address of a personality routine into a frame's data: as
# the distance to a pointer, in four signed bytes (DW_EH_PE_indirect | pcrel | sdata4).
POINTER_NEARBY = 0x9B
PERSONALITIES = {"__gxx_personality_v0", "__gcc_personality_v0"}
AnySection = TypeVar("AnySection", bound=Section)


def section(module: ELFFile, name: str, kind: type[AnySection]) -> AnySection:
    found = module.get_section_by_name(name)
    if not isinstance(found, kind):
        raise ValueError(f"no usable section {name}")
    return found


def imports(module: ELFFile) -> set[str]:
    symbols = section(module, ".dynsym", SymbolTableSection).iter_symbols()
    return {symbol.name for symbol in symbols if symbol["st_shndx"] == "SHN_UNDEF"}


def is_bound_at_load(module: ELFFile) -> bool:
    tags = section(module, ".dynamic", DynamicSection).iter_tags()
    values = {tag["d_tag"]: tag["d_val"] for tag in tags}
    now, now_1 = ENUM_DT_FLAGS["DF_BIND_NOW"], ENUM_DT_FLAGS_1["DF_1_NOW"]
    return bool(values.get("DT_FLAGS", 0) & now or values.get("DT_FLAGS_1", 0) & now_1)


def has_plain_stack(module: ELFFile) -> bool:
    """Whether the stack is not executable; it is where no segment says otherwise."""
    stacks = list(module.iter_segments("PT_GNU_STACK"))
    return bool(stacks) and not any(stack["p_flags"] & P_FLAGS.PF_X for stack in stacks)


def personality_pointers(module: ELFFile) -> Iterator[int | None]:
    """For each kind of frame with a personality routine, the address of the pointer to it."""
    frames = section(module, ".eh_frame", Section)
    for entry in module.get_dwarf_info().EH_CFI_entries():
        if not isinstance(entry, CIE):
            continue
        routine = entry.augmentation_dict.get("personality")
        if isinstance(routine, Container):
            # The augmentation data begin with the encoding, one byte, and that distance.
            place = frames.data().index(entry.augmentation_bytes or b"", entry.offset) + 1
            is_known = routine["encoding"] == POINTER_NEARBY
            yield frames["sh_addr"] + place + routine["function"] if is_known else None


def has_stand_ins(module: ELFFile) -> bool:
    """Whether the linker put the routines of ended_threads.cpp in the places of the libraries'.

    Then each pointer is to code of the module, and relocated without a symbol; and the libraries'
    routines are not code of the module, as they would be after static linking.
    """
    code = [part for part in module.iter_segments("PT_LOAD") if part["p_flags"] & P_FLAGS.PF_X]
    entries = section(module, ".rela.dyn", RelocationSection).iter_relocations()
    relocations = {entry["r_offset"]: entry for entry in entries}

    def is_to_own_code(pointer: int | None) -> bool:
        entry = relocations.get(pointer)
        if entry is None:
            return False
        kind, target = describe_reloc_type(entry["r_info_type"], module), entry["r_addend"]
        inside = any(0 <= target - part["p_vaddr"] < part["p_memsz"] for part in code)
        return inside and kind.endswith("_RELATIVE")

    pointers = list(personality_pointers(module))
    return bool(pointers) and all(map(is_to_own_code, pointers)) and imports(module) > PERSONALITIES


def gaps(content: bytes) -> list[str]:
    module = ELFFile(BytesIO(content))
    protections = {
        "functions bound when it loads (-z now)": is_bound_at_load(module),
        "read-only relocations (-z relro)": any(module.iter_segments("PT_GNU_RELRO")),
        "a stack without code (-z noexecstack)": has_plain_stack(module),
        "stack checks (-fstack-protector-strong)": "__stack_chk_fail" in imports(module),
        "the stand-ins of ended_threads.cpp (--wrap)": has_stand_ins(module),
    }
    return [name for name, present in protections.items() if not present]
