"""Measures the Python package against the cache object and against NumPy on the same bytes, in one
run: each line is ours beside its baseline, turn by turn, files in the page cache.

    python_package.py KELCACHE      the command, whose play measures the object's own fetch
"""

from __future__ import annotations

import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable

import numpy as np

import kelcache

FRAMES = 240
ROUNDS = 9
HEADER = 32


def seconds(work: Callable[[], object]) -> float:
    begun = time.perf_counter()
    work()
    return time.perf_counter() - begun


def row(name: str, unit: int, ours: Callable[[], float], baseline: Callable[[], float]) -> None:
    """`ours` and `baseline` give the seconds of `unit` pieces of work."""
    pairs = [(ours(), baseline()) for _ in range(ROUNDS)]
    mine, other = min(a for a, _ in pairs) / unit, min(b for _, b in pairs) / unit
    ratio = statistics.median(b / a for a, b in pairs)
    print(f"| {name:<56} | {mine * 1e6:>9.2f} | {other * 1e6:>12.2f} | {ratio:>5.2f} |", flush=True)


def make(folder: pathlib.Path, points: int, extension: str) -> pathlib.Path:
    path = folder / f"{points}{extension}"
    how = {"points": points, "samples": FRAMES} if extension == ".pc2" else {}
    random = np.random.default_rng(1)
    with kelcache.create(path, **how) as cache:
        for frame in range(FRAMES):
            cache.write(frame, {"points": random.random((points, 3), np.float32)})
    return path


def object_fetch(command: str, path: pathlib.Path, loop: int) -> float:
    """Seconds of one fetch by the object, from C++."""
    told = subprocess.run([command, "play", path, "--loop", str(loop)], capture_output=True,
                          text=True, check=True).stdout
    rate = re.search(r": ([0-9.e+]+) frames/s", told)
    assert rate is not None, told
    return 1 / float(rate[1])


def measure_reading(command: str, path: pathlib.Path, points: int) -> None:
    loop = 100 if points == 100 else 1
    out, copied = np.empty((points, 3), np.float32), np.empty((points, 3), np.float32)
    with kelcache.open(path) as cache:
        channel = cache.channels[0]

        def read() -> None:
            for _ in range(loop):
                for sample in range(FRAMES):
                    channel.read(sample=sample, out=out)

        def copy() -> None:
            for _ in range(loop * FRAMES):
                np.copyto(copied, out)
        row(f"{path.suffix} read into, {points} points: object's fetch and copy", loop * FRAMES,
            lambda: seconds(read),
            lambda: object_fetch(command, path, loop) * loop * FRAMES + seconds(copy))


def measure_iterating(path: pathlib.Path, points: int) -> None:
    def iterate() -> None:
        with kelcache.open(path) as cache:
            for _ in cache.channels[0]:
                pass

    def from_file() -> None:
        with path.open("rb") as file:
            file.seek(HEADER)
            for _ in range(FRAMES):
                np.fromfile(file, np.float32, points * 3)
    row(f"iterate, {points} points: numpy.fromfile", FRAMES, lambda: seconds(iterate),
        lambda: seconds(from_file))


def measure_all(path: pathlib.Path, points: int) -> None:
    def read_all() -> None:
        with kelcache.open(path) as cache:
            cache.channels[0].read_all()

    def bare() -> None:
        whole = np.empty((FRAMES, points, 3), np.float32)
        file = os.open(path, os.O_RDONLY)
        os.preadv(file, [memoryview(whole).cast("B")], HEADER)
        os.close(file)
    row(f"read_all, {points} points: one bare read", FRAMES, lambda: seconds(read_all),
        lambda: seconds(bare))


def main(command: str) -> None:
    print(f"| {'Ours: baseline':<56} | Ours, us | Baseline, us | Ratio |")
    print(f"|{'-' * 58}|----------:|-------------:|------:|")
    with tempfile.TemporaryDirectory() as scratch:
        for points in (100, 100_000):
            for extension in (".pc2", ".xml"):
                measure_reading(command, make(pathlib.Path(scratch), points, extension), points)
            measure_iterating(pathlib.Path(scratch) / f"{points}.pc2", points)
            measure_all(pathlib.Path(scratch) / f"{points}.pc2", points)


main(sys.argv[1])
