"""Measures the package beside numpy and pandas; prints a table in Markdown.

Each cell is the best of some rounds, in nanoseconds per row, from the array to a new sorted array: the
copies in and out are in it. Usage: benchmark.py [--small] [--rows N...] [--sizes BYTES...] [--rounds N] [--processes P]
"""

import argparse
import time

import numpy

import tvsort

FIELDS = [("a", "i4"), ("b", "f4"), ("c", "i8")]


def make(rows, size):
    """Rows of so many bytes: a of 1000 values, b of 10000, c of all."""
    rng = numpy.random.default_rng(rows + size)
    array = numpy.zeros(rows, FIELDS + ([("rest", f"S{size - 16}")] if size > 16 else []))
    array["a"] = rng.integers(0, 1000, rows)
    array["b"] = rng.integers(0, 10000, rows) / 8
    array["c"] = rng.integers(-1 << 62, 1 << 62, rows)
    return array


def ways(array, names, processes):
    """Name and act of each way to sort; None where it does not apply."""
    columns = [array[name] for name in reversed(names)]
    yield "tvsort", lambda: tvsort.sort(array, names, processes=processes)
    yield "np.sort(order=)", lambda: numpy.sort(array, order=names)
    if len(names) == 1:
        yield "a[argsort]", lambda: array[array[names[0]].argsort()]
    else:
        yield "a[argsort]", None
    yield "a[lexsort]", lambda: array[numpy.lexsort(columns)]
    try:
        import pandas
    except ImportError:
        return
    frame = pandas.DataFrame({name: array[name] for name in array.dtype.names})
    yield "pandas", lambda: frame.sort_values(names, kind="stable")


def measure(acts, rounds):
    """The best time of each act; all take turns, so that what else the machine does meets each."""
    best = {name: float("inf") for name in acts}
    for _ in range(rounds):
        for name, act in acts.items():
            start = time.perf_counter()
            act()
            best[name] = min(best[name], time.perf_counter() - start)
    return best


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--small", action="store_true", help="with little data, to see that it runs")
    parser.add_argument("--rows", type=int, nargs="+", default=[1_000_000, 10_000_000])
    parser.add_argument("--sizes", type=int, nargs="+", default=[16, 32, 100])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--processes", type=int, default=1)
    options = parser.parse_args()
    if options.small:
        options.rows = [20_000]
    printed = False
    for rows in options.rows:
        for size in options.sizes:
            array = make(rows, size)
            for names in (["c"], ["a", "b", "c"]):
                expected = numpy.lexsort([array[name] for name in reversed(names)])
                assert numpy.array_equal(tvsort.argsort(array, names), expected)
                acts = dict(ways(array, names, options.processes))
                times = measure({name: act for name, act in acts.items() if act}, options.rounds)
                if not printed:
                    print("| Rows | Bytes | Keys |", " | ".join(acts), "|")
                    print("|---:|---:|---:|" + "---:|" * len(acts))
                    printed = True
                cells = [f"{times[name] * 1e9 / rows:.0f}" if name in times else ""
                         for name in acts]
                print(f"| {rows:,} | {size} | {len(names)} |", " | ".join(cells), "|", flush=True)


if __name__ == "__main__":
    main()
