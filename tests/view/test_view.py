"""Pages that `kelcache view` writes: what the command says of them, and what a browser shows."""

import contextlib
import json
import os
import pathlib
import random
import re
import signal
import sys
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "tools"))

import archives
from browser import IS_THERE, Browser
from support import DATA, DONE, FAILED, FOUND, USAGE, CommandTest, begin, float32, run

MESH = DATA / "abc" / "mesh_24fps.abc"
NAN = float("nan")

OBJ = "# a square\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 \\\n 3/1 -1\n"


class ViewTest(CommandTest):
    def view(self, path, *more, name="page.html"):
        page = self.folder / name
        self.run_done("view", path, "-o", page, *more)
        return page

    def write(self, name, text):
        path = self.folder / name
        path.write_text(text)
        return path

    def head(self, page):
        text = page.read_text()
        return json.loads(re.search(r'id="head">(.*?)</script>', text)[1])


class Command(ViewTest):
    def test_pages_are_replaced_by_force_alone(self):
        cache = self.make("shot.pc2")
        self.assertRegex(self.run_done("view", cache), r"shot.html: 6 frames, 50 points within \S+, ")
        page = self.folder / "shot.html"
        before = page.read_bytes()
        self.expect_error(FAILED, "exists already; --force replaces it", "view", cache)
        self.expect_error(USAGE, "ends in .html", "view", cache, "-o", cache, "--force")
        self.assertEqual(page.read_bytes(), before)
        link = self.folder / "link.html"
        link.symlink_to(page)
        self.run_done("view", cache, "-o", link, "--force", "--from", 2, "--to", 3)
        self.assertTrue(link.is_symlink())
        self.assertEqual(self.head(page)["frames"], [2, 3])
        self.assertEqual(self.contents(), ["link.html", "shot.html", "shot.pc2"])

    def test_what_cannot_be_shown_is_said(self):
        shot = self.make("shot.pc2", points=4)
        types = DATA / "nc" / "types.xml"
        other = self.make("other.pc2", points=5)
        mesh = self.write("square.obj", OBJ)
        cases = [
            (FAILED, "has no points", self.pc2("none.pc2", 0, 3, [])),
            (FAILED, "has no channel of positions", DATA / "abc" / "empty.abc"),
            (FAILED, "no sample lies in the frames", shot, "--from", 900),
            (USAGE, "does not hold vectors of 3", types, "--channel", "a"),
            (FAILED, "square.obj has 4 points, " + str(other) + " has 5", other, "--mesh", mesh),
            (FAILED, "has a mesh of 42 points", other, "--mesh", MESH),
            (FAILED, "holds no mesh", other, "--mesh", f"{MESH}:/wav"),
            (USAGE, "brings its own faces", MESH, "--mesh", mesh),
            (USAGE, "--mesh takes FILE.obj", other, "--mesh", shot),
            (FAILED, "line 2 is no face", shot, "--mesh", self.write("zero.obj", "v 0 0 0\nf 0 1 1\n")),
            (FAILED, "faces on points", shot, "--mesh", self.write("far.obj", "v 0 0 0\nf 1 2 3\n")),
            (FAILED, "holds no faces", shot, "--mesh", self.write("none.obj", "v 0 0 0\n")),
            (FAILED, "does not fit --max-size", shot, "--max-size", "10K"),
            (USAGE, "is not a size", shot, "--max-size", "-1"),
        ]
        before = self.contents()
        for status, line, *words in cases:
            with self.subTest(words=words):
                self.expect_error(status, line, "view", *words, "-o", self.folder / "page.html")
        self.assertEqual(self.contents(), before)

    def test_a_cache_cut_short_is_shown_as_far_as_it_goes(self):
        cache = self.make("cut.pc2")
        os.truncate(cache, 32 + 12 * 50 * 4 + 5)
        cut = run("view", cache)
        self.assertEqual(cut.returncode, FOUND)
        self.assertIn("holds 4 whole samples of 6", cut.stderr)
        head = self.head(self.folder / "cut.html")
        self.assertEqual((len(head["frames"]), head["notes"]), (4, ["holds 4 whole samples of 6 claimed"]))

    def test_frames_then_points_make_way_for_the_size(self):
        chance = random.Random(1)
        noise = [chance.random() for _ in range(3 * 4000 * 60)]
        cache = self.pc2("noise.pc2", 4000, 60, noise)
        empty = (self.view(self.make("tiny.pc2", points=1, frames=1), name="tiny.html")).stat().st_size
        for room, frames, points in [(3000000, 60, 4000), (1200000, 30, 4000), (500000, 30, 1200)]:
            page = self.folder / f"{room}.html"
            done = run("view", cache, "-o", page, "--max-size", empty + room)
            self.assertEqual(done.returncode, DONE, done.stderr)
            head = self.head(page)
            shown = len(head["frames"]), head["objects"][0]["points"]
            self.assertLessEqual(page.stat().st_size, empty + room)
            self.assertGreaterEqual(shown[0], min(frames, 24), shown)
            self.assertGreaterEqual(shown[1], points, shown)
            self.assertEqual(head["frames"][-1], 59)
            self.assertEqual("frames left out" in done.stderr, shown[0] < 60)
            self.assertEqual("points left out" in done.stderr, shown[1] < 4000)
            self.assertEqual([f"{page}: {note}" for note in head["notes"]],
                             [line.removeprefix("kelcache: ") for line in done.stderr.splitlines()])

    def test_interrupted_it_leaves_nothing(self):
        cache = self.sparse_pc2("long.pc2")
        command = begin("view", cache)
        while not any("part" in name for name in self.contents()):
            self.assertIsNone(command.poll())
        command.send_signal(signal.SIGINT)
        command.communicate()
        self.assertEqual((command.returncode, self.contents()), (130, ["long.pc2"]))


@unittest.skipUnless(IS_THERE or "CI" in os.environ, "chromium, chromedriver or selenium is missing")
class Page(ViewTest):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.quit)

    @contextlib.contextmanager
    def opened(self, page):
        """Whatever is done with a page, it complains of nothing and asks for nothing."""
        self.browser.open(page)
        yield self.browser
        self.assertEqual(self.browser.console(), [])
        for request in self.browser.requests():
            self.assertRegex(request, r"^(data:|" + re.escape(page.resolve().as_uri()) + ")")

    def expect_positions(self, cache, channel, frames, object=0):
        """What the page holds is what `dump` prints, within what the page says."""
        head = self.browser.ask("player.head")
        for moment in frames:
            self.browser.run("window.kelcachePlayer.go(arguments[0])", moment)
            self.assertEqual(self.browser.ask("player.moment"), moment)
            seconds = head["seconds"][moment]
            now = self.browser.element("now").text
            self.assertIn(f"{float(f'{seconds:.6g}'):g} s ({moment + 1} of {len(head['frames'])})", now)
            if head["frames"][moment] is not None:
                self.assertIn(f"frame {head['frames'][moment]:.9g},", now)
            self.assertEqual(self.browser.element("scrubber").get_property("value"), str(moment))
            dump = self.dump(cache, "--frame", repr(head["frames"][moment]), "--channel", channel)
            shown = self.browser.ask(f"player.positions({object}, {moment})")
            self.assertEqual(len(shown), len(dump["values"]))
            stored = float if channel == "b" else lambda value: float32(float(value))
            worst = max(abs(a - stored(b)) for a, b in zip(shown, dump["values"]))
            self.assertLessEqual(worst, head["error"] * 1.0001)
            self.assertGreater(worst, 0)

    def test_every_format_shows_its_points(self):
        for cache, channel, has_surface in [
                (DATA / "pc2" / "jelly_drop.pc2", "0", False),
                (DATA / "nc" / "twist_box.xml", "0", False),
                (DATA / "nc" / "types.xml", "b", False),  # doubles
                (MESH, "/wave/.geom/P", True)]:
            with self.subTest(cache.name), self.opened(
                    self.view(cache, "--channel", channel, name=cache.stem + ".html")) as browser:
                count = browser.ask("player.frameCount")
                self.expect_positions(cache, channel, [0, count // 2, count - 1])
                drawn, last = browser.picture()
                self.assertGreater(drawn, 100)
                browser.run("window.kelcachePlayer.go(0)")
                self.assertNotEqual(browser.picture()[1], last)
                self.assertEqual(browser.element("surface").is_selected(), has_surface)
                self.assertEqual(browser.element("points").is_selected(), not has_surface)
                self.assertEqual(len(browser.driver.find_elements("css selector", ".plot canvas")), 4)

    def test_surfaces_and_wires(self):
        square = self.pc2("square.pc2", 4, 2, [0, 0, 0, 1, 0, 0, 1, 0, 1, 0, 0, 1] * 2)
        page = self.view(square, "--mesh", self.write("square.obj", OBJ))
        with self.opened(page) as browser:
            surface = browser.picture()[0]
            browser.element("wires").click()
            browser.element("surface").click()
            wires = browser.picture()[0]
            browser.element("wires").click()
            self.assertEqual(browser.picture()[0], 0)
            browser.element("points").click()
            points = browser.picture()[0]
        self.assertGreater(surface, 20 * wires)
        self.assertGreater(wires, points)
        self.assertGreater(points, 4)
        points = self.folder / "wave.pc2"
        self.run_done("convert", MESH, points)
        for mesh, triangles in [([], 0), (["--mesh", MESH], 60), (["--mesh", f"{MESH}:/wave"], 60)]:
            page = self.view(points, *mesh, "--force")
            self.assertEqual(self.head(page)["objects"][0]["triangles"], triangles, mesh)

    def test_faces_and_counts_that_change(self):
        square = [0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0]
        samples = [square, square, square[:9], square]
        cache = archives.write(self.folder / "fluid.abc", [
            ("P", "float32", 3, samples),
            (".faceIndices", "int32", 1, [[0, 1, 2], [0, 1, 2, 3], [2, 1, 0], [0, 1, 2, 3, 9]]),
            (".faceCounts", "int32", 1, [[3], [4], [3], [4]])])
        page = self.folder / "page.html"
        done = run("view", cache, "-o", page)
        self.assertEqual((done.returncode, done.stderr),
                         (DONE, f"kelcache: {cache}: /it/P: has faces that do not fit its points\n"))
        with self.opened(page) as browser:
            drawn = []
            for moment in range(4):
                browser.run("window.kelcachePlayer.go(arguments[0])", moment)
                self.assertEqual(browser.ask(f"player.positions(0, {moment}).length"), len(samples[moment]))
                drawn.append(browser.picture()[0])
        half, whole, again, none = drawn
        self.assertAlmostEqual(half / whole, 0.5, delta=0.1)
        self.assertAlmostEqual(half, again, delta=0.1 * half)
        self.assertEqual(none, 0)

    def test_channels_with_other_times_hold_their_samples(self):
        place = lambda i: [i, 0, 0, 0, i, 1]
        cache = archives.write(self.folder / "two.abc", [
            ("P", "float32", 3, [place(i) for i in range(5)]),
            ("Q", "float32", 3, [place(9), place(8)])])
        both = ["--channel", "/it/P", "--channel", "/it/Q"]
        for more, frames, first in [([], [0, 1, 2, 3, 4], 9), (["--from", 2, "--to", 3], [2, 3], 8)]:
            with self.opened(self.view(cache, *both, *more, "--force")) as browser:
                self.assertEqual(browser.ask("player.head.frames"), frames)
                held = [browser.ask(f"player.positions(1, {i})[0]") for i in range(len(frames))]
                for value, expected in zip(held, [first] + [8] * (len(frames) - 1)):
                    self.assertAlmostEqual(value, expected, delta=1e-3)

    def test_several_objects_have_boxes(self):
        cache = DATA / "abc" / "user_props_visibility.abc"
        with self.opened(self.view(cache, "--all")) as browser:
            boxes = browser.driver.find_elements("css selector", "#list input")
            self.assertEqual([box.find_element("xpath", "..").text for box in boxes],
                             ["/node/child", "/node/plain"])
            both = browser.picture()
            boxes[0].click()
            boxes[1].click()
            self.assertEqual(browser.picture()[0], 0)
            browser.element("all").click()
            self.assertEqual(browser.picture(), both)
        one = run("view", cache, "-o", self.folder / "one.html")
        self.assertIn("1 of 2 channels of positions is shown; --all shows them all", one.stderr)

    def test_keys_mouse_and_plots(self):
        with self.opened(self.view(DATA / "pc2" / "jelly_drop.pc2")) as browser:
            keys = browser.driver.find_element("tag name", "body").send_keys
            at = lambda: browser.ask("player.moment")
            for key, moment in [(".", 1), (".", 2), (",", 1), ("\ue010", 24), (".", 0), ("\ue011", 0)]:
                keys(key)
                self.assertEqual(at(), moment, key)
            keys(" ")
            browser.until("player.playing && player.moment > 2")
            keys("k")
            browser.until("!player.playing")
            keys("\ue011")
            canvas = browser.element("canvas")
            pictures = [browser.picture()]
            for key in ("\ue012", "\ue013", "\ue008\ue014", "+", "f", "u", "c"):  # arrows, shift
                canvas.send_keys(key)
                self.assertNotEqual(browser.picture(), pictures[-1], key)
                pictures.append(browser.picture())
            browser.element("scrubber").send_keys("\ue014")
            self.assertEqual(at(), 1)
            browser.element("find").send_keys("7")
            x, y, z = browser.ask("player.positions(0, 1).slice(21, 24)")
            self.assertIn(f"point 7: ({x:.6g}, {y:.6g}, {z:.6g})", browser.element("tip").text)
            browser.element("find").clear()
            browser.run("const p = window.kelcachePlayer; p.go(0);")
            plot = browser.driver.find_element("css selector", ".plot .u-over")
            browser.mouse().move_to_element_with_offset(
                plot, plot.size["width"] // 2 - 2, 0).click().perform()
            self.assertEqual(at(), 24)
            spot = browser.run("""
                const canvas = document.getElementById('canvas');
                canvas.scrollIntoView();
                const w = canvas.clientWidth, h = canvas.clientHeight;
                for (let y = 0; y < h; y += 4) for (let x = 0; x < w; x += 4)
                  if (window.kelcachePlayer.pick(x, y) >= 0) return [x - w / 2, y - h / 2];""")
            browser.mouse().move_to_element_with_offset(canvas, *map(int, spot)).perform()
            browser.until("/point \\d+: \\(/.test(document.getElementById('tip').textContent)")

    def test_colours_tell_who_explodes_and_who_freezes(self):
        """The first point flies off, the second rests, the third wanders."""
        steps = [0, 0.1, 0.2, 0.3, 0.4, 3]
        data = [v for i, far in enumerate(steps) for v in (far, 0, 0, 0, 0, 1, 1 - i * 0.1, 0, 2)]
        with self.opened(self.view(self.pc2("wild.pc2", 3, 6, data))) as browser:
            browser.run("window.kelcachePlayer.go(5)")
            seen = browser.run("""
                const pixels = window.kelcachePlayer.pixels(), seen = { pink: 0, grey: 0, green: 0 };
                for (let i = 0; i < pixels.length; i += 4) {
                  const [r, g, b, a] = pixels.subarray(i, i + 4);
                  if (a < 255) continue;
                  if (r > 240 && g < 60) ++seen.pink;
                  if (Math.abs(r - 115) < 9 && Math.abs(b - 158) < 9) ++seen.grey;
                  if (g > r + 30 && g > b + 30) ++seen.green;
                }
                return seen;""")
            self.assertTrue(all(seen.values()), seen)
            self.assertIn("up to 0.2, pink beyond 0.8", browser.element("legend").text)

    def test_what_check_finds_is_marked(self):
        places = [[i * 0.1, 0, 0, 0, i * 0.1, 1] for i in range(12)]
        places[5][4] = NAN
        places[9][0] = 1e6
        cache = self.pc2("bad.pc2", 2, 12, sum(places, []), start=100)
        found = json.loads(run("check", cache, "--json").stdout)["findings"]
        with self.opened(self.view(cache)) as browser:
            lines = browser.driver.find_elements("css selector", "#findings button")
            self.assertEqual([line.text for line in lines], [finding["text"] for finding in found])
            for line, finding in zip(lines, found):
                line.click()
                self.assertIn(f"frame {finding['firstFrame']:g},", browser.element("now").text)
        self.assertEqual({finding["firstFrame"] for finding in found}, {105, 109})

    def test_odd_caches(self):
        one = self.pc2("one.pc2", 1, 1, [1, 2, 3])
        nothing = self.pc2("nan.pc2", 2, 2, [NAN] * 12)
        some = self.pc2("some.pc2", 2, 2, [0, 0, 0, 1, 1, 1, NAN, 0, 0, 1, 1, float("inf")])
        huge = self.pc2("huge.pc2", 2, 2, [0, 0, 0, 3e38, 1, 1, -3e38, 0, 0, 1, 1, 1])
        still = self.pc2("still.pc2", 1, 3, [0, 0, 0, 1, 0, 0, 2, 0, 0], rate=0)
        back = self.pc2("back.pc2", 1, 3, [0, 0, 0, 1, 0, 0, 2, 0, 0], rate=-1)
        for cache, last, frames in [(one, [1, 2, 3], [0]), (nothing, [None] * 6, [0, 1]),
                                    (some, [None] * 6, [0, 1]), (huge, None, [0, 1]),
                                    (still, [2, 0, 0], [0, 0, 0]), (back, [0, 0, 0], [-2, -1, 0])]:
            with self.subTest(cache.name), self.opened(
                    self.view(cache, name=cache.stem + ".html")) as browser:
                self.assertEqual(browser.ask("player.head.frames"), frames)
                end = len(frames) - 1
                browser.run("window.kelcachePlayer.go(arguments[0])", end)
                if last is not None:
                    self.assertEqual(browser.ask(f"player.positions(0, {end})"), last)
                browser.ask("player.play()")
        with self.opened(self.view(DATA / "abc" / "points_varying.abc")) as browser:
            counts = browser.ask("player.head.figures.elements")
            self.assertGreater(len(set(counts)), 1)
            self.assertEqual([browser.ask(f"player.positions(0, {i}).length / 3")
                              for i in range(len(counts))], counts)

    def test_ten_thousand_channels(self):
        cache = self.make("many.xml", "--channels", ",".join(f"c{i}" for i in range(10000)),
                          points=4, frames=3)
        channels = [word for i in range(9990, 10000) for word in ("--channel", f"c{i}")]
        with self.opened(self.view(cache, *channels)) as browser:
            self.expect_positions(cache, "c9999", [2], object=9)
        # One is said to hold points; the others are shown by name alone.
        self.assertEqual(len(self.head(self.view(cache, "--all", "--force"))["objects"]), 1)
        names = [word for i in range(1, 10000) for word in ("--channel", f"c{i}")]
        with self.opened(self.view(cache, *names, "--force")) as browser:
            self.assertEqual(browser.ask("player.head.objects.length"), 9999)
            self.assertGreater(browser.picture()[0], 0)

    def test_a_files_text_stays_text(self):
        names = ["</script><script>document.title='x'</script>", '"><img src=x onerror=alert(1)>',
                 "<!-- <script>", "😀 'q' & &lt;"]
        cache = self.make("\"'<b>&😀.xml", "--channels", ",".join(names))
        words = [word for name in names for word in ("--channel", name)]
        with self.opened(self.view(cache, *words, name="<!--😀.html")) as browser:
            self.assertEqual(browser.driver.title, cache.name)
            self.assertEqual(browser.element("title").text, cache.name)
            labels = browser.driver.find_elements("css selector", "#list label")
            self.assertEqual([label.text.strip() for label in labels], names)
            self.assertEqual(browser.driver.find_elements("css selector", "img, #list b"), [])

    def test_a_narrow_page_is_usable(self):
        page = self.view(DATA / "abc" / "mesh_24fps.abc")
        self.browser.resize(360, 740)
        try:
            with self.opened(page) as browser:
                self.assertLessEqual(browser.run("return document.documentElement.scrollWidth"), 360)
                for name in ("play", "back", "forward", "scrubber", "surface", "frame", "find"):
                    box = browser.run("""const b = document.getElementById(arguments[0])
                        .getBoundingClientRect(); return [b.left, b.right, b.height];""", name)
                    self.assertTrue(0 <= box[0] and box[1] <= 360 and box[2] >= 18, (name, box))
                self.assertGreater(browser.picture()[0], 100)
                browser.element("play").click()
                browser.until("player.playing && player.moment > 0")
        finally:
            self.browser.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_everything_has_a_name_for_screen_readers(self):
        with self.opened(self.view(MESH)) as browser:
            nameless = browser.run("""
                return [...document.querySelectorAll("button, input, select, canvas#canvas")]
                  .filter((e) => !(e.getAttribute("aria-label") || e.closest("label")?.textContent.trim() ||
                                   e.textContent.trim())).map((e) => e.id);""")
            self.assertEqual(nameless, [])
            self.assertIn("frame 0", browser.element("scrubber").get_attribute("aria-valuetext"))


if __name__ == "__main__":
    unittest.main()
