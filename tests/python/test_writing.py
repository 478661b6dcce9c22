from __future__ import annotations

import os
import pathlib
from fractions import Fraction
from typing import Any, Union

import numpy as np
import numpy.typing as npt
import pytest

import kelcache
from conftest import Make, POINTS, pose

TYPES: dict[str, Union[str, tuple[str, str]]] = {"points": "float32[3]", "mass": "float32",
                                              "exact": ("float64[3]", "Positions"),
                                              "age": "float64", "ids": "int32"}


def arrays(frame: int) -> dict[str, npt.NDArray[Any]]:
    return {"points": pose(frame), "mass": np.full(4, np.nan, np.float16), "exact": pose(frame) / 3,
            "age": np.array([frame / 3]), "ids": np.array([-frame, 2**31 - 1], np.int64)}


@pytest.mark.parametrize("how", [{}, {"compact": True}, {"per_frame": True}])
def test_every_type_comes_back(tmp_path: pathlib.Path, how: dict[str, bool]) -> None:
    with kelcache.create(tmp_path / "a.xml", Fraction(24000, 1001), channels=TYPES, **how) as cache:
        for frame in (4, 1, 2):
            rest = arrays(frame)
            cache.write(frame, {"ids": rest.pop("ids")})
            cache.write(frame, rest)
    with kelcache.open(tmp_path / "a.xml") as written:
        assert written.frame_rate == 24000 / 1001
        assert written.channels["exact"].interpretation == "Positions"
        for name, channel in written.channels.items():
            assert len(channel) == 3
            for frame in (1, 2, 4):
                stored = channel.read(frame=frame, dtype="native")
                expected = arrays(frame)[name].astype(channel.dtype)
                assert np.array_equal(stored, expected, equal_nan=name == "mass"), (name, frame)


def test_arrays_in_any_order_of_memory_and_bytes(make: Make, tmp_path: pathlib.Path) -> None:
    with kelcache.create(tmp_path / "a.pc2", points=POINTS, samples=4, start=10) as cache:
        cache.write(13, {"points": pose(3).astype(">f8")})
        cache.write(time=11 / 24, arrays={"points": np.asfortranarray(pose(1))})
        cache.write(10, {"points": np.repeat(pose(0), 2, 0)[::2]})
        cache.write(12, {"points": pose(2).tolist()})
    with kelcache.open(tmp_path / "a.pc2") as written:
        assert written.start == 10 / 24
        assert np.array_equal(written.channels[0].read_all(), [pose(i) for i in range(4)])


def test_nothing_is_written_of_arrays_that_are_refused(tmp_path: pathlib.Path) -> None:
    huge = np.broadcast_to(np.float32(0), (1 << 29, 3))
    wide = np.broadcast_to(np.int32(0), (1 << 33,))
    refused: list[tuple[dict[str, Any], type[Exception], str]] = [
        ({"points": pose(0)[:, :2]}, ValueError, r"shape \(7, 2\) is not \(n, 3\)"),
        ({"points": pose(0).ravel()}, ValueError, r"shape \(21,\)"),
        ({"mass": pose(0)}, ValueError, r"is not \(n,\)"), ({"age": 1.0}, ValueError, ""),
        ({"points": np.zeros((2, 3), int)}, TypeError, "int64 for a channel of float32"),
        ({"ids": np.zeros(2)}, TypeError, ""), ({"ids": [True]}, TypeError, ""),
        ({"ids": [2**31]}, ValueError, "2147483648 does not fit"),
        ({"ids": np.array([2**64 - 1], np.uint64)}, ValueError, "does not fit"),
        ({"points": huge}, ValueError, "32 bits count"),
        ({"ids": wide}, ValueError, "32 bits count"),
        ({"points": [["a", "b", "c"]]}, TypeError, ""), ({"points": None}, TypeError, ""),
        ({"other": pose(0)}, KeyError, "other"), ({}, ValueError, "no arrays")]
    with kelcache.create(tmp_path / "a.xml", channels=TYPES) as cache:
        cache.write(0, arrays(0))
        for bad, error, words in refused:
            with pytest.raises(error, match=words):
                cache.write(1, {"age": np.zeros(1), **bad} if bad else bad)
        for frame in (0, float("nan"), 1e12):
            with pytest.raises(ValueError):
                cache.write(frame, arrays(1))
        cache.write(1, arrays(1))
        with pytest.raises(ValueError, match="already"):
            cache.write(0, arrays(0))
    with kelcache.open(tmp_path / "a.xml") as written:
        assert {len(channel) for channel in written.channels.values()} == {2}


@pytest.mark.parametrize("name, how, words", [
    ("a.abc", {}, "only read"), ("a.txt", {}, "no format"), ("a.xml", {"rate": 0}, "rate"),
    ("a.xml", {"points": 3}, "PC2"), ("a.pc2", {"compact": True}, "NC"), ("a.pc2", {}, "samples"),
    ("a.xml", {"channels": {"a": "float"}}, "none of float32"), ("a.xml", {"channels": {}}, "with"),
    ("a.xml", {"channels": {"": "int32"}}, ""), ("a.xml", {"max_error": 0.1}, "compact"),
    ("a.xml", {"max_error": float("nan"), "compact": True}, "above 0"),
    ("a.pc2", {"points": 1, "samples": 1, "start": 1e30}, "32-bit float"),
    ("a.pc2", {"points": 1, "samples": 1 << 31}, "at most"),
    ("a.pc2", {"points": 1, "samples": 1, "channels": {"a": "int32"}}, "one channel")])
def test_what_a_format_does_not_have(tmp_path: pathlib.Path, name: str, how: dict[str, Any],
                                     words: str) -> None:
    with pytest.raises((ValueError, kelcache.CacheError), match=words):
        kelcache.create(tmp_path / name, **how)
    assert not any(tmp_path.iterdir())


@pytest.mark.parametrize("name", ["a.pc2", "a.xml"])
def test_an_older_cache_stays_until_a_new_one_is_whole(make: Make, name: str) -> None:
    path = make(name)
    before = sorted(path.parent.iterdir())
    how: dict[str, Any] = {"points": POINTS, "samples": 2} if name == "a.pc2" else {}
    with pytest.raises(kelcache.CacheError, match="exists already; --force replaces it"):
        kelcache.create(path, **how)
    with pytest.raises(ZeroDivisionError):
        with kelcache.create(path, force=True, **how) as cache:
            cache.write(0, {"points": pose(9)})
            raise ZeroDivisionError
    if name == "a.pc2":
        with pytest.raises(kelcache.CacheError, match="1 samples were written of 2"):
            with kelcache.create(path, force=True, **how) as cache:
                cache.write(0, {"points": pose(9)})
    cache = kelcache.create(path, force=True, **how)
    cache.write(0, {"points": pose(9)})
    child = os.fork()
    if child == 0:
        try:
            cache.close()
        except RuntimeError:
            del cache
            os._exit(0)
        os._exit(1)
    assert os.waitpid(child, 0)[1] == 0
    cache.write(1, {"points": pose(8)})
    with kelcache.open(path) as old:
        assert np.array_equal(old.channels[0][5], pose(5))
    cache.close()
    cache.close()
    with pytest.raises(ValueError, match="closed"):
        cache.write(2, {"points": pose(2)})
    with kelcache.open(path) as new:
        assert np.array_equal(new.channels[0].read_all(), [pose(9), pose(8)])
    assert sorted(path.parent.iterdir()) == before


def test_a_bound_for_values(tmp_path: pathlib.Path) -> None:
    points = np.random.default_rng(1).normal(size=(1000, 3))
    with kelcache.create(tmp_path / "a.xml", compact=True, max_error=0.01,
                         channels={"points": "float32[3]", "ids": "int32"}) as cache:
        cache.write(0, {"points": points, "ids": np.arange(5)})
    with kelcache.open(tmp_path / "a.xml") as written:
        moved = np.abs(written.channels["points"][0] - points.astype(np.float32)).max()
        assert 0 < moved <= 0.01
        assert [channel.maximum_error for channel in written.channels.values()] == [0.01, 0]


def test_a_disk_that_fails(tmp_path: pathlib.Path) -> None:
    with pytest.raises(kelcache.CacheError) as caught:
        kelcache.create(tmp_path / "missing" / "a.xml")
    assert caught.value.filename == str(tmp_path / "missing" / "a.xml")
