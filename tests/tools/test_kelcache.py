"""The kelcache command as a user meets it: output, error lines, exit status."""

import json
import re
import struct
import subprocess
import sys
import time
import unittest

from support import COMMAND, DATA, DONE, FAILED, FOUND, READER, USAGE, WITH_HDF5, CommandTest, float32, run


class RealFiles(CommandTest):
    def test_pc2_gives_what_is_known_of_it(self):
        for known in sorted((DATA / "pc2").glob("*.expected.json")):
            path = known.with_name(known.name.replace(".expected.json", ".pc2"))
            with self.subTest(path.name):
                expected = json.loads(known.read_text())
                self.expect_info(path, expected)
                self.expect_play(path, expected)
                self.expect_dumps(path, expected)

    def expect_info(self, path, expected):
        info = self.info(path)
        channel, = info["channels"]
        self.assertEqual([info[key] for key in ("format", "frameRate", "frameRateSource",
                                                "complete")], ["pc2", 24, "assumed", True])
        self.assertEqual([info["pc2"][key] for key in ("points", "samples", "startFrame",
                                                       "sampleRate")],
                         [expected[key] for key in ("points", "samples", "start", "rate")])
        self.assertEqual((channel["index"], channel["name"]), (0, None))
        self.assertAlmostEqual(channel["start"] * 24, expected["start"])

    def expect_play(self, path, expected):
        lines = self.run_done("play", path, "--stats").splitlines()
        self.assertEqual([line.split()[0] for line in lines[1 : 1 + expected["samples"]]],
                         ["%.7g" % (expected["start"] + i * expected["rate"])
                          for i in range(expected["samples"])])
        box = re.findall(r"[-+.\de]+", lines[-2].removeprefix("bounding box "))
        boxes = expected["boxes"]
        if len(boxes) == expected["samples"]:
            self.assertEqual([float32(float(word)) for word in box],
                             [end(box[side][axis] for box in boxes) for side, end in
                              (("min", min), ("max", max)) for axis in range(3)])

    def expect_dumps(self, path, expected):
        for check in expected["checks"]:
            dump = self.dump(path, "--sample", check["sample"])
            self.assertEqual(dump, self.dump(path, "--frame", check["frame"]))
            self.assertEqual((dump["frame"], dump["elements"], dump["components"]),
                             (check["frame"], expected["points"], 3))
            values = [float32(value) for value in dump["values"]]
            self.assertEqual((values[:9], values[-9:]),
                             (sum(check["first"], []), sum(check["last"], [])))
            csv = self.run_done("dump", path, "--sample", check["sample"], "--format", "csv")
            names, *rows = (line.split(",") for line in csv.splitlines())
            self.assertEqual(names, ["index", "x", "y", "z"])
            self.assertEqual([float32(float(cell)) for row in rows for cell in row[1:]], values)

    def test_alembic(self):
        path = DATA / "abc" / "mesh_24fps.abc"
        info = self.info(path)
        channel = info["channels"][0]
        self.assertEqual((info["format"], info["frameRate"], info["frameRateSource"],
                          channel["name"], channel["samples"], channel["points"]),
                         ("alembic", 24, "derived", "/wave/.geom/P", 24, 42))
        self.assertIn("24 frames (0 to 23), 42 points", self.run_done("play", path))
        self.assertIn("wave", self.run_done("info", path, "--tree"))
        self.assertEqual(self.run_done("verify", path), "")

    @unittest.skipUnless(WITH_HDF5, "a build without HDF5")
    def test_alembic_in_both_containers(self):
        for path in sorted((DATA / "abc_hdf5").glob("*.abc")):
            with self.subTest(path.name):
                infos = [self.info(DATA / folder / path.name) for folder in ("abc", "abc_hdf5")]
                for info in infos:
                    info["channels"] = sorted(
                        ({key: value for key, value in channel.items() if key != "index"}
                         for channel in info["channels"]), key=lambda channel: channel["name"])
                    del info["file"], info["fileSize"], info["counts"]
                self.assertEqual(*infos)
        pair = [DATA / folder / "mesh_ntsc.abc" for folder in ("abc", "abc_hdf5")]
        shown = [self.run_done("play", path).removeprefix(str(path)) for path in pair]
        self.assertEqual(*(text.splitlines()[:2] for text in shown))  # the third is the speed
        made = [self.folder / "ogawa.xml", self.folder / "hdf5.xml"]
        for source, target in zip(pair, made):
            self.run_done("convert", source, target)
            self.assertEqual(self.run_done("verify", source), "")
        self.run_done("diff", *made)

    @unittest.skipIf(WITH_HDF5, "a build with HDF5")
    def test_alembic_in_hdf5_is_refused(self):
        self.expect_error(FAILED, "kept in HDF5", "info", DATA / "abc" / "hdf5_backed.abc")


class Moments(CommandTest):
    def test_between_samples_the_last_one_holds(self):
        path = self.pc2("every_other.pc2", 1, 3, [0, 0, 0, 1, 1, 1, 2, 2, 2], start=10, rate=2)
        for frame, sample in [(10, 0), (11, 0), (11.99, 0), (12, 1), (14, 2), (11.99999, 1)]:
            self.assertEqual(self.dump(path, "--frame", frame)["sample"], sample, frame)
        self.assertIn("2 frames (12 to 14)", self.run_done("play", path, "--from", 11, "--to", 14))
        still = self.pc2("still.pc2", 1, 2, [0] * 6, rate=0)
        for cache, frame in [(path, 9.9), (path, 16), (path, -1), (still, 0)]:
            self.expect_error(FAILED, "nothing at frame", "dump", cache, f"--frame={frame}")
        self.expect_error(FAILED, "no sample lies", "play", path, "--from", 20)

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
        for name, content, words in [
                ("short", header[:31], "not a PC2 file: 31 bytes, the header alone takes 32"),
                ("signature", header.replace(b"2\0", b"2 "), "not a PC2 file: bad signature"),
                ("version", header.replace(b"\1", b"\2", 1), "Unsupported file version"),
                ("cut", header[:-1], "2 samples of 36 bytes claimed, 31 bytes left"),
                # A product that wraps in 32 bits is small enough for the file.
                ("row", header.replace(b"\3\0\0\0", b"\x56\x55\x55\x15", 1),
                 "a sample of 357913942 points does not fit 32 bits")]:
            path = self.folder / f"{name}.pc2"
            path.write_bytes(content)
            for verb, *more in [("info",), ("play",), ("dump", "--sample", 0)]:
                self.expect_error(FAILED, f"{path}: {words}", verb, path, *more)

    def test_a_file_cut_short(self):
        path = self.pc2("cut.pc2", 1, 5, [0] * 7)
        self.assertFalse(self.info(path)["complete"])
        self.assertIn("no: holds 2 whole samples of 5", self.run_done("info", path))
        for range, status in [([], FOUND), (["--to", 1], DONE), (["--from", 1], FOUND)]:
            played = run("play", path, *range)
            self.assertEqual(played.returncode, status, range)
            self.assertEqual(played.stderr.count("holds 2 whole samples of 5 claimed"), 1)
        for target in ("whole.xml", "whole.pc2"):
            self.run_found("convert", path, self.folder / target)
            self.assertIn("2 frames (0 to 1)", self.run_done("play", self.folder / target))

    def test_output_that_cannot_be_written(self):
        with open("/dev/full", "w") as full:
            failed = subprocess.run([COMMAND, "help"], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(failed.returncode, FAILED)


class Making(CommandTest):
    def test_every_type_in_every_layout(self):
        letters = {"float32[3]": "f", "float64[3]": "d", "int32": "i", "float32": "f",
                   "float64": "d"}
        for more in [[], ["--per-frame"], ["--compact"], ["--per-frame", "--compact"]]:
            path = self.make("many.xml", "--channels", "p,v,i,f,d", "--type", ",".join(letters),
                             "--start", -2, "--force", *more, points=300)
            info = self.info(path)
            self.assertEqual((info["format"], info["frameRate"], info["frameRateSource"]),
                             ("nc", 24, "stored"))
            self.assertEqual([(channel["name"], channel["sampling"])
                              for channel in info["channels"]], [(c, "regular") for c in "pvifd"])
            self.assertEqual(len(info["dataFiles"]), 6 if "--per-frame" in more else 1)
            self.assertEqual(self.run_done("verify", path), "")
            for channel in "pvifd":
                self.assertIn("6 frames (-2 to 3), 300 points",
                              self.run_done("play", path, "--channel", channel))

            # A reader that was made from the format's description alone agrees.
            lines = subprocess.run([sys.executable, READER, self.folder, "many"],
                                   capture_output=True, text=True, check=True).stdout.splitlines()
            self.assertEqual(len(lines), 5 * 6)
            for channel, tick, _, array in (line.split() for line in lines):
                letter = letters[info["channels"][int(channel)]["type"]]
                values = struct.iter_unpack(f"<{letter}", bytes.fromhex(array))
                dump = self.dump(path, "--channel", channel, "--sample", int(tick) // 250 + 2)
                self.assertEqual([float32(value) for value in dump["values"]],
                                 [float32(value) for (value,) in values])

    def test_caches_of_every_form_and_age_are_read_as_ever(self):
        types = ["--channels", "a,b,c,d,e", "--type", "float64,float64[3],int32,float32,float32[3]"]
        many = self.make("many.xml", *types)
        few = self.make("few.xml", *types, points=10)
        film = self.make("film.xml", *types, "--fps", "24000/1001", points=10)
        twist = DATA / "pc2" / "twist_box.pc2"
        for name, equal, *tolerance in [
                ("twist_box", twist), ("types", many), ("raw", film), ("predicted", many),
                ("predicted_frames", few), ("bounded", twist, "--tolerance", 0.0001679013)]:
            with self.subTest(name):
                old = (DATA / "nc" / name).with_suffix(".xml")
                self.run_done("verify", old)
                self.run_done("diff", old, equal, *tolerance)
        for first in ["twist_box.xml", "types.xml"]:
            copy = self.folder / "copy.xml"
            self.run_done("convert", DATA / "nc" / first, copy, "--compact", "--compact-encoding", 1,
                          "--force")
            self.assertEqual(self.info(copy)["compact"], self.info(DATA / "nc" / first)["compact"])

    def test_a_maximum_error(self):
        small = self.folder / "small.xml"
        for path in sorted(DATA.glob("pc2/*.pc2")):
            for bound in ["0.001%", "0.01%", "0.1%"]:
                said = run("convert", path, small, "--compact", "--max-error", bound, "--force")
                info = self.info(small)
                error, sizes = info["channels"][0]["maximumError"], info["compact"]
                self.assertEqual(said.returncode, DONE)
                self.assertIn(f"values of channel small are within {error:.7g} of the source's",
                              said.stderr)
                self.run_done("diff", path, small, "--tolerance", repr(error))
                self.run_done("verify", small)
                self.assertLess(2 * sizes["storedBytes"], sizes["arrayBytes"])
        source = self.make("many.xml", "--channels", "p,i,d", "--type", "float32[3],int32,float64")
        said = run("convert", source, small, "--compact", "--max-error", 0.0005, "--force")
        self.assertEqual((said.returncode, said.stderr.count("within 0.0005")), (DONE, 2))
        self.assertEqual([channel["maximumError"] for channel in self.info(small)["channels"]],
                         [0.0005, 0, 0.0005])
        self.run_done("diff", source, small, "--tolerance", 0.0005)
        for wrong in ["--max-error 1", "--compact --max-error 0", "--compact-encoding 1",
                      "--compact --max-error 1%x", "--compact --compact-encoding 1 --max-error 1"]:
            self.expect_error(USAGE, "", "convert", source, self.folder / "no.xml", *wrong.split())

    def test_data_files_without_a_description_are_not_replaced_in_silence(self):
        source, path = self.make("source.xml"), self.make("shot.xml")
        data = path.with_suffix(".ncx")
        for words, content, *more in [("exists already; --force replaces it", data.read_bytes()),
                                      ("is in the way and is no NC data file", b"notes", "--force")]:
            for verb in [["make", path, "--points", 5, "--frames", 2], ["convert", source, path],
                         ["retime", source, path, "--offset", 1]]:
                self.run_done(*verb, "--force")
                path.unlink()
                data.write_bytes(content)
                self.expect_error(FAILED, f"{data}: {words}", *verb, *more)
                self.assertEqual(data.read_bytes(), content)
                data.unlink()


class Converting(CommandTest):
    def test_pc2_there_and_back(self):
        nc, back = self.folder / "shot.xml", self.folder / "back.pc2"
        layouts = [[], ["--per-frame"], ["--compact"], ["--per-frame", "--compact"]]
        for path in sorted((DATA / "pc2").glob("*.pc2")):
            # At 25 frames a second the sample times of that file fall on ticks.
            between = path.stem == "jelly_drop"
            rates = [["--rate", 24], ["--rate", 23.976]] + [["--rate", 25]] * between
            for more in [rate + layout for rate in rates for layout in layouts]:
                done = run("convert", path, nc, "--force", *more)
                self.assertEqual((done.returncode, "rounded to ticks" in done.stderr),
                                 (DONE, 23.976 in more or between and 24 in more))
                self.run_done("diff", path, nc)
                self.run_done("verify", nc)
                self.run_done("convert", nc, back, "--force")
                self.assertEqual(back.read_bytes(), path.read_bytes(), (path.name, more))

    def test_refusals_leave_nothing(self):
        source = self.pc2("in.pc2", 1, 2, [0] * 6)
        kept = self.pc2("kept.pc2", 1, 1, [0] * 3)
        scalar = self.make("scalar.xml", "--type", "float")
        out = self.folder / "out.xml"
        before = self.contents()
        for status, words, *arguments in [
                (FAILED, "exists already", source, kept),
                (USAGE, "is the source itself", source, source, "--force"),
                (FAILED, "holds no points", scalar, self.folder / "out.pc2"),
                (USAGE, "Invalid sampling rate", source, out, "--rate", 7000),
                (FAILED, "", source, self.folder / "none" / "out.xml"),
                (USAGE, "only read", source, self.folder / "out.abc")]:
            self.expect_error(status, words, "convert", *arguments)
        self.assertEqual(self.contents(), before)

    def test_diff_finds_and_tolerates(self):
        a = self.pc2("a.pc2", 2, 2, [0] * 12)
        b = self.pc2("b.pc2", 2, 2, [0] * 11 + [0.5])
        found = self.run_found("diff", a, b)
        self.assertIn("frame 1: 1 of 6 values differ", found)
        self.assertIn("largest difference 0.5 at channel 0: frame 1, element 1, value 2: 0 and 0.5",
                      found)
        self.run_done("diff", a, b, "--tolerance", 0.5)
        self.run_found("diff", a, self.pc2("shorter.pc2", 2, 1, [0] * 6))
        self.run_found("diff", a, self.pc2("later.pc2", 2, 2, [0] * 12, start=1))

    def test_retime(self):
        path = DATA / "pc2" / "monkey_wave.pc2"  # frames 10 to 20, every half frame
        nc, one = self.folder / "shot.xml", self.folder / "one.xml"
        out = self.folder / "out.xml"
        self.run_done("convert", path, nc)
        self.run_done("convert", nc, one, "--from", 12, "--to", 12)
        for source, target, frames, interval, *how in [
                (path, "out.pc2", "(0 to 10)", 0.5 / 24, "--offset", -10),
                (path, "out.xml", "(20 to 40)", 1 / 24, "--scale", 2),
                (nc, "out.xml", "(0 to 10)", 0.5 / 24, "--offset", -10),
                (nc, "out.xml", "(10 to 20)", 0.5 / 12, "--rate", 12),
                (one, "out.xml", "(24 to 24)", 1 / 24, "--scale", 2),
                (one, "out.xml", "(12 to 12)", 0.5 / 12, "--rate", 12)]:
            self.run_done("retime", source, self.folder / target, *how, "--force")
            self.assertIn(frames, self.run_done("play", self.folder / target))
            found = self.info(self.folder / target)["channels"][0]["interval"]
            self.assertAlmostEqual(found, interval, msg=(source.name, how))
        self.assertEqual(self.info(out)["frameRate"], 12)
        self.expect_error(USAGE, "stores no frame rate", "retime", path, self.folder / "x.pc2",
                          "--rate", 12)


class Recovering(CommandTest):
    def kill(self, *words):
        """Once there are samples of it in the folder."""
        def there():
            return sum(file.stat().st_size for file in self.folder.rglob("*"))
        before = there()
        running = subprocess.Popen([COMMAND, *map(str, words)], stderr=subprocess.DEVNULL)
        while running.poll() is None and there() < before + 5_000_000:
            time.sleep(0.01)
        running.kill()
        running.wait()

    def test_a_killed_writer(self):
        for name, unit in [("sim.pc2", "samples"), ("sim.xml", "time blocks")]:
            path = self.folder / name
            beside, kept = (self.folder / f"sim.{word}{path.suffix}"
                            for word in ("recovered", "before-recover"))
            self.kill("make", path, "--points", 50000, "--frames", 2000)
            for verb in ("info", "verify"):
                failed = run(verb, path)
                self.assertEqual(failed.returncode, FAILED)
                self.assertIn(f"kelcache recover {path} saves it", failed.stderr)
            for target, words, *more in [(path, []), (beside, [f"{path.name} stays as it is"]),
                                         (path, ["is kept as ", kept.name], "--force")]:
                said = self.run_done("recover", path, *more)
                whole, = (line for line in said.splitlines() if f" whole {unit} saved as " in line)
                for word in [target.name, *words]:
                    self.assertIn(word, said)
                frames = int(whole.removeprefix(f"{path}: ").split()[0])
                self.run_done("verify", target)
                self.assertIn(f"{frames} frames (0 to {frames - 1}), 50000 points",
                              self.run_done("play", target))
                self.expect_error(FAILED, "recover", "recover", path)
                self.make(name, "--force", points=10, frames=40)
                self.kill("make", path, "--points", 50000, "--frames", 2000, "--force")
            self.assertIn("40 frames (0 to 39), 10 points", self.run_done("play", kept))


if __name__ == "__main__":
    unittest.main()
