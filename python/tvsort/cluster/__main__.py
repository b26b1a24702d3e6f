"""python3 -m tvsort.cluster sort|verify|demo: the cluster on a command line.

The words about inputs and keys are those of `tvsort-host sort`; a file of records has its numpy
type instead of --record-length, and keys by the names of its fields.
"""

import argparse
import contextlib
import logging
import os
import random
import signal
import subprocess
import sys
import tempfile
import time

import distributed

from .. import Key
from .._errors import SortError
from . import _command, sort, verify
from ._engine import seconds_of
from ._text import FLAGS, VALUES

_SUCCESS, _DAMAGED, _FAILURE, _SKIPPED = 0, 1, 2, 3
_ENDS = signal.SIGINT, signal.SIGTERM, signal.SIGHUP
_DEMO_ROWS = 400_000
_CONNECT_SECONDS = 30


def _words():
    parser = argparse.ArgumentParser(prog="python3 -m tvsort.cluster", description=__doc__.splitlines()[0],
                                     allow_abbrev=False)
    commands = parser.add_subparsers(dest="command", required=True)

    one = commands.add_parser("sort", allow_abbrev=False, help="sort files on a cluster")
    one.add_argument("inputs", nargs="+", metavar="INPUT")
    one.add_argument("-o", "--output", required=True, metavar="FOLDER",
                     help="an empty folder, or one that is not there yet")
    _cluster_words(one)
    one.add_argument("--partitions", type=int, help="about so many parts; as the memory asks without it")
    one.add_argument("--memory", default="64M", help="of each sort process (64M)")
    one.add_argument("--storage", choices=("shared", "moved"), default="shared",
                     help="moved: pieces travel with Dask, and parts stay where they were sorted")
    one.add_argument("--temp-dir", default="", help="on the disks of the workers")
    one.add_argument("--timeout", type=float, metavar="SECONDS", help="for the whole sort")
    one.add_argument("--patience", type=float, default=120, metavar="SECONDS",
                     help="how long scheduler and workers may be away (120)")
    one.add_argument("--key", action="append", default=[], metavar="COLUMN[:TYPE]...")
    one.add_argument("--dtype", help="files of records of this numpy type, such as i8,f8,S4")
    short = {"reverse": ["-r"], "zero_terminated": ["-z"]}
    for name, word in FLAGS.items():
        one.add_argument(word, *short.get(name, []), dest=name, action="store_true")
    for name, word in VALUES.items():
        one.add_argument(word, dest=name)

    two = commands.add_parser("verify", allow_abbrev=False,
                              help="say whether parts are as their manifest has them")
    two.add_argument("folder")

    three = commands.add_parser("demo", allow_abbrev=False,
                                help="start two workers here, sort made-up rows, and compare")
    three.add_argument("--rows", type=int, default=_DEMO_ROWS)
    return parser


def _count(text):
    if int(text) < 1:
        raise ValueError(text)
    return int(text)


def _cluster_words(parser):
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--scheduler", metavar="ADDRESS", help="of Dask, such as tcp://10.0.0.1:8786")
    where.add_argument("--workers", type=_count, metavar="N", help="start so many here, for this sort")


@contextlib.contextmanager
def _client(address, workers, patience=_CONNECT_SECONDS):
    if address is not None:
        if not address:  # for which Dask would start workers of its own
            raise SortError("no scheduler answers where none is named; give --scheduler an address")
        try:
            client = distributed.Client(address, timeout=min(patience, _CONNECT_SECONDS))
        except (OSError, ValueError) as error:
            raise SortError(f"no scheduler answers at {address}: {error}") from None
        with client:
            yield client
        return
    with tempfile.TemporaryDirectory(prefix="tvsort-workers-", ignore_cleanup_errors=True) as folder:
        with distributed.LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None,
                                      silence_logs=50, local_directory=folder) as cluster:
            with distributed.Client(cluster) as client:
                yield client


def _record_keys(texts):
    """FIELD[:asc|:desc][:nulls-first|:nulls-last] as Keys; no text means all fields."""
    keys = []
    for text in texts:
        name, *words = text.split(":")
        unknown = set(words) - {"asc", "desc", "nulls-first", "nulls-last"}
        if unknown:
            raise SortError(f"--key {text}: a field has its type from --dtype; what may follow is asc "
                            "or desc, nulls-first or nulls-last")
        keys.append(Key(name, "desc" in words, "first" if "nulls-first" in words else "last"))
    return keys or None


def _sort(words):
    options = {name: getattr(words, name) for name in (*FLAGS, *VALUES)
               if getattr(words, name) not in (None, False)}
    order = words.key if words.dtype is None else _record_keys(words.key)
    patience = seconds_of("patience", words.patience)
    with _client(words.scheduler, words.workers, patience) as client:
        manifest = sort(words.inputs, words.output, order, client=client, dtype=words.dtype,
                        partitions=words.partitions, memory=words.memory, storage=words.storage,
                        temp_dir=words.temp_dir, timeout=words.timeout, patience=patience,
                        **options)
    if manifest.skipped:
        for problem in manifest.problems:
            print(problem, file=sys.stderr)
        what = "put last, unreadable" if words.on_error == "last" else "skipped"
        print(f"{manifest.skipped} rows {what}" if manifest.skipped > 1 else f"1 row {what}",
              file=sys.stderr)
    _say(f"{manifest.rows} rows, {manifest.bytes} bytes in {len(manifest.parts)} parts, "
         f"{manifest.seconds['all']:.1f} seconds")
    return _SKIPPED if manifest.skipped else _SUCCESS


def _demo(words):
    chance = random.Random(1)
    towns = ["Aachen", "Bonn", "Celle", "Dresden", "Emden", "Fulda"]
    with tempfile.TemporaryDirectory(prefix="tvsort-demo-") as folder:
        names = [os.path.join(folder, f"in-{i}.csv") for i in range(4)]
        for name in names:
            with open(name, "w") as file:
                file.write("number,town,price\n")
                file.writelines(f"{chance.randrange(10 ** 9)},{chance.choice(towns)},"
                                f"{chance.random() * 100:.2f}\n" for _ in range(words.rows // 4))
        keys = ["town", "price:decimal:desc", "number:int"]
        output = os.path.join(folder, "sorted")
        with _client(None, 2) as client:
            manifest = sort(names, output, keys, client=client, partitions=8)
        print(f"{manifest.rows} rows of 4 files, {manifest.bytes} bytes, sorted by 2 workers into "
              f"{len(manifest.parts)} parts in {manifest.seconds['all']:.1f} seconds")
        verify(output)
        begin = time.monotonic()
        alone = os.path.join(folder, "alone.csv")
        subprocess.run([_command.program(), "sort", *names, "-o", alone,
                        *(word for key in keys for word in ("--key", key))], check=True)
        print(f"one tvsort-host took {time.monotonic() - begin:.1f} seconds")
        with open(alone, "rb") as file:
            for path in manifest.paths:
                with open(path, "rb") as part:
                    while block := part.read(1 << 20):
                        if file.read(len(block)) != block:
                            raise SortError(f"{path} differs from what one process makes")
            if file.read(1):
                raise SortError("the parts lack rows")
        print("the parts, one behind the other, are its output, byte by byte")
    return _SUCCESS


def _verify(words):
    manifest = verify(words.folder)
    print(f"{manifest.rows} rows, {manifest.bytes} bytes in {len(manifest.parts)} parts, as they "
          "were made")
    return _SUCCESS


def _say(text):
    print(f"tvsort.cluster: {text}", file=sys.stderr)


def _end(number, _frame):
    for one in _ENDS:
        signal.signal(one, signal.SIG_IGN)  # one is enough, and what it takes is bounded
    raise KeyboardInterrupt(number)


def main():
    words = _words().parse_args()
    for number in _ENDS:
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, _end)
    # What goes wrong in the engine is said once, in the words of the sort.
    logging.disable(logging.CRITICAL)
    try:
        return {"sort": _sort, "verify": _verify, "demo": _demo}[words.command](words)
    except (SortError, _command.CommandFailed, OSError) as error:
        _say(error)
        return _DAMAGED if words.command == "verify" else _FAILURE
    except KeyboardInterrupt as interrupt:
        number = interrupt.args[0] if interrupt.args else signal.SIGINT
        _say("interrupted; nothing of the sort is left")
        return 128 + number


if __name__ == "__main__":
    sys.exit(main())
