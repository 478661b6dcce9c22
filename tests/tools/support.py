"""What the tests of the kelcache command share.

The command's path comes from the environment variable KELCACHE.
"""

import json
import os
import pathlib
import signal
import struct
import subprocess
import tempfile
import time
import unittest

COMMAND = os.environ["KELCACHE"]
DATA = pathlib.Path(__file__).resolve().parent.parent / "data"
READER = DATA.parent.parent / "examples" / "read_nc.py"
DONE, FOUND, USAGE, FAILED = 0, 1, 2, 3
WITH_HDF5 = os.environ.get("KELCACHE_WITH_HDF5", "1") == "1"
EMULATED = "qemu" in os.environ.get("KELCACHE_SANITIZE", "")


def run(*words, **more):
    return subprocess.run([COMMAND, *map(str, words)], capture_output=True, text=True, **more)


def begin(*words, ignored=()):
    """Starts the command with the signals as a shell's foreground leaves them."""
    def settle():
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN if number in ignored else signal.SIG_DFL)
    return subprocess.Popen([COMMAND, *map(str, words)], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, preexec_fn=settle)


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

    def info(self, path):
        return json.loads(self.run_done("info", path, "--json"))

    def run_found(self, *words):
        found = run(*words)
        self.assertEqual(found.returncode, FOUND, (words, found.stderr))
        return found.stdout + found.stderr

    def expect_error(self, status, line, *words):
        """One line that says so, which starts with the command's name."""
        failed = run(*words)
        self.assertEqual((failed.returncode, failed.stdout), (status, ""), (words, failed.stderr))
        self.assertRegex(failed.stderr, r"\Akelcache: .*\n\Z", words)
        self.assertIn(line, failed.stderr, words)
        return failed.stderr

    def dump(self, path, *more):
        return json.loads(self.run_done("dump", path, *more))

    def make(self, name, *more, points=50, frames=6):
        path = self.folder / name
        self.run_done("make", path, "--points", points, "--frames", frames, *more)
        return path

    def pc2(self, name, points, samples, data, start=0.0, rate=1.0):
        path = self.folder / name
        header = struct.pack("<12siiffi", b"POINTCACHE2\0", 1, points, start, rate, samples)
        path.write_bytes(header + struct.pack(f"<{len(data)}f", *data))
        return path

    def sparse_pc2(self, name, points=100000, samples=10000):
        """All zeros, and on a disk nearly nothing: for what takes long."""
        path = self.pc2(name, points, samples, [])
        os.truncate(path, 32 + 12 * points * samples)
        return path

    def begin_writer(self, name, *more, points=1000, frames=8000000):
        """A writer that is stopped once it has written samples, alive until it is killed, and what
        it gathers them in."""
        path = self.folder / name
        known = set(self.contents())
        writer = begin("make", path, "--points", points, "--frames", frames, *more)
        self.addCleanup(lambda: (writer.kill(), writer.communicate()))
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline:
            left = [self.folder / new for new in set(self.contents()) - known]
            if writer.poll() is not None:
                return writer, None
            if left and self.size(left[0]) > 200000:
                writer.send_signal(signal.SIGSTOP)
                os.waitpid(writer.pid, os.WUNTRACED)
                return writer, left[0]
            time.sleep(0.01)
        self.fail("the writer writes nothing")

    @staticmethod
    def size(path):
        files = path.iterdir() if path.is_dir() else [path]
        return sum(os.lstat(each).st_size for each in files)

    def contents(self):
        return sorted(os.listdir(self.folder))
