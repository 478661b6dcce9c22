"""The kelcache command as a user meets it: output, error lines, exit status.

The command's path comes from the environment variable KELCACHE.
"""

import json
import os
import pathlib
import pty
import struct
import subprocess
import tempfile
import unittest

COMMAND = os.environ["KELCACHE"]
DATA = pathlib.Path(__file__).resolve().parent.parent / "data"
DONE, FOUND, USAGE, FAILED = 0, 1, 2, 3


def run(*words, cwd=None):
    return subprocess.run([COMMAND, *map(str, words)], capture_output=True, text=True, cwd=cwd)


def float32(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


class CommandTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)

    def run_done(self, *words):
        done = run(*words)
        self.assertEqual((done.returncode, done.stderr), (DONE, ""), words)
        return done.stdout

    def expect_error(self, status, line, *words):
        failed = run(*words)
        self.assertEqual(failed.returncode, status, failed.stderr)
        self.assertEqual(failed.stdout, "")
        self.assertEqual(failed.stderr.count("\n"), 1, failed.stderr)
        self.assertIn(line, failed.stderr)

    def pc2(self, name, points, samples, data, version=1, start=0.0, rate=1.0):
        path = self.folder / name
        header = struct.pack("<12siiffi", b"POINTCACHE2\0", version, points, start, rate, samples)
        path.write_bytes(header + struct.pack(f"<{len(data)}f", *data))
        return path


class RealFiles(CommandTest):
    def files(self):
        for expected in sorted((DATA / "pc2").glob("*.expected.json")):
            yield json.loads(expected.read_text()), expected.parent / expected.name.replace(
                ".expected.json", ".pc2")

    def test_info(self):
        for expected, path in self.files():
            info = json.loads(self.run_done("info", path, "--json"))
            self.assertEqual(info["format"], "pc2")
            self.assertEqual((info["frameRate"], info["frameRateSource"]), (24, "assumed"))
            self.assertTrue(info["complete"])
            self.assertEqual(info["fileSize"], expected["file_size"])
            self.assertEqual(info["promisedSize"], expected["size_by_header"])
            for ours, theirs in [("points", "points"), ("samples", "samples"),
                                 ("startFrame", "start"), ("sampleRate", "rate")]:
                self.assertEqual(info["pc2"][ours], expected[theirs])
            (channel,) = info["channels"]
            self.assertEqual((channel["index"], channel["name"]), (0, None))
            self.assertAlmostEqual(channel["start"] * 24, expected["start"])
            self.assertIn(str(expected["points"]), self.run_done("info", path))

    def test_play(self):
        for expected, path in self.files():
            lines = self.run_done("play", path, "--stats").splitlines()
            frames = [line.split()[0] for line in lines[1 : 1 + expected["samples"]]]
            wanted = [expected["start"] + i * expected["rate"] for i in range(expected["samples"])]
            self.assertEqual(frames, ["%.7g" % frame for frame in wanted])
            low, high = lines[-2].removeprefix("bounding box ").split(" to ")
            boxes = expected["boxes"]
            if len(boxes) < expected["samples"]:
                continue
            for text, choose, key in [(low, min, "min"), (high, max, "max")]:
                values = [float32(float(word)) for word in text.strip("()").split(",")]
                self.assertEqual(values, [choose(box[key][k] for box in boxes) for k in range(3)])

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

    def test_a_rate_without_frames(self):
        path = self.pc2("still.pc2", 1, 2, [0] * 6, rate=0)
        self.expect_error(FAILED, "nothing at frame", "dump", path, "--frame", 0)
        self.run_done("dump", path, "--sample", 1)

    def test_values_that_are_not_finite(self):
        nan, inf = float("nan"), float("inf")
        path = self.pc2("odd.pc2", 2, 1, [nan, inf, -inf, 1, 2, 0.1])
        dump = self.run_done("dump", path, "--sample", 0)
        self.assertIn('"values":["nan","inf","-inf",1,2,0.1]', dump)
        self.assertIn("3 values are not finite", self.run_done("play", path))
        self.assertIn("(1, 2, 0.1) to (1, 2, 0.1)", self.run_done("play", path))


class Failures(CommandTest):
    def test_files_that_cannot_be_opened(self):
        cases = {
            "signature.pc2": (b"X" * 100, "not a PC2 file: bad signature"),
            "cut.pc2": (b"POINTCACHE2\0", "not a PC2 file: 12 bytes"),
            "none.pc2": (None, "Cache file not found: "),
        }
        for name, (content, words) in cases.items():
            path = self.folder / name
            if content is not None:
                path.write_bytes(content)
            for verb in (["info"], ["play"], ["dump", "--sample", 0]):
                self.expect_error(FAILED, f"{path}: ", *verb, path)
                self.expect_error(FAILED, words, *verb, path)
        self.expect_error(FAILED, "Unsupported file version", "info",
                          self.pc2("v2.pc2", 1, 1, [0] * 3, version=2))
        (self.folder / "folder.pc2").mkdir()
        self.expect_error(FAILED, "is a directory", "info", self.folder / "folder.pc2")

    def test_usage(self):
        self.expect_error(USAGE, "--help tells more")
        self.expect_error(USAGE, "--help tells more", "info")
        self.expect_error(USAGE, "the extension tells no format", "info", "shot.cache")
        self.expect_error(USAGE, "Exactly 1 option", "dump", "shot.pc2")
        path = self.pc2("one.pc2", 1, 1, [0] * 3)
        self.expect_error(USAGE, "no channel 1, it has 1", "play", path, "--channel", 1)
        for verb in ("info", "play", "dump", "make"):
            self.assertIn("FILE", self.run_done(verb, "--help"))

    def test_a_file_cut_short(self):
        path = self.pc2("cut.pc2", 1, 5, [0] * 7)
        info = json.loads(self.run_done("info", path, "--json"))
        self.assertFalse(info["complete"])
        self.assertIn("no: holds 2 whole samples of 5", self.run_done("info", path))
        self.expect_error(FAILED, "frame 2: sample 2 is not in the file: it holds 2 whole samples",
                          "play", path)
        self.assertIn("2 frames", self.run_done("play", path, "--to", 1))

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
        for name in ("a.pc2", "b.pc2"):
            self.run_done("make", self.folder / name, "--points", 1000, "--frames", 5, "--start", 7)
        a, b = ((self.folder / name).read_bytes() for name in ("a.pc2", "b.pc2"))
        self.assertEqual(a, b)
        self.assertEqual(len(a), 32 + 12 * 1000 * 5)
        self.assertIn("5 frames (7 to 11), 1000 points", self.run_done("play", self.folder / "a.pc2"))
        self.assertIn("10 frames", self.run_done("play", self.folder / "a.pc2", "--loop", 2, "--quiet"))
        self.expect_error(FAILED, "exists already", "make", self.folder / "a.pc2", "--points", 1,
                          "--frames", 1)
        self.run_done("make", self.folder / "a.pc2", "--points", 1, "--frames", 1, "--force")
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.pc2", "b.pc2"])

    def test_a_place_that_takes_no_file(self):
        self.expect_error(FAILED, "Cache file could not be created: ", "make",
                          self.folder / "none" / "x.pc2", "--points", 1, "--frames", 1)
        self.expect_error(FAILED, "Cache file could not be created: ", "make",
                          self.folder / "x.pc2", "--points", 400000000, "--frames", 1)

    def test_progress_only_on_a_terminal(self):
        path = self.folder / "a.pc2"
        master, terminal = pty.openpty()
        subprocess.run([COMMAND, "make", path, "--points", "10", "--frames", "5"], stderr=terminal,
                       check=True)
        os.close(terminal)
        self.assertIn(b"100%", os.read(master, 65536))
        os.close(master)


if __name__ == "__main__":
    unittest.main()
