"""Writes small Alembic archives in the Ogawa container, bottom up, for the tests of the command."""

import struct

EMPTY_DATA = 1 << 63
SCALAR, ARRAY = 1, 2
TYPES = {"uint8": (1, "B"), "int32": (6, "i"), "uint64": (7, "Q"), "int64": (8, "q"),
         "float32": (10, "f"), "float64": (11, "d")}


class Writer:
    def __init__(self):
        self.bytes = bytearray(b"Ogawa\xff\0\1" + bytes(8))
        self.blocks = {}

    def data(self, content):
        slot = len(self.bytes) | EMPTY_DATA
        self.bytes += struct.pack("<Q", len(content)) + content
        return slot

    def group(self, slots):
        slot = len(self.bytes)
        self.bytes += struct.pack(f"<{len(slots) + 1}Q", len(slots), *slots)
        return slot

    def sample(self, letter, values):
        """Equal samples are kept once, as by the format's own writers."""
        content = bytes(16) + struct.pack(f"<{len(values)}{letter}", *values) if values else b""
        if not content:
            return EMPTY_DATA
        if content not in self.blocks:
            self.blocks[content] = self.data(content)
        return self.blocks[content]


def write(path, properties, period=1 / 24, start=0.0):
    """One object, "/it", with properties of its own: (name, type, values an element, samples), and
    `claimed` after these for one sample that claims to be many. All share one uniform sampling."""
    out = Writer()
    headers, slots = b"", []
    for name, type_name, extent, samples, *claimed in properties:
        number, letter = TYPES[type_name]
        stored = samples[:1] if all(sample == samples[0] for sample in samples) else samples
        constant = len(stored) == 1
        slots.append(out.group([slot for sample in stored
                                for slot in (out.sample(letter, sample), EMPTY_DATA)]))
        info = ARRAY | 2 << 2 | number << 4 | extent << 12 | 0x100 | (0x800 if constant else 0)
        count = claimed[0] if claimed else len(samples)
        headers += struct.pack("<III", info, count, 1)
        headers += struct.pack("<I", len(name)) + name.encode()
    slots.append(out.data(headers))
    it = out.group([out.group(slots), out.data(bytes(32))])
    child = struct.pack("<I", 2) + b"it\xff" + struct.pack("<I", 0) + bytes(32)
    top = out.group([out.group([out.data(b"")]), it, out.data(child)])
    samplings = b"".join(struct.pack("<IdId", 1, one, 1, first)
                         for one, first in ((1.0, 0.0), (period, start)))
    root = out.group([out.data(bytes(4)), out.data(b"\x3c\x2a\0\0"), top, EMPTY_DATA,
                      out.data(samplings), EMPTY_DATA])
    out.bytes[8:16] = struct.pack("<Q", root)
    path.write_bytes(out.bytes)
    return path
