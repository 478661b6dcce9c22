from __future__ import annotations

import os
import pathlib
import pickle
import signal
import subprocess
import sys
import threading
import time
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from typing import Any

import numpy as np
import pytest

import kelcache
from conftest import DATA, FRAMES, POINTS, Make, pose


def test_info_is_what_the_cache_says(make: Make) -> None:
    told = kelcache.info(make("a.xml", rate="24000/1001", compact=True))
    assert (told.format, told.frame_rate_source, told.exact_frame_rate) == \
        ("nc", "stored", "24000/1001")
    assert (told.first_frame, told.last_frame, told.complete, told.missing) == (0, 5, True, "")
    assert (told.compact_encoding, told.array_bytes) == (2, FRAMES * POINTS * 12)
    assert [(c.name, c.type, c.samples, c.points) for c in told.channels] == \
        [("points", "float32[3]", FRAMES, POINTS)]
    assert pickle.loads(pickle.dumps(told)) == told
    assert kelcache.info(make("a.pc2")).channels[0].name is None


def test_converting_there_and_back(make: Make, tmp_path: pathlib.Path) -> None:
    source = make("a.pc2")
    steps: list[tuple[int, int]] = []

    def progress(done: int, total: int) -> None:
        steps.append((done, total))
    there = kelcache.convert(source, tmp_path / "b.xml", rate=25, first=1, progress=progress)
    assert (there.file, there.samples, there.complete) == (str(tmp_path / "b.xml"), 5, True)
    assert steps[-1] == (5, 5)
    kelcache.retime(tmp_path / "b.xml", tmp_path / "c.xml", offset=-1)
    with kelcache.open(tmp_path / "c.xml") as cache:
        assert (cache.frame_rate, cache.start) == (25, 0)
        assert np.array_equal(cache.channels[0].read_all(), [pose(i) for i in range(1, 6)])
    assert kelcache.recover.__doc__
    found = kelcache.diff(source, tmp_path / "c.xml")
    assert found and found.largest == 1 and "frame 0, element 0" in found.where
    assert not kelcache.diff(source, source)


def test_cutting_and_joining(make: Make, tmp_path: pathlib.Path) -> None:
    source = make("a.xml", rate=24, compact=True)
    parts = [tmp_path / f"{i}.xml" for i in range(2)]
    kelcache.trim(source, parts[0], last=2)
    kelcache.trim(source, parts[1], first=3, per_frame=True, compact=False)
    assert [kelcache.info(part).compact_encoding for part in parts] == [2, None]
    assert kelcache.merge(parts, tmp_path / "b.xml", sequence=True).samples == FRAMES
    assert not kelcache.diff(source, tmp_path / "b.xml")
    with pytest.warns(kelcache.CacheWarning, match="becomes a_points"):
        kelcache.merge([source, source], tmp_path / "twice.xml")
    kelcache.extract(tmp_path / "twice.xml", tmp_path / "one.xml", drop=["a_points"])
    assert not kelcache.diff(source, tmp_path / "one.xml")
    kelcache.resample(source, tmp_path / "fast.xml", 48, method="cubic", channel=0)
    kelcache.transform(tmp_path / "fast.xml", tmp_path / "c.xml", scale=2, rotate=(0, 0, 90),
                       translate=(0, 0, 1))
    with kelcache.open(tmp_path / "c.xml") as cache:
        for number, found in enumerate(cache.channels[0].read_all()):
            x, y, z = (pose(0) + number / 2).T
            assert np.allclose(found, np.stack([-2 * y, 2 * x, 2 * z + 1], axis=1))
    wrong: list[dict[str, Any]] = [
        {}, {"scale": 0}, {"units": "cm"}, {"axis": "up"}, {"translate": (0, 0, np.inf)}]
    for how in wrong:
        with pytest.raises(ValueError):
            kelcache.transform(source, tmp_path / "never.xml", **how)


def test_what_a_conversion_changes_is_told(tmp_path: pathlib.Path) -> None:
    with kelcache.create(tmp_path / "a.xml", channels={"p": "float64[3]"}) as cache:
        for frame in range(3):
            cache.write(frame, {"p": pose(frame) / 3})
    with pytest.warns(kelcache.CacheWarning, match="rounded to 32-bit floats"):
        copied = kelcache.convert(tmp_path / "a.xml", tmp_path / "a.pc2", channel="p")
    assert len(copied.notes) == 1
    with pytest.warns(kelcache.CacheWarning, match="within"):
        kelcache.convert(tmp_path / "a.xml", tmp_path / "b.xml", compact=True, max_error="1%")
    os.truncate(tmp_path / "a.pc2", 32 + POINTS * 12 + 1)
    with pytest.warns(kelcache.CacheWarning, match="holds 1 whole samples of 3"):
        assert not kelcache.convert(tmp_path / "a.pc2", tmp_path / "c.xml").complete


@pytest.mark.parametrize("target, how, error, words", [
    ("a.pc2", {}, ValueError, "is the source itself|exists"), ("b.abc", {}, ValueError, "only read"),
    ("b.xml", {"rate": "fast"}, ValueError, "rate"), ("b.xml", {"first": 100}, OSError, "no sample"),
    ("b.xml", {"resample": "spline"}, ValueError, "none of cubic, hold, linear"),
    ("b.xml", {"max_error": 1}, ValueError, "go with --compact"), ("b.xml", {"max_error": "x"}, ValueError, ""),
    ("b.xml", {"compact_encoding": 3}, ValueError, "1 or 2"), ("b.xml", {"pad": "last"}, ValueError, "--pad"),
    ("b.xml", {"channel": "x"}, ValueError, "no channel")])
def test_conversions_that_are_refused(make: Make, target: str, how: dict[str, Any],
                                      error: type[Exception], words: str) -> None:
    source = make("a.pc2")
    with pytest.raises((error, kelcache.CacheError), match=words):
        kelcache.convert(source, source.with_name(target), **how)
    assert list(source.parent.iterdir()) == [source]


def test_progress_and_signals_end_a_conversion(long_pc2: pathlib.Path) -> None:
    target = long_pc2.with_suffix(".xml")

    def stop(done: int, total: int) -> bool:
        return done > total

    def fail(done: int, total: int) -> None:
        raise ZeroDivisionError
    run: list[tuple[Callable[[], object], type[BaseException]]] = [
        (lambda: kelcache.convert(long_pc2, target, progress=stop), kelcache.Cancelled),
        (lambda: kelcache.retime(long_pc2, target, scale=0.5, progress=fail), ZeroDivisionError),
        (lambda: kelcache.diff(long_pc2, long_pc2, progress=stop), kelcache.Cancelled),
        (lambda: kelcache.verify(long_pc2, progress=stop), kelcache.Cancelled)]
    for call, error in run:
        with pytest.raises(error):
            call()
    for call in (lambda: kelcache.convert(long_pc2, target), lambda: kelcache.verify(long_pc2)):
        sent: list[float] = []

        def send() -> None:
            sent.append(time.monotonic())
            os.kill(os.getpid(), signal.SIGINT)
        threading.Timer(0.1, send).start()
        with pytest.raises(KeyboardInterrupt):
            call()
    assert list(long_pc2.parent.iterdir()) == [long_pc2]


def test_verify_and_recover(make: Make) -> None:
    path = make("a.xml")
    assert kelcache.verify(path) and kelcache.verify(DATA / "pc2" / "arm_tube.pc2")
    with pytest.raises(kelcache.CacheError, match="nothing"):
        kelcache.recover(path)
    data = path.with_suffix(".ncx")
    damaged = bytearray(data.read_bytes())
    damaged[200] ^= 1
    data.write_bytes(damaged)
    found = kelcache.verify(path)
    assert not found and not found.unreadable and found.problems
    writer = "import kelcache, numpy, os, sys\n" \
        "cache = kelcache.create(sys.argv[1])\n" \
        "for i in range(3): cache.write(i, {'points': numpy.zeros((2, 3))})\n" \
        "os._exit(0)"
    dead = path.with_name("dead.xml")
    subprocess.run([sys.executable, "-c", writer, dead], check=True)
    with pytest.warns(kelcache.CacheWarning, match="a writer died"), \
            pytest.raises(kelcache.CacheError, match="no such file"):
        kelcache.info(dead)
    assert kelcache.recover(dead)
    with kelcache.open(dead) as cache:
        assert len(cache.channels[0]) >= 2


@pytest.mark.parametrize("name, how", [
    ("a.pc2", {}), ("a.xml", {}), ("f.xml", {"per_frame": True}), ("", {})])
def test_a_check_that_is_ended(make: Make, name: str, how: dict[str, Any]) -> None:
    path = make(name, **how) if name else DATA / "abc" / "mesh_24fps.abc"
    steps: list[tuple[int, int]] = []

    def stop(done: int, total: int) -> bool:
        steps.append((done, total))
        return False
    with pytest.raises(kelcache.Cancelled):
        kelcache.verify(path, progress=stop)
    assert len(steps) == 1 and 0 <= steps[0][0] < steps[0][1]


def test_caches_on_several_threads(make: Make) -> None:
    make("a.pc2")
    paths = [make(f"{number}.pc2") for number in range(6)]
    with ThreadPoolExecutor(3) as pool:
        done = list(pool.map(lambda path: kelcache.convert(path, path.with_suffix(".xml")), paths))
    assert [copied.samples for copied in done] == [FRAMES] * 6
