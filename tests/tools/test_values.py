"""The kelcache command on values and times: exact, or refused in words."""

import os
import struct
import subprocess
import unittest

import archives
from support import COMMAND, DATA, DONE, FAILED, FOUND, USAGE, CommandTest, run

IDS = [[1 << 40, (1 << 40) + 1], [(1 << 40) + 2, -7]]


class ValuesTest(CommandTest):
    def setUp(self):
        super().setUp()
        self.nc, self.out = self.folder / "cache.xml", self.folder / "out.pc2"

    def samples(self, path, channel=0):
        count = self.info(path)["channels"][channel]["samples"]
        return [self.dump(path, "--channel", channel, "--sample", i)["values"]
                for i in range(count)]

    def archive(self, name, *properties, **times):
        return archives.write(self.folder / name, properties, **times)

    def points(self, counts):
        """Particles whose count changes: sample i holds the points (i, k, 0)."""
        samples = [[float(value) for k in range(count) for value in (i, k, 0)]
                   for i, count in enumerate(counts)]
        return self.archive("points.abc", ("P", "float32", 3, samples)), samples

    def convert(self, path, *more):
        """Into an NC cache that holds the same."""
        self.run_done("convert", path, self.nc, *more)
        self.run_done("diff", path, self.nc)
        self.run_done("verify", self.nc)


class CountsThatVary(ValuesTest):
    def test_every_sample_has_its_own_length(self):
        path, samples = self.points([0, 2, 3, 1])
        self.convert(path)
        for cache in (path, self.nc):
            self.assertEqual(self.samples(cache), samples)
            rows = self.run_done("play", cache, "--stats").splitlines()[1:5]
            self.assertEqual([row.split()[1] for row in rows], list("0231"))

    def test_pc2_refuses_or_pads(self):
        path, samples = self.points([2, 2, 3, 1])
        self.expect_error(FAILED, "frame 2: 3 points after 2", "convert", path, self.out)
        self.assertFalse(self.out.exists())
        rests = {"zero": [[0, 0, 0]] * 2, "nan": [["nan"] * 3] * 2, "last": [[3, 0, 0]] * 2}
        for pad, rest in rests.items():
            self.run_done("convert", path, self.out, "--pad", pad, "--force")
            self.assertEqual(self.samples(self.out)[2:], [samples[2], samples[3] + sum(rest, [])])


class Integers(ValuesTest):
    def test_types_that_hold_them(self):
        path = self.archive("ids.abc", ("wide", "int64", 1, IDS), ("small", "int64", 1, [[-5, 7]]),
                            ("byte", "uint8", 1, [[255]]), ("double", "float64", 1, [[0.1, 1e300]]))
        self.convert(path)
        self.assertEqual([channel["type"] for channel in self.info(self.nc)["channels"]],
                         ["float64", "int32", "int32", "float64"])
        self.assertEqual(self.samples(path), IDS)
        for channel in range(4):
            self.assertEqual(self.samples(self.nc, channel), self.samples(path, channel))

    def test_neighbours_beyond_floats_differ(self):
        a, b = (self.archive(f"{name}.abc", ("id", "uint64", 1, [[value]]))
                for name, value in (("a", (1 << 64) - 1), ("b", (1 << 64) - 2)))
        self.assertIn("18446744073709551615 and 18446744073709551614", self.run_found("diff", a, b))
        self.expect_error(FAILED, "18446744073709551615 is neither a 32-bit integer nor exact",
                          "convert", a, self.nc, "--rate", 24)
        self.assertEqual(self.contents(), ["a.abc", "b.abc"])

    def test_repeats_stay_repeats_across_properties(self):
        big = [float(i) for i in range(3000)]
        self.convert(self.archive("many.abc", *(
            (f"P{i}", "float32", 3, [big if (i + j) % 2 else [0.0] * 3 for j in range(6)])
            for i in range(50))))
        self.assertLess(self.nc.with_suffix(".ncx").stat().st_size, 100_000)


class Times(ValuesTest):
    def film(self):
        """Two minutes at 24000/1001 frames per second, a point that counts."""
        return self.archive("film.abc", ("P", "float32", 3, [[float(i), 0, 0] for i in range(2880)]),
                            period=1001 / 24000, start=1001 / 24000)

    def test_rates_of_no_whole_ticks(self):
        path, direct = self.film(), self.folder / "direct.pc2"
        self.convert(path)
        info = self.info(self.nc)
        self.assertEqual((info["exactFrameRate"], info["ticksPerFrame"]), ("24000/1001", 250))
        self.assertEqual((info["firstFrame"], info["lastFrame"]), (1, 2880))
        self.assertAlmostEqual(info["end"], 2880 * 1001 / 24000, delta=0.5 / 6000)
        for frame in (1, 1440, 2880):
            for cache in (path, self.nc):
                found = self.dump(cache, "--frame", frame)
                self.assertEqual((found["sample"], found["frame"], found["values"][0]),
                                 (frame - 1, frame, frame - 1))
        self.assertIn("11 frames (1430 to 1440)",
                      self.run_done("play", self.nc, "--from", 1430, "--to", 1440))
        self.run_done("convert", self.nc, self.out)
        self.assertEqual(struct.unpack("<ffi", self.out.read_bytes()[20:32]), (1, 1, 2880))
        self.run_done("diff", path, self.out)
        self.run_done("convert", path, direct)
        self.assertEqual(direct.read_bytes(), self.out.read_bytes())

    def test_snapping_is_asked_for_and_found(self):
        path = self.film()
        self.run_done("convert", path, self.nc, "--snap-frames")
        self.assertEqual(self.info(self.nc)["frameRate"], 24)
        found = self.run_found("diff", path, self.nc)
        self.assertIn("frame rate 23.97602 and 24", found)
        self.assertIn("sample 2879 at 120.12 and 120 s", found)

    def test_samples_on_one_tick_are_refused(self):
        path = self.archive("fast.abc", ("P", "float32", 3, [[i] * 3 for i in range(3)]),
                            period=1 / 10000)
        self.expect_error(FAILED, "fall on one tick", "convert", path, self.nc, "--rate", 24)
        self.assertFalse(self.nc.exists())

    def test_irregular_samples_towards_pc2(self):
        path = DATA / "abc" / "acyclic.abc"
        self.run_done("convert", path, self.nc, "--rate", 24)
        for source, *rate in [(path, "--rate", 24), (self.nc,)]:
            self.expect_error(FAILED, "not evenly spaced", "convert", source, self.out, *rate)
        before, after = (self.dump(self.nc, "--sample", i) for i in range(2))
        for how in ("hold", "linear"):
            self.run_done("convert", self.nc, self.out, "--resample", how, "--force")
            for frame in range(-12, int(after["frame"])):
                share = (frame - before["frame"]) / (after["frame"] - before["frame"])
                values = self.dump(self.out, f"--frame={frame}")["values"]
                for one, a, b in zip(values, before["values"], after["values"]):
                    self.assertAlmostEqual(one, a + (b - a) * share * (how == "linear"), places=5)


class OneConversion(ValuesTest):
    """A part of a cache is what the whole one, cut afterwards, would be."""

    def test_whole_then_cut(self):
        film = self.archive("film.abc", ("P", "float32", 3, [[float(i), 0, 0] for i in range(30)]),
                            ("still", "int32", 1, [[1]] * 30), period=1001 / 30000)
        jelly, of_jelly = DATA / "pc2" / "jelly_drop.pc2", self.folder / "jelly.xml"
        run("convert", jelly, of_jelly)
        for folder in ("whole", "part"):
            (self.folder / folder).mkdir()
        for source, *part in [(jelly, "--from", 13, "--to", 14.5), (film, "--from", 4, "--to", 4),
                              (of_jelly, "--from", 13, "--to", 14.5)]:
            for target in ("out.pc2", "out.xml"):
                whole, cut, direct = (self.folder / folder / target
                                      for folder in ("whole", "part", ""))
                for words in ((source, whole), (whole, cut, *part), (source, direct, *part)):
                    self.assertEqual(run("convert", *words, "--force").returncode, DONE, words)
                told = [run("info", path).stdout.replace(f"{path.parent}/", "")
                        for path in (direct, cut)]
                self.assertEqual(*told, (source.name, target))
                self.run_done("diff", direct, cut)


class WhatIsNotThere(ValuesTest):
    def test_channels(self):
        path = self.pc2("a.pc2", 1, 1, [0] * 3)
        for channel in ("foo", "7", "-1", "99999999999999999999"):
            for verb in (["diff", path, path], ["convert", path, self.nc],
                         ["play", path], ["dump", path, "--sample", 0]):
                self.expect_error(USAGE, "no channel", *verb, f"--channel={channel}")

    def test_options_that_the_target_can_not_take(self):
        path = self.pc2("a.pc2", 1, 1, [0] * 3)
        self.convert(path)
        for words, option, *line in [("for NC caches", "--compact", "convert", self.nc, self.out),
                                     ("for NC caches", "--per-frame", "convert", self.nc, self.out),
                                     ("for NC caches", "--snap-frames", "convert", self.nc, self.out),
                                     ("for NC caches", "--per-frame", "retime", self.nc, self.out,
                                      "--offset", 1),
                                     ("for PC2 files", "--pad=zero", "convert", path, "b.xml")]:
            self.expect_error(USAGE, words, *line, option)

    def test_two_inputs_with_one_target(self):
        first, second = self.pc2("a.pc2", 1, 1, [0] * 3), self.points([1])[0].rename(
            self.folder / "a.abc")
        other = self.pc2("b.pc2", 1, 1, [0] * 3)
        done = run("convert", "--to", "xml", first, second, other)
        self.assertEqual(done.returncode, FAILED)
        self.assertEqual(done.stdout.count(f"is the target of both {first} and {second}"), 2)
        self.assertEqual(self.contents(), ["a.abc", "a.pc2", "b.ncx", "b.pc2", "b.xml"])

    def test_a_missing_data_file_is_named(self):
        path = self.make("a.xml", "--per-frame")
        (self.folder / "aFrame2.ncx").unlink()
        for verb in (["dump", path, "--frame", 2], ["diff", path, path],
                     ["convert", path, self.nc], ["play", path]):
            self.expect_error(FAILED, "frame 2: aFrame2.ncx: cannot open: No such file", *verb)

    def test_damaged_archives_are_not_complete(self):
        whole = (DATA / "abc" / "mesh_24fps.abc").read_bytes()
        at = whole.index(b"faceIndices") - 16
        path = self.folder / "damaged.abc"
        path.write_bytes(whole[:at] + b"\xff" * 8 + whole[at + 8:])
        self.assertIn("damaged and left out", self.info(path)["missing"])
        self.assertFalse(self.info(path)["complete"])
        for verb in (["convert", path, self.nc], ["play", path], ["diff", path, path],
                     ["trim", path, self.folder / "part.xml", "--to", 2]):
            self.assertIn("damaged and left out", self.run_found(*verb))


class ClaimsOfTinyFiles(ValuesTest):
    """Time and memory go by what a file holds."""

    def expect_frugal(self, *words):
        # A sanitizer needs address space of its own.
        memory = "" if os.environ.get("KELCACHE_SANITIZE") else "ulimit -v 524288; "
        done = subprocess.run(["bash", "-c", memory + 'exec timeout 2 "$@"', "-", COMMAND,
                               *map(str, words)], capture_output=True, text=True)
        self.assertIn(done.returncode, (DONE, FOUND, USAGE, FAILED), (words, done.stderr))
        self.assertNotIn("memory", done.stderr, words)
        return done

    def test_pc2(self):
        for points in (0, 1, 12):
            path = self.pc2(f"claims{points}.pc2", points, 2**31 - 1, [0] * 36)
            part = ["--force", "--from", 0, "--to", 3]
            for verb in (["info", path], ["play", path], ["play", path, "--from", 1, "--to", 3],
                         ["verify", path], ["check", path], ["diff", path, path],
                         ["dump", path, "--sample", 0],
                         ["convert", path, self.nc, "--force"], ["convert", path, self.nc, *part],
                         ["convert", path, self.out, *part],
                         ["retime", path, self.nc, "--offset", 1, "--force"]):
                self.expect_frugal(*verb)

    def test_a_constant_of_four_billion_samples(self):
        path = self.archive("claims.abc", ("P", "float32", 3, [[1.0, 2, 3]], 0xffffffff))
        part = ["--from", 4_000_000_000, "--to", 4_000_000_003]
        self.assertIn("4 frames (4e+09 to 4e+09)", self.expect_frugal("play", path, *part).stdout)
        for verb in (["info", path], ["verify", path], ["check", path],
                     ["dump", path, "--frame", 5],
                     ["convert", path, self.out, *part]):
            self.assertEqual(self.expect_frugal(*verb).returncode, DONE, verb)
        self.assertEqual(self.samples(self.out), [[1, 2, 3]] * 4)
        self.assertIn("outside the range of ticks",
                      self.expect_frugal("convert", path, self.nc).stderr)


if __name__ == "__main__":
    unittest.main()
