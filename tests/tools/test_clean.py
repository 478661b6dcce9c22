"""What dead writers and recoveries left, and its removal."""

import json
import os
import shutil
import time
import unittest

from support import DONE, FAILED, USAGE, CommandTest, run

IDENTITY = "0123456789abcdef" * 2


class CleanTest(CommandTest):
    def dead_writer(self, name, *more):
        writer, left = self.begin_writer(name, *more)
        writer.kill()
        writer.communicate()
        return left

    def recover_over(self, name, *more):
        """A cache that recovery put in the place of a whole one, which it kept."""
        path = self.make(name, *more)
        self.dead_writer(name, "--force", *more)
        self.run_done("recover", path, "--force")
        return path

    @staticmethod
    def age(path, hours=1.0):
        """As if it had last been written to so long ago."""
        then = time.time() - hours * 3600
        for each in [*(path.iterdir() if path.is_dir() else []), path]:
            os.utime(each, (then, then))

    def clean(self, *more, status=DONE):
        done = run("clean", self.folder, "--json", *more)
        self.assertEqual(done.returncode, status, done.stderr)
        report = json.loads(done.stdout)
        return {os.path.basename(one["path"]): one for one in report["leftovers"]}, report["counts"]

    def expect(self, result, path, *more, why="", status=DONE):
        found, _ = self.clean(*more, status=status)
        self.assertIn(path.name, found)
        one = found[path.name]
        self.assertEqual(one["result"], result, one)
        self.assertIn(why, one["why"])
        return one


CACHES = ["sim.pc2"], ["sim.xml"], ["sim.xml", "--per-frame"], ["sim.xml", "--compact"]


class Partials(CleanTest):
    def test_of_a_living_writer_stay(self):
        for words in CACHES:
            with self.subTest(words):
                writer, left = self.begin_writer(*words)
                before = self.size(left)
                self.age(left, 1000)
                self.expect("kept", left, "--force", why="living writer")
                self.assertEqual(self.size(left), before)
                writer.kill()
                writer.communicate()
                self.expect("removed", left, "--force")
                self.assertFalse(left.exists())

    def test_that_recover_saves_stay_without_force(self):
        for words in CACHES:
            with self.subTest(words):
                left = self.dead_writer(*words)
                self.age(left, 1000)
                one = self.expect("kept", left, why="recover saves")
                self.assertEqual(one["bytes"], self.size(left))
                self.expect("would be removed", left, "--force", "--dry-run")
                self.expect("kept", left, "--force", "--older-than", "50d", why="younger")
                self.run_done("recover", self.folder / words[0])
                self.assertEqual(self.clean("--force")[0], {})
                shutil.rmtree(self.folder)
                self.folder.mkdir()

    def test_without_anything_whole_go_once_they_are_settled(self):
        """What holds nothing may be of a writer that has not locked it yet."""
        left = self.dead_writer("sim.xml")
        (data,) = left.glob("*.ncx")
        os.truncate(data, 400)  # in the first time block
        headers = self.dead_writer("dance.pc2")
        os.truncate(headers, 32)
        empty = self.folder / "void.pc2.partial2"
        empty.touch()
        bare = self.folder / f"bare.{IDENTITY}.part"
        bare.mkdir()
        begun = self.folder / f"begun.{IDENTITY}.part"
        begun.mkdir()
        (begun / "begun.xml").touch()
        self.expect("removed", left)
        for young in (headers, empty, bare, begun):
            self.expect("kept", young, "--force", "--dry-run", why="too young")
            self.age(young, 0.5)
        found, counts = self.clean("--older-than", "1h")
        self.assertEqual(counts["kept"], 4, found)
        found, counts = self.clean("--dry-run")
        self.assertEqual((counts["wouldBeRemoved"], counts["removed"]), (4, 0), found)
        self.assertEqual(len(self.contents()), 4)
        self.assertEqual(self.clean()[1]["removed"], 4)
        self.assertEqual(self.contents(), [])

    def test_of_names_alike_are_no_leftovers(self):
        video = self.folder / "video.mp4.partial"
        video.touch()
        (self.folder / "shot.pc2.partial").write_bytes(b"of another program " * 9)
        (self.folder / "notes.partial3").write_bytes(b"POINT")
        (self.folder / "sim.0123.part").mkdir()
        (self.folder / f"{IDENTITY}.part").mkdir()
        (self.folder / f"file.{IDENTITY}.part").touch()
        outside = self.folder / "outside"
        outside.mkdir()
        (outside / "sim.xml").touch()
        (self.folder / f"sim.{IDENTITY}.part").symlink_to(outside)
        (self.folder / "link.pc2.partial").symlink_to(self.make("whole.pc2"))
        (self.folder / "shot.before-recover.png").touch()
        (self.folder / "shot.before-recovery.pc2").touch()
        (self.folder / "shot.before-recover2.my.pc2").touch()
        before = self.contents()
        for each in before:
            os.utime(self.folder / each, (0, 0), follow_symlinks=False)
        self.assertEqual(self.clean("--force", "--recursive")[0], {})
        self.assertEqual(self.contents(), before)

    def test_with_what_no_writer_made_stay(self):
        left = self.dead_writer("sim.xml")
        (left / "notes.txt").touch()
        self.age(left)
        self.expect("kept", left, "--force", why="notes.txt")

    def test_that_were_half_put_in_place_stay(self):
        """Only recover mends what stands there; of a folder that is empty it only cleans up."""
        path = self.make("sim.xml")
        description = path.read_text()
        identity = description.split('identity="')[1].split('"')[0]
        left = self.folder / f"sim.{identity}.part"
        left.mkdir()
        path.rename(left / "sim.xml")
        self.age(left)
        self.expect("kept", left, "--force", why="recover goes on")
        self.run_done("recover", path)
        left.mkdir()
        self.age(left)
        self.expect("removed", left)
        self.run_done("verify", path)

    def test_that_cannot_be_removed_are_told(self):
        if os.geteuid() == 0:
            self.skipTest("nothing is refused to root")
        empty = self.folder / "void.pc2.partial"
        empty.touch()
        self.age(empty)
        self.folder.chmod(0o555)
        self.addCleanup(self.folder.chmod, 0o755)
        self.expect("failed", empty, why="ermission", status=FAILED)


class OlderCaches(CleanTest):
    def test_go_where_what_took_their_place_is_whole(self):
        for words in CACHES:
            with self.subTest(words):
                path = self.recover_over(*words)
                kept = self.folder / ("sim.before-recover" + path.suffix)
                foreign = self.make("foreign" + path.suffix, *words[1:])
                stranger = None
                if path.suffix == ".xml" and "--compact" not in words[1:]:
                    (data, *_) = sorted(self.folder.glob("foreign*.ncx"))
                    stranger = self.folder / "sim.before-recoverFrame99.ncx"
                    shutil.copy(data, stranger)
                self.expect("kept", kept, "--older-than", "30min", why="younger")
                self.expect("removed", kept, why="whole")
                left = [name for name in self.contents() if "before-recover" in name]
                self.assertEqual(left, [stranger.name] if stranger else [])
                self.run_done("verify", path)
                self.run_done("verify", foreign)
                shutil.rmtree(self.folder)
                self.folder.mkdir()

    def test_that_may_be_the_only_copy_stay_without_force(self):
        for words in CACHES:
            with self.subTest(words):
                path = self.recover_over(*words)
                kept = self.folder / ("sim.before-recover" + path.suffix)
                whole = {each: each.read_bytes() for each in self.folder.glob("sim*")}
                for damage in (self.cut, os.unlink):
                    files = [each for each in whole if "before" not in each.name]
                    victim = next((each for each in files if each.suffix in (".ncx", ".ncc")), path)
                    damage(victim)
                    self.expect("kept", kept, why="only copy")
                    victim.write_bytes(whole[victim])
                path.unlink()
                self.expect("kept", kept, why="only copy")
                self.run_done("verify", kept)
                self.expect("removed", kept, "--force")
                shutil.rmtree(self.folder)
                self.folder.mkdir()

    @staticmethod
    def cut(path):
        os.truncate(path, 40)

    def test_that_are_second_names_of_what_stands_stay(self):
        """A recovery gives them these before it puts another cache in their place."""
        nc = self.make("sim.xml")
        pc2 = self.make("dance.pc2")
        for path in (nc, self.folder / "sim.ncx", pc2):
            os.link(path, path.with_name(path.name.replace(".", ".before-recover.")))
        self.expect("kept", self.folder / "sim.before-recover.xml", why="only copy")
        self.expect("kept", self.folder / "dance.before-recover.pc2", why="only copy")


class Folders(CleanTest):
    def test_are_looked_in_and_summed_up(self):
        inner = self.folder / "a" / "b"
        inner.mkdir(parents=True)
        for path in (self.folder / "one.pc2.partial", inner / "two.pc2.partial"):
            path.write_bytes(b"POINTCACHE2\0" + bytes(20))
            self.age(path)
        out = self.run_done("clean", self.folder, "--dry-run")
        self.assertRegex(out, r"partial file \S+one.pc2.partial, 32 B, 60 min: would be removed, ")
        self.assertIn("1 would be removed (32 B), 0 kept (0 B)", out)
        out = self.run_done("clean", self.folder, "--recursive")
        self.assertIn("2 removed (64 B), 0 kept (0 B)", out)
        self.expect_error(FAILED, "is no folder", "clean", self.make("shot.pc2"))
        self.expect_error(USAGE, "no time span", "clean", self.folder, "--older-than", "3y")


if __name__ == "__main__":
    unittest.main()
