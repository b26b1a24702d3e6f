"""What a sort on a cluster would take, by the cost model of docs/cluster.md: a table, not a measurement.

    /usr/bin/python3 python/cluster_cost.py [--disk MB/s] [--net MB/s] [--sort MB/s] [--memory GB] ...

Each machine reads its share of the inputs, writes pieces, sends those that belong elsewhere, reads
pieces, sorts them and writes parts. A step takes as long as the slowest of disk, network and
processors, and as the largest range, which the sample lets grow.
"""

import argparse
import math
import random

TASK_SECONDS = 0.001  # of the scheduler, for each task
START_SECONDS = 0.1  # of a process, for each task
SAMPLES_PER_RANGE = 64
RANGES_MAX = 900  # a larger number is reached by splitting twice


def largest_to_mean(ranges, rng):
    """Of ranges between every 64th of random samples; a simulation of a few thousand of them."""
    ranges = max(2, min(ranges, 4000))
    cuts = sorted(rng.random() for _ in range(ranges * SAMPLES_PER_RANGE))[::SAMPLES_PER_RANGE]
    sizes = [high - low for low, high in zip(cuts, cuts[1:] + [1.0])]
    return max(sizes) * ranges


def seconds(tb, machines, given, rng):
    """Of the steps, and the bytes read, written and sent per byte of data."""
    mb = tb * 1e6
    share = mb / machines
    ranges = max(2 * machines * given.processors, math.ceil(mb / (given.memory * 1000)))
    passes = 1 if ranges <= RANGES_MAX else 2
    skew = largest_to_mean(max(2, ranges // (machines * given.processors)), rng)
    sent = (1 - 1 / machines) * (2 if given.storage == "far" else 1)
    split = passes * max(2 * share / given.disk, share / (given.split * given.processors),
                         share * sent / given.net)
    sort = skew * max(2 * share / given.disk, share / (given.sort * given.processors))
    tasks = (passes * ranges + ranges) + machines * given.processors
    engine = tasks * TASK_SECONDS + START_SECONDS * tasks / (machines * given.processors)
    return split, sort, engine, split + sort + engine, passes + 1, sent * passes


def main():
    words = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    words.add_argument("--disk", type=float, default=1000, help="MB/s of a machine's disks, both ways")
    words.add_argument("--net", type=float, default=1000, help="MB/s of a machine's network, each way")
    words.add_argument("--sort", type=float, default=60, help="MB/s of a sort process")
    words.add_argument("--split", type=float, default=120, help="MB/s of a split")
    words.add_argument("--processors", type=int, default=16, help="of a machine")
    words.add_argument("--memory", type=float, default=1, help="GB of a sort process")
    words.add_argument("--storage", choices=("near", "far"), default="near",
                       help="near: each machine has its share of inputs and parts; far: none has")
    given = words.parse_args()
    rng = random.Random(1)
    print(f"disk {given.disk:g} MB/s, network {given.net:g} MB/s, {given.processors} processors that "
          f"split {given.split:g} and sort {given.sort:g} MB/s each, {given.memory:g} GB for each, "
          f"storage {given.storage}")
    print("| Data | Machines | Split, s | Sort, s | Engine, s | All, s | GB/s | Read | Sent |")
    print("|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for tb in (1, 100):
        for machines in (10, 30, 100, 300, 1000):
            split, sort, engine, all_, read, sent = seconds(tb, machines, given, rng)
            print(f"| {tb} TB | {machines} | {split:.0f} | {sort:.0f} | {engine:.0f} | {all_:.0f} | "
                  f"{tb * 1000 / all_:.1f} | {read} | {sent:.2f} |")


if __name__ == "__main__":
    main()
