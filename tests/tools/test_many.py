"""Folders, shards, incremental conversion and reports: what scripts and farms do."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from support import COMMAND, DATA, DONE, FAILED, FOUND, USAGE, CommandTest, run

DOCS = DATA.parent.parent / "docs"


class Many(CommandTest):
    def setUp(self):
        super().setUp()
        self.caches = self.folder / "in"
        (self.caches / "sub" / "deep").mkdir(parents=True)
        shutil.copy(DATA / "pc2" / "arm_tube.pc2", self.caches / "arm.pc2")
        shutil.copy(DATA / "pc2" / "twist_box.pc2", self.caches / "sub" / "box.PC2")
        shutil.copy(DATA / "abc" / "mesh_24fps.abc", self.caches / "sub" / "deep" / "wave.abc")
        self.make("in/jelly.xml", points=642, frames=25)
        (self.caches / "settings.xml").write_text("<settings/>")
        writers = self.caches / ("sim." + "0123456789abcdef" * 2 + ".part")
        writers.mkdir()
        (writers / "sim.xml").write_text("")
        (self.caches / "notes.txt").write_text("not a cache")
        self.names = ["arm.pc2", "jelly.xml", "sub/box.PC2", "sub/deep/wave.abc"]

    def reports(self, *words):
        done = run(*words, "--json")
        return done, [json.loads(line) for line in done.stdout.splitlines()]

    def names_of(self, reports):
        return [os.path.relpath(report["file"], self.caches) for report in reports
                if "file" in report]

    def tree(self, folder):
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())

    def test_folders_are_looked_through(self):
        self.assertEqual(self.names_of(self.reports("info", self.caches)[1]), self.names[:2])
        for verb in ("info", "verify", "check"):
            done, reports = self.reports(verb, self.caches, "--recursive", "--jobs", 2)
            self.assertEqual((done.returncode, self.names_of(reports)), (DONE, self.names))
        table = run("info", self.caches, "--recursive").stdout.splitlines()
        self.assertEqual(table[0].split(), ["file", "format", "points", "frames", "rate", "size", "age"])
        self.assertEqual(table[1].split()[1:5], ["pc2", "408", "11", "(24)"])
        self.assertEqual(len({line.index("  complete") for line in table[1:]}), 1, "aligned")

    def test_every_file_gets_its_line(self):
        (self.caches / "damaged.pc2").write_bytes((DATA / "pc2" / "arm_tube.pc2").read_bytes()[:-7])
        (self.caches / "jelly.xml").write_text("")
        (self.caches / "gone.abc").symlink_to("nowhere.abc")
        done, reports = self.reports("verify", self.caches, "--recursive")
        self.assertEqual({pathlib.Path(report["file"]).name: report["status"] for report in reports},
                         {"arm.pc2": DONE, "damaged.pc2": FOUND, "gone.abc": FAILED,
                          "jelly.xml": FOUND, "box.PC2": DONE, "wave.abc": DONE})
        self.assertEqual(done.returncode, FAILED)
        text = run("verify", self.caches, "--recursive")
        self.assertEqual(text.returncode, FAILED)
        self.assertRegex(text.stdout, r"(?m)damaged\.pc2 +damaged, 1 problem$")
        self.assertIn("6 files, 3 sound, 3 failed", text.stderr)
        self.assertEqual(run("info", self.folder / "in" / "sub" / "deep" / "wave.abc",
                             self.caches / "gone.abc").returncode, FAILED)
        (self.folder / "empty").mkdir()
        self.expect_error(FAILED, "holds no caches", "verify", self.folder / "empty")

    def test_shards_are_the_whole(self):
        for path in range(40):
            shutil.copy(DATA / "pc2" / "arm_tube.pc2", self.caches / f"{path}.pc2")
        whole = self.names_of(self.reports("info", self.caches, "--recursive")[1])
        parts = [self.names_of(self.reports("info", self.caches, "--recursive", "--shard", f"{i}/3")[1])
                 for i in (1, 2, 3)]
        self.assertEqual(sorted(sum(parts, [])), sorted(whole))
        self.assertTrue(all(8 <= len(part) <= 22 for part in parts), parts)
        for shard in ("0/3", "4/3", "1", "a/b", "1/0"):
            self.expect_error(USAGE, "no shard", "info", self.caches, "--shard", shard)

    def test_reports_are_summed_up(self):
        (self.caches / "damaged.pc2").write_bytes((DATA / "pc2" / "arm_tube.pc2").read_bytes()[:-7])
        files = []
        for i in (1, 2, 3):
            files.append(self.folder / f"{i}.ndjson")
            files[-1].write_text(run("verify", self.caches, "--recursive", "--json", "--shard",
                                     f"{i}/3").stdout)
        done = run("report", *files)
        self.assertEqual((done.returncode, done.stderr), (FOUND, ""))
        self.assertRegex(done.stdout, r"verify .*damaged\.pc2: .*\n"
                                      r"verify: 5 files, 4 done, 1 with findings\n"
                                      r"  findings: damage 1\n  counts: problems 1\n\Z")
        # A task that ran again, one that is missing, one that was cut short.
        again = run("report", *files, files[0])
        self.assertEqual(again.returncode, FOUND)
        self.assertIn("verify: 5 files, 4 done", again.stdout)
        missing = run("report", files[0], files[2])
        self.assertEqual(missing.returncode, FAILED)
        self.assertIn("did not report their end: 2/3", missing.stdout)
        whole = "".join(file.read_text() for file in files)
        for cut in (whole[:-1], whole[:len(whole) // 2], whole + "{}\n", whole + "[]\n", "nonsense\n",
                    whole.replace('"findings":[]', '"findings":7')):
            files[0].write_text(cut)
            self.assertEqual(run("report", files[0]).returncode, FAILED)
        summed = json.loads(run("report", files[1], "--json").stdout)
        self.assertEqual((summed["verb"], summed["status"]), ("report", FAILED))

    def test_incremental_conversion(self):
        out = self.folder / "out"
        words = ["convert", self.caches, "--recursive", "--to", "xml", "--out-dir", out,
                 "--skip-existing"]
        planned = run(*words, "--dry-run")
        self.assertEqual((planned.returncode, out.exists()), (DONE, False), planned.stderr)
        self.assertEqual(planned.stdout.count("would be converted"), 4)
        done, reports = self.reports(*words)
        self.assertEqual((done.returncode, [report["result"] for report in reports]),
                         (DONE, ["converted"] * 4))
        self.assertEqual(self.tree(out), ["arm.ncx", "arm.xml", "jelly.ncx", "jelly.xml",
                                          "sub/box.ncx", "sub/box.xml", "sub/deep/wave.ncx",
                                          "sub/deep/wave.xml"])
        self.assertIn("4 files, 0 converted, 4 up to date, 0 failed", run(*words).stderr)
        self.assertEqual(run("diff", self.caches, out, "--recursive").returncode, DONE)

        os.utime(self.caches / "arm.pc2")
        data = out / "sub" / "box.ncx"
        os.truncate(data, 500)
        results = {report["file"].split("/")[-1]: report["result"] for report in self.reports(*words)[1]}
        self.assertEqual(results, {"arm.pc2": "converted", "jelly.xml": "up to date",
                                   "box.PC2": "converted", "wave.abc": "up to date"})
        # Without the option what is there stays, and what has another format's name is refused.
        refused = run(*words[:-1])
        self.assertEqual((refused.returncode, refused.stdout.count("exists already")), (FAILED, 4))
        beside = run("convert", self.caches, "--to", "xml")
        self.assertEqual(beside.returncode, DONE, beside.stdout)
        self.assertRegex(beside.stdout, r"jelly\.xml +in that format already")

    def test_a_target_folder_inside_the_source_is_no_source(self):
        out = self.caches / "converted"
        words = ["convert", self.caches, "--recursive", "--to", "xml", "--out-dir", out]
        self.assertEqual(run(*words).returncode, DONE)
        again = run(*words, "--skip-existing")
        self.assertIn("4 files, 0 converted, 4 up to date", again.stderr)
        self.assertEqual(len(self.tree(out)), 8)

    def test_full_disk_in_the_middle(self):
        big = self.make("in/zzz.pc2", points=20000, frames=20)
        out = self.folder / "out"
        done = subprocess.run(["bash", "-c", 'ulimit -f 1000; exec "$@"', "-", COMMAND, "convert",
                               self.caches, "--to", "xml", "--out-dir", out],
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, FAILED)
        self.assertRegex(done.stdout, r"zzz\.pc2 .*File too large")
        self.assertEqual(self.tree(out), ["arm.ncx", "arm.xml", "jelly.ncx", "jelly.xml"])
        self.assertTrue(big.exists())

    def test_folders_are_compared(self):
        other = self.folder / "other"
        shutil.copytree(self.caches, other)
        (other / "arm.pc2").unlink()
        run("convert", self.caches / "arm.pc2", other / "arm.xml")
        self.assertEqual(run("diff", self.caches, other, "--recursive").returncode, DONE)
        (other / "jelly.xml").rename(other / "jolly.xml")
        shutil.copy(DATA / "pc2" / "monkey_wave.pc2", other / "sub" / "box.PC2")
        done, reports = self.reports("diff", self.caches, other, "--recursive")
        self.assertEqual([report["status"] for report in reports], [DONE, FOUND, FOUND, DONE, FOUND])
        self.assertIn(f"only in {self.caches}", reports[1]["findings"][0]["text"])
        self.expect_error(USAGE, "two folders", "diff", self.caches, other / "arm.xml")


class Reports(CommandTest):
    """Each verb's report against docs/json.md."""

    def documented(self):
        """The fields that each table of the document names, by the heading above it."""
        fields, heading = {}, None
        for line in (DOCS / "json.md").read_text().splitlines():
            if line.startswith("## "):
                heading = line[3:].strip("`")
                fields[heading] = set()
            elif match := re.match(r"\| `(\w+)`", line):
                fields[heading].add(match[1])
        return fields

    def test_fields_are_those_of_the_document(self):
        documented = self.documented()
        path = self.make("shot.pc2")
        other = self.pc2("other.pc2", 1, 1, [float("nan")] * 3)
        archive = DATA / "abc" / "mesh_24fps.abc"
        nc = self.folder / "shot.xml"
        rows = {
            "info": [(DONE, path), (DONE, archive)], "verify": [(DONE, path)],
            "check": [(DONE, path), (FOUND, other)],
            "play": [(DONE, path, "--stats")], "diff": [(FOUND, path, other)],
            "convert": [(DONE, path, nc), (DONE, path, nc, "--force", "--compact")],
            "retime": [(DONE, path, self.folder / "late.xml", "--offset", 1)],
            "trim": [(DONE, path, self.folder / "part.pc2", "--to", 2)],
            "view": [(DONE, path, "-o", self.folder / "page.html")],
            "make": [(DONE, self.folder / "new.pc2", "--points", 1, "--frames", 1)],
            "recover": [(FAILED, path)], "clean": [(DONE, self.folder)]}
        for verb, calls in rows.items():
            for status, *words in calls:
                with self.subTest(verb, words=words):
                    done = run(verb, *words, "--json")
                    self.assertEqual(done.returncode, status, done.stderr)
                    report = json.loads(done.stdout)
                    self.assertEqual((report["verb"], report["status"], report["file"]),
                                     (verb, status, str(words[0])))
                    self.assertTrue(report["counts"] or status == FAILED)
                    extra = set(report) - documented["Every report"]
                    self.assertLessEqual(extra, documented[verb])
                    self.assertLessEqual(documented["Every report"], set(report))
                    for finding in report["findings"]:
                        self.assertLessEqual({"kind", "text"}, set(finding))
                        self.assertLessEqual(set(finding), documented["Findings"])
                    self.assertEqual(report["error"] is None, status != FAILED)
        known = documented["info"] | documented["Channels"] | documented["Every report"]
        report = json.loads(run("info", archive, "--json").stdout)
        self.assertLessEqual(set(report["channels"][0]), known)


if __name__ == "__main__":
    unittest.main()
