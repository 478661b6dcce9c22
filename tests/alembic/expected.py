"""Compares every NAME.abc of a folder with NAME.expected.json; exits with 1 when one differs.

Usage: expected.py PATH-OF-alembic_contents FOLDER
"""

import fractions
import json
import math
import pathlib
import struct
import subprocess
import sys

CODES = {"bool": "?", "uint8": "B", "int8": "b", "uint16": "H", "int16": "h", "uint32": "I",
         "int32": "i", "uint64": "Q", "int64": "q", "float16": "e", "float32": "f", "float64": "d"}
REFUSED = 2
# Expected, but only another view of what is compared anyway: metadata, samplings, samples.
DERIVED = {"type", "interp", "instanceSource", "resolvedType", "resolvedChildren", "container",
           "archiveStart", "archiveEnd"}


def metadata(text):
    pairs = [pair.partition("=") for pair in text.split(";") if "=" in pair]
    return {key: value for key, _, value in reversed(pairs)}


def decode(pod, stored):
    if pod in ("string", "wstring"):
        return bytes(stored).decode("utf-8" if pod == "string" else "utf-32-le").split("\0")[:-1]
    code = CODES[pod]
    count = len(stored) // struct.calcsize(code)
    return list(struct.unpack(f"<{count}{code}", bytes(stored)))


def float32(value):
    """The nearest 32-bit float, rounded once."""
    if isinstance(value, int):
        shift = max(0, value.bit_length() - 24)
        return float(round(fractions.Fraction(value, 1 << shift)) << shift)
    try:
        return struct.unpack("<f", struct.pack("<f", value))[0]
    except OverflowError:
        return math.copysign(math.inf, value)


def shown(value):
    """A value as the expected files have it: strings for what is not finite."""
    return value if isinstance(value, str) or math.isfinite(value) else str(value)


def describe(sample, prop):
    values = decode(prop["pod"], sample["stored"])
    shape = {"i": sample["i"], "first": [shown(value) for value in values[:3]],
             "last": [shown(value) for value in values[-3:]]}
    if prop["kind"] == "array":
        shape["n"] = len(values) // prop["extent"]
        if len(sample["dims"]) > 1 and values:
            shape["dims"] = sample["dims"]
    if prop["pod"] not in CODES:
        return shape | {"bytes": sum(len(value.encode()) for value in values)}
    total = 0.0
    for value in values:  # one by one: sum() may round otherwise
        total += value
    return shape | {"sum": shown(total)}


class Comparison:
    def __init__(self, name):
        self.name = name
        self.differences = self.samples = 0
        self.positions = []
        self.others = []

    def expect(self, same, *what):
        if not same:
            self.differences += 1
            print(self.name, *what)

    def fields(self, where, got, want):
        for key in (got.keys() | want.keys()) - DERIVED:
            self.expect(got.get(key) == want.get(key), where, key, got.get(key), want.get(key))

    def archive(self, got, want):
        self.expect(got.pop("problems") == 0, "is taken for damaged")
        channels = got.pop("channels")
        top = got["objects"][0]
        got["archiveMeta"], top["meta"] = metadata(top["meta"]), ""
        for sampling in got["timeSamplings"]:
            if sampling["type"] == "acyclic":
                del sampling["period"]
        objects = got.pop("objects"), want.pop("objects")
        self.expect(len(objects[0]) == len(objects[1]), len(objects[0]), "objects")
        self.fields("", got, want)
        for found, wanted in zip(*objects):
            props = found.pop("props"), wanted.pop("props")
            where = wanted["path"]
            found["meta"] = metadata(found["meta"])
            self.expect(len(props[0]) == len(props[1]), where, len(props[0]), "properties")
            self.fields(where, found, wanted)
            for pair in zip(*props):
                self.property(where.rstrip("/") + "/", *pair)
        order = self.positions + self.others
        self.expect(order == list(range(channels)), channels, "channels, numbered", order)

    def property(self, folder, got, want):
        where = want["path"] = folder + want["path"]
        got["meta"] = metadata(got["meta"])
        channel = got.pop("channel", -1)
        length = got.pop("bufferLength", -1)
        samples = got.get("samples", [])
        self.samples += len(samples)
        if samples and got["pod"] in CODES:
            (self.positions if where.endswith("/.geom/P") else self.others).append(channel)
            for sample in samples:
                self.floats(where, got, sample, length)
        if "pod" in got:
            told = {sample["i"] for sample in want.get("samples", [])}
            got["samples"] = [describe(sample, got) for sample in samples if sample["i"] in told]
            got["pod"] += "_t" if got["pod"] in CODES else ""
        self.fields(where, got, want)

    def floats(self, where, prop, sample, length):
        values = decode(prop["pod"], sample["stored"])
        self.expect(length >= len(values) // prop["extent"], where, "has buffer length", length)
        floats = [float32(value) for value in values]
        floats += [math.nan] * prop["extent"]  # of the element that the sample does not have
        # As text, where nan is nan and -0 is not 0.
        same = repr(decode("float32", sample.get("floats", []))) == repr(floats)
        self.expect(same, where, "differs as floats at", sample["i"])


def main(program, folder):
    archives = sorted(pathlib.Path(folder).glob("*.abc"))
    samples = channels = differences = 0
    for path in archives:
        want = json.loads(path.with_suffix(".expected.json").read_text(encoding="utf-8"))
        comparison = Comparison(path.name)
        run = subprocess.run([program, path], stdout=subprocess.PIPE, check=False)
        if want["container"] != "ogawa":
            comparison.expect(run.returncode == REFUSED, "is not refused as not served")
        elif run.returncode != 0:
            comparison.expect(False, run.stdout.decode())
        else:
            comparison.archive(json.loads(run.stdout), want)
        samples += comparison.samples
        channels += len(comparison.positions + comparison.others)
        differences += comparison.differences
    print(f"{len(archives)} archives, {samples} samples, {channels} channels: "
          f"{differences} differences")
    return 0 if archives and differences == 0 else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
