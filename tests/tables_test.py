"""Compares the exported tables of the library, as they are when it is loaded, with those written down in
tests/data/parameter_tables.txt: names, sizes and bytes. Arguments: source directory, library."""
import pathlib
import struct
import sys

NOBITS, DYNSYM = 8, 11
WIDTHS = {'u8': 1, 'u16': 2}


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


def written_tables(path):
    tables, width = {}, None
    for line in path.read_text().splitlines():
        words = line.split()
        if not words or words[0] == '#':
            continue
        if words[0] in ('table', 'values'):
            name, width = words[1], WIDTHS.get(words[-1])
            tables[name] = b''
        elif width is None:  # category, byte number, mask, data, and the padding
            tables[name] += struct.pack('<iiBBxx', *(int(word, 0) for word in words))
        else:
            tables[name] += b''.join(int(word, 0).to_bytes(width, 'little') for word in words)
    return tables


objects = dict(exported_objects(sys.argv[2]))
tables = written_tables(pathlib.Path(sys.argv[1], 'tests/data/parameter_tables.txt'))
errors = [f'{name}: {objects.get(name, b"is not exported").hex(" ")}, written down: {table.hex(" ")}'
          for name, table in tables.items() if objects.get(name) != table]
print('\n'.join(errors) or f'{len(tables)} tables, as written down')
sys.exit(bool(errors) or len(tables) != 51)
