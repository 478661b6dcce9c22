"""Saves a picture of the player page: python3 picture.py FILE.png"""

import os
import pathlib
import subprocess
import sys
import tempfile

from browser import Browser

OCEAN = pathlib.Path(__file__).resolve().parent.parent / "data" / "pc2" / "ocean_tile.pc2"
SIDE = 33  # points along each side of the tile


def grid():
    """Its faces, which a PC2 file does not hold."""
    lines = ["v 0 0 0"] * (SIDE * SIDE)
    for row in range(SIDE - 1):
        for column in range(1, SIDE):
            corner = row * SIDE + column
            lines.append(f"f {corner} {corner + 1} {corner + SIDE + 1} {corner + SIDE}")
    return "\n".join(lines)


with tempfile.TemporaryDirectory() as folder:
    mesh, page = pathlib.Path(folder, "ocean.obj"), pathlib.Path(folder, "ocean.html")
    mesh.write_text(grid())
    subprocess.run([os.environ["KELCACHE"], "view", OCEAN, "--mesh", mesh, "-o", page], check=True)
    browser = Browser()
    try:
        browser.resize(860, 760)
        browser.open(page)
        browser.element("wires").click()
        for _ in range(4):
            browser.element("canvas").send_keys("+")
        browser.run("window.kelcachePlayer.go(8); document.activeElement.blur()")
        browser.until("player.moment === 8")
        browser.picture()
        browser.save(pathlib.Path(sys.argv[1]))
    finally:
        browser.quit()
