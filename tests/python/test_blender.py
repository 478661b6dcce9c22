from __future__ import annotations

import os
import pathlib
import shutil
import subprocess

import pytest

import kelcache
from conftest import DATA, Make, pose

EXAMPLES = DATA.parent.parent / "examples"
CHECK = """
import sys
sys.path.insert(0, {examples!r})
import bpy, numpy as np
import blender_playback
scene = bpy.context.scene
scene.render.fps, scene.render.fps_base = 24, 1
target = blender_playback.play({path!r})
for frame, expected in {expected!r}:
    scene.frame_set(int(frame), subframe=frame - int(frame))
    found = np.empty(len(target.data.vertices) * 3, np.float32)
    target.data.vertices.foreach_get("co", found)
    assert np.allclose(found.reshape(-1, 3)[0], expected, atol=1e-5), (frame, found[:3], expected)
print("played")
"""


@pytest.mark.skipif(shutil.which("blender") is None, reason="blender is not installed")
@pytest.mark.skipif("asan" in os.environ.get("LD_PRELOAD", ""), reason="blender is no sanitized program")
@pytest.mark.parametrize("name", ["a.pc2", "a.xml", "mesh_24fps.abc"])
def test_playing_in_blender(make: Make, tmp_path: pathlib.Path, name: str) -> None:
    if name.endswith(".abc"):
        path = DATA / "abc" / name
        with kelcache.open(path) as cache:
            points = cache.channels[0].read_all()
        first, second = points[1][0], points[2][0]
    else:
        path, first, second = make(name), pose(1)[0], pose(2)[0]
    expected = [(1.0, first.tolist()), (1.25, (first + (second - first) / 4).tolist()),
                (2.0, second.tolist())]
    script = tmp_path / "check.py"
    script.write_text(CHECK.format(examples=str(EXAMPLES), path=str(path), expected=expected))
    done = subprocess.run(["blender", "--background", "--python-use-system-env",
                           "--python-exit-code", "1", "--python", script],
                          capture_output=True, text=True, env=os.environ)
    assert done.returncode == 0 and "played" in done.stdout, done.stdout + done.stderr
