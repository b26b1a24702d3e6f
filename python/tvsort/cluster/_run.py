"""A sort, from the first sample to the manifest: which tasks there are, and what becomes of them.

    sample   every input              keys, and whether the inputs fit one another
    split    every share of an input  a piece for each range; a range that is too large once more
    sort     every range              its pieces, in the order of the inputs, to a part
    publish                           the parts' names, and the manifest

A large input has several shares, which are split side by side, and some once more: the share before
says where one begins. A range of one key is joined and not sorted. What the run makes lies in one
folder beside the parts, or, where pieces travel, in one on each worker, and goes away with it.
"""

import contextlib
import dataclasses
import itertools
import operator
import os
import re
import time
import uuid

import numpy

from .. import _rows
from .._errors import SortError
from . import _ranges, _shares, _tasks
from ._engine import REMOVE_SECONDS, Task, Tasks, bounded, seconds_of
from ._errors import ClusterError, words_of
from ._manifest import Manifest, part_name
from ._records import RecordForm
from ._text import FLAGS, VALUES, TextForm

_SAMPLES_PER_RANGE = 64
_SAMPLE_BYTES = 8 << 10  # of rows for each key, which may have a kilobyte
_SAMPLES_FIRST = 1024  # of all inputs, while nobody knows how large they are
_SKEW = 2  # a range this many times too large is split again
_RESPLITS_MAX = 3
_ATTEMPTS_MAX = 4
_RANGE_BYTES_MIN = 1 << 20
_PROBLEMS_MAX = 10
_SHARE_BYTES_MIN = 32 << 20
_SHARE_BYTES_MAX = 1 << 30  # where a worker has all pieces of one in its memory

_UNITS = {"": 1, "K": 1 << 10, "M": 1 << 20, "G": 1 << 30, "T": 1 << 40}


def bytes_of(text):
    found = re.fullmatch(r"(\d+)([KMGT]?)(i?B)?", str(text).strip(), re.IGNORECASE)
    if not found or int(found[1]) == 0:
        raise ClusterError(f"memory={text!r}: write bytes, or 64M, or 2G")
    return int(found[1]) * _UNITS[found[2].upper()]


@dataclasses.dataclass
class _Range:
    low: bytes  # None: from the least key on
    high: bytes  # None: to the greatest one
    rows: int
    bytes: int
    sources: list  # of pieces: paths or futures, in the order of the inputs


class _Sort:
    def __init__(self, tasks, form, place, inputs, partitions):
        self.tasks = tasks
        self.form = form
        self.place = place
        self.names = [path for path, _ in inputs]
        self.pins = [where for _, where in inputs]
        self.partitions = partitions
        self.skipped = 0
        self.problems = []
        self.seconds = {}
        self.file_number = itertools.count()

    @contextlib.contextmanager
    def phase(self, name):
        begin = time.monotonic()
        yield
        self.seconds[name] = round(self.seconds.get(name, 0) + time.monotonic() - begin, 3)

    def run(self, memory_bytes):
        """The parts, as dicts of the manifest, where the run keeps them."""
        with self.phase("sample"):
            samples = self.sample_inputs()
        total = self.input_bytes = sum(sample["bytes"] for sample in samples)
        slots = self.tasks.slots
        wanted = self.partitions or max(1, min(max(2 * slots, -(-total // memory_bytes)),
                                               total // _RANGE_BYTES_MIN))
        self.range_bytes = max(1, total // wanted)
        shares = self.shares_of_inputs(samples, total // max(2 * slots, 1))
        wanted = min(wanted, _ranges.RANGES_MAX)
        with self.phase("sample"):
            weighted = self.weighted_keys(samples, shares, total, wanted)
        splitters = _ranges.joined(_ranges.splitters_of(weighted, wanted, self.form),
                                   self.form.fixed_splitters())
        with self.phase("split"):
            ranges = self.split_inputs(samples, shares, splitters)
        with self.phase("split again"):
            ranges = self.split_skewed(ranges)
        with self.phase("sort"):
            return self.sort_ranges([one for one in ranges if one.rows] or ranges[:1])

    def sample_inputs(self):
        count = max(16, _SAMPLES_FIRST // min(len(self.names), 64))
        samples = []
        while len(samples) < len(self.names):
            n = len(samples)
            of = slice(n, n + 1 if self.form.awaits_rows else None)
            samples += self.tasks.all(
                Task((_tasks.sample, self.form, self.place, name, count, False), workers)
                for name, workers in zip(self.names[of], self.pins[of]))
            if self.form.awaits_rows:
                self.form = self.form.taught(samples[-1])
        try:
            self.form = self.form.learn(self.names, samples)
        except ValueError as error:
            raise ClusterError(str(error)) from None
        return samples

    def shares_of_inputs(self, samples, share_bytes):
        """Of each input. One that was unpacked would be so by each task, and as a whole."""
        share_bytes = max(share_bytes, _SHARE_BYTES_MIN)
        if self.place.travels:
            share_bytes = min(share_bytes, _SHARE_BYTES_MAX)
        return [[_shares.WHOLE] if sample["packed"] else
                _shares.shares_of(sample["head_bytes"] + sample["bytes"], share_bytes)
                for sample in samples]

    def weighted_keys(self, samples, shares, total, wanted):
        """From the samples of the inputs, or from larger ones where there are so many ranges."""
        wanted_keys = min(_SAMPLES_PER_RANGE * wanted, total // _SAMPLE_BYTES)
        weights = [sample["bytes"] for sample in samples]
        keys = sum(len(sample["samples"]) for sample in samples)
        if wanted_keys > 2 * max(keys, _SAMPLES_FIRST):
            parts = [(name, pin, share, weight / len(own)) for name, pin, own, weight in
                     zip(self.names, self.pins, shares, weights) for share in own]
            weights = [weight for *_, weight in parts]
            samples = self.tasks.all(
                Task((_tasks.sample, self.form, self.place, name,
                      max(16, int(wanted_keys * weight / max(total, 1))), False, share), pin)
                for name, pin, share, weight in parts)
        return _weighted(samples, weights)

    def split_inputs(self, samples, shares, splitters):
        """The ranges of all inputs."""
        parts = []
        for name, pin, sample, own in zip(self.names, self.pins, samples, shares):
            # Elsewhere may be a copy of the input.
            state = sample["state"] if pin or not self.place.travels else sample["state"][:1]
            parts += [(name, share, state, pin) for share in own]
        splits = self.split_all([self.split_task(name, splitters, False, *how)
                                 for name, *how in parts])
        # A share that starts its input begins at its first byte, and each round finds one more that
        # begins right at least, and nearly always all.
        while wrong := [i for i in range(1, len(parts)) if parts[i][1].begin > 0 and
                        splits[i].begin != splits[i - 1].end]:
            for i in wrong:
                self.forget_files(splits[i].pieces)
            again = self.split_all([self.split_task(
                name, splitters, False, _shares.Share(splits[i - 1].end, share.end, True), *how)
                for i, (name, share, *how) in ((i, parts[i]) for i in wrong)])
            for i, split in zip(wrong, again):
                splits[i] = split
        self.count_problems(splits, [share.begin == 0 for _, share, *_ in parts])
        edges = [None, *splitters, None]
        return [self.range_of(splits, i, edges[i], edges[i + 1])
                for i in range(len(splitters) + 1)]

    def count_problems(self, splits, start_input):
        lines = 0
        for split, starts_input in zip(splits, start_input):
            lines = 0 if starts_input else lines
            self.skipped += split.skipped
            self.problems += [self.form.complaint(problem, lines) for problem in split.problems][
                :_PROBLEMS_MAX - len(self.problems)]
            lines += split.lines
        if self.skipped and self.form.stops:
            raise ClusterError(self.problems[0])

    def split_task(self, source, splitters, is_piece, share=_shares.WHOLE, state=(), workers=()):
        return Task((_tasks.split, self.form, self.place, source, splitters,
                     f"piece-{next(self.file_number):05}", is_piece, share, state), workers)

    def split_all(self, tasks):
        """What they answer, with sources as pieces."""
        if not self.place.travels:
            return self.tasks.all(tasks)
        futures = self.tasks.all(tasks, gathers=False)
        splits = self.tasks.all(Task((_tasks.without_pieces, future)) for future in futures)
        return [dataclasses.replace(split, pieces=[self.piece_of(future, i, split.worker)
                                                   for i in range(len(split.rows))])
                for future, split in zip(futures, splits)]

    def split_ranges(self, ranges, splitters):
        """For each range those into which it falls at its splitters; all are split side by side."""
        splits = iter(self.split_all([self.split_task(source, borders, True)
                                      for one, borders in zip(ranges, splitters)
                                      for source in one.sources]))
        finer = []
        for one, borders in zip(ranges, splitters):
            own = list(itertools.islice(splits, len(one.sources)))
            edges = [one.low, *borders, one.high]
            finer.append([self.range_of(own, i, edges[i], edges[i + 1])
                          for i in range(len(borders) + 1)])
        return finer

    def piece_of(self, future, i, worker):
        # Taken where all pieces are, or all would travel for one; another worker may if that one is
        # lost. Dask knows tasks of this name for short ones, which are not moved to idle workers.
        return self.tasks.client.submit(_tasks.piece_of, future, i, pure=False, workers=[worker],
                                        allow_other_workers=True,
                                        key=f"split-shuffle-{uuid.uuid4().hex}")

    @staticmethod
    def range_of(splits, i, low, high):
        return _Range(low, high, sum(split.rows[i] for split in splits),
                      sum(split.bytes[i] for split in splits),
                      [split.pieces[i] for split in splits if split.rows[i]])

    def split_skewed(self, ranges):
        """Splits what is too large by what it has itself, until that is of no more use."""
        for _ in range(_RESPLITS_MAX):
            large = [one for one in ranges if one.bytes > _SKEW * self.range_bytes and
                     not _ranges.is_one_key(one.low, one.high, self.form)]
            splitters = self.own_splitters(large)
            large = [one for one, borders in zip(large, splitters) if borders]
            if not large:
                break
            finer = self.split_ranges(large, [borders for borders in splitters if borders])
            by_range = {id(one): parts for one, parts in zip(large, finer)}
            for one in large:
                self.forget_files(one.sources)
            ranges = [part for one in ranges for part in by_range.get(id(one), [one])]
        return ranges

    def own_splitters(self, ranges):
        """For each range borders inside it, none where its sample has none."""
        counts = [min(-(-one.bytes // self.range_bytes), _ranges.RANGES_MAX) for one in ranges]
        wanted = [min(_SAMPLES_PER_RANGE * count, one.bytes // _SAMPLE_BYTES)
                  for one, count in zip(ranges, counts)]
        samples = iter(self.tasks.all(
            Task((_tasks.sample, self.form, self.place, source,
                  max(16, keys // len(one.sources)), True))
            for one, keys in zip(ranges, wanted) for source in one.sources))
        found = []
        for one, count in zip(ranges, counts):
            own = list(itertools.islice(samples, len(one.sources)))
            keys = _ranges.splitters_of(_weighted(own, [sample["bytes"] for sample in own]), count,
                                        self.form)
            found.append([key for key in keys if (one.low is None or key > one.low)
                          and (one.high is None or key < one.high)])
        return found

    def forget_files(self, pieces):
        if not self.place.travels:
            for path in pieces:
                with contextlib.suppress(FileNotFoundError):
                    os.remove(path)

    def sort_ranges(self, ranges):
        parts = [None] * len(ranges)
        left = list(range(len(ranges)))
        for _ in range(_ATTEMPTS_MAX):
            tasks = [self.sort_task(ranges[i], i) for i in left]
            # What is sorted and heard of is not asked for again, so its pieces can go.
            on_done = None if self.place.travels else lambda n: self.forget_files(
                ranges[left[n]].sources)
            for i, part in zip(left, self.tasks.all(tasks, on_done=on_done)):
                parts[i] = part
            if not self.place.travels:
                break
            # A part lies where it was sorted; one whose host is gone is gone with it.
            self.tasks.looked = 0.0
            self.tasks.look()
            hosts = set(map(_tasks.host_of, self.tasks.known))
            left = [i for i, part in enumerate(parts) if _tasks.host_of(part.worker) not in hosts]
            if not left:
                break
        else:
            raise ClusterError("hosts were lost again and again, and the parts that they had")
        return [{"name": part.name, "rows": one.rows, "bytes": part.bytes, "sha256": part.sha256,
                 "from": one.low.hex() if one.low else "", "host": part.host,
                 "worker": part.worker} for one, part in zip(ranges, parts)]

    def sort_task(self, one, number):
        is_one_key = self.form.joins_one_key and _ranges.is_one_key(one.low, one.high, self.form)
        return Task((_tasks.sort_given, self.form, self.place, part_name(number),
                     self.form.head if number == 0 else b"", is_one_key, one.bytes, *one.sources))


def _weighted(samples, weights):
    return [(bytes.fromhex(key), weight / len(sample["samples"]))
            for sample, weight in zip(samples, weights) for key in sample["samples"]]


def _form(order, dtype, memory, temp_dir, options):
    unknown = options.keys() - FLAGS.keys() - VALUES.keys()
    if unknown:
        raise TypeError(f"sort() has no option {sorted(unknown)[0]!r}")
    if dtype is not None:
        if options:
            raise ClusterError(f"{sorted(options)[0]} is for lines and rows, and dtype for records")
        try:
            dtype = numpy.dtype(dtype)
        except (TypeError, ValueError) as error:
            raise ClusterError(f"dtype={dtype!r}: {error}") from None
        if dtype.subdtype is not None:  # of which numpy makes arrays of more dimensions
            dtype = numpy.dtype([("", dtype)])
        form = RecordForm(dtype, tuple(_keys_of(order)), memory, temp_dir)
        if dtype.hasobject or dtype.itemsize == 0:
            raise ClusterError(f"rows of type {dtype} cannot be stored")
        try:
            if not sum(column.value_bytes for column in form.columns):
                raise ClusterError("the keys have no bytes; name others")
            _rows._check_lengths(form.columns, dtype.itemsize)
        except SortError as error:
            raise ClusterError(str(error)) from None
        return form
    words = [FLAGS[name] for name, given in options.items() if name in FLAGS and given]
    words += [f"{VALUES[name]}={given}" for name, given in options.items()
              if name in VALUES and given is not None]
    keys = [order] if isinstance(order, str) else list(order or ())
    return TextForm(tuple(words), tuple(keys), memory, temp_dir)


def _keys_of(order):
    if order is None:
        return ()
    return (order,) if not isinstance(order, (list, tuple)) else order


def _inputs(inputs):
    """Pairs of an absolute path and the hosts that alone have it."""
    if isinstance(inputs, (str, bytes, os.PathLike)):
        inputs = [inputs]
    pairs = []
    for one in inputs:
        host, path = one if isinstance(one, tuple) else (None, one)
        pairs.append((os.path.abspath(os.fsdecode(path)), (host,) if host else ()))
    if not pairs:
        raise ClusterError("name one input at least")
    return pairs


def _check_output(output):
    """An empty folder, or none."""
    try:
        is_empty = not os.listdir(output)
    except FileNotFoundError:
        is_empty = True
    except (OSError, ValueError):
        is_empty = False
    if not is_empty:
        raise ClusterError(f"{output} is not an empty folder; name one that is empty or is not there")


def sort(inputs, output_folder, order=None, *, client, dtype=None, partitions=None, memory="64M",
         storage="shared", temp_dir="", timeout=None, patience=120.0, **options):
    """Sorts all inputs together into part-00000 and so on in the folder, and returns the Manifest.

    `order` has keys as the command's --key has them, for rows of CSV files and fields, and fields
    or Keys of `dtype` for files of records. `options` are the command's words: format, lines, as_,
    delimiter, no_header, null, on_error, ragged, reverse, zero_terminated.

    storage="shared": all workers and the caller see inputs and output under the same names.
    "moved": pieces travel with Dask, a part stays on the worker that sorted it, and an input may be
    a pair (host, path).

    `memory` is what one sort process may have; each thread of a worker runs one at a time.
    `timeout`, in seconds, is for the whole sort; it fails as well when scheduler or workers have been
    away for `patience` seconds. Whatever fails is a ClusterError, and nothing is left then.
    """
    memory_bytes = bytes_of(memory)
    if storage not in ("shared", "moved"):
        raise ClusterError(f'storage={storage!r}: "shared" or "moved"')
    if partitions is not None and operator.index(partitions) < 1:
        raise ClusterError(f"partitions={partitions!r}: one at least")
    patience = seconds_of("patience", patience)
    timeout = None if timeout is None else seconds_of("timeout", timeout)
    temp_dir = os.path.abspath(os.fsdecode(temp_dir)) if temp_dir else ""
    form = _form(order, dtype, str(memory_bytes), temp_dir, options)
    pairs = _inputs(inputs)
    output = os.path.abspath(os.fsdecode(output_folder))
    begin = time.monotonic()
    tasks = Tasks(client, None if timeout is None else begin + timeout, patience)
    _check_output(output)
    run = uuid.uuid4().hex
    place = _tasks.Place(run, os.path.join(output, f".tvsort-{run}"), storage == "moved", temp_dir)
    work = _Sort(tasks, form, place, pairs, partitions)
    published = []
    try:
        _tasks.make_folder(place)
        _tasks.check_alone(place)
        parts = work.run(memory_bytes)
        with work.phase("publish"):
            _tasks.check_alone(place)
            published += [part["name"] for part in parts]
            _publish(tasks, place, output, parts)
        work.seconds["all"] = round(time.monotonic() - begin, 3)
        manifest = Manifest(output, parts, [{"name": name} for name, _ in pairs],
                            sum(part["rows"] for part in parts),
                            sum(part["bytes"] for part in parts),
                            [str(key) for key in _keys_of(order)], work.skipped,
                            tuple(work.problems), storage, work.seconds)
        manifest.write()
    except BaseException as error:
        tasks.give_up()
        _remove(client, place, output, published)
        if isinstance(error, ClusterError) or not isinstance(error, Exception):
            raise
        raise ClusterError(words_of(error)) from error
    _remove(client, place)
    return manifest


def _publish(tasks, place, output, parts):
    if not place.travels:
        _tasks.publish(place, output, [part["name"] for part in parts])
        return
    names = {}
    for part in parts:
        names.setdefault(_tasks.host_of(part["worker"]), []).append(part["name"])
    tasks.all(Task((_tasks.publish, place, output, of_host), (host,))
              for host, of_host in names.items())


def _remove(client, place, output="", published=()):
    """Everything of the run, here and on every worker that answers; with an output, of its result
    too."""
    with contextlib.suppress(OSError):
        _tasks.remove(place, output, published)
    call = (_tasks.remove_from_worker, place, output if place.travels else "", published)
    bounded(lambda: client.run(*call, on_error="ignore"), REMOVE_SECONDS)
