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
                array = decode_array(array, count, size)
            yield channel, tick, count, array


def file_name(base, tag, ticks_per_frame, tick):
    frame, rest = divmod(tick, ticks_per_frame or 1)
    return f"{base}Frame{frame}" + (f"Tick{rest}" if rest else "") + f".{tag}"


def main(folder, base):
    root = xml.etree.ElementTree.parse(os.path.join(folder, base + ".xml")).getroot()
    assert root.tag == "nccache" and root.get("version") == "1"
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
