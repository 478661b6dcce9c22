"""Times the verbs that cut and join caches against cp and sync of the same bytes in the same run.

    edit.py KELCACHE [MEGABYTES]

Every round runs all rows in turn; the table has the median seconds, and how many times as fast as
cp + sync of as many bytes as the verb writes a row is. Files lie in TMPDIR or /tmp, warm.
"""

import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 5
FEW, MANY = 1_000, 100_000  # points


def run(*words):
    subprocess.run([str(word) for word in words], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def make(kelcache, folder, megabytes):
    caches = {}
    for points in (FEW, MANY):
        frames = megabytes * 1_000_000 // (12 * points)
        pc2, nc = folder / f"{points}.pc2", folder / f"{points}.xml"
        run(kelcache, "make", pc2, "--points", points, "--frames", frames)
        run(kelcache, "convert", pc2, nc)
        caches[points] = pc2, nc
    # Both halves of the cache of many points, for merging.
    middle = megabytes * 1_000_000 // (12 * MANY) // 2
    for i, words in enumerate([("--to", middle - 1), ("--from", middle)]):
        run(kelcache, "trim", caches[MANY][0], folder / f"half{i}.pc2", *words)
    return caches


def rows_of(kelcache, folder, caches):
    out_pc2, out_nc = folder / "out.pc2", folder / "out.xml"
    halves = [folder / f"half{i}.pc2" for i in range(2)]
    for points, (pc2, nc) in caches.items():
        for source, target in ((pc2, out_pc2), (nc, out_nc)):
            kind = f"{source.suffix[1:].replace('xml', 'nc')}, {points} points"
            yield f"trim, {kind}", [kelcache, "trim", source, target, "--from", 0]
            yield f"transform --scale, {kind}", [kelcache, "transform", source, target,
                                                 "--units", "cm-to-m"]
            yield f"transform --rotate, {kind}", [kelcache, "transform", source, target,
                                                  "--rotate", "10,20,30", "--translate", "1,2,3"]
    pc2, nc = caches[MANY]
    yield "extract, nc", [kelcache, "extract", nc, out_nc, "--channel", 0]
    yield "merge, side by side", [kelcache, "merge", *halves, out_nc, "--allow-different-ranges"]
    yield "merge --sequence", [kelcache, "merge", *halves, out_nc, "--sequence"]
    for method in ("hold", "linear", "cubic"):
        yield f"resample 24 to 25, {method}", [kelcache, "resample", nc, out_nc, "--rate", 25,
                                               "--method", method]


def written(folder):
    outs = [path for path in folder.iterdir() if path.name.startswith("out.")]
    size = sum(path.stat().st_size for path in outs)
    for path in outs:
        path.unlink()
    return size


def seconds(words):
    os.sync()
    begun = time.perf_counter()
    run(*words)
    return time.perf_counter() - begun


def main():
    kelcache = pathlib.Path(sys.argv[1]).resolve()
    megabytes = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(scratch)
        caches = make(kelcache, folder, megabytes)
        source, copy = caches[MANY][0], folder / "out.copy"
        copying = ["sh", "-c", f"cp '{source}' '{copy}' && sync '{copy}'"]
        rows = [("cp + sync", copying), *rows_of(kelcache, folder, caches)]
        times, sizes = {name: [] for name, _ in rows}, {}
        for _ in range(ROUNDS):
            for name, words in rows:
                times[name].append(seconds(words))
                sizes[name] = written(folder)
        baseline = statistics.median(times["cp + sync"]) / sizes["cp + sync"]
        print(f"{'':38} {'s':>6} {'MB/s':>6}  of cp + sync")
        for name, taken in times.items():
            median = statistics.median(taken)
            speed = sizes[name] / median
            print(f"{name:38} {median:6.2f} {speed / 1e6:6.0f}  {speed * baseline:.2f}")


if __name__ == "__main__":
    main()
