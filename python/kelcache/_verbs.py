"""What the command's verbs do, as functions that return data classes.

Rules, names and words are the command's. `progress`, where there is one, is called now and then with
(done, total), both in samples; returning False ends the call with Cancelled, and nothing is left
behind. What the command notes on standard error is in `notes`, and a CacheWarning each.
"""

from __future__ import annotations

import os
from collections.abc import Callable, Iterable
from dataclasses import dataclass
from fractions import Fraction
from typing import Any, Optional, Union

from . import _core

Path = Union[str, bytes, "os.PathLike[str]"]
Rate = Union[float, Fraction, str]
Progress = Callable[[int, int], Optional[bool]]
ChannelName = Union[str, int]
ChannelNames = Union[ChannelName, Iterable[ChannelName], None]
Vector = tuple[float, float, float]


@dataclass(frozen=True)
class Copied:
    """What a verb that makes a cache of others has written."""

    file: str
    samples: int
    complete: bool
    """False when the source lacks samples that its header promises, of those asked for."""
    notes: tuple[str, ...]


@dataclass(frozen=True)
class Differences:
    """What diff has found; true as a condition when the caches differ."""

    differences: tuple[str, ...]
    """A line each."""
    largest: float
    """The largest difference of two values, 0 for none, inf where only one is finite."""
    where: str
    """Where the largest is, and both values; "" for none."""
    complete: bool
    """False when one of the caches lacks samples that its header promises."""
    notes: tuple[str, ...]

    def __bool__(self) -> bool:
        return bool(self.differences) or not self.complete


@dataclass(frozen=True)
class Verified:
    """What verify has found; true as a condition when the cache is sound."""

    file: str
    problems: tuple[str, ...]
    """A line each; none for a sound cache."""
    unreadable: bool
    """The system failed to deliver a file, so that the cache may be sound."""
    notes: tuple[str, ...]

    def __bool__(self) -> bool:
        return not self.problems


@dataclass(frozen=True)
class ChannelInfo:
    """What a cache says of a channel; None for what its format does not know."""

    index: int
    name: Optional[str]
    type: Optional[str]
    """What an element is made of: "float32[3]", "int32"."""
    interpretation: Optional[str]
    samples: int
    points: Optional[int]
    """Elements of the first sample; of archives of the largest."""
    start: Optional[float]
    """Seconds, as end and interval."""
    end: Optional[float]
    sampling: Optional[str]
    interval: Optional[float]
    maximum_error: float
    """How far values were let move when the cache was written."""


@dataclass(frozen=True)
class Info:
    """What a cache says of itself; None for what its format does not know."""

    file: str
    format: str
    frame_rate: Optional[float]
    frame_rate_source: str
    """"stored", "derived", "assumed" or "none"."""
    exact_frame_rate: Optional[str]
    """"24000/1001", of a rate that is no whole number."""
    ticks_per_frame: Optional[int]
    complete: bool
    missing: str
    """What is missing of a cache that is not complete."""
    first_frame: Optional[float]
    last_frame: Optional[float]
    start: Optional[float]
    """Seconds, as end, span and duration."""
    end: Optional[float]
    span: Optional[float]
    duration: Optional[float]
    file_size: int
    """Bytes, data files included."""
    promised_size: Optional[int]
    channels: tuple[ChannelInfo, ...]
    data_files: tuple[tuple[str, int], ...]
    """Names and bytes."""
    compact_encoding: Optional[int]
    array_bytes: Optional[int]
    """Of a compact cache's arrays by themselves, and stored_bytes on disk."""
    stored_bytes: Optional[int]
    notes: tuple[str, ...]


def _take(told: dict[str, Any]) -> dict[str, Any]:
    return {name: tuple(value) if isinstance(value, list) else value
            for name, value in told.items()}


def info(path: Path, format: Optional[str] = None) -> Info:
    """Tells what a cache holds. Raises CacheError for one that can not be read."""
    told = _take(_core.info(path, format))
    told["channels"] = tuple(ChannelInfo(**channel) for channel in told["channels"])
    return Info(**told)


def convert(source: Path, target: Path, *, rate: Optional[Rate] = None,
            channel: Union[str, int, None] = None, first: Optional[float] = None,
            last: Optional[float] = None, resample: Optional[str] = None,
            pad: Optional[str] = None, snap_frames: bool = False, per_frame: bool = False,
            compact: bool = False, compact_encoding: int = 2,
            max_error: Union[float, str, None] = None, force: bool = False,
            progress: Optional[Progress] = None) -> Copied:
    """Converts between PC2 and NC, and from Alembic to either. The target appears whole or not at
    all.

    rate : frames per second that frames are counted at; PC2 stores none (else 24)
    channel : number or name; else all for NC, the first for PC2
    first, last : scene frames, both included
    resample : "hold", "linear" or "cubic": one value for each frame in place of the samples
    pad : PC2: "last", "nan" or "zero" for what samples of fewer points than others get for the rest
    snap_frames : NC: frames go to whole ticks: 23.976 frames per second become 24
    per_frame, compact, compact_encoding : NC: a data file per frame; compression and its form
    max_error : with compact: how far values may move, a number in the cache's unit or "0.01%" of
        the longest side of a channel's bounding box
    force : replace a cache that is there

    Raises ValueError for what the formats do not have, CacheError for what fails.
    """
    return Copied(**_take(_core.convert(
        source, target, rate, channel, first, last, resample, pad, snap_frames, per_frame, compact,
        compact_encoding, max_error, force, progress)))


def retime(source: Path, target: Path, *, rate: Optional[Rate] = None,
           scale: Optional[float] = None, offset: Optional[float] = None, per_frame: bool = False,
           compact: bool = False, force: bool = False,
           progress: Optional[Progress] = None) -> Copied:
    """Writes a cache with the same samples at other times, by exactly one of rate, scale and offset.

    rate : every sample keeps its scene frame and lasts as long as at this many frames per second
    scale : scene frames are multiplied by this
    offset : this many frames are added to the scene frames
    """
    return Copied(**_take(_core.retime(source, target, rate, scale, offset, per_frame, compact,
                                       force, progress)))


def _names(channels: ChannelNames) -> list[str]:
    if channels is None:
        return []
    if isinstance(channels, (str, int)):
        return [str(channels)]
    return [str(channel) for channel in channels]


def trim(source: Path, target: Path, *, first: Optional[float] = None,
         last: Optional[float] = None, every: int = 1, channel: ChannelNames = None,
         drop: ChannelNames = None, rate: Optional[Rate] = None, per_frame: Optional[bool] = None,
         compact: Optional[bool] = None, force: bool = False,
         progress: Optional[Progress] = None) -> Copied:
    """Writes the samples of some frames of a cache.

    first, last : scene frames, both included
    every : of each channel's samples, from the first of these, one in so many
    channel, drop : names or numbers of channels to take, and to leave out
    rate : frames per second of a cache that stores none (PC2: else 24)
    per_frame, compact : NC: a data file per frame, compression; None: as the source
    force : replace a cache that is there

    Raises ValueError for what the formats do not have, CacheError for what fails.
    """
    return Copied(**_take(_core.edit(
        source, target, _names(channel), _names(drop), first, last, every, rate, None, None, None,
        per_frame, compact, force, progress)))


def extract(source: Path, target: Path, channel: ChannelNames = None, *,
            drop: ChannelNames = None, rate: Optional[Rate] = None,
            per_frame: Optional[bool] = None, compact: Optional[bool] = None, force: bool = False,
            progress: Optional[Progress] = None) -> Copied:
    """Writes some channels of a cache: those named, or all but the dropped ones. The rest is as for
    trim."""
    if not _names(channel) and not _names(drop):
        raise ValueError("extract takes channel or drop")
    return trim(source, target, channel=channel, drop=drop, rate=rate, per_frame=per_frame,
                compact=compact, force=force, progress=progress)


def resample(source: Path, target: Path, rate: Rate, *, method: str = "linear",
             source_rate: Optional[Rate] = None, channel: ChannelNames = None,
             drop: ChannelNames = None, per_frame: Optional[bool] = None,
             compact: Optional[bool] = None, force: bool = False,
             progress: Optional[Progress] = None) -> Copied:
    """Writes a cache at another frame rate. Times in seconds stay; a frame that falls on a sample is
    that sample.

    rate : frames per second of the new cache
    method : "hold", "linear" or "cubic"
    source_rate : PC2: frames per second of the source, which stores none

    The rest is as for trim.
    """
    return Copied(**_take(_core.edit(
        source, target, _names(channel), _names(drop), None, None, 1, source_rate, method, rate,
        None, per_frame, compact, force, progress)))


def transform(source: Path, target: Path, *, scale: float = 1.0, units: str = "", axis: str = "",
              rotate: Vector = (0.0, 0.0, 0.0), translate: Vector = (0.0, 0.0, 0.0),
              points: ChannelNames = None, vectors: ChannelNames = None,
              normals: ChannelNames = None, leave: ChannelNames = None,
              channel: ChannelNames = None, drop: ChannelNames = None,
              rate: Optional[Rate] = None, per_frame: Optional[bool] = None,
              compact: Optional[bool] = None, force: bool = False,
              progress: Optional[Progress] = None) -> Copied:
    """Moves what a cache holds in space: scale and units first, then axis, rotation and translation.

    units : "cm-to-m" and so on
    axis : "y-up-to-z-up" or "z-up-to-y-up"
    rotate : degrees about the x axis, then y, then z
    points, vectors, normals, leave : what channels hold, where their interpretation does not tell

    The rest is as for trim.
    """
    how = {"scale": scale, "units": units, "axis": axis, "rotate": rotate, "translate": translate,
           "points": _names(points), "vectors": _names(vectors), "normals": _names(normals),
           "leave": _names(leave)}
    return Copied(**_take(_core.edit(
        source, target, _names(channel), _names(drop), None, None, 1, rate, None, None, how,
        per_frame, compact, force, progress)))


def merge(sources: Iterable[Path], target: Path, *, sequence: bool = False,
          prefer: Optional[str] = None, allow_different_ranges: bool = False,
          rate: Optional[Rate] = None, per_frame: Optional[bool] = None,
          compact: Optional[bool] = None, force: bool = False,
          progress: Optional[Progress] = None) -> Copied:
    """Writes the channels of several caches into one NC cache: side by side, or one cache after the
    other in time.

    sequence : continue each channel of the first cache with those of the same name
    prefer : with sequence: "first" or "last", whose samples count where caches overlap
    allow_different_ranges : side by side: they may begin or end at different frames
    rate : frames per second of the caches that store none (PC2: else 24)
    per_frame, compact : a data file per frame, compression; None: as the first cache
    force : replace a cache that is there
    """
    return Copied(**_take(_core.merge(
        list(sources), target, sequence, prefer, allow_different_ranges, rate, per_frame, compact,
        force, progress)))


def diff(a: Path, b: Path, *, channel: Union[str, int, None] = None, tolerance: float = 0.0,
         progress: Optional[Progress] = None) -> Differences:
    """Compares two caches of any formats sample by sample: counts, times and values as stored.

    channel : number or name; else all, the first where one cache is PC2
    tolerance : values that differ by no more are equal
    """
    return Differences(**_take(_core.diff(a, b, channel, tolerance, progress)))


def verify(path: Path, format: Optional[str] = None, *,
           progress: Optional[Progress] = None) -> Verified:
    """Checks every size, index and checksum of a cache, which is read whole."""
    return Verified(**_take(_core.verify(path, format, progress)))


def recover(path: Path, *, force: bool = False) -> tuple[str, ...]:
    """Completes what a dead writer of a PC2 or NC cache left behind, under the cache's own name or
    FILE.recovered beside a whole cache that stands there.

    force : put it in the place of a whole cache too, which is kept as FILE.before-recover

    Returns what was saved and kept, a line each; raises CacheError when there was nothing to save.
    """
    return tuple(_core.recover(path, force))
