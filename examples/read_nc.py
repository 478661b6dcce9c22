"""Reads an NC cache by docs/nc-format.md alone, with nothing but Python's standard library.

    read_nc.py FOLDER BASE

prints one line per sample: channel number, tick, elements and the array's bytes in hex. Checksums
are not looked at.
"""

import os
import struct
import sys
import xml.etree.ElementTree

ELEMENT_SIZE = {2: 8, 3: 24, 4: 4, 5: 4, 6: 12}
TYPE_NUMBER = {
    "Unknown": 0,
    "Double": 1,
    "DoubleArray": 2,
    "DoubleVectorArray": 3,
    "Int32Array": 4,
    "FloatArray": 5,
    "FloatVectorArray": 6,
}


def expand_times(text):
    times = []
    for word in (text or "").split():
        numbers = [int(number) for number in word.split(":")]
        start, step, count = numbers if len(numbers) == 3 else (numbers[0], 0, 1)
        times.extend(start + step * i for i in range(count))
    return times


def decode_plane(data, position, count):
    """One byte plane of a block: its values and the position behind it."""
    groups = (count + 15) // 16
    header = data[position : position + (groups + 3) // 4]
    position += len(header)
    values = []
    for group in range(groups):
        mode = header[group // 4] >> (group % 4 * 2) & 3
        if mode == 0:
            values += [0] * 16
        elif mode == 3:
            values += data[position : position + 16]
            position += 16
        else:
            bits = 2 * mode
            packed = data[position : position + 2 * bits]
            position += len(packed)
            escape = (1 << bits) - 1
            for byte in packed:
                for shift in range(8 - bits, -1, -bits):
                    value = byte >> shift & escape
                    if value == escape:
                        value = data[position]
                        position += 1
                    values.append(value)
    return values[:count], position


def decode_array(data, count, stride):
    assert data[0] == 0xA0
    previous = list(data[len(data) - stride :])
    block_size = min(256, 8192 // stride // 16 * 16)
    out = bytearray(count * stride)
    position = 1
    for start in range(0, count, block_size):
        size = min(block_size, count - start)
        for plane in range(stride):
            values, position = decode_plane(data, position, size)
            byte = previous[plane]
            for i, value in enumerate(values):
                byte = byte + ((value >> 1) ^ -(value & 1)) & 255
                out[(start + i) * stride + plane] = byte
            previous[plane] = byte
    assert len(data) - position == max(32, stride)
    return bytes(out)


def unpack_bits(data, position, width, count):
    """So many numbers of `width` bits each, and the position behind them."""
    size = (count * width + 7) // 8
    bits = int.from_bytes(data[position : position + size], "little")
    mask = (1 << width) - 1
    return [bits >> (i * width) & mask for i in range(count)], position + size


def unpack_group(data, position, count):
    width = data[position] & 127
    if data[position] < 128:
        return unpack_bits(data, position + 1, width, count)
    extra, which = struct.unpack_from("<BI", data, position + 1)
    numbers, position = unpack_bits(data, position + 6, width, count)
    wider = [i for i in range(32) if which >> i & 1]
    rest, position = unpack_bits(data, position, extra, len(wider))
    for i, high in zip(wider, rest):
        numbers[i] |= high << width
    return numbers, position


class Keys:
    """How the words of an array are turned into keys and back."""

    def __init__(self, type_number, shift, step):
        self.bits = 64 if type_number in (2, 3) else 32
        self.is_integer = type_number == 4
        self.shift = shift
        self.step = step
        self.forms = ("<Q", "<d") if self.bits == 64 else ("<I", "<f")

    def wrap(self, key):
        """Keys are signed numbers of as many bits as a word has."""
        half = 1 << (self.bits - 1)
        return (key + half) % (2 * half) - half

    def of(self, word):
        if self.is_integer:
            return self.wrap(word) >> self.shift
        if self.step:
            steps = struct.unpack(self.forms[1], struct.pack(self.forms[0], word))[0] * (1 / self.step)
            largest = 2.0**30 if self.bits == 32 else 2.0**50
            return round(steps) if abs(steps) <= largest else 0
        sign = 1 << (self.bits - 1)
        size = (word & (sign - 1)) >> self.shift
        return ~size if word & sign else size

    def word(self, key):
        if self.is_integer:
            return key << self.shift & 0xFFFFFFFF
        if self.step:
            return struct.unpack(self.forms[0], struct.pack(self.forms[1], key * self.step))[0]
        sign = 1 << (self.bits - 1)
        size = (~key if key < 0 else key) << self.shift & (sign - 1)
        return size | (sign if key < 0 else 0)


def predicted_array(data, offset, count, type_number):
    """The words of an array in the predicted form, component by component."""
    depth, shift, on_grid, distance, stored = struct.unpack_from("<xBBBII", data, offset)
    predictions = data[offset + 12 : offset + 15]
    position = offset + 16
    step = 0.0
    if on_grid:
        (step,) = struct.unpack_from("<d", data, position)
        position += 8
    rule = Keys(type_number, shift, step)
    components = 3 if type_number in (3, 6) else 1
    base = None
    if distance:
        base_rule, base = stored_keys(data, offset - 64 * distance, stored, count, type_number)
        if (base_rule.shift, base_rule.step) != (shift, step):
            base = [[rule.of(base_rule.word(key)) for key in component] for component in base]
    first = [0] * components
    for c in range(components):
        if predictions[c] & 3:
            size = rule.bits // 8
            first[c] = int.from_bytes(data[position : position + size], "little", signed=True)
            position += size
    last = list(first)
    slope = [0] * components
    keys = [[] for _ in range(components)]
    for start in range(0, count, 1024):
        for c in range(components):
            for at in range(start, min(start + 1024, count), 32):
                used = min(32, count - at)
                numbers, position = unpack_group(data, position, used)
                if rule.bits == 64:
                    high, position = unpack_group(data, position, used)
                    numbers = [low | top << 32 for low, top in zip(numbers, high)]
                for i, number in enumerate(numbers):
                    difference = (number >> 1) ^ -(number & 1)
                    order = predictions[c] & 3
                    if order == 2:
                        slope[c] = rule.wrap(slope[c] + difference)
                        difference = slope[c]
                    if order:
                        difference = last[c] = rule.wrap(last[c] + difference)
                    if predictions[c] & 4:
                        difference += base[c][at + i]
                    keys[c].append(rule.wrap(difference))
    return rule, keys


def stored_keys(data, offset, stored, count, type_number):
    """The keys of an array, however it is stored, and the rule that made them."""
    components = 3 if type_number in (3, 6) else 1
    if stored == count * ELEMENT_SIZE[type_number]:
        rule = Keys(type_number, 0, 0.0)
        letter = "Q" if rule.bits == 64 else "I"
        words = struct.unpack_from(f"<{count * components}{letter}", data, offset)
        return rule, [[rule.of(word) for word in words[c::components]] for c in range(components)]
    assert data[offset] == 2
    return predicted_array(data, offset, count, type_number)


def join_words(rule, keys):
    letter = "Q" if rule.bits == 64 else "I"
    words = [rule.word(key) for element in zip(*keys) for key in element]
    return struct.pack(f"<{len(words)}{letter}", *words)


def read_data_file(path, identity):
    """Yields (channel, tick, elements, array) of every sample that the file's indices hold."""
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"KELNC\r\n\x1a" and data[16:32] == identity
    data_end, directory, channels, _ = struct.unpack_from("<QQII", data, len(data) - 64)
    assert data[-16:-8] == b"KELNCEND" and data[-32:-16] == identity
    for channel in range(channels):
        index, _, samples, type_number = struct.unpack_from("<QQII", data, directory + 64 * channel)
        for sample in range(samples):
            tick, count, offset, stored, _ = struct.unpack_from("<iIQQQ", data, index + 32 * sample)
            assert offset + stored <= data_end
            array = data[offset : offset + stored]
            size = ELEMENT_SIZE[type_number]
            if stored != count * size:
                if array[0] == 2:
                    array = join_words(*predicted_array(data, offset, count, type_number))
                else:
                    array = decode_array(array, count, size)
            yield channel, tick, count, array


def file_name(base, tag, ticks_per_frame, tick):
    frame, rest = divmod(tick, ticks_per_frame or 1)
    return f"{base}Frame{frame}" + (f"Tick{rest}" if rest else "") + f".{tag}"


def main(folder, base):
    root = xml.etree.ElementTree.parse(os.path.join(folder, base + ".xml")).getroot()
    assert root.tag == "nccache" and root.get("version") == "1"
    assert root.get("encoding", "1") in ("1", "2")
    identity = bytes.fromhex(root.get("identity"))
    tag = root.get("data")
    if root.get("layout") == "single":
        names = [f"{base}.{tag}"]
    else:
        ticks_per_frame = int(root.get("ticksPerFrame"))
        names = [
            file_name(base, tag, ticks_per_frame, tick)
            for tick in expand_times(root.find("times").text)
        ]
    assert all(channel.get("type") in TYPE_NUMBER for channel in root.iter("channel"))
    for name in names:
        for channel, tick, count, array in read_data_file(os.path.join(folder, name), identity):
            print(channel, tick, count, array.hex())


if __name__ == "__main__":
    main(*sys.argv[1:])
