"""A cache that is being written, watched until its writer ends."""

import json
import signal
import unittest

from support import DONE, FAILED, FOUND, USAGE, CommandTest, begin, run

KINDS = ["sim.pc2"], ["sim.xml"], ["sim.xml", "--per-frame"], ["sim.xml", "--compact"]
ENDLESS = 8000000


class Follow(CommandTest):
    def follow(self, path, *more):
        """What watches a stopped writer, once it has told what is there."""
        watcher = begin("info", path, "--follow", "--interval", "0.02", "--json", *more)
        self.addCleanup(lambda: (watcher.kill(), watcher.communicate()))
        return watcher, json.loads(watcher.stdout.readline())

    def end_of(self, watcher):
        out, error = watcher.communicate(timeout=60)
        return watcher.returncode, [json.loads(line) for line in out.splitlines()], error

    def test_ends_when_it_is_in_place(self):
        for words in KINDS:
            with self.subTest(words):
                for frames in (600, 2400, 4800):  # one that is not through before it is stopped
                    path = self.folder / words[0]
                    writer, _ = self.begin_writer(*words, "--force", frames=frames, points=10000)
                    if writer.poll() is None:
                        break
                watcher, first = self.follow(path, "--to", frames - 1)
                self.assertEqual((first["status"], first["state"]), (DONE, "at work"))
                self.assertTrue(0 < first["counts"]["samples"] < frames)
                self.assertEqual(first["lastFrame"], first["counts"]["samples"] - 1)
                self.assertEqual(first["promised"], frames if path.suffix == ".pc2" else None)
                writer.send_signal(signal.SIGCONT)
                self.assertEqual(writer.communicate()[1], "")
                self.assertEqual(writer.returncode, DONE)
                status, reports, error = self.end_of(watcher)
                self.assertEqual((status, error), (DONE, ""))
                last = reports.pop()
                self.assertEqual((last["state"], last["complete"]), ("published", True))
                self.assertEqual(last["channels"][0]["samples"], frames)
                counts = [each["counts"]["samples"] for each in reports
                          if each["state"] == "at work"]
                self.assertEqual(counts, sorted(counts))
                self.run_done("verify", path)
                for each in self.folder.iterdir():
                    each.unlink()

    def test_ends_when_the_writer_does(self):
        for words in KINDS:
            for number, state, word in ((signal.SIGKILL, "died", "kelcache recover"),
                                        (signal.SIGTERM, "given up", "nothing was put in place")):
                with self.subTest((words, state)):
                    writer, _ = self.begin_writer(*words)
                    path = self.folder / words[0]
                    watcher, first = self.follow(path)
                    writer.send_signal(number)
                    writer.send_signal(signal.SIGCONT)
                    writer.communicate()
                    status, reports, _ = self.end_of(watcher)
                    last = reports[-1]
                    self.assertEqual((status, last["status"], last["state"]),
                                     (FOUND, FOUND, state))
                    self.assertIn(word, last["notes"][0])
                    if number == signal.SIGKILL:
                        self.assertEqual(last["counts"], first["counts"])
                        self.assertIn("and one has died", self.run_found("info", path, "--follow"))
                        self.run_done("recover", path)
                        self.assertEqual(self.info(path)["channels"][0]["samples"],
                                         last["counts"]["samples"])
                        self.run_done("clean", self.folder)
                        for each in self.folder.iterdir():
                            each.unlink()

    def test_is_not_being_written(self):
        path = self.make("shot.pc2")
        done = run("info", path, "--follow")
        self.assertEqual(done.returncode, DONE)
        self.assertIn("no writer is at work", done.stderr)
        self.assertIn("samples      6", done.stdout)
        path.write_bytes(path.read_bytes()[:-1])
        self.assertIn("complete     no", self.run_found("info", path, "--follow"))
        self.expect_error(FAILED, "no such file", "info", self.folder / "no.xml", "--follow")
        self.expect_error(USAGE, "only read", "info", self.folder / "no.abc", "--follow")
        self.expect_error(USAGE, "takes one cache", "info", self.folder, "--follow")

    def test_a_line_for_a_person(self):
        writer, _ = self.begin_writer("sim.pc2")
        path = self.folder / "sim.pc2"
        watcher = begin("info", path, "--follow", "--interval", "0.02")
        line = watcher.stdout.readline()
        self.assertRegex(line, rf"sim.pc2: \d+ of {ENDLESS} samples, frame \d+ \(0%\), [\d.]+ [kM]B")
        watcher.send_signal(signal.SIGINT)
        self.assertIn("interrupted", watcher.communicate(timeout=60)[1])
        self.assertEqual(watcher.returncode, 128 + signal.SIGINT)
        self.assertIsNone(writer.poll())


if __name__ == "__main__":
    unittest.main()
