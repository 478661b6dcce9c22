"""Frames that go wrong: faults planted into caches that move, and caches in which none is."""

import json
import math
import unittest

from support import DATA, DONE, FAILED, FOUND, WITH_HDF5, CommandTest, run

POINTS, SAMPLES = 40, 60


def wave(sample):
    """Points on a swinging sheet."""
    return [(0.1 * i, 0.3 * math.sin(0.2 * sample + 0.1 * i), 0.05 * (i % 7)) for i in range(POINTS)]


def with_point(pose, point, place):
    return pose[:point] + [place] + pose[point + 1:]


class Check(CommandTest):
    def cache(self, name, poses, **more):
        path = self.pc2(name, len(poses[0]), len(poses), [v for pose in poses for p in pose for v in p],
                        **more)
        nc = path.with_suffix(".xml")
        self.run_done("convert", path, nc, "--force")
        return path, nc

    def findings(self, path, *more):
        done = run("check", path, "--json", *more)
        report = json.loads(done.stdout)
        self.assertEqual(done.returncode, FOUND if report["findings"] else DONE, done.stderr)
        self.assertEqual((report["verb"], report["status"]), ("check", done.returncode))
        return [(found["kind"], found["firstFrame"], found["lastFrame"], found["point"])
                for found in report["findings"]]

    def test_planted_faults_are_found_and_nothing_else(self):
        good = [wave(sample) for sample in range(SAMPLES)]
        nan, far = math.nan, (500.0, 0.0, 0.0)
        runaway = [with_point(good[40 + k], 7, (10.0 * 3 ** k, 0, 0)) for k in range(20)]
        origin = [(0.0, 0.0, 0.0)] * POINTS
        gone = [with_point(pose, 7, (pose[7][0] + 5, *pose[7][1:])) for pose in good]
        faults = {
            "nothing": (good, []),
            "not a number": (good[:20] + [with_point(good[20], 7, (1, nan, 0))] + good[21:],
                             [("not finite", 20, 20, 7)]),
            "infinite for a while": (good[:20] + [with_point(p, 7, (1, math.inf, 0)) for p in good[20:25]]
                                     + good[25:], [("not finite", 20, 24, 7)]),
            "exploded": (good[:20] + [with_point(good[20], 7, far)] + good[21:],
                         [("jump", 20, 20, 7)]),
            "exploded at the end": (good[:-1] + [with_point(good[-1], 7, far)],
                                    [("jump", 59, 59, 7)]),
            "running away": (good[:40] + runaway, [("jump", 40, 40, 7)]),
            "moved and stays": (good[:20] + gone[20:], [("jump", 20, 20, 7)]),
            "repeated": (good[:20] + [good[19]] + good[21:], [("frozen", 20, 20, None)]),
            "frozen": (good[:20] + [good[19]] * 15 + good[35:], [("frozen", 20, 34, None)]),
            "frozen to the end": (good[:20] + [good[19]] * 40, [("frozen", 20, 59, None)]),
            "collapsed": (good[:20] + [origin] + good[21:], [("collapsed", 20, 20, None)]),
            "collapsed for a while": (good[:20] + [origin] * 3 + good[23:],
                                      [("collapsed", 20, 22, None)]),
            "an earlier one": (good[:20] + [good[4]] + good[21:], [("jump back", 20, 20, None)]),
            "begun anew": (good[:20] + good[:40], [("jump back", 20, 20, None)]),
        }
        for name, (poses, expected) in faults.items():
            for path in self.cache("shot.pc2", poses):
                with self.subTest(name, path=path.suffix):
                    self.assertEqual(self.findings(path), expected)
        print_of = self.run_found("check", self.cache("shot.pc2", faults["exploded"][0])[0])
        self.assertRegex(print_of, r"shot\.pc2: frame 20 \(0\.83\d* s\), point 7: moves 499\.\d*, from "
                                   r"\(0\.7, -?[\d.]+, 0\) to \(500, 0, 0\), out of step")

    def test_what_is_no_fault(self):
        good = [wave(sample) for sample in range(SAMPLES)]
        rest = [good[30]] * 20
        eased = [wave(20 - 20 * 0.9 ** k) for k in range(100)]
        shot = [with_point(good[k], 7, (2.0 * k, 0, 0)) for k in range(SAMPLES)]
        for name, poses in {
                "on twos": [good[k // 2 * 2] for k in range(SAMPLES)],
                "held at first": [good[0]] * 20 + good,
                "held at last": good + [good[-1]],
                "comes to rest": eased + [eased[-1]] * 30,
                "still": rest,
                "at once": [good[0]] * 20 + shot,
                "going round": good[:32] + good[30:0:-1] + good[:32],
                "one sample": good[:1],
                "one point": [pose[:1] for pose in good]}.items():
            for path in self.cache("fine.pc2", poses):
                with self.subTest(name, path=path.suffix):
                    self.assertEqual(self.findings(path), [])
        self.assertEqual(self.findings(self.make("sheet.xml", "--channels", "P,v,id", "--type",
                                                 "float32[3],float64[3],int32", frames=60)), [])

    def test_real_caches_are_clean(self):
        folders = ("pc2", "nc", "abc", "abc_hdf5") if WITH_HDF5 else ("pc2", "nc", "abc")
        files = [file for folder in folders for file in sorted((DATA / folder).iterdir())
                 if file.suffix in (".pc2", ".xml", ".abc")
                 and (WITH_HDF5 or file.name != "hdf5_backed.abc")]
        done = run("check", "--jobs", 2, *files)
        self.assertEqual((done.returncode, done.stderr),
                         (DONE, f"kelcache: {len(files)} files, {len(files)} clean, 0 failed\n"))
        self.assertEqual(len(done.stdout.splitlines()), 1 + len(files), "the table alone")

    def test_limits_ranges_channels_and_many_files(self):
        good = [wave(sample) for sample in range(SAMPLES)]
        bad = good[:20] + [with_point(good[20], 7, (500, 0, 0))] + good[21:]
        path, nc = self.cache("shot.pc2", bad, start=100)
        self.assertEqual(self.findings(path, "--max-move", 100),
                         [("jump", 120, 120, 7), ("jump", 121, 121, 7)])
        self.assertEqual(self.findings(path, "--max-move", 1000), [])
        self.assertEqual(self.findings(path, "--to", 119), [])
        self.assertEqual(self.findings(nc, "--channel", 0, "--from", 110, "--to", 130),
                         [("jump", 120, 120, 7)])
        cut = self.folder / "cut.pc2"
        cut.write_bytes(path.read_bytes()[:-100])
        self.assertEqual(self.findings(cut)[0][0], "missing")
        done = run("check", "--json", nc, self.folder / "none.pc2", DATA / "pc2" / "arm_tube.pc2")
        reports = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual([report["status"] for report in reports], [FOUND, FAILED, DONE])
        self.assertEqual((reports[1]["file"], reports[1]["error"]),
                         (str(self.folder / "none.pc2"), "there is no such file"))
        self.assertEqual(done.returncode, FAILED)
        empty = self.pc2("empty.pc2", 0, 5, [])
        self.assertEqual(self.findings(empty), [])


if __name__ == "__main__":
    unittest.main()
