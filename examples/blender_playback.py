"""Plays a cache on a mesh in Blender: any of the three formats, subframes included.

    blender --python examples/blender_playback.py -- CACHE [CHANNEL]

The package kelcache must be on the path of Blender's Python (PYTHONPATH with
--python-use-system-env). In Blender's text editor or another script:

    import blender_playback
    blender_playback.play("sim.xml", mesh_object)      # without an object a cloud of points is made
    blender_playback.stop(mesh_object)

A point of the mesh goes where the cache has the point of its number. Between two samples points go
straight; before the first and after the last they stay.
"""

from __future__ import annotations

import sys

import bpy
import numpy as np

import kelcache


class Playback:
    """One channel of a cache on one object. Keeps the samples on either side of the last frame."""

    def __init__(self, cache, channel, name):
        self.cache = cache
        self.channel = cache.channels[channel]
        self.name = name
        self.times = self.channel.times
        if self.channel.components != 3 or not len(self.times):
            raise ValueError(f"{self.channel.name}: the channel holds no points")
        self.first, self.step = self.times[0], 1
        if self.times[-1] < self.times[0]:            # PC2 files may count backwards
            self.times, self.step = self.times[::-1], -1
        self.samples = {}

    def sample(self, place):
        if place not in self.samples:
            number = place if self.step == 1 else len(self.times) - 1 - place
            self.samples[place] = self.channel[number]
        return self.samples[place]

    def at(self, time):
        """Points at a time in seconds, shape (n, 3)."""
        place = int(np.searchsorted(self.times, time + 1e-6, "right")) - 1
        before, after = max(place, 0), min(place + 1, len(self.times) - 1)
        self.samples = {key: kept for key, kept in self.samples.items() if key in (before, after)}
        points = self.sample(before)
        length = self.times[after] - self.times[before]
        share = (time - self.times[before]) / length if length > 0 else 0
        if share < 1e-4 or len(self.sample(after)) != len(points):
            return points
        return points + np.float32(min(share, 1)) * (self.sample(after) - points)

    def show(self, scene):
        target = bpy.data.objects.get(self.name)
        if target is None:
            return
        render = scene.render
        frame = scene.frame_current + scene.frame_subframe
        points = self.at(frame * render.fps_base / render.fps)
        vertices = target.data.vertices
        if len(points) != len(vertices):
            raise ValueError(f"{self.name}: {len(vertices)} vertices, the cache has {len(points)} "
                             f"points at frame {frame:g}")
        vertices.foreach_set("co", points.ravel())
        target.data.update()


playing = {}


def _on_frame(scene, _depsgraph=None):
    for playback in list(playing.values()):
        playback.show(scene)


def play(path, target=None, channel=0):
    """Plays a channel of a cache on a mesh object, which is returned; one of its own without."""
    cache = kelcache.open(path)
    points = cache.channels[channel][0]
    if target is None:
        mesh = bpy.data.meshes.new("cache")
        mesh.from_pydata(points.tolist(), [], [])
        target = bpy.data.objects.new("cache", mesh)
        bpy.context.scene.collection.objects.link(target)
    stop(target)
    playing[target.name] = Playback(cache, channel, target.name)
    if _on_frame not in bpy.app.handlers.frame_change_post:
        bpy.app.handlers.frame_change_post.append(_on_frame)
    _on_frame(bpy.context.scene)
    return target


def stop(target):
    playback = playing.pop(target.name, None)
    if playback is not None:
        playback.cache.close()


if __name__ == "__main__" and "--" in sys.argv:
    path, *more = sys.argv[sys.argv.index("--") + 1:]
    play(path, channel=more[0] if more else 0)
