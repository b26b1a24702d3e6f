"""What a sort on a cluster would take, by the cost model of docs/cluster.md: a table, not a measurement.

    /usr/bin/python3 python/cluster_cost.py [--disk MB/s] [--net MB/s] [--sort MB/s] [--memory GB] ...

Each machine reads its share of the inputs, writes pieces, sends those that belong elsewhere, reads
pieces, sorts them and writes parts. A step takes as long as the slowest of disk, network and
processors, and as the worker with the largest ranges, which a sample cannot make all alike.
"""

import argparse
import heapq
import math
import random

TASK_SECONDS = 0.001  # of the scheduler, for each task
START_SECONDS = 0.1  # of a process, for each task
SAMPLES_PER_RANGE = 64
RANGES_SIMULATED = 4000
RANGES_MAX = 900  # a larger number is reached by splitting twice


def longest_to_mean(ranges, slots, rng):
    """How much longer than the mean the last slot works, when each takes the next range that is left.

    Ranges lie between every 64th of random samples. Of more than a few thousand ranges as many are
    tried, on as many fewer slots.
    """
    part = min(1.0, RANGES_SIMULATED / ranges)
    ranges, slots = math.ceil(ranges * part), max(1, int(slots * part))
    cuts = sorted(rng.random() for _ in range(ranges * SAMPLES_PER_RANGE))[::SAMPLES_PER_RANGE]
    ends = [0.0] * slots
    for low, high in zip(cuts, cuts[1:] + [1.0]):
        heapq.heapreplace(ends, ends[0] + high - low)
    return max(ends) * slots


def seconds(tb, machines, given, rng):
    """Of the steps, and the bytes read, written and sent per byte of data."""
    mb = tb * 1e6
    share = mb / machines
    ranges = max(2 * machines * given.processors, math.ceil(mb / (given.memory * 1000)))
    passes = 1 if ranges <= RANGES_MAX else 2
    skew = longest_to_mean(ranges, machines * given.processors, rng)
    # Pieces go to other machines; storage that is far sees every read and every write besides.
    moved = 1 - 1 / machines
    split_sent, sort_sent = (passes * moved, 0) if given.storage == "near" else (2 * passes, 2)
    split = max(passes * 2 * share / given.disk, passes * share / (given.split * given.processors),
                split_sent * share / given.net)
    sort = skew * max(2 * share / given.disk, share / (given.sort * given.processors),
                      sort_sent * share / given.net)
    tasks = (passes * ranges + ranges) + machines * given.processors
    engine = tasks * TASK_SECONDS + START_SECONDS * tasks / (machines * given.processors)
    return split, sort, engine, split + sort + engine, passes + 1, split_sent + sort_sent


def main():
    words = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    words.add_argument("--disk", type=float, default=1000, help="MB/s of a machine's disks, both ways")
    words.add_argument("--net", type=float, default=1000, help="MB/s of a machine's network, each way")
    words.add_argument("--sort", type=float, default=80, help="MB/s of a sort process")
    words.add_argument("--split", type=float, default=150, help="MB/s of a split")
    words.add_argument("--processors", type=int, default=16, help="of a machine")
    words.add_argument("--memory", type=float, default=1, help="GB of a sort process")
    words.add_argument("--storage", choices=("near", "far"), default="near",
                       help="near: each machine has its share of inputs and parts; far: none has")
    given = words.parse_args()
    rng = random.Random(1)
    print(f"disk {given.disk:g} MB/s, network {given.net:g} MB/s, {given.processors} processors that "
          f"split {given.split:g} and sort {given.sort:g} MB/s each, {given.memory:g} GB for each, "
          f"storage {given.storage}")
    print("| Data | Machines | Split, s | Sort, s | Engine, s | All, s | GB/s | Read and written | Sent |")
    print("|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for tb in (1, 100):
        for machines in (10, 30, 100, 300, 1000):
            split, sort, engine, all_, read, sent = seconds(tb, machines, given, rng)
            print(f"| {tb} TB | {machines} | {split:.0f} | {sort:.0f} | {engine:.0f} | {all_:.0f} | "
                  f"{tb * 1000 / all_:.1f} | {read} | {sent:.2f} |")


if __name__ == "__main__":
    main()
