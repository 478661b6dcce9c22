"""Animation caches as NumPy arrays: PC2 point caches, NC multi-channel caches, Alembic archives.

    with kelcache.open("shot.pc2") as cache:
        points = cache.channels[0].read(frame=12)       # float32, shape (n, 3)

Scene frames and seconds name moments, samples count from 0. Objects serve one thread at a time;
every call that reads, writes or converts lets other threads run.
"""

from __future__ import annotations

import os
from fractions import Fraction
from typing import Optional, Union

from ._core import Cache, Channel, ChannelIterator, Channels, Writer, __version__, create
from ._errors import CacheError, CacheWarning, Cancelled
from ._verbs import (ChannelInfo, Copied, Differences, Info, Verified, convert, diff, extract, info,
                     merge, recover, resample, retime, transform, trim, verify)

__all__ = ["Cache", "CacheError", "CacheWarning", "Cancelled", "Channel", "ChannelInfo",
           "ChannelIterator", "Channels", "Copied", "Differences", "Info", "Verified", "Writer",
           "__version__", "convert", "create", "diff", "extract", "info", "merge", "open", "recover",
           "resample", "retime", "transform", "trim", "verify"]


def open(path: Union[str, bytes, "os.PathLike[str]"], format: Optional[str] = None,
         rate: Union[float, Fraction, str, None] = None) -> Cache:
    """Opens a cache for reading; close() or a with block ends it.

    path : .pc2, .xml (NC) or .abc (Alembic)
    format : "pc2", "nc" or "alembic", whatever the extension
    rate : frames per second to count frames at; PC2 stores none and is taken at 24

    Raises CacheError for a file that can not be read, ValueError for one whose format is not known.
    """
    return Cache(path, format, rate)
