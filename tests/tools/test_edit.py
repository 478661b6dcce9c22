"""The verbs that cut and join caches, with their values held against NumPy's."""

import itertools
import resource
import signal
import subprocess
import time
import unittest

import archives
import numpy as np
from support import COMMAND, DATA, DONE, FAILED, USAGE, CommandTest, begin, run

MONKEY = DATA / "pc2" / "monkey_wave.pc2"  # frames 10 to 20, every half frame
TYPES = DATA / "nc" / "types.xml"          # five channels of all types, frames 0 to 5, encoding 1
MESH = DATA / "abc" / "mesh_24fps.abc"


def read_pc2(path):
    content = path.read_bytes()
    points, = np.frombuffer(content, "<i4", 1, 16)
    start, rate = np.frombuffer(content, "<f4", 2, 20)
    samples = np.frombuffer(content, "<f4", offset=32).reshape(-1, points, 3)
    return start + rate * np.arange(len(samples)), samples


class EditTest(CommandTest):
    def setUp(self):
        super().setUp()
        self.nc, self.out = self.folder / "out.xml", self.folder / "out.pc2"
        self.random = np.random.default_rng(7)

    def edit(self, *words, notes=()):
        """Runs a verb that may say something on standard error, which these words are in."""
        done = run(*words, "--force")
        self.assertEqual((done.returncode, bool(done.stderr)), (DONE, bool(notes)),
                         (words, done.stderr))
        for note in notes:
            self.assertIn(note, done.stderr, words)
        for word in words:
            if word in (self.nc, self.out):
                self.run_done("verify", word)

    def cloud(self, name, samples, start=0.0, rate=1.0):
        samples = np.asarray(samples, "<f4")
        return self.pc2(name, samples.shape[1], len(samples), samples.ravel(), start, rate)

    def channel(self, path, name):
        """Frames and arrays of a channel."""
        info, = (one for one in self.info(path)["channels"] if one["name"] == name)
        dumps = [self.dump(path, "--channel", name, "--sample", i) for i in range(info["samples"])]
        shape = (-1, 3) if info["type"].endswith("[3]") else -1
        arrays = [np.reshape(np.array(one["values"], info["type"].split("[")[0]), shape)
                  for one in dumps]
        return [one["frame"] for one in dumps], arrays

    def assertSameArrays(self, found, expected, message=None):
        self.assertEqual(len(found), len(expected), message)
        for one, other in zip(found, expected):
            np.testing.assert_array_equal(one, other, str(message))


class Trimming(EditTest):
    def test_samples_and_times_stay(self):
        frames, samples = read_pc2(MONKEY)
        self.edit("convert", MONKEY, self.folder / "monkey.xml")
        for source, target in itertools.product((MONKEY, self.folder / "monkey.xml"),
                                                (self.out, self.nc)):
            for first, last, every in [(12, 15, 1), (12, 15.5, 3), (None, 11, 2), (17, None, 100)]:
                words = [("--from", first), ("--to", last), ("--every", every)]
                self.edit("trim", source, target,
                          *(word for pair in words if pair[1] is not None for word in pair))
                kept = (frames >= (first or 0)) & (frames <= (last or 99))
                self.edit("convert", target, self.out) if target == self.nc else None
                found_frames, found = read_pc2(self.out)
                np.testing.assert_allclose(found_frames, frames[kept][::every], atol=1e-6)
                np.testing.assert_array_equal(found, samples[kept][::every])

    def test_form_and_channels_stay(self):
        frame_by_frame = self.make("each.xml", "--per-frame", "--compact", "--fps", "24000/1001")
        for source, more, files, tag in [(TYPES, [], 1, "ncc"), (TYPES, ["--raw"], 1, "ncx"),
                                         (frame_by_frame, [], 3, "ncc"),
                                         (frame_by_frame, ["--single-file", "--raw"], 1, "ncx")]:
            self.edit("trim", source, self.nc, "--from", 2, "--to", 4, *more)
            before, after = self.info(source), self.info(self.nc)
            self.assertEqual(len(after["dataFiles"]), files, more)
            self.assertTrue(after["dataFiles"][0]["name"].endswith(tag), more)
            if not more:
                self.assertEqual(after["compact"]["encoding"], before["compact"]["encoding"])
            self.assertEqual(after["exactFrameRate"], before["exactFrameRate"])
            for one, other in zip(before["channels"], after["channels"], strict=True):
                for key in ("name", "type", "interpretation"):
                    self.assertEqual(one[key], other[key])
                self.assertSameArrays(self.channel(self.nc, one["name"])[1],
                                      self.channel(source, one["name"])[1][2:5])

    def test_what_holds_at_the_first_frame_is_not_lost(self):
        self.edit("trim", MESH, self.nc, "--from", 2, "--to", 4,
                  notes=["/wave/front/.faceset/.faces has no sample in the frames asked for; the "
                         "last one before is put at frame 2"])
        name = "/wave/front/.faceset/.faces"
        frames, arrays = self.channel(self.nc, name)
        self.assertEqual(frames, [2])
        self.assertSameArrays(arrays, self.channel(MESH, name)[1][:1])
        # Samples at frames 0 and 24: an integer is what it was until the later one.
        name = "/wave/front/.faceset/.facesExclusive"
        self.edit("trim", MESH, self.nc, "--from", 20, notes=[f"{name} has its first sample at "
                                                              "frame 24; the last one before"])
        frames, arrays = self.channel(self.nc, name)
        self.assertEqual(frames, [20, 24])
        self.assertSameArrays(arrays, self.channel(MESH, name)[1])
        self.expect_error(FAILED, "no sample lies", "trim", MESH, self.folder / "x.xml",
                          "--from", 1000)

    def test_values_that_were_let_move_move_no_more(self):
        small = self.folder / "small.xml"
        run("convert", MONKEY, small, "--compact", "--max-error", 0.001)
        self.edit("trim", small, self.nc, "--from", 0, notes=["let move by 0.001, stay as they"])
        self.run_done("diff", small, self.nc)


class Extracting(EditTest):
    def test_channels_by_name_and_number(self):
        for words, names in [(["--channel", "b", "--channel", "0"], "ab"), (["--drop", "c"], "abde"),
                             (["--channel", "e", "--channel", "d", "--drop", "d"], "e")]:
            self.edit("extract", TYPES, self.nc, *words)
            self.assertEqual([one["name"] for one in self.info(self.nc)["channels"]], list(names))
            for name in names:
                self.run_done("diff", TYPES, self.nc, "--channel", name)
        for words, line in [(["--channel", "x"], 'no channel "x"; it has a, b, c, d, e'),
                            (["--drop", "x"], 'no channel "x"'),
                            (["--channel", "a", "--drop", "a"], "no channel is left"),
                            ([], "--channel or --drop")]:
            self.expect_error(USAGE, line, "extract", TYPES, self.folder / "none.xml", *words)
        self.edit("extract", TYPES, self.out, "--channel", "e")
        self.assertSameArrays(read_pc2(self.out)[1], self.channel(TYPES, "e")[1])
        self.expect_error(USAGE, "one channel and 2", "extract", TYPES, self.folder / "x.pc2",
                          "--channel", "b", "--channel", "e")


class Merging(EditTest):
    def test_side_by_side(self):
        other = self.folder / "other.xml"
        self.edit("extract", TYPES, other, "--channel", "c", "--channel", "e")
        cloud = self.cloud("cloud.pc2", self.random.random((6, 4, 3)))
        self.edit("merge", TYPES, other, cloud, self.nc,
                  notes=["channel c becomes other_c", "channel e becomes other_e"])
        self.assertEqual([one["name"] for one in self.info(self.nc)["channels"]],
                         [*"abcde", "other_c", "other_e", "cloud"])
        for name in "abcde":
            expected = self.channel(TYPES, name)[1]
            self.assertSameArrays(self.channel(self.nc, name)[1], expected)
            if name in "ce":
                self.assertSameArrays(self.channel(self.nc, f"other_{name}")[1], expected)
        self.assertSameArrays(self.channel(self.nc, "cloud")[1], read_pc2(cloud)[1])
        # Arrays that an archive keeps once stay so, and those of two archives are not mixed up.
        same, differs = (archives.write(self.folder / f"{name}.abc",
                                        [(name, "float32", 3, [value, [0.0] * 3, value])])
                         for name, value in (("p", [1.0] * 3), ("q", [2.0] * 3)))
        self.edit("merge", same, differs, self.nc)
        self.run_done("diff", same, self.nc, "--channel", "/it/p")
        self.run_done("diff", differs, self.nc, "--channel", "/it/q")

    def test_rates_and_ranges(self):
        slow, short = self.make("slow.xml", "--fps", 12), self.make("short.xml", frames=3)
        out = self.folder / "none.xml"
        for line, *words in [("has 24 frames per second and", slow, short),
                             ("resample brings it", slow, short),
                             ("holds frames 0 to 2 and", TYPES, short),
                             ("24 (assumed; --rate says another)", slow, MONKEY),
                             ("two caches or more", slow),
                             ("--prefer goes with", slow, slow, "--prefer", "last")]:
            files, more = words[:2], words[2:]
            self.expect_error(USAGE, line, "merge", *files, out, *more)
        self.edit("merge", TYPES, short, self.nc, "--allow-different-ranges")
        cloud = self.cloud("cloud.pc2", self.random.random((6, 4, 3)))
        self.edit("merge", slow, cloud, self.nc, "--rate", 12)

    def test_one_after_the_other(self):
        parts = [self.folder / f"part{i}.xml" for i in range(3)]
        for part, words in zip(parts, [("--to", 1), ("--from", 2, "--to", 3), ("--from", 4)]):
            self.edit("trim", TYPES, part, *words)
        self.edit("merge", parts[2], parts[0], parts[1], self.nc, "--sequence")
        self.run_done("diff", TYPES, self.nc)
        self.edit("merge", parts[0], parts[2], self.nc, "--sequence",
                  notes=["no samples between frame 1 of", "frame 4 of"])
        few = self.folder / "few.xml"
        self.edit("extract", parts[1], few, "--drop", "c")
        for one, other in [(parts[0], few), (few, parts[0])]:
            self.expect_error(USAGE, 'has no channel "c"', "merge", one, other,
                              self.folder / "x.xml", "--sequence")

    def test_channels_named_after_their_caches_go_on(self):
        frames, samples = read_pc2(MONKEY)
        parts = [self.folder / "a.xml", self.folder / "b.pc2", self.folder / "c.xml"]
        for part, (first, last) in zip(parts, [(10, 12), (12.5, 17), (17.5, 20)]):
            self.edit("trim", MONKEY, part, "--from", first, "--to", last)
        self.edit("merge", *parts, self.nc, "--sequence")
        self.assertEqual(self.info(self.nc)["channels"][0]["name"], "out")
        self.run_done("diff", MONKEY, self.nc)

    def test_overlaps(self):
        long = self.cloud("long.pc2", np.full((10, 1, 3), 1))
        inner = self.cloud("inner.pc2", np.full((3, 1, 3), 2), start=4)
        later = self.cloud("later.pc2", np.full((5, 1, 3), 3), start=6, rate=2)
        back = self.cloud("back.pc2", np.full((10, 1, 3), 4), start=9, rate=-1)
        files = long, inner, later
        line = "overlaps {} from frame {} to frame {}; --prefer"
        for one, other, first, last in [(long, inner, 4, 6), (inner, long, 4, 6),
                                        (long, back, 0, 9), (long, later, 6, 9)]:
            said = self.expect_error(FAILED, "", "merge", one, other, self.folder / "x.xml",
                                     "--sequence")
            self.assertIn(f"from frame {first} to frame {last}; --prefer", said)
        for prefer, order, expected in [
                ("first", files, {**dict.fromkeys(range(10), 1), 10: 3, 12: 3, 14: 3}),
                ("last", files, {**dict.fromkeys(range(4), 1), 4: 2, 5: 2, 6: 3, 8: 3, 10: 3,
                                 12: 3, 14: 3}),
                ("last", (later, long, inner), {**dict.fromkeys(range(10), 1), 4: 2, 5: 2, 6: 2,
                                                10: 3, 12: 3, 14: 3}),
                ("last", (inner, back), dict.fromkeys(range(10), 4))]:
            self.assertEqual(run("merge", *order, self.nc, "--sequence", "--prefer", prefer,
                                 "--force").returncode, DONE)
            frames, arrays = self.channel(self.nc, "out")
            found = {frame: array[0, 0] for frame, array in zip(frames, arrays)}
            self.assertEqual(found, expected, (prefer, order))


def cubic(times, values, time):
    """By the definition: slopes of parabolas through three neighbours, a Hermite curve between."""
    i = np.searchsorted(times, time, side="right") - 1
    if time == times[i]:
        return values[i]

    def slope(k):
        three = slice(min(max(k - 1, 0), len(times) - 3), None)
        t, v = times[three][:3], values[three][:3]
        if len(t) < 3:
            return (v[1] - v[0]) / (t[1] - t[0])
        fitted = np.polyfit(t - times[k], v.reshape(3, -1), 2)
        return fitted[1].reshape(v.shape[1:])
    step = times[i + 1] - times[i]
    s = (time - times[i]) / step
    return ((2 * s**3 - 3 * s**2 + 1) * values[i] + (s**3 - 2 * s**2 + s) * step * slope(i)
            + (3 * s**2 - 2 * s**3) * values[i + 1] + (s**3 - s**2) * step * slope(i + 1))


class Resampling(EditTest):
    def test_against_numpy(self):
        samples = self.random.normal(size=(9, 5, 3)).astype("f4")
        source = self.cloud("in.pc2", samples, start=-2, rate=1.5)
        times = np.arange(9) * 1.5 - 2
        methods = {
            "hold": lambda t: samples[np.searchsorted(times, t + 1e-9, side="right") - 1],
            "linear": lambda t: np.array([np.interp(t, times, one) for one
                                          in samples.reshape(9, -1).T]).reshape(5, 3),
            "cubic": lambda t: cubic(times, samples.astype("f8"), t)}
        for (method, value), (rate, ratio) in itertools.product(
                methods.items(), [("24", 1), ("60", 0.4), ("10", 2.4), ("24000/1001", 1.001)]):
            for target in (self.out, self.nc):
                self.edit("resample", source, target, "--source-rate", 24, "--rate", rate,
                          "--method", method)
                if target == self.nc:
                    self.assertAlmostEqual(self.info(target)["frameRate"], 24 / ratio)
                    self.edit("convert", target, self.out)
                frames, found = read_pc2(self.out)
                numbers = np.arange(np.ceil(-2 / ratio), np.floor(10 / ratio) + 1)
                np.testing.assert_array_equal(frames, numbers)
                for number, one in zip(numbers, found):
                    time = number * ratio
                    near = times[np.argmin(abs(times - time))]
                    if abs(near - time) < 1e-9:  # a sample itself, to the bit
                        np.testing.assert_array_equal(one, samples[list(times).index(near)])
                    else:
                        np.testing.assert_allclose(one, value(time), rtol=1e-5, atol=1e-5)

    def test_a_parabola_through_uneven_samples(self):
        times = np.array([0, 1, 2, 5, 6, 9])
        whole = np.arange(10)[:, None, None] * np.ones((1, 2, 3))
        source = self.cloud("in.pc2", (whole - 3) ** 2 / 4)
        pieces = []
        for i, time in enumerate(times):
            pieces.append(self.folder / f"piece{i}.{'pc2' if i % 2 else 'xml'}")
            self.edit("trim", source, pieces[-1], "--from", time, "--to", time)
        uneven = self.folder / "uneven.xml"
        run("merge", *pieces, uneven, "--sequence")
        self.edit("resample", uneven, self.nc, "--rate", 96, "--method", "cubic")
        frames, arrays = self.channel(self.nc, "uneven")
        self.assertEqual(frames, list(range(37)))
        for frame, array in zip(frames, arrays):
            np.testing.assert_allclose(array, (frame / 4 - 3) ** 2 / 4, atol=2e-6)

    def test_what_is_held(self):
        samples = [[float(value)] * 3 * (2 + (i > 1)) for i, value in enumerate((0, 4, 8, 12))]
        source = archives.write(self.folder / "a.abc", [
            ("P", "float32", 3, samples), ("id", "int32", 1, [[i, 9] for i in range(4)]),
            ("d", "float64", 1, [[0.1 * i] for i in range(4)])])
        for method in ("linear", "cubic"):
            self.edit("resample", source, self.nc, "--rate", 48, "--method", method)
            points = self.channel(self.nc, "/it/P")[1]
            self.assertEqual([len(one) for one in points], [2, 2, 2, 2, 3, 3, 3])
            self.assertEqual([one[0, 0] for one in points], [0, 2, 4, 4, 8, 10, 12])
            self.assertSameArrays(self.channel(self.nc, "/it/id")[1],
                                  [[i // 2, 9] for i in range(7)])
            found = np.ravel(self.channel(self.nc, "/it/d")[1])
            np.testing.assert_allclose(found, np.arange(7) * 0.05, rtol=1e-15)
            self.assertEqual(self.info(self.nc)["channels"][2]["type"], "float64")

    def test_rates_that_are_not_known(self):
        self.expect_error(USAGE, "--source-rate tells it", "resample", MONKEY, self.out,
                          "--rate", 30)
        self.expect_error(USAGE, "--source-rate is for PC2", "resample", TYPES, self.nc,
                          "--rate", 30, "--source-rate", 24)


def turn(axis, degrees):
    c, s = np.cos(np.radians(degrees)), np.sin(np.radians(degrees))
    i, k = [(1, 2), (2, 0), (0, 1)][axis]
    matrix = np.eye(3)
    matrix[i, i], matrix[i, k], matrix[k, i], matrix[k, k] = c, -s, s, c
    return matrix


class Transforming(EditTest):
    ALL = ["--scale", 2.5, "--units", "in-to-cm", "--axis", "y-up-to-z-up", "--rotate",
           "10,-20,135", "--translate", "-1,0.5,7"]

    def test_against_numpy(self):
        matrix = turn(2, 135) @ turn(1, -20) @ turn(0, 10) @ turn(0, 90)
        move = np.array([-1, 0.5, 7])
        scale = 2.5 * 2.54
        expected = {"point": lambda v: v @ (scale * matrix).T + move,
                    "vector": lambda v: v @ (scale * matrix).T, "normal": lambda v: v @ matrix.T}
        self.edit("transform", MESH, self.nc, *self.ALL)
        for channel in self.info(MESH)["channels"]:
            name, kind = channel["name"], channel["interpretation"]
            before, after = self.channel(MESH, name)[1], self.channel(self.nc, name)[1]
            if channel["type"] == "float32[3]":
                for one, other in zip(after, before, strict=True):
                    np.testing.assert_allclose(one, expected[kind](other.astype("f8")), rtol=1e-5,
                                               atol=1e-5)
            elif kind == "box":
                for one, other in zip(after, before, strict=True):
                    if (other[:3] > other[3:]).any():  # of nothing
                        np.testing.assert_array_equal(one, other)
                        continue
                    corners = expected["point"](
                        np.array(list(itertools.product(*other.reshape(2, 3).T))))
                    np.testing.assert_allclose(one, np.ravel([corners.min(0), corners.max(0)]))
            else:
                self.assertSameArrays(after, before, name)

    def test_exact_where_it_can_be(self):
        values = np.array([[[1.1, np.nan, -3.3], [1e-40, np.inf, 5]]], "f4")
        source = self.cloud("in.pc2", values)
        turned = np.stack([values[..., 0], -values[..., 2], values[..., 1]], axis=-1)
        for words, expected in [(["--rotate", "90,0,0"], turned),
                                (["--axis", "y-up-to-z-up"], turned),
                                (["--axis", "z-up-to-y-up", "--rotate", "180,0,0"], turned),
                                (["--units", "m-to-cm"], (values * 100.0).astype("f4")),
                                (["--translate", "0,1,0"], values + np.array([0, 1, 0], "f4"))]:
            self.edit("transform", source, self.out, *words)
            np.testing.assert_array_equal(read_pc2(self.out)[1], expected, str(words))
        self.edit("transform", source, self.out, "--rotate", "0,0,30")
        np.testing.assert_array_equal(
            np.isfinite(read_pc2(self.out)[1][0]), [[False, False, True], [False, False, True]])
        exact = archives.write(self.folder / "d.abc", [("p", "float64", 3, [[0.1, 0.2, 0.3]])])
        self.edit("transform", exact, self.nc, "--points", "/it/p", "--units", "mm-to-m",
                  "--rate", 25)
        self.assertSameArrays(self.channel(self.nc, "/it/p")[1],
                              [np.array([[0.1, 0.2, 0.3]]) * 0.001])

    def test_refusals(self):
        out = self.folder / "none.xml"
        scale = ["--scale", 2]
        bare = ["--leave", "a", "--vectors", "b"]
        for status, line, source, *words in [
                (USAGE, "channel e (float32[3], no interpretation) may hold points, vectors or "
                        "neither: give --points", TYPES, *scale, *bare),
                (USAGE, "channel c holds int32", TYPES, *scale, *bare, "--points", "c"),
                (USAGE, "named by two options", TYPES, *scale, "--points", "b", *bare),
                (USAGE, 'no channel "x"', TYPES, *scale, "--leave", "x"),
                (USAGE, "/root/.xform/.vals (float64[9], no interpretation)",
                 DATA / "abc" / "xforms.abc", *scale),
                (USAGE, "a change: --scale", TYPES),
                (USAGE, "is not three numbers", TYPES, "--rotate", "1,2"),
                (USAGE, "is not A-to-B of mm, cm", TYPES, "--units", "cm-to-parsec"),
                (FAILED, "frame 10: a transformed value leaves the range", MONKEY, "--scale", 1e39)]:
            self.expect_error(status, line, "transform", source, out, *words)
        self.assertEqual(self.contents(), [])

    def test_combined_in_one_pass(self):
        one, two, three = (self.folder / f"{i}.xml" for i in range(3))
        self.edit("trim", TYPES, one, "--from", 1, "--every", 2)
        self.edit("extract", one, two, "--drop", "a")
        self.edit("transform", two, three, "--scale", 3, "--points", "b", "--vectors", "e")
        self.edit("convert", TYPES, self.nc, "--from", 1, "--every", 2, "--drop", "a", "--scale", 3,
                  "--points", "b", "--vectors", "e")
        self.run_done("diff", three, self.nc)


class Ends(EditTest):
    """Whatever ends a verb leaves the older target whole and nothing beside it."""

    def test_refused_interrupted_or_out_of_room(self):
        source = self.sparse_pc2("in.pc2", points=200000, samples=1000)
        verbs = [["trim", source, "OUT", "--every", 2], ["resample", source, "OUT", "--rate", 60,
                                                         "--source-rate", 24],
                 ["transform", source, "OUT", "--scale", 2], ["merge", source, source, "OUT"]]
        small = self.make("small.pc2", points=2, frames=2)
        for verb in verbs:
            kept = self.folder / ("kept.xml" if verb[0] == "merge" else "kept.pc2")
            self.run_done("convert", small, kept, "--force")
            words = [kept if word == "OUT" else word for word in verb]
            itself = [source if word == "OUT" else word for word in verb]
            self.expect_error(FAILED, "exists already", *words)
            if verb[0] != "merge":
                self.expect_error(USAGE, "is the source itself", *itself, "--force")
            before = self.contents()
            running = begin(*words, "--force")
            time.sleep(0.2)
            running.send_signal(signal.SIGINT)
            running.communicate()
            self.assertEqual(running.returncode, 128 + signal.SIGINT, verb)
            full = subprocess.run(
                [COMMAND, *map(str, words), "--force"], capture_output=True, text=True,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10**6, 10**6)))
            self.assertEqual(full.returncode, FAILED, (verb, full.stderr))
            self.assertEqual(self.contents(), before, verb)
            self.run_done("diff", small, kept)


if __name__ == "__main__":
    unittest.main()
