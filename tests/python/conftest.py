"""What the tests of the Python package share."""

from __future__ import annotations

import pathlib
from collections.abc import Callable
from typing import Any

import numpy as np
import numpy.typing as npt
import pytest

import kelcache

DATA = pathlib.Path(__file__).resolve().parent.parent / "data"
POINTS, FRAMES = 7, 6
Make = Callable[..., pathlib.Path]


def pose(frame: int, points: int = POINTS) -> npt.NDArray[np.float32]:
    return (np.arange(points * 3).reshape(points, 3) / 8 + frame).astype(np.float32)


@pytest.fixture
def make(tmp_path: pathlib.Path) -> Make:
    """Writes a cache of points that are pose(frame) at frames 0 to 5."""
    def write(name: str, frames: int = FRAMES, **how: Any) -> pathlib.Path:
        if name.endswith(".pc2"):
            how.update(points=POINTS, samples=frames)
        with kelcache.create(tmp_path / name, **how) as cache:
            for frame in range(frames):
                cache.write(frame, {"points": pose(frame)})
        return tmp_path / name
    return write


@pytest.fixture
def long_pc2(tmp_path: pathlib.Path) -> pathlib.Path:
    """Eight million samples of one point, all zeros and on a disk nearly nothing: for what takes
    long."""
    path = tmp_path / "long.pc2"
    with kelcache.create(path, points=1, samples=1) as cache:
        cache.write(0, {"points": np.zeros((1, 3))})
    with path.open("r+b") as file:
        file.seek(28)
        file.write((8_000_000).to_bytes(4, "little"))
        file.truncate(32 + 12 * 8_000_000)
    return path
