from __future__ import annotations

import json
import os
import pathlib
import pickle
import signal
import threading
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest

import kelcache
from conftest import DATA, FRAMES, POINTS, Make, pose


def pc2_samples(path: pathlib.Path) -> Any:
    points, samples = np.fromfile(path, "<i4", 8)[[4, 7]]
    return np.fromfile(path, "<f4", offset=32).reshape(samples, points, 3)


def test_pc2_arrives_as_it_is_stored() -> None:
    path = DATA / "pc2" / "jelly_drop.pc2"
    expected = pc2_samples(path)
    with kelcache.open(path) as cache:
        assert (cache.format, cache.frame_rate, len(cache.channels)) == ("pc2", 24.0, 1)
        channel = cache.channels["points"]
        assert channel.dtype == np.float32
        assert (channel.components, len(channel)) == (3, len(expected))
        assert np.array_equal(channel.read_all(), expected)
        assert np.array_equal(channel[2:40:2], expected[2:40:2])
        assert np.array_equal(channel[::-5], expected[::-5])
        assert channel[30:].shape == (0, *expected.shape[1:])
        assert np.array_equal(channel[-1], expected[-1])
        for index, (time, points) in enumerate(channel):
            assert time == channel.times[index]
            assert np.array_equal(points, expected[index])
        assert channel.interval is not None
        assert np.allclose(np.diff(channel.times), channel.interval)


def test_every_type_of_an_archive() -> None:
    with (DATA / "abc" / "params_all_types.expected.json").open() as file:
        described = json.load(file)
    with kelcache.open(DATA / "abc" / "params_all_types.abc") as cache:
        assert cache.channels["/typed"].name == cache.channels[0].name == "/typed/.geom/P"
        kinds = set()
        for channel in cache.channels.values():
            for sample in range(channel.sample_count):
                stored = channel.read(sample=sample, dtype="native")
                assert stored.dtype == channel.dtype
                with np.errstate(over="ignore"):
                    assert np.array_equal(channel[sample], stored.astype(np.float32), True)
                filled = channel.read(sample=sample, out=np.empty_like(stored))
                assert np.array_equal(filled, stored, equal_nan=stored.dtype.kind == "f")
            kinds.add(channel.dtype.name)
        assert kinds >= {"bool", "int8", "uint16", "int64", "float32", "float64"}
    assert described


@pytest.mark.parametrize("name, how", [
    ("a.pc2", {}), ("a.xml", {}), ("c.xml", {"compact": True}), ("f.xml", {"per_frame": True})])
def test_moments(make: Make, name: str, how: dict[str, Any]) -> None:
    answered: list[tuple[dict[str, Any], int]] = [
        ({"sample": 3}, 3), ({"sample": -6}, 0), ({"frame": 2}, 2), ({"frame": 2.7}, 2),
        ({"time": 4 / 24}, 4), ({"time": 4.5 / 24}, 4)]
    refused: list[tuple[dict[str, Any], type[Exception]]] = [
        ({"sample": 6}, IndexError), ({"sample": -7}, IndexError), ({"sample": 1 << 70}, IndexError),
        ({"sample": 1.0}, TypeError), ({"frame": -1}, ValueError), ({"frame": 6.5}, ValueError),
        ({"frame": float("nan")}, ValueError), ({"time": 1e300}, ValueError),
        ({"time": "0"}, TypeError), ({}, TypeError), ({"time": 0, "frame": 0}, TypeError)]
    with kelcache.open(make(name, **how)) as cache:
        channel = cache.channels[0]
        assert (cache.start, cache.end) == (0, 5 / 24)
        assert np.allclose(channel.times, np.arange(FRAMES) / 24)
        for asked, frame in answered:
            assert np.array_equal(channel.read(**asked), pose(frame)), asked
        for asked, error in refused:
            with pytest.raises(error):
                channel.read(**asked)


def test_arrays_to_fill(make: Make) -> None:
    good = np.empty((POINTS, 3), np.float32)
    read_only = good.copy()
    read_only.flags.writeable = False
    out: Any
    error: type[Exception]
    with kelcache.open(make("a.xml")) as cache:
        channel = cache.channels[0]
        assert channel.read(sample=1, out=good) is good
        assert np.array_equal(good, pose(1))
        for out, error in [
                (good[:5], ValueError), (np.empty((3, POINTS), np.float32).T, ValueError),
                (np.empty((POINTS, 6), np.float32)[:, ::2], ValueError), (read_only, ValueError),
                (np.empty(POINTS * 3, np.float32), ValueError),
                (np.empty((POINTS, 3), np.float64), TypeError), (good.astype(">f4"), TypeError),
                (np.frombuffer(bytearray(POINTS * 12 + 1), np.float32, POINTS * 3, 1)
                 .reshape(POINTS, 3), ValueError), (good.tolist(), TypeError)]:
            with pytest.raises(error):
                channel.read(sample=1, out=out)
        with pytest.raises(TypeError):
            channel.read(sample=1, dtype=np.int32)
        whole = np.empty((FRAMES, POINTS, 3), np.float32)
        assert channel.read_all(whole) is whole
        assert np.array_equal(whole, [pose(frame) for frame in range(FRAMES)])


def test_counts_that_change(tmp_path: pathlib.Path) -> None:
    with kelcache.create(tmp_path / "a.xml", channels={"ids": "int32"}) as cache:
        for frame, count in enumerate([2, 2, 0, 3]):
            cache.write(frame, {"ids": np.arange(count)})
    with kelcache.open(tmp_path / "a.xml") as cache_read:
        ids = cache_read.channels["ids"]
        assert [len(array) for _, array in ids] == [2, 2, 0, 3]
        assert ids[:2].tolist() == [[0, 1], [0, 1]]
        with pytest.raises(ValueError, match="sample 2 has 0 elements, sample 0 has 2"):
            ids.read_all()


def test_arrays_are_the_callers(make: Make) -> None:
    with kelcache.open(make("a.pc2")) as cache:
        first, second = cache.channels[0][0], cache.channels[0][1]
        second[:] = 0
    assert np.array_equal(first, pose(0))
    assert first.flags.owndata and first.flags.writeable


def test_looking_up_channels(make: Make) -> None:
    with kelcache.open(make("a.xml", channels={"points": "float32[3]", "b": "int32"})) as cache:
        channels = cache.channels
        assert list(channels) == channels.keys() == ["points", "b"]
        assert [c.index for c in channels.values()] == [0, 1]
        assert channels[-1].name == channels["b"].name == dict(channels.items())["b"].name == "b"
        assert ("b" in channels, "c" in channels, 1 in channels, None in channels) == \
            (True, False, True, False)
        assert channels.get("c") is None and channels.get("c", 5) == 5
        with pytest.raises(KeyError, match="c"):
            channels["c"]
        with pytest.raises(IndexError, match="it has 2"):
            channels[2]
        assert channels["points"].interpretation == "Points"
        assert '"b": int32, 0 samples' in repr(channels["b"])
        assert "nc, 2 channels, 24 frames/s, 0 to 0.2083333 s" in repr(cache)


def test_a_closed_cache_and_what_cannot_be_pickled(make: Make) -> None:
    cache = kelcache.open(make("a.xml"))
    channel, iterator = cache.channels[0], iter(cache.channels[0])
    for thing in (cache, channel, cache.channels):
        with pytest.raises(TypeError):
            pickle.dumps(thing)
    cache.close()
    cache.close()
    assert cache.closed and "closed" in repr(cache)
    assert (channel.name, len(channel)) == ("points", FRAMES)
    uses: list[Callable[[], object]] = [
        lambda: channel[0], lambda: channel.times, lambda: next(iterator), lambda: channel.read_all(),
        lambda: channel.read(time=0)]
    for use in uses:
        with pytest.raises(ValueError, match="closed"):
            use()
    with pytest.raises(KeyError):
        cache.channels["/typed"]


@pytest.mark.parametrize("path, error, words", [
    ("missing.pc2", kelcache.CacheError, "there is no such file"),
    (".", ValueError, "tells no format"), ("a\0b.pc2", ValueError, "null byte"),
    (3, TypeError, ""), ("missing.ncx", ValueError, "is a data file")])
def test_files_that_do_not_open(path: Any, error: type[Exception], words: str) -> None:
    with pytest.raises(error, match=words) as caught:
        kelcache.open(path)
    if isinstance(caught.value, kelcache.CacheError):
        again = pickle.loads(pickle.dumps(caught.value))
        assert (again.filename, str(again)) == (path, f"{path}: {words}")


def test_a_file_cut_short_or_replaced_while_open(make: Make) -> None:
    path = make("a.pc2")
    with kelcache.open(path) as cache:
        other = path.with_name("other.pc2")
        other.write_bytes(b"nothing")
        os.replace(path, path.with_name("moved.pc2"))
        os.replace(other, path)
        assert np.array_equal(cache.channels[0][1], pose(1))
        os.truncate(path.with_name("moved.pc2"), 100)
        with pytest.raises(kelcache.CacheError, match="frame 4") as caught:
            cache.channels[0].read(sample=4)
        assert caught.value.filename == str(path)
        with pytest.raises(kelcache.CacheError):
            cache.channels[0].read_all()


def test_one_thread_at_a_time_while_others_run(long_pc2: pathlib.Path) -> None:
    with kelcache.open(long_pc2) as cache:
        channel = cache.channels[0]
        thread = threading.Thread(target=lambda: channel.times)
        thread.start()
        refused = False
        while thread.is_alive() and not refused:
            try:
                channel.read(sample=0)
            except RuntimeError as error:
                refused = "in use on another thread" in str(error)
        thread.join()
        assert refused
        channel.read(sample=0)


def test_an_interrupt_ends_a_long_call(long_pc2: pathlib.Path) -> None:
    with kelcache.open(long_pc2) as cache:
        timer = threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT))
        timer.start()
        with pytest.raises(KeyboardInterrupt):
            while True:
                cache.channels[0].read_all()
        timer.join()
        assert cache.channels[0][0].shape == (1, 3)


def test_names_that_are_no_utf8(make: Make) -> None:
    path = os.fsencode(make("a.pc2").parent) + b"/\xff.pc2"
    os.rename(make("b.pc2"), path)
    with kelcache.open(path) as cache:
        assert cache.path == os.fsdecode(path) and "\udcff" in repr(cache)
        with pytest.raises(ValueError, match="nothing at"):
            cache.channels[0].read(frame=-1)
        assert "\udcff" not in cache.channels
    with pytest.raises(kelcache.CacheError) as caught:
        kelcache.open(path + b".pc2")
    assert caught.value.filename == os.fsdecode(path + b".pc2")
