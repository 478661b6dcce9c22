"""What all verbs of the kelcache command have in common: signals, exit statuses, disks that are
full, options, help, what a terminal shows."""

import fcntl
import os
import pathlib
import pty
import re
import resource
import signal
import struct
import subprocess
import termios
import threading
import time
import unittest

from support import (COMMAND, DATA, DONE, EMULATED, FAILED, FOUND, USAGE, WITH_HDF5, CommandTest,
                     begin, run)

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Interruption(CommandTest):
    def end(self, running, ready, numbers, *lines):
        while running.poll() is None and not ready():
            time.sleep(0.005)
        self.assertIsNone(running.poll())
        for number in numbers:
            running.send_signal(number)
        self.assertEqual(running.communicate()[1].splitlines(), list(lines))
        return running.returncode

    def test_writers_leave_nothing(self):
        source, other = self.sparse_pc2("in.pc2"), self.sparse_pc2("other.pc2")
        pc2, out = self.folder / "out.pc2", self.folder / "out.xml"
        make = ["--points", 10000, "--frames", 1000000]
        before = self.contents()
        for i, (words, *more) in enumerate([
                (["make", pc2, *make],),
                (["make", out, "--per-frame", "--compact", *make],),
                (["convert", source, out],),
                (["convert", source, out, "--from", 1],),
                (["retime", source, pc2, "--offset", 1],),
                # Of several inputs none is begun any more.
                (["convert", source, other, "--to", "xml"],
                 "kelcache: 2 files, 0 converted, 0 failed, 2 not done")]):
            number = SIGNALS[i % 3]
            status = self.end(begin(*words), lambda: self.contents() != before, [number],
                              "kelcache: interrupted", *more)
            self.assertEqual((status, self.contents()), (128 + number, before), words)

    @unittest.skipIf(EMULATED, "an emulator catches signals before the command does")
    def test_readers_end_at_once(self):
        path = self.sparse_pc2("in.pc2")
        for words in (["play", path, "--loop", 1000000], ["verify", path, path]):
            for number in SIGNALS:
                running = begin(*words)
                process = pathlib.Path(f"/proc/{running.pid}/status")
                status = self.end(running, lambda: 1 << (number - 1) & int(
                    re.search(r"SigCgt:\s*(\w+)", process.read_text())[1], 16), [number],
                    "kelcache: interrupted")
                self.assertEqual(status, 128 + number)

    def test_what_was_ignored_stays_so(self):
        path = self.folder / "out.pc2"
        running = begin("make", path, "--points", 10000, "--frames", 1000, ignored=SIGNALS)
        self.assertEqual(self.end(running, self.contents, SIGNALS), DONE)
        self.assertEqual(self.contents(), ["out.pc2"])


class Statuses(CommandTest):
    def test_of_files_that_the_system_does_not_give(self):
        loop = self.folder / "loop.pc2"
        loop.symlink_to("loop.pc2")
        (self.folder / "folder.pc2").mkdir()
        os.mkfifo(self.folder / "pipe.pc2")
        out = self.folder / "out.xml"
        (self.folder / "folder.abc").mkdir()
        self.expect_error(FAILED, "holds no caches", "info", self.folder / "folder.abc")
        for name, words in [("none.pc2", "there is no such file"),
                            ("none.xml", "there is no such file"),
                            ("none.abc", "there is no such file"),
                            ("loop.pc2", "Too many levels of symbolic links"),
                            ("folder.pc2", "is a directory"),
                            ("pipe.pc2", "is not a regular file")]:
            path = self.folder / name
            reading = [("info", path), ("verify", path), ("check", path), ("diff", path, path)]
            for verb, *more in [("play", path), ("dump", path, "--sample", 0),
                                ("convert", path, out), ("retime", path, out, "--rate", 9),
                                *([] if path.is_dir() else reading)]:
                said = self.expect_error(FAILED, words, verb, *more)
                self.assertEqual(said.count(str(path)), 1, verb)

    def test_of_several_inputs_the_worst_wins(self):
        sound = self.pc2("sound.pc2", 1, 1, [0] * 3)
        damaged = self.pc2("damaged.pc2", 1, 5, [0] * 7)
        none, unknown = self.folder / "none.pc2", self.folder / "sound.txt"
        for status, failed, *inputs in [(DONE, 0, sound, sound), (FOUND, 1, damaged, sound),
                                        (USAGE, 2, damaged, unknown),
                                        (FAILED, 3, none, damaged, unknown, sound)]:
            done = run("verify", *inputs, "--jobs", 2)
            self.assertEqual(done.returncode, status, inputs)
            self.assertIn(f"{len(inputs)} files, {len(inputs) - failed} sound, {failed} failed",
                          done.stdout + done.stderr)
            for path in inputs[:failed]:
                self.assertEqual(len(re.findall(rf"^{re.escape(str(path))} +\S", done.stdout, re.M)), 1,
                                 path)
        # One whole, one cut short; then both targets are there.
        for status in (FOUND, FAILED):
            done = run("convert", sound, damaged, "--to", "xml", "--jobs", 2)
            self.assertEqual(done.returncode, status)
            self.assertIn("2 files, ", done.stderr)

    def test_verify_tells_a_disk_that_fails_from_damage(self):
        # A file that opens, and whose reads fail.
        self.assertEqual(run("verify", "/proc/self/mem", "--as", "pc2").returncode, FAILED)
        path = self.make("cache.xml")
        data = path.with_suffix(".ncx")
        data.unlink()
        self.run_found("verify", path)
        data.symlink_to(data.name)
        self.assertEqual(run("verify", path).returncode, FAILED)


class FullDisks(CommandTest):
    def test_are_told_of_and_left_empty(self):
        most = 20000
        jelly = DATA / "pc2" / "jelly_drop.pc2"
        for verb, *words in [
                ("make", "out.pc2", "--points", 10000, "--frames", 100),
                ("make", "out.xml", "--points", 10000, "--frames", 100),
                ("make", "out.xml", "--points", 100000, "--frames", 9, "--per-frame", "--compact"),
                ("retime", jelly, "out.pc2", "--offset", 1), ("convert", jelly, "out.xml")]:
            failed = run(verb, *words, cwd=self.folder, preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_FSIZE, (most, most)))
            self.assertEqual(failed.returncode, FAILED, failed.stderr)
            target = words[0] if verb == "make" else ""
            self.assertRegex(failed.stderr, f"^kelcache: {target}.*writing .*: File too large\n$")
            self.assertEqual(self.contents(), [], words)


class Refused(CommandTest):
    """What is asked for and cannot be: told in words, before anything is written."""

    def expect_usage(self, *rows):
        before = self.contents()
        for words, *line in rows:
            self.expect_error(USAGE, words, *line)
        self.assertEqual(self.contents(), before)

    def test_what_no_cache_can_hold(self):
        for words, target, points, frames, *more in [
                ("takes 4294967304 bytes", "a.pc2", 357913942, 1),
                ("2147483647 are the most", "a.pc2", 1, 2147483648),
                ("does not fit the 32-bit float", "a.pc2", 1, 1, "--start", 1e39),
                ("does not fit the 32-bit float", "a.pc2", 1, 1, "--start", 16777217),
                ("takes 4294967304 bytes", "a.xml", 178956971, 1, "--channels", "a,b", "--type",
                 "float,doubleVector"),
                ("frame 8589935 lies beyond", "a.xml", 1, 8589936),
                ("not 1 to 2147483647 ticks", "a.xml", 1, 1, "--fps", 7000)]:
            self.expect_usage((words, "make", self.folder / target, "--points", points, "--frames",
                               frames, *more))

    def test_values_of_options(self):
        path, out = self.pc2("one.pc2", 1, 1, [0] * 3), self.folder / "x.pc2"
        verbs = {"play": [path], "dump": [path], "retime": [path, out],
                 "verify": [path], "convert": [path, out], "diff": [path, path],
                 "make": [self.folder / "x.xml"]}
        whole, number, above = "is not a whole number of at least ", "is not a ", "number above 0"
        for verb, option, value, words in [
                ("play", "--loop", "0", whole + "1"), ("play", "--loop", "4294967296", ""),
                ("verify", "--jobs", "2.5", whole + "1"), ("make", "--points", "0x10", whole + "0"),
                ("make", "--points", "-1", whole + "0"), ("make", "--fps", "nan", number + above),
                ("make", "--start", "-inf", number + "finite number"),
                ("play", "--rate", "inf", number + above),
                ("play", "--from", "nan", number + "finite number"),
                ("play", "--to", "1e999", number + "finite number"),
                ("convert", "--to", "inf", "is neither a frame nor"),
                ("dump", "--frame", "1,5", number + "finite number"),
                ("dump", "--format", "xml", "is none of json, csv"),
                ("retime", "--offset", "nan", number + "finite number"),
                ("retime", "--scale", "0", number + above),
                ("diff", "--tolerance", "nan", number + "number of at least 0")]:
            self.expect_usage((f'{option}: "{value}" {words}', verb, f"{option}={value}",
                               *verbs[verb]))

    def test_mistakes_are_met_with_suggestions(self):
        path = self.pc2("one.pc2", 1, 1, [0] * 3)
        self.expect_usage(
            ('no verb "conver"; did you mean convert?', "conver", "a", "b"),
            ("did you mean recover?", "rec"),
            ("kelcache --help lists them", "frobnicate"),
            ("--frobnicate: there is no such option", "--frobnicate"),
            ("FILE is required; kelcache play --help tells more", "play"),
            ("the extension tells no format", "info", "shot.cache"),
            ("name its description", "info", "shot.ncx"),
            ("no channel 1, it has 1", "play", path, "--channel", 1),
            ("only Alembic", "info", path, "--tree"))


class Accepted(CommandTest):
    def test_numbers_and_names_as_people_write_them(self):
        path = self.make("a.xml", "--fps", 29.97, points="010", frames="+100")
        info = self.info(path)
        self.assertEqual((info["exactFrameRate"], info["ticksPerFrame"]), ("30000/1001", 200))
        self.assertIn("100 frames (0 to 99), 10 points", self.run_done("play", path))
        path = self.pc2("cache.bin", 1, 1, [1, 2, 3])
        self.run_done("play", self.pc2("UPPER.PC2", 1, 1, [1, 2, 3]))
        self.assertEqual(self.dump(path, "--sample", 0, "--as", "pc2")["values"], [1, 2, 3])


class Help(CommandTest):
    def test_bash_completes(self):
        script = self.folder / "kelcache.bash"
        script.write_text(self.run_done("completion", "bash"))
        for line, expected in [("kelcache con", "convert"),
                               ("kelcache convert --co", "--compact --compact-encoding"),
                               ("kelcache convert --resample ''", "cubic hold linear"),
                               ("kelcache info --as p", "pc2"), ("kelcache help tri", "trim"),
                               ("kelcache info /", ""), ("kelcache completion f", "fish")]:
            told = subprocess.run(["bash", "-c", f"""source {script}
                COMP_WORDS=({line}); COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); _kelcache
                echo "${{COMPREPLY[@]}}" """], capture_output=True, text=True)
            self.assertEqual((told.stdout, told.stderr), (expected + "\n", ""), line)

    def test_manual_pages_tell_every_option(self):
        self.run_done("manual", "--into", self.folder)
        pages = sorted(path.stem for path in self.folder.glob("*.1"))
        verbs = re.findall(r"(?m)^  ([a-z]+) ", self.run_done("--help").split("\nOptions:")[0])
        self.assertEqual(pages, sorted(["kelcache"] + ["kelcache-" + verb for verb in verbs]))
        for verb in verbs:
            page = (self.folder / f"kelcache-{verb}.1").read_text().replace("\\-", "-")
            for option in re.findall(r"(?m)^  (?:-\w, )?(--[\w-]+)", self.run_done(verb, "--help")):
                self.assertIn(option, page, verb)

    def test_is_the_same_at_any_width(self):
        bare = run()
        self.assertEqual((bare.returncode, bare.stdout), (USAGE, ""))
        self.assertTrue(bare.stderr == self.run_done("--help") == self.run_done("help"))
        hdf5 = r", HDF5 \(libhdf5 [\d.]+\)" if WITH_HDF5 else ""
        self.assertRegex(self.run_done("--version"),
                         r"^kelcache \d+\.\d+\.\d+\npc2: .*\nnc: .*encodings 1 and 2; read and "
                         rf"written\nalembic: Ogawa{hdf5}; read\n$")
        for verb in "info play dump verify diff convert retime make recover help".split():
            self.assertRegex(bare.stderr, f"\n  {verb} +[A-Z]")
            narrow, usual, wide = [run(verb, "-h", env={**os.environ, "COLUMNS": columns}).stdout
                                   for columns in ("40", "80", "200")]
            self.assertTrue(usual.startswith(f"usage: kelcache {verb}"))
            self.assertTrue(narrow.split() == usual.split() == wide.split() ==
                            self.run_done("help", verb).split())
            self.assertLessEqual(max(map(len, usual.splitlines())), 80)


class Terminal(CommandTest):
    """The command on a terminal of its own, of any width."""

    def on_terminal(self, columns, *words, seconds=60):
        ours, its = pty.openpty()
        fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        running = subprocess.Popen([COMMAND, *map(str, words)], stdout=its, stderr=its,
                                   cwd=self.folder)
        os.close(its)
        end = threading.Timer(seconds, running.terminate)
        end.start()
        shown = b""
        try:
            while some := os.read(ours, 65536):
                shown += some
        except OSError:
            pass  # how the system reports that the other end is closed
        os.close(ours)
        running.wait()
        end.cancel()
        return shown.decode().replace("\r\n", "\n")

    def test_progress_fits(self):
        name = "a name with \x1b[31m and ümläut that is long.pc2"
        self.pc2(name, 10000, 10, [0] * 300000)
        parts = [r"\d+%", r"\d:\d\d left$", r"\d+ samples/s", r"long\.pc2 ", r"\[[#.]+\]"]
        for columns, room in [(120, 5), (80, 5), (20, 2), (6, 1)]:
            shown = self.on_terminal(columns, "play", name, "--loop", 100000, seconds=1.2)
            *bars, end = [bar for bar in shown.replace("\x1b[K", "").split("\r") if bar]
            self.assertEqual(end, "kelcache: interrupted\n")
            self.assertTrue(all(len(bar) < columns for bar in bars), bars)
            self.assertNotIn("\x1b", "".join(bars))
            self.assertEqual([bool(re.search(part, bars[-1])) for part in parts],
                             [i < room for i in range(5)], bars[-1])

    def test_names_do_not_steer_it(self):
        name = "red\x1b[31m\u009b\udcff.pc2"
        escaped = "red\\x1b[31m\\xc2\\x9b\\xff.pc2"
        out = self.folder / os.fsdecode(b"out\x07.xml")
        self.pc2(name, 1, 1, [0] * 3)
        for verb, *words in [("info", name), ("play", name, "--quiet"), ("verify", "no" + name),
                             ("convert", name, f"none/{name[:-4]}.xml"), ("diff", name, "no" + name),
                             ("retime", name, name, "--offset", 1), ("recover", name)]:
            shown = self.on_terminal(500, verb, *words).replace("\x1b[K", "")
            self.assertFalse(set(shown) - set(map(chr, range(32, 127))) - {"\n", "\r"}, shown)
            self.assertIn(escaped.removesuffix(".pc2"), shown)
        self.assertIn("out\\x07.xml", self.on_terminal(80, "convert", name, out))
        # Files and pipes get the very bytes.
        piped = subprocess.run([COMMAND, "play", self.folder / name, "--quiet"], capture_output=True)
        self.assertIn(os.fsencode(name), piped.stdout)


if __name__ == "__main__":
    unittest.main()
