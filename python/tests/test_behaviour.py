"""What surrounds a sort: refusals, interrupts, progress, threads, and what stays behind."""

import os
import re
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

import numpy
import pytest

import tvsort
from tvsort import Key, _keys, _library, _rows, _servers


def children():
    """The processes of this one that run the sort program."""
    listed = Path(f"/proc/{os.getpid()}/task/{os.getpid()}/children").read_text().split()
    return [pid for pid in listed if Path(f"/proc/{pid}/comm").read_text().strip() == "tvsort"]


def long_sort(**options):
    """Takes a second or more: far more rows than the memory holds."""
    array = numpy.random.default_rng(1).integers(0, 1 << 62, 6_000_000)
    return tvsort.argsort(array, memory="1M", **options)


@pytest.mark.parametrize("act, words", [
    (lambda a: tvsort.sort(numpy.zeros(3, "c16")), "complex128, which has no order"),
    (lambda a: tvsort.argsort(numpy.zeros(3, [("x", "O")]), "x"), "field 'x' is of type object"),
    (lambda a: tvsort.argsort(numpy.zeros(3, [("x", [("y", "g")])])), "field 'x.y' is of type"),
    (lambda a: tvsort.sort(numpy.zeros(3, [("x", "O"), ("y", "i4")]), "y"), "Python objects"),
    (lambda a: tvsort.sort(numpy.zeros((3, 2))), "2 dimensions"),
    (lambda a: tvsort.sort(numpy.ma.masked_array([2, 1], [0, 1])), "array is masked"),
    (lambda a: tvsort.sort(a, "none"), "no field 'none'; the array's fields: x, y"),
    (lambda a: tvsort.sort(a, []), "name fields, or give Keys"),
    (lambda a: tvsort.sort(a, [7]), "name fields, or give Keys"),
    (lambda a: tvsort.sort(a, Key("x", nulls="middle")), '"first" or "last"'),
    (lambda a: tvsort.sort(a, memory="much"), "memory='much'"),
    (lambda a: tvsort.sort(a, memory="1M", processes=2), "too little for 2 processes"),
    (lambda a: tvsort.sort(a, 7), "name fields, or give Keys"),
    (lambda a: tvsort.sort(a, processes=0), "processes=0: use 1 to 64"),
    (lambda a: tvsort.sort(a, processes="2"), "processes='2': use 1 to 64"),
    (lambda a: tvsort.sort(a, timeout=0), "timeout=0: give seconds above 0"),
    (lambda a: tvsort.sort(a, timeout=float("inf")), "timeout=inf: give seconds"),
    (lambda a: tvsort.sort(a, timeout="soon"), "timeout='soon': give seconds"),
    (lambda a: tvsort.sort(a, progress=7), "progress=7: give a function"),
    (lambda a: tvsort.sort(a, directory=7), "directory=7: give a path"),
    (lambda a: tvsort.sort(a, directory="a\0b"), "give a path"),
    (lambda a: tvsort.sort(a, out=numpy.broadcast_to(a[:1], 3).view()), "cannot be written to"),
    (lambda a: tvsort.sort(a, out=numpy.lib.stride_tricks.as_strided(a, (3,), (0,))),
     "out has rows that lie in one place"),
    (lambda a: tvsort.sort(numpy.zeros(2, numpy.dtype([]))), "no column to sort by"),
    (lambda a: tvsort.sort(a, out=numpy.zeros(3)), "out must be an array of 3 rows"),
    (lambda a: tvsort.top(a, -1), "n=-1"),
    (lambda a: tvsort.top(a, 1.5), "n=1.5: give a number"),
    (lambda a: tvsort.top(a, 0, "none"), "no field 'none'"),
    (lambda a: tvsort.sort(numpy.zeros(1, "S70000")), "longer than 65535 bytes"),
    (lambda a: tvsort.intersect(a, numpy.zeros(3, "i4")), "different types"),
    (lambda a: tvsort.except_(numpy.zeros(3, "M8[s]"), numpy.zeros(3, "M8[D]")), "different types"),
    (lambda a: tvsort.except_(numpy.zeros(3, "u1"), numpy.zeros(3, "?")), "different types"),
    (lambda a: tvsort.sort_arrays([a], rows=0), "rows=0: give a number of rows above 0"),
    (lambda a: tvsort.sort_file(__file__, [("x", "S100003")], "x", os.devnull), "no multiple"),
    (lambda a: list(tvsort.sort_arrays([a, numpy.zeros(3)], "x")), "came after one of type"),
    (lambda a: tvsort.sort(a, directory="/nowhere/at/all"), "/nowhere/at/all"),
])
def test_what_cannot_be_is_refused_with_a_reason(act, words):
    with pytest.raises(tvsort.SortError, match=re.escape(words)):
        act(numpy.zeros(3, [("x", "i4"), ("y", "S3")]))


def test_a_type_without_order_starts_nothing(monkeypatch):
    tvsort.close()
    monkeypatch.setattr(_servers, "acquire", None)
    with pytest.raises(tvsort.UnsortableType):
        tvsort.sort(numpy.zeros(3, [("x", "c8"), ("y", "i4")]))
    with pytest.raises(tvsort.BadUse, match="column 1 makes the keys longer than 65535 bytes"):
        tvsort.sort(numpy.zeros(3, [("x", "S65535"), ("y", "i4")]))
    with pytest.raises(tvsort.BadUse, match="record of 65540 bytes, its key among them"):
        next(tvsort.sort_arrays([numpy.zeros(3, [("x", "i4"), ("y", "S65528")])], "x"))
    assert issubclass(tvsort.UnsortableType, (TypeError, ValueError)) and children() == []


def test_text_that_is_none_is_refused():
    text = numpy.array([0x110000, 65], "u4").view("U1")
    with pytest.raises(tvsort.BadUse, match="1114112, which is no code point"):
        tvsort.argsort(text)
    assert list(tvsort.argsort(numpy.array(["b", "a"]))) == [1, 0]


def test_constants_are_those_of_the_header():
    lib = _library.lib()
    for module, names in [(_keys, ["SIGNED", "UNSIGNED", "FLOAT", "BYTES", "UCS4", "TIME",
                                   "DESCENDING", "NULLS_FIRST", "BIG_ENDIAN", "NULLABLE"]),
                          (_rows, ["ALL", "DISTINCT", "INTERSECT", "EXCEPT"])]:
        for name in names:
            assert getattr(module, name) == getattr(lib, f"TVSORT_{name}"), name


def test_keyboard_interrupt_ends_sort_and_process():
    tvsort.close()
    sorting = threading.Event()
    interrupted = []

    def interrupt():
        sorting.wait()
        interrupted.append(time.monotonic())
        os.kill(os.getpid(), signal.SIGINT)

    threading.Thread(target=interrupt).start()
    with pytest.raises(KeyboardInterrupt):
        long_sort(progress=lambda stage, *_: stage == "sort" and sorting.set())
    assert time.monotonic() - interrupted[0] < 1
    assert children() == []
    assert list(tvsort.argsort(numpy.array([2, 1]))) == [1, 0]


def test_progress_is_told_and_can_cancel():
    seen = []

    class Enough(Exception):
        pass

    def progress(stage, done, total):
        seen.append((stage, done, total))
        if stage == "sort":
            raise Enough

    with pytest.raises(Enough):
        long_sort(progress=progress)
    assert seen[0] == ("put", 0, 6_000_000) and seen[-1][0] == "sort"
    assert children() == []


def test_timeout_is_kept():
    with pytest.raises(tvsort.TimedOut, match="let the time run out"):
        long_sort(timeout=0.3)
    with pytest.raises(TimeoutError):
        long_sort(timeout=0.3, processes=1)


def test_full_disk_is_an_error_with_its_number(tmp_path):
    # No room: the limit on files stands for a full disk.
    code = ("import numpy, resource, signal, tvsort\n"
            "signal.signal(signal.SIGXFSZ, signal.SIG_IGN)\n"
            "resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))\n"
            "try:\n"
            "    tvsort.argsort(numpy.arange(1000000), memory='1M')\n"
            "except tvsort.SystemFailure as error:\n"
            "    print(error.system_error, error)\n")
    output = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                            timeout=60)
    assert output.stdout.startswith("27 "), output


def test_threads_sort_at_once_and_the_interpreter_runs_on():
    arrays = [numpy.random.default_rng(i).permutation(400_000) for i in range(4)]
    results = [None] * 4
    threads = [threading.Thread(target=lambda i=i: results.__setitem__(i, tvsort.sort(arrays[i])))
               for i in range(4)]
    ticks = 0
    for thread in threads:
        thread.start()
    while any(thread.is_alive() for thread in threads):
        ticks += 1
        time.sleep(0.001)
    for result in results:
        assert numpy.array_equal(result, numpy.arange(400_000))
    assert ticks > 10


def test_sort_is_free_of_leaks_and_keeps_one_server():
    array = numpy.random.default_rng(1).permutation(20_000)
    tvsort.sort(array)
    descriptors = len(os.listdir("/proc/self/fd"))
    first = children()
    for _ in range(20):
        tvsort.sort(array)
    assert children() == first and len(first) == 1
    assert len(os.listdir("/proc/self/fd")) == descriptors
    tvsort.close()
    assert children() == []


def test_what_nobody_holds_any_more_ends():
    tvsort.close()
    columns = _keys.columns_of(numpy.dtype("i4"), None)
    rows = _rows.Rows(columns, 9)  # as an interrupt leaves it
    assert len(children()) == 1
    del rows
    server = _servers.acquire("1G", 2, 1, None, None)
    assert len(children()) == 2
    del server
    assert children() == []


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_an_interrupt_before_any_line_does_no_harm():
    array = numpy.random.default_rng(1).permutation(2000)
    package = str(Path(tvsort.__file__).parent)

    def interrupted(line):
        """Whether a sort had so many lines, before the last of which it was interrupted."""
        def trace(frame, event, _argument):
            nonlocal line
            if not frame.f_code.co_filename.startswith(package):
                return None
            line -= event == "line"
            if line == 0:
                sys.settrace(None)
                raise KeyboardInterrupt
            return trace

        sys.settrace(trace)
        try:
            # Of two sizes by turns, so that a server is started and another one ended.
            tvsort.sort(array, memory="2M" if line % 4 else "1G", processes=1 + line % 2)
        except KeyboardInterrupt:
            pass
        sys.settrace(None)
        return line <= 0

    line = 1
    while interrupted(line):
        assert numpy.array_equal(tvsort.sort(array), numpy.arange(2000)), line
        assert len(children()) == 1, line
        line += 3
    assert line > 200


LIVE = ("import numpy, os, sys, threading, time, tvsort\n"
        "arrays = (numpy.random.default_rng(1).permutation(100000) for _ in range(5))\n"
        "rows = tvsort.sort_arrays(arrays, rows=100000, memory='1M')\n"
        "begin = next(rows)\n")


@pytest.mark.parametrize("code", [
    "",
    "long = numpy.random.default_rng(1).permutation(5000000)\n"
    "threading.Thread(target=tvsort.argsort, args=[long], daemon=True).start()\n"
    "time.sleep(0.3)\n",
    # The child lets go of what its parent goes on with.
    "child = os.fork()\n"
    "if child == 0:\n"
    "    rows.close()\n"
    "    sys.exit()\n"
    "os.waitpid(child, 0)\n"
    "whole = numpy.concatenate([begin, *rows])\n"
    "sys.exit(not numpy.array_equal(whole, numpy.arange(100000).repeat(5)))\n"],
    ids=["iterator", "thread", "fork"])
def test_the_end_of_the_interpreter_leaves_nothing(code, tmp_path):
    subprocess.run([sys.executable, "-c", LIVE + code], timeout=60, check=True,
                   stderr=subprocess.DEVNULL, env={**os.environ, "TMPDIR": str(tmp_path)})
    assert list(tmp_path.iterdir()) == []


def test_a_fork_finds_no_lock_of_another_thread(monkeypatch):
    tvsort.sort(numpy.arange(3))
    tvsort.close()
    monkeypatch.setattr(_library.ffi, "_lock", None)  # which nothing may want any more
    array = numpy.zeros(9, [("x", "i4"), ("y", "U3")])
    tvsort.sort(array, "y", processes=2, progress=lambda *_: None)
    with pytest.raises(tvsort.SortError):
        tvsort.sort(array, "y", directory="/nowhere/at/all")
    assert len(list(tvsort.sort_arrays([array]))) == 1


def test_a_forked_child_sorts_with_a_server_of_its_own():
    array = numpy.random.default_rng(1).permutation(2000)
    tvsort.sort(array)
    ours = children()
    child = os.fork()
    if child == 0:
        right = numpy.array_equal(tvsort.sort(array), numpy.arange(2000))
        tvsort.close()
        os._exit(0 if right else 1)
    assert os.waitpid(child, 0)[1] == 0
    assert children() == ours
    assert numpy.array_equal(tvsort.sort(array), numpy.arange(2000))


def test_memory_stays_bounded_for_a_mapped_array(tmp_path):
    # 400 MB of rows through 32 MB of memory.
    rows = numpy.memmap(tmp_path / "rows", [("k", "u4"), ("rest", "S96")], "w+", shape=4_000_000)
    for first in range(0, len(rows), 500_000):
        rows["k"][first:first + 500_000] = numpy.random.default_rng(first).integers(
            0, 1 << 32, 500_000)
    rows.flush()
    del rows
    code = ("import numpy, resource, sys, tvsort\n"
            "dtype = [('k', 'u4'), ('rest', 'S96')]\n"
            "rows = numpy.memmap(sys.argv[1] + '/rows', dtype, 'r')\n"
            "out = numpy.memmap(sys.argv[1] + '/out', dtype, 'w+', shape=rows.shape)\n"
            "before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss\n"
            "tvsort.sort(rows, 'k', memory='32M', out=out)\n"
            "print(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before)\n")
    output = subprocess.run([sys.executable, "-c", code, str(tmp_path)], capture_output=True,
                            text=True, timeout=120, check=True)
    assert int(output.stdout) < 100 << 10, output.stdout  # KiB
    out = numpy.memmap(tmp_path / "out", [("k", "u4"), ("rest", "S96")], "r")
    assert (out["k"][1:] >= out["k"][:-1]).all()
