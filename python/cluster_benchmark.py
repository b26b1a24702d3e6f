"""The cluster on this machine beside one tvsort-host: seconds, and what the engine alone takes.

    PYTHONPATH=python TVSORT_HOST=build/tvsort-host /usr/bin/python3 python/cluster_benchmark.py [--small]
"""

import os
import random
import subprocess
import sys
import tempfile
import time

import distributed

from tvsort import cluster
from tvsort.cluster import _command

KEYS = ["name", "price:decimal:2:desc"]
FILES = 8


def generate(folder, rows):
    chance = random.Random(1)
    names = []
    for i in range(FILES):
        names.append(os.path.join(folder, f"in{i}.csv"))
        with open(names[-1], "w") as file:
            file.write("name,price,number,rest\n")
            file.writelines(f"{chance.randrange(10 ** 9):x},{chance.randrange(10 ** 6) / 100:.2f},{n},"
                            "what else there is in a row\n" for n in range(rows // FILES))
    return names


def seconds_of(call):
    begin = time.monotonic()
    call()
    return time.monotonic() - begin


def main():
    small = "--small" in sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix="tvsort-bench-") as folder:
        names = generate(folder, 40_000 if small else 4_000_000)
        size = sum(map(os.path.getsize, names))
        words = [_command.program(), "sort", *names, "-o", os.path.join(folder, "alone"),
                 *(word for key in KEYS for word in ("--key", key))]
        print(f"{size / 1e6:.0f} MB in {FILES} files, {os.cpu_count()} processors")
        print("| | Sample | Split | Sort | Engine and rest | All, s | MB/s |\n|---|---:|---:|---:|---:|---:|---:|")
        for processes in (1, 2):
            took = min(seconds_of(lambda: subprocess.run([*words, "--processes", str(processes)],
                                                         check=True)) for _ in range(2))
            print(f"| one tvsort-host, {processes} process{'es' * (processes > 1)} | | | | | "
                  f"{took:.1f} | {size / took / 1e6:.0f} |")
        for storage in ("shared", "moved"):
            for workers in (1, 2, 3):
                with distributed.LocalCluster(n_workers=workers, threads_per_worker=1,
                                              dashboard_address=None) as local:
                    with distributed.Client(local) as client:
                        out = os.path.join(folder, f"{storage}{workers}")
                        manifest = cluster.sort(names, out, KEYS, client=client, storage=storage)
                took = manifest.seconds
                steps = [took["sample"], took["split"], took["sort"]]
                print(f"| {workers} worker{'s' * (workers > 1)}, {storage}, {len(manifest.parts)} parts | "
                      + " | ".join(f"{step:.1f}" for step in steps)
                      + f" | {took['all'] - sum(steps):.2f} | {took['all']:.1f} | "
                      f"{size / took['all'] / 1e6:.0f} |", flush=True)
                subprocess.run(f'cat "{out}"/part-* | cmp - "{folder}/alone"', shell=True, check=True)
                subprocess.run(["rm", "-r", out], check=True)
        # The same number of tasks with next to no data is what the engine takes.
        few = generate(folder, 80)
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1,
                                      dashboard_address=None) as local:
            with distributed.Client(local) as client:
                manifest = cluster.sort(few, os.path.join(folder, "few"), KEYS, client=client,
                                        partitions=8)
        tasks = 2 * FILES + len(manifest.parts)
        print(f"engine and processes: {tasks} tasks with no data to speak of in "
              f"{manifest.seconds['all']:.2f} s on 2 workers")


if __name__ == "__main__":
    main()
