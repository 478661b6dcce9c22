"""The kelcache command as a user meets it: output, error lines, exit status."""

import json
import os
import struct
import subprocess
import sys
import time
import unittest

from support import (COMMAND, DATA, DONE, FAILED, FOUND, READER, USAGE, CommandTest, float32, run)


class RealFiles(CommandTest):
    def files(self):
        for expected in sorted((DATA / "pc2").glob("*.expected.json")):
            yield json.loads(expected.read_text()), expected.parent / expected.name.replace(
                ".expected.json", ".pc2")

    def test_info(self):
        for expected, path in self.files():
            info = self.info(path)
            self.assertEqual((info["format"], info["frameRate"], info["frameRateSource"]),
                             ("pc2", 24, "assumed"))
            self.assertTrue(info["complete"])
            self.assertEqual([info["pc2"][name] for name in
                              ("points", "samples", "startFrame", "sampleRate")],
                             [expected[name] for name in ("points", "samples", "start", "rate")])
            (channel,) = info["channels"]
            self.assertEqual((channel["index"], channel["name"]), (0, None))
            self.assertAlmostEqual(channel["start"] * 24, expected["start"])

    def test_play(self):
        for expected, path in self.files():
            lines = self.run_done("play", path, "--stats").splitlines()
            frames = [line.split()[0] for line in lines[1 : 1 + expected["samples"]]]
            wanted = [expected["start"] + i * expected["rate"] for i in range(expected["samples"])]
            self.assertEqual(frames, ["%.7g" % frame for frame in wanted])
            boxes = expected["boxes"]
            if len(boxes) == expected["samples"]:
                low = [min(box["min"][axis] for box in boxes) for axis in range(3)]
                high = [max(box["max"][axis] for box in boxes) for axis in range(3)]
                words = lines[-2].removeprefix("bounding box ").replace(" to ", ", ").split(", ")
                self.assertEqual([float32(float(word.strip("()"))) for word in words], low + high)

    def test_dump(self):
        for expected, path in self.files():
            for check in expected["checks"]:
                dump = json.loads(self.run_done("dump", path, "--sample", check["sample"]))
                by_frame = json.loads(self.run_done("dump", path, "--frame", check["frame"]))
                self.assertEqual(dump, by_frame)
                self.assertEqual(dump["frame"], check["frame"])
                self.assertEqual((dump["elements"], dump["components"]), (expected["points"], 3))
                values = [float32(value) for value in dump["values"]]
                self.assertEqual(values[:9], sum(check["first"], []))
                self.assertEqual(values[-9:], sum(check["last"], []))
                csv = self.run_done("dump", path, "--sample", check["sample"], "--format", "csv")
                rows = [line.split(",") for line in csv.splitlines()]
                self.assertEqual(rows[0], ["index", "x", "y", "z"])
                self.assertEqual([float32(float(cell)) for row in rows[1:] for cell in row[1:]],
                                 values)


class Frames(CommandTest):
    def test_between_samples_the_last_one_holds(self):
        path = self.pc2("every_other.pc2", 1, 3, [0, 0, 0, 1, 1, 1, 2, 2, 2], start=10, rate=2)
        for frame, sample in [(10, 0), (11, 0), (11.99, 0), (12, 1), (14, 2), (11.99999, 1)]:
            dump = json.loads(self.run_done("dump", path, "--frame", frame))
            self.assertEqual(dump["sample"], sample, frame)
        for frame in [9.9, 16, -1]:
            self.expect_error(FAILED, "nothing at frame", "dump", path, f"--frame={frame}")
        self.assertIn("2 frames (12 to 14)", self.run_done("play", path, "--from", 11, "--to", 14))
        self.expect_error(FAILED, "no sample lies", "play", path, "--from", 20)
        still = self.pc2("still.pc2", 1, 2, [0] * 6, rate=0)
        self.expect_error(FAILED, "nothing at frame", "dump", still, "--frame", 0)

    def test_values_that_are_not_finite(self):
        nan, inf = float("nan"), float("inf")
        path = self.pc2("odd.pc2", 2, 1, [nan, inf, -inf, 1, 2, 0.1])
        dump = self.run_done("dump", path, "--sample", 0)
        self.assertIn('"values":["nan","inf","-inf",1,2,0.1]', dump)
        self.assertIn("3 values are not finite", self.run_done("play", path))
        self.assertIn("(1, 2, 0.1) to (1, 2, 0.1)", self.run_done("play", path))


class Failures(CommandTest):
    def test_files_that_cannot_be_opened(self):
        header = self.pc2("header.pc2", 3, 2, [0] * 8).read_bytes()
        cases = {
            "none": (None, "there is no such file"),
            "short": (header[:31], "not a PC2 file: 31 bytes, the header alone takes 32"),
            "signature": (header.replace(b"2\0", b"2 "), "not a PC2 file: bad signature"),
            "version": (header.replace(b"\1", b"\2", 1), "Unsupported file version"),
            "cut": (header[:-1], "2 samples of 36 bytes claimed, 31 bytes left"),
        }
        for name, (content, words) in cases.items():
            path = self.folder / f"{name}.pc2"
            if content is not None:
                path.write_bytes(content)
            for verb in (["info"], ["play"], ["dump", "--sample", 0]):
                self.expect_error(FAILED, f"{path}: {words}", *verb, path)
        # Products that wrap in 32 bits are small enough for the file.
        for points, samples, words in [(0x15555556, 1, "357913942 points does not fit 32 bits"),
                                       (0x10000000, 1, "1 samples of 3221225472 bytes claimed")]:
            self.expect_error(FAILED, words, "info", self.pc2("x.pc2", points, samples, [0] * 16))
        (self.folder / "folder.pc2").mkdir()
        self.expect_error(FAILED, "is a directory", "info", self.folder / "folder.pc2")

    def test_usage(self):
        path = self.pc2("one.pc2", 1, 1, [0] * 3)
        for line, *words in [("the extension tells no format", "info", "shot.cache"),
                             ("name its description", "info", "shot.ncx"),
                             ("no channel 1, it has 1", "play", path, "--channel", 1),
                             ("only Alembic", "info", path, "--tree")]:
            self.expect_error(USAGE, line, *words)
        self.assertIn("--help", self.run_done("play", "--help"))

    def test_a_file_cut_short(self):
        path = self.pc2("cut.pc2", 1, 5, [0] * 7)
        self.assertFalse(self.info(path)["complete"])
        self.assertIn("no: holds 2 whole samples of 5", self.run_done("info", path))
        many = self.pc2("many.pc2", 1, -0x80000000, [0] * 7)
        self.assertIn("no: holds 2 whole samples of 2147483648", self.run_done("info", many))
        for range, status in [([], FOUND), (["--to", 1], DONE), (["--from", 1], FOUND)]:
            played = run("play", path, *range)
            self.assertEqual(played.returncode, status, range)
            self.assertEqual(played.stderr.count("holds 2 whole samples of 5 claimed"), 1)
        for target in ("whole.xml", "whole.pc2"):
            self.assertEqual(run("convert", path, self.folder / target).returncode, FOUND)
            self.assertIn("2 frames (0 to 1)", self.run_done("play", self.folder / target))

    def test_another_extension(self):
        path = self.pc2("cache.bin", 1, 1, [1, 2, 3])
        self.assertIn('"values":[1,2,3]', self.run_done("dump", path, "--sample", 0, "--as", "pc2"))
        self.pc2("UPPER.PC2", 1, 1, [1, 2, 3])
        self.run_done("play", self.folder / "UPPER.PC2")

    def test_output_that_cannot_be_written(self):
        path = self.pc2("one.pc2", 1, 1, [0] * 3)
        with open("/dev/full", "w") as full:
            failed = subprocess.run([COMMAND, "info", path], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(failed.returncode, FAILED)


class Making(CommandTest):
    def test_make_is_the_same_at_every_run(self):
        path = self.folder / "a.pc2"
        make = ["make", path, "--points", 1000, "--frames", 5, "--start", 7, "--force"]
        self.run_done(*make)
        made = path.read_bytes()
        self.expect_error(FAILED, "exists already", *make[:-1])
        self.run_done(*make)
        self.assertEqual(path.read_bytes(), made)
        self.assertIn("5 frames (7 to 11), 1000 points", self.run_done("play", path))
        self.assertIn("10 frames", self.run_done("play", path, "--loop", 2, "--quiet"))


class NC(CommandTest):
    def make(self, name, *more, points=50, frames=6):
        path = self.folder / name
        self.run_done("make", path, "--points", points, "--frames", frames, *more)
        return path

    def test_every_type_in_every_layout(self):
        letters = {"floatVectorArray": "f", "doubleVectorArray": "d", "int32Array": "i",
                   "floatArray": "f", "doubleArray": "d"}
        types = [name.removesuffix("Array") for name in letters]
        for more in [[], ["--per-frame"], ["--compact"], ["--per-frame", "--compact"]]:
            path = self.make("many.xml", "--channels", "p,v,i,f,d", "--type", ",".join(types),
                             "--start", -2, "--force", *more, points=300)
            info = self.info(path)
            self.assertEqual((info["format"], info["frameRate"], info["frameRateSource"]),
                             ("nc", 24, "stored"))
            self.assertEqual([channel["name"] for channel in info["channels"]], list("pvifd"))
            self.assertEqual(len(info["dataFiles"]), 6 if "--per-frame" in more else 1)
            for channel in info["channels"]:
                self.assertEqual(channel["sampling"], "regular")
                played = self.run_done("play", path, "--channel", channel["index"])
                self.assertIn("6 frames (-2 to 3), 300 points", played)
            self.assertEqual(self.run_done("verify", path), "")

            # A reader that was made from the format's description alone agrees.
            lines = subprocess.run([sys.executable, READER, self.folder, "many"],
                                   capture_output=True, text=True, check=True).stdout.splitlines()
            self.assertEqual(len(lines), 5 * 6)
            for channel, tick, _, array in (line.split() for line in lines):
                letter = letters[info["channels"][int(channel)]["type"]]
                values = struct.unpack(f"<{len(array) // 2 // struct.calcsize(letter)}{letter}",
                                       bytes.fromhex(array))
                dump = json.loads(self.run_done("dump", path, "--channel", channel, "--sample",
                                                int(tick) // 250 + 2))
                self.assertEqual([float32(value) for value in dump["values"]],
                                 [float32(value) for value in values])

    def test_data_files_without_a_description_are_not_replaced_in_silence(self):
        source = self.make("source.xml")
        path = self.make("shot.xml")
        path.unlink()
        data = self.folder / "shot.ncx"
        kept = data.read_bytes()
        verbs = [["make", path, "--points", 5, "--frames", 2], ["convert", source, path],
                 ["retime", source, path, "--offset", 1]]
        for verb in verbs:
            self.expect_error(FAILED, f"{data}: exists already; --force replaces it", *verb)
        self.assertEqual(data.read_bytes(), kept)
        for verb in verbs:
            self.run_done(*verb, "--force")
            path.unlink()
            data.write_bytes(b"notes")
            self.expect_error(FAILED, f"{data}: is in the way and is no NC data file", *verb,
                              "--force")
            self.assertEqual(data.read_bytes(), b"notes")
            data.unlink()

    def test_verify_finds_damage_in_many_files(self):
        caches = [self.make(f"{name}.xml") for name in ("sound", "flipped", "lost")]
        cut = self.pc2("cut.pc2", 1, 5, [0] * 7)
        data = bytearray((self.folder / "flipped.ncx").read_bytes())
        data[len(data) // 2] ^= 1
        (self.folder / "flipped.ncx").write_bytes(data)
        (self.folder / "lost.ncx").unlink()
        found = run("verify", *caches, cut, "--jobs", 4)
        self.assertEqual(found.returncode, FOUND)
        for path in (*caches[1:], cut):
            self.assertEqual(found.stdout.count(f"{path}: "), 1, path)
        self.assertIn(f"{cut}: holds 2 whole samples of 5 claimed\n", found.stdout)
        self.assertIn("4 files, 1 sound, 3 failed", found.stderr)
        self.expect_error(FAILED, "there is no such file", "verify", self.folder / "none.xml")


class Alembic(CommandTest):
    def test_info_play_and_tree(self):
        path = DATA / "abc" / "mesh_24fps.abc"
        info = self.info(path)
        self.assertEqual((info["format"], info["frameRate"], info["frameRateSource"]),
                         ("alembic", 24, "derived"))
        channel = info["channels"][0]
        self.assertEqual(channel["name"], "/wave/.geom/P")
        self.assertEqual((channel["samples"], channel["points"], channel["sampling"]),
                         (24, 42, "uniform"))
        self.assertIn("24 frames (0 to 23), 42 points", self.run_done("play", path))
        self.assertIn("wave", self.run_done("info", path, "--tree"))
        self.assertEqual(self.run_done("verify", path), "")


class Converting(CommandTest):
    def test_pc2_there_and_back(self):
        # At these rates the sample times of each file fall on ticks.
        rates = {"jelly_drop": 25}
        for path in sorted((DATA / "pc2").glob("*.pc2")):
            rate = ["--rate", rates.get(path.stem, 24)]
            for more in [[], ["--per-frame"], ["--compact"], ["--per-frame", "--compact"]]:
                nc, back = self.folder / "shot.xml", self.folder / "back.pc2"
                self.run_done("convert", path, nc, "--force", *rate, *more)
                self.run_done("diff", path, nc)
                self.run_done("verify", nc)
                self.run_done("convert", nc, back, "--force")
                self.assertEqual(back.read_bytes(), path.read_bytes(), (path.name, more))

    def test_times_between_ticks_are_told_of(self):
        path = DATA / "pc2" / "jelly_drop.pc2"
        nc, back = self.folder / "shot.xml", self.folder / "back.pc2"
        self.assertIn("rounded to ticks", run("convert", path, nc).stderr)
        self.run_done("diff", path, nc)
        self.run_done("convert", nc, back)
        self.assertEqual(back.read_bytes(), path.read_bytes())

    def test_alembic_to_both(self):
        for name in ("mesh_24fps.abc", "mesh_ntsc.abc", "xforms.abc"):
            for target in ("a.pc2", "a.xml"):
                self.run_done("convert", DATA / "abc" / name, self.folder / target, "--force")
                self.run_done("diff", DATA / "abc" / name, self.folder / target)

    def test_a_part(self):
        path = DATA / "pc2" / "arm_tube.pc2"
        part = self.folder / "part.pc2"
        self.run_done("convert", path, part, "--from=-2", "--to", 1)
        self.assertIn("frames (-2 to 1)", self.run_done("play", part))
        csv = ["--frame", 0, "--format", "csv"]
        self.assertEqual(self.run_done("dump", part, *csv), self.run_done("dump", path, *csv))

    def test_refusals_leave_nothing(self):
        source = self.pc2("in.pc2", 1, 2, [0] * 6)
        kept = self.pc2("kept.pc2", 1, 1, [0] * 3)
        scalar = self.folder / "scalar.xml"
        self.run_done("make", scalar, "--points", 2, "--frames", 2, "--type", "float")
        before = sorted(os.listdir(self.folder))
        cases = [
            (FAILED, "exists already", source, kept),
            (USAGE, "is the source itself", source, source, "--force"),
            (FAILED, "holds no points", scalar, self.folder / "out.pc2"),
            (USAGE, "Invalid sampling rate", source, self.folder / "out.xml", "--rate", 7000),
            (FAILED, "", source, self.folder / "none" / "out.xml"),
            (USAGE, "only read", source, self.folder / "out.abc"),
            (FAILED, "there is no such file", self.folder / "none.pc2", self.folder / "out.xml"),
        ]
        for status, words, *arguments in cases:
            self.expect_error(status, words, "convert", *arguments)
        self.assertEqual(sorted(os.listdir(self.folder)), before)

    def test_a_folder_of_inputs(self):
        inputs = [self.pc2(f"{name}.pc2", 2, 2, range(12)) for name in ("shot", "other shot")]
        done = run("convert", *inputs, "--to", "xml", "--jobs", 2)
        self.assertEqual(done.returncode, DONE, done.stderr)
        self.assertIn("2 files, 2 converted, 0 failed", done.stderr)
        for path in inputs:
            self.run_done("diff", path, path.with_suffix(".xml"))

    def test_diff_finds_and_tolerates(self):
        a = self.pc2("a.pc2", 2, 2, [0] * 12)
        b = self.pc2("b.pc2", 2, 2, [0] * 11 + [0.5])
        found = run("diff", a, b)
        self.assertEqual(found.returncode, FOUND)
        self.assertIn("frame 1: 1 of 6 values differ", found.stdout)
        self.assertIn("largest difference 0.5 at channel 0: frame 1, element 1, value 2: 0 and 0.5",
                      found.stdout)
        self.run_done("diff", a, b, "--tolerance", 0.5)
        shorter = self.pc2("c.pc2", 2, 1, [0] * 6)
        later = self.pc2("d.pc2", 2, 2, [0] * 12, start=1)
        self.assertEqual([run("diff", a, other).returncode for other in (shorter, later)],
                         [FOUND, FOUND])

    def test_retime(self):
        path = DATA / "pc2" / "monkey_wave.pc2"  # frames 10 to 20, every half frame
        nc = self.folder / "shot.xml"
        self.run_done("convert", path, nc)
        for source, target in [(path, "out.pc2"), (nc, "out.xml"), (path, "out.xml")]:
            for how, frames in [(("--offset", -10), "(0 to 10)"), (("--scale", 2), "(20 to 40)")]:
                out = self.folder / target
                self.run_done("retime", source, out, *how, "--force")
                self.assertIn(frames, self.run_done("play", out))
        self.run_done("retime", nc, self.folder / "slow.xml", "--rate", 12)
        info = self.info(self.folder / "slow.xml")
        self.assertEqual((info["frameRate"], info["firstFrame"], info["lastFrame"]), (12, 10, 20))
        self.expect_error(USAGE, "stores no frame rate", "retime", path, self.folder / "x.pc2",
                          "--rate", 12)


class Recovering(CommandTest):
    def kill(self, *words):
        running = subprocess.Popen([COMMAND, *map(str, words)], stderr=subprocess.DEVNULL)
        time.sleep(0.3)
        running.kill()
        running.wait()

    def saved(self, path, words, *more):
        done = run("recover", path, *more)
        self.assertEqual((done.returncode, done.stderr), (DONE, ""))
        line = next(line for line in done.stdout.splitlines() if words in line)
        return int(line.removeprefix(f"{path}: ").split()[0]), done.stdout

    def expect_frames(self, path, frames, points):
        self.run_done("verify", path)
        self.assertIn(f"{frames} frames (0 to {frames - 1}), {points} points",
                      self.run_done("play", path))

    def test_a_killed_writer(self):
        for name, unit in [("sim.pc2", "samples"), ("sim.xml", "time blocks")]:
            path = self.folder / name
            beside, kept = (self.folder / f"sim.{word}{path.suffix}"
                            for word in ("recovered", "before-recover"))
            make = ["make", path, "--points", 50000, "--frames", 2000, "--force"]
            self.kill(*make)
            for verb in ("info", "verify"):
                failed = run(verb, path)
                self.assertEqual(failed.returncode, FAILED)
                self.assertIn(f"kelcache recover {path} saves it", failed.stderr)
            saved, _ = self.saved(path, f"whole {unit} saved as ")
            self.expect_frames(path, saved, 50000)

            self.run_done("make", path, "--points", 10, "--frames", 40, "--force")
            self.kill(*make)
            self.assertIn("kelcache recover", run("verify", path).stderr)
            saved, said = self.saved(path, f"whole {unit} saved as ")
            self.assertIn(f"{beside.name}; ", said)
            self.assertIn(f"{path.name} stays as it is", said)
            self.expect_frames(path, 40, 10)
            self.expect_frames(beside, saved, 50000)
            self.expect_error(FAILED, "recover", "recover", path)

            self.kill(*make)
            saved, said = self.saved(path, f"whole {unit} saved as ", "--force")
            self.assertIn(f"is kept as {'' if unit == 'time blocks' else self.folder / ''}", said)
            self.assertIn(kept.name, said)
            self.expect_frames(path, saved, 50000)
            self.expect_frames(kept, 40, 10)

    def test_a_killed_conversion(self):
        source, path = self.folder / "long.pc2", self.folder / "shot.xml"
        self.run_done("make", source, "--points", 20000, "--frames", 1000)
        self.run_done("make", path, "--points", 10, "--frames", 40)
        running = subprocess.Popen([COMMAND, "convert", source, path, "--force"],
                                   stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 60
        while not any(part.stat().st_size > 1 << 20 for part in self.folder.glob("*.part/*.ncx")):
            self.assertLess(time.monotonic(), deadline)
        running.kill()
        running.wait()
        self.assertEqual(run("verify", path).returncode, DONE)
        saved, _ = self.saved(path, "saved as shot.recovered.xml; shot.xml stays as it is")
        self.expect_frames(path, 40, 10)
        self.expect_frames(self.folder / "shot.recovered.xml", saved, 20000)


if __name__ == "__main__":
    unittest.main()
