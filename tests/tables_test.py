"""Compares the exported tables of the library, as they are when it is loaded, with tests/data/tables.txt: the name, the
number of rows, the bytes of a row and the CRC-32 of all bytes of each. With --print it prints the lines anew from the
library instead; a new table begins as a line with its name, 0, and the bytes of its rows.
Arguments: source directory, library [--print]."""
import pathlib
import struct
import sys
import zlib

NOBITS, DYNSYM = 8, 11


def exported_objects(path):
    """Name and initial bytes of each symbol of a shared library, of 32 or 64 bits."""
    elf = pathlib.Path(path).read_bytes()
    is_64 = elf[4] == 2
    table, = struct.unpack_from('<Q' if is_64 else '<I', elf, 40 if is_64 else 32)
    size, count = struct.unpack_from('<HH', elf, 58 if is_64 else 46)
    # Fields: name, type, flags, address, offset, size, link, ...
    sections = [struct.unpack_from('<IIQQQQIIQQ' if is_64 else '<10I', elf, table + i * size) for i in range(count)]
    _, _, _, _, symbols, length, link, *_ = next(section for section in sections if section[1] == DYNSYM)
    for symbol in struct.iter_unpack('<IBBHQQ' if is_64 else '<IIIBBH', elf[symbols:symbols + length]):
        name, value, size, section = (symbol[i] for i in ((0, 4, 5, 3) if is_64 else (0, 1, 2, 5)))
        start = sections[link][4] + name
        text = elf[start:elf.index(b'\0', start)].decode()
        if 0 < section < len(sections):
            _, kind, _, address, offset, *_ = sections[section]
            offset += value - address
            yield text, bytes(size) if kind == NOBITS else elf[offset:offset + size]


objects = dict(exported_objects(sys.argv[2]))
written = pathlib.Path(sys.argv[1], 'tests/data/tables.txt').read_text().splitlines()
names = [(line.split()[0], int(line.split()[2])) for line in written]
lines = [f'{name} {len(objects.get(name, b"")) // size} {size} {zlib.crc32(objects.get(name, b"")):08x}'
         for name, size in names]
if '--print' in sys.argv:
    sys.exit(print('\n'.join(lines)))
print('\n'.join(f'{new}, written down: {old}' for old, new in zip(written, lines) if old != new)
      or f'{len(lines)} tables, as written down')
sys.exit(lines != written or len(lines) != 51)
