"""The kelcache command on values and times: exact, or refused in words."""

import json
import os
import struct
import subprocess
import unittest

import archives
from support import COMMAND, DATA, DONE, FAILED, FOUND, USAGE, CommandTest, run

IDS = [[1 << 40, (1 << 40) + 1], [(1 << 40) + 2, -7]]


class ValuesTest(CommandTest):
    def dump(self, path, channel, sample=0):
        return json.loads(self.run_done("dump", path, "--channel", channel, "--sample", sample))

    def samples(self, path, channel=0):
        count = self.info(path)["channels"][channel]["samples"]
        return [self.dump(path, channel, i)["values"] for i in range(count)]

    def points(self, counts):
        """Particles whose count changes: sample i holds the points (i, k, 0)."""
        samples = [[float(value) for k in range(count) for value in (i, k, 0)]
                   for i, count in enumerate(counts)]
        return archives.write(self.folder / "points.abc", [("P", "float32", 3, samples)]), samples


class CountsThatVary(ValuesTest):
    def test_every_sample_has_its_own_length(self):
        path, samples = self.points([0, 2, 3, 1])
        nc = self.folder / "points.xml"
        self.run_done("convert", path, nc)
        for cache in (path, nc):
            self.assertEqual(self.samples(cache), samples)
            rows = self.run_done("play", cache, "--stats").splitlines()[1:5]
            self.assertEqual([row.split()[1] for row in rows], list("0231"))
        self.run_done("diff", path, nc)

    def test_pc2_refuses_or_pads(self):
        path, samples = self.points([2, 2, 3, 1])
        out = self.folder / "out.pc2"
        self.expect_error(FAILED, "frame 2: 3 points after 2", "convert", path, out)
        self.assertFalse(out.exists())
        rests = {"zero": [[0, 0, 0]] * 2, "nan": [["nan"] * 3] * 2, "last": [[3, 0, 0]] * 2}
        for pad, rest in rests.items():
            self.run_done("convert", path, out, "--pad", pad, "--force")
            self.assertEqual(self.samples(out)[2], samples[2])
            self.assertEqual(self.samples(out)[3], samples[3] + sum(rest, []))

    def test_arrays_that_are_always_empty(self):
        path = archives.write(self.folder / "none.abc", [("P", "float32", 3, [[], []]),
                                                         ("id", "int32", 1, [[], [4]])])
        nc = self.folder / "none.xml"
        self.run_done("convert", path, nc)
        for cache in (path, nc):
            self.assertEqual(self.samples(cache), [[], []])
            self.assertEqual(self.samples(cache, 1), [[], [4]])
        self.assertIn("2 frames", self.run_done("play", path))
        self.run_done("diff", path, nc)


class Integers(ValuesTest):
    def test_types_that_hold_them(self):
        path = archives.write(self.folder / "ids.abc", [
            ("wide", "int64", 1, IDS), ("small", "int64", 1, [[-5, 7], [1 << 31, 8]][:1]),
            ("byte", "uint8", 1, [[255]]), ("double", "float64", 1, [[0.1, 1e300]])])
        nc = self.folder / "ids.xml"
        self.run_done("convert", path, nc)
        self.assertEqual([channel["type"] for channel in self.info(nc)["channels"]],
                         ["float64", "int32", "int32", "float64"])
        self.assertEqual(self.samples(path), IDS)
        for channel in range(4):
            self.assertEqual(self.samples(nc, channel), self.samples(path, channel))
        self.run_done("diff", path, nc)

    def test_neighbours_beyond_floats_differ(self):
        a, b = (archives.write(self.folder / f"{name}.abc", [("id", "uint64", 1, [[value]])])
                for name, value in (("a", (1 << 64) - 1), ("b", (1 << 64) - 2)))
        found = run("diff", a, b)
        self.assertEqual(found.returncode, FOUND)
        self.assertIn("18446744073709551615 and 18446744073709551614", found.stdout)
        self.expect_error(FAILED, "18446744073709551615 is neither a 32-bit integer nor exact",
                          "convert", a, self.folder / "a.xml", "--rate", 24)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.abc", "b.abc"])

    def test_repeats_stay_repeats_across_properties(self):
        big = [float(i) for i in range(3000)]
        path = archives.write(self.folder / "many.abc", [
            (f"P{i}", "float32", 3, [big if (i + j) % 2 else [0.0] * 3 for j in range(6)])
            for i in range(50)])
        nc = self.folder / "many.xml"
        self.run_done("convert", path, nc)
        self.assertLess((self.folder / "many.ncx").stat().st_size, 100_000)
        self.run_done("diff", path, nc)
        self.assertEqual(self.run_done("verify", nc), "")
        self.run_done("convert", path, nc, "--per-frame", "--force")
        self.run_done("diff", path, nc)


class Times(ValuesTest):
    def film(self):
        """Two minutes at 24000/1001 frames per second, a point that counts."""
        return archives.write(self.folder / "film.abc",
                              [("P", "float32", 3, [[float(i), 0, 0] for i in range(2880)])],
                              period=1001 / 24000, start=1001 / 24000)

    def test_rates_of_no_whole_ticks(self):
        path, nc, pc2 = self.film(), self.folder / "film.xml", self.folder / "film.pc2"
        self.run_done("convert", path, nc)
        info = self.info(nc)
        self.assertEqual((info["exactFrameRate"], info["ticksPerFrame"]), ("24000/1001", 250))
        self.assertEqual((info["firstFrame"], info["lastFrame"]), (1, 2880))
        self.assertAlmostEqual(info["end"], 2880 * 1001 / 24000, delta=0.5 / 6000)
        for frame in (1, 1440, 2880):
            for cache in (path, nc):
                found = json.loads(self.run_done("dump", cache, "--frame", frame))
                self.assertEqual((found["sample"], found["frame"]), (frame - 1, frame))
                self.assertEqual(found["values"][0], frame - 1)
        self.assertIn("11 frames (1430 to 1440)",
                      self.run_done("play", nc, "--from", 1430, "--to", 1440))
        self.run_done("diff", path, nc)
        self.run_done("convert", nc, pc2)
        self.assertEqual(struct.unpack("<ffi", pc2.read_bytes()[20:32]), (1, 1, 2880))
        self.run_done("diff", path, pc2)
        direct = self.folder / "direct.pc2"
        self.run_done("convert", path, direct)
        self.assertEqual(direct.read_bytes(), pc2.read_bytes())

    def test_snapping_is_asked_for_and_found(self):
        path, nc = self.film(), self.folder / "film.xml"
        self.run_done("convert", path, nc, "--snap-frames")
        self.assertEqual(self.info(nc)["frameRate"], 24)
        found = run("diff", path, nc)
        self.assertEqual(found.returncode, FOUND)
        self.assertIn("frame rate 23.97602 and 24", found.stdout)
        self.assertIn("sample 2879 at 120.12 and 120 s", found.stdout)

    def test_samples_on_one_tick_are_refused(self):
        path = archives.write(self.folder / "fast.abc",
                              [("P", "float32", 3, [[0.0] * 3, [1.0] * 3, [2.0] * 3])],
                              period=1 / 10000)
        self.expect_error(FAILED, "fall on one tick", "convert", path, self.folder / "a.xml",
                          "--rate", 24)
        self.assertFalse((self.folder / "a.xml").exists())

    def test_irregular_samples_towards_pc2(self):
        path, nc = DATA / "abc" / "acyclic.abc", self.folder / "a.xml"
        self.run_done("convert", path, nc, "--rate", 24)
        out = self.folder / "a.pc2"
        for source in (path, nc):
            rate = ["--rate", 24] if source == path else []
            self.expect_error(FAILED, "not evenly spaced", "convert", source, out, *rate)
        held, blended = self.folder / "held.pc2", self.folder / "blended.pc2"
        self.run_done("convert", nc, held, "--resample", "hold")
        self.run_done("convert", nc, blended, "--resample", "linear")
        frames = [moment["frame"] for moment in
                  (json.loads(self.run_done("dump", nc, "--sample", i)) for i in range(2))]
        before, after = (self.dump(nc, 0, i)["values"] for i in range(2))
        for frame in range(-12, int(frames[1]) + 1):
            share = (frame - frames[0]) / (frames[1] - frames[0])
            at = ["--frame", frame]
            expected = [a + (b - a) * share for a, b in zip(before, after)]
            values = json.loads(self.run_done("dump", blended, f"--frame={frame}"))["values"]
            for one, other in zip(values, expected):
                self.assertAlmostEqual(one, other, places=5)
            if frame < frames[1]:
                self.assertEqual(
                    json.loads(self.run_done("dump", held, f"--frame={frame}"))["values"], before)


class OneConversion(ValuesTest):
    """A part of a cache is what the whole one, cut afterwards, would be."""

    def headers(self, path):
        info = self.info(path)
        return {key: info[key] for key in
                ("format", "frameRate", "exactFrameRate", "firstFrame", "lastFrame")} | {
                    "channels": [{key: channel[key] for key in
                                  ("name", "type", "interpretation", "samples", "interval")}
                                 for channel in info["channels"]]}

    def test_whole_then_cut(self):
        jelly = self.folder / "jelly.pc2"
        jelly.write_bytes((DATA / "pc2" / "jelly_drop.pc2").read_bytes())
        monkey = DATA / "pc2" / "monkey_wave.pc2"
        made = {"monkey.xml": monkey, "jelly.xml": jelly}
        for name, source in made.items():
            run("convert", source, self.folder / name)
        film = archives.write(self.folder / "film.abc", [
            ("P", "float32", 3, [[float(i), 0, 0] for i in range(30)]),
            ("still", "int32", 1, [[1]] * 30)], period=1001 / 30000)
        (self.folder / "whole").mkdir()
        (self.folder / "part").mkdir()
        ranges = {"jelly": (13, 14.5), "monkey": (12, 13), "film": (4, 4), "monkey_wave": (12, 13)}
        for source in (jelly, monkey, self.folder / "monkey.xml", self.folder / "jelly.xml", film):
            part = ["--from", ranges[source.stem][0], "--to", ranges[source.stem][1]]
            for target in ("out.pc2", "out.xml"):
                whole, cut, direct = (self.folder / folder / target
                                      for folder in ("whole", "part", ""))
                for words in ((source, whole), (whole, cut, *part), (source, direct, *part)):
                    self.assertEqual(run("convert", *words, "--force").returncode, DONE, words)
                self.assertEqual(self.headers(direct), self.headers(cut), (source.name, target))
                self.run_done("diff", direct, cut)

    def test_retime_keeps_the_interval(self):
        nc, one = self.folder / "shot.xml", self.folder / "one.xml"
        self.run_done("convert", DATA / "pc2" / "monkey_wave.pc2", nc)
        self.run_done("convert", nc, one, "--from", 12, "--to", 12)
        for how, interval in [(("--offset", 5), 0.5 / 24), (("--scale", 2), 1 / 24),
                              (("--rate", 12), 0.5 / 12)]:
            for source in (nc, one):
                out = self.folder / "out.xml"
                self.run_done("retime", source, out, *how, "--force")
                found = self.info(out)["channels"][0]["interval"]
                self.assertAlmostEqual(found, interval, msg=(source.name, how))


class WhatIsNotThere(ValuesTest):
    def test_channels(self):
        path = self.pc2("a.pc2", 1, 1, [0] * 3)
        for channel in ("foo", "7", "-1", "99999999999999999999"):
            for verb in (["diff", path, path], ["convert", path, self.folder / "e.xml"],
                         ["play", path], ["dump", path, "--sample", 0]):
                self.expect_error(USAGE, "no channel", *verb, f"--channel={channel}")
        mesh = DATA / "abc" / "mesh_24fps.abc"
        by_name = self.run_done("dump", mesh, "--sample", 3, "--channel", "/wave/.geom/P")
        self.assertEqual(by_name, self.run_done("dump", mesh, "--sample", 3))

    def test_options_that_the_target_can_not_take(self):
        path, nc = self.pc2("a.pc2", 1, 1, [0] * 3), self.folder / "a.xml"
        self.run_done("convert", path, nc)
        for target, *options in [("b.pc2", "--compact"), ("b.pc2", "--per-frame"),
                                 ("b.pc2", "--snap-frames"), ("b.xml", "--pad", "zero")]:
            for verb in ("convert", "retime")[:1 if "--pad" in options or
                                              "--snap-frames" in options else 2]:
                more = ["--offset", 1] if verb == "retime" else []
                self.expect_error(USAGE, "for NC caches" if target == "b.pc2" else "for PC2 files",
                                  verb, nc, self.folder / target, *options, *more)

    def test_two_inputs_with_one_target(self):
        first = self.pc2("a.pc2", 1, 1, [0] * 3)
        second = self.folder / "a.abc"
        second.write_bytes((DATA / "abc" / "mesh_24fps.abc").read_bytes())
        self.expect_error(USAGE, f"is the target of both {first} and {second}",
                          "convert", "--to", "xml", first, second)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.abc", "a.pc2"])

    def test_a_missing_data_file_is_named(self):
        path = self.folder / "a.xml"
        self.run_done("make", path, "--points", 3, "--frames", 4, "--per-frame")
        (self.folder / "aFrame2.ncx").unlink()
        for verb in (["dump", path, "--frame", 2], ["diff", path, path],
                     ["convert", path, self.folder / "b.xml"], ["play", path]):
            self.expect_error(FAILED, "frame 2: aFrame2.ncx: cannot open: No such file", *verb)

    def test_damaged_archives_are_not_complete(self):
        whole = (DATA / "abc" / "mesh_24fps.abc").read_bytes()
        at = whole.index(b"faceIndices") - 16
        path = self.folder / "damaged.abc"
        path.write_bytes(whole[:at] + b"\xff" * 8 + whole[at + 8:])
        info = self.info(path)
        self.assertFalse(info["complete"])
        self.assertIn("damaged and left out", info["missing"])


class ClaimsOfTinyFiles(ValuesTest):
    """Time and memory go by what a file holds."""

    def expect_frugal(self, *words):
        # A sanitizer needs address space of its own.
        memory = "" if os.environ.get("KELCACHE_SANITIZE") else "ulimit -v 524288; "
        limits = ["bash", "-c", memory + 'exec timeout 2 "$@"', "-", COMMAND]
        done = subprocess.run([*limits, *map(str, words)], capture_output=True, text=True)
        self.assertIn(done.returncode, (DONE, FOUND, USAGE, FAILED), (words, done.stderr))
        self.assertNotIn("memory", done.stderr, words)
        return done

    def test_pc2(self):
        for points in (0, 1, 12):
            path = self.folder / f"claims{points}.pc2"
            path.write_bytes(struct.pack("<12siiffi", b"POINTCACHE2\0", 1, points, 0, 1,
                                         2**31 - 1) + bytes(144))
            out = ["--force", "--from", 0, "--to", 3]
            for verb in (["info", path], ["play", path], ["play", path, "--from", 1, "--to", 3],
                         ["verify", path], ["diff", path, path], ["dump", path, "--sample", 0],
                         ["convert", path, self.folder / "o.xml", "--force"],
                         ["convert", path, self.folder / "o.xml", *out],
                         ["convert", path, self.folder / "o.pc2", *out],
                         ["retime", path, self.folder / "o.xml", "--offset", 1, "--force"]):
                self.expect_frugal(*verb)

    def test_a_constant_of_four_billion_samples(self):
        path = archives.write(self.folder / "claims.abc",
                              [("P", "float32", 3, [[1.0, 2, 3]], 0xffffffff)])
        part = ["--from", 4_000_000_000, "--to", 4_000_000_003]
        self.assertIn("4 frames (4e+09 to 4e+09)", self.expect_frugal("play", path, *part).stdout)
        for verb in (["info", path], ["verify", path], ["dump", path, "--frame", 5],
                     ["convert", path, self.folder / "part.pc2", *part]):
            self.assertEqual(self.expect_frugal(*verb).returncode, DONE, verb)
        self.assertEqual(self.samples(self.folder / "part.pc2"), [[1, 2, 3]] * 4)
        self.assertIn("outside the range of ticks",
                      self.expect_frugal("convert", path, self.folder / "a.xml").stderr)


if __name__ == "__main__":
    unittest.main()
