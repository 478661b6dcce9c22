"""Runs the recipes of docs/python.md: each prints what stands under it."""

from __future__ import annotations

import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

from conftest import DATA

DOCUMENT = DATA.parent.parent / "docs" / "python.md"
RECIPES = re.findall(r"## ([^\n]*)\n\n```python\n(.*?)```\n\n```\n(.*?)```", DOCUMENT.read_text(),
                     re.S)


@pytest.fixture
def folder(tmp_path: pathlib.Path) -> pathlib.Path:
    for name, source in {"shot.pc2": "pc2/jelly_drop.pc2", "take1.pc2": "pc2/monkey_wave.pc2",
                         "take2.pc2": "pc2/monkey_wave_yup.pc2",
                         "body.abc": "abc/mesh_24fps.abc"}.items():
        shutil.copy(DATA / source, tmp_path / name)
    return tmp_path


def test_all_recipes_are_found() -> None:
    assert len(RECIPES) == DOCUMENT.read_text().count("```python") >= 10


@pytest.mark.parametrize("title, code, output", RECIPES, ids=[title for title, *_ in RECIPES])
def test_recipe(folder: pathlib.Path, title: str, code: str, output: str) -> None:
    done = subprocess.run([sys.executable, "-W", "error::DeprecationWarning", "-c", code],
                          cwd=folder, capture_output=True, text=True, env=os.environ)
    assert (done.stdout, done.returncode) == (output, 0), done.stderr
