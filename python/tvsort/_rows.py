"""One sort through the C interface: columns in, row numbers or rows out."""

import atexit
import threading
import weakref

import numpy

from . import _servers
from ._errors import BadUse
from ._library import check, ffi, lib, struct

ALL, DISTINCT, INTERSECT, EXCEPT = range(4)
_STAGES = {1: "put", 2: "sort", 3: "get"}
_SAMPLE_ROWS = 4096
# Rows are handed over in pieces of about so many bytes where they are not all in memory.
PIECE_BYTES = 4 << 20
# A record in the slot: keys, number and payload in whole words.
_NUMBER_BYTES = 4
_WORD_BYTES = 8
# Of a record in the slot, and of the keys in it.
_RECORD_BYTES_MAX = 65535

_failed = threading.local()


def _keep(_kind, error, _traceback):
    _failed.error = error


# An interrupt from the keyboard is raised in here, like any error of a progress callback; either
# cancels the sort and is raised again when the call is back.
def _look(context, stage, done):
    watch = ffi.from_handle(context)
    if watch.progress is not None:
        watch.progress(_STAGES[stage], done, watch.row_count)
    return 0


class _Watch:
    callback = None

    def __init__(self, progress, row_count):
        self.progress = progress
        self.row_count = row_count
        if _Watch.callback is None:
            _Watch.callback = ffi.callback("tvsort_watch", _look, error=1, onerror=_keep)


def record_bytes(columns, payload_bytes):
    size = sum(column.key_bytes for column in columns) + _NUMBER_BYTES + payload_bytes
    return (size + _WORD_BYTES - 1) // _WORD_BYTES * _WORD_BYTES


def _check_lengths(columns, payload_bytes):
    """Refuses, in the library's words, what it would refuse, before a process is started for it."""
    if not columns:
        raise BadUse("there is no column to sort by; add one at least")
    key_bytes = 0
    for index, column in enumerate(columns):
        key_bytes += column.key_bytes
        if key_bytes > _RECORD_BYTES_MAX:
            raise BadUse(f"column {index} makes the keys longer than {_RECORD_BYTES_MAX} bytes; sort "
                         "by fewer or shorter ones")
    size = key_bytes + _NUMBER_BYTES + payload_bytes
    if size > _RECORD_BYTES_MAX:
        raise BadUse(f"a record of {size} bytes, its key among them, cannot be sorted; use "
                     f"{_RECORD_BYTES_MAX} at most")


def _wanted(columns, payload_bytes, row_count, processes):
    """Memory with which each process sorts without its work file, and without comparing."""
    if row_count is None:
        return None
    share = row_count if processes == 1 else row_count * 5 // (4 * processes)
    return int(share * record_bytes(columns, payload_bytes) * 2.02) + (1 << 20)


class Rows:
    """A sort of rows, as a context manager. `row_count` is None where nobody knows yet."""

    _server = None
    _handle = None
    _is_whole = True
    _all = weakref.WeakValueDictionary()

    def __init__(self, columns, row_count, payload_bytes=0, result=ALL, limit=0, *, memory="1G",
                 processes=None, progress=None, directory=None, timeout=None):
        _check_lengths(columns, payload_bytes)
        if progress is not None and not callable(progress):
            raise BadUse(f"progress={progress!r}: give a function, or None")
        self._columns = columns
        # Whoever closes waits until the call at work is back.
        self._lock = threading.RLock()
        Rows._all[id(self)] = self
        processes = _servers.process_count(processes)
        self._server = _servers.acquire(memory, processes,
                                        _wanted(columns, payload_bytes, row_count, processes),
                                        directory, timeout)
        self._watch = _Watch(progress, row_count)
        self._context = ffi.new_handle(self._watch)
        try:
            handle = ffi.new("tvsort_rows **")
            options = struct("tvsort_rows_options", payload_bytes=payload_bytes, result=result,
                             limit=limit, watch=_Watch.callback, watch_context=self._context)
            code = lib().tvsort_rows_create(self._server.handle, options, handle)
            self._handle = handle[0]
            self._check(code)
            for column in columns:
                self._call(lib().tvsort_rows_add_column,
                           struct("tvsort_column", type=column.type, flags=column.flags,
                                  value_bytes=column.value_bytes))
        except BaseException:
            self._is_whole = False
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        # A child of a fork would destroy what its parent is at work with.
        if self._server is None or not self._server.is_own:
            return
        with self._lock:
            # An interrupt in between leaves a server that is not to be used again.
            is_whole, self._is_whole = self._is_whole, False
            handle, self._handle = self._handle, None
            if handle is not None:
                lib().tvsort_rows_destroy(handle)
            server, self._server = self._server, None
            if server is not None:
                _servers.release(server, is_whole)

    __del__ = close

    @staticmethod
    def close_all():
        """Ends all sorts, those of other threads too."""
        for reference in Rows._all.valuerefs():  # a list, whatever other threads begin
            rows = reference()
            if rows is None or rows._server is None or not rows._server.is_own:
                continue
            if rows._handle is not None:
                lib().tvsort_rows_cancel(rows._handle)
            rows.close()

    def _check(self, code):
        if code == 0:
            return
        # What is not refused before it began leaves nothing that is worth keeping.
        self._is_whole = self._is_whole and code == 1
        check(code, lib().tvsort_rows_text, self._handle, lib().tvsort_rows_failure)

    def _call(self, function, *arguments):
        with self._lock:
            if self._handle is None or not self._server.is_own:
                raise BadUse("this sort belongs to a process that is another one, or ending")
            _failed.error = None
            code = function(self._handle, *arguments)
            error, _failed.error = _failed.error, None
            if error is not None:
                self._is_whole = False
                raise error
            self._check(code)

    def _set(self, place, stride, nulls, step=1):
        for index, column in enumerate(self._columns):
            mask = ffi.NULL if nulls is None or nulls[index] is None else nulls[index]
            self._call(lib().tvsort_rows_set_values, index,
                       ffi.cast("void *", place[index] + column.offset), stride[index] * step,
                       ffi.NULL if mask is ffi.NULL else ffi.cast("void *", mask.ctypes.data),
                       0 if mask is ffi.NULL else mask.strides[0] * step)

    def put_values(self, arrays, row_count, payload=None, nulls=None, sample=True):
        """Rows whose column i lies in arrays[i]; masks of nullable columns in nulls[i]."""
        place = [array.ctypes.data for array in arrays]
        stride = [array.strides[0] for array in arrays]
        if row_count == 0:
            return
        if sample and self._server.processes > 1:
            step = max(1, row_count // _SAMPLE_ROWS)
            self._set(place, stride, nulls, step)
            self._call(lib().tvsort_rows_sample, row_count // step)
        self._set(place, stride, nulls)
        payload_place = ffi.NULL if payload is None else ffi.cast("void *", payload.ctypes.data)
        self._call(lib().tvsort_rows_put, row_count, payload_place,
                   0 if payload is None else payload.strides[0])

    def put(self, array, with_payload=False, sample=True, columns=None):
        """The rows of an array that holds all columns, in other places where `columns` says so."""
        if columns is not None:
            self._columns = columns
        self.put_values([array] * len(self._columns), len(array), array if with_payload else None,
                        sample=sample)

    def sample(self, array):
        """Shows rows that stand for all; once, before the first put."""
        if self._server.processes > 1 and len(array) > 0:
            count = len(self._columns)
            self._set([array.ctypes.data] * count, [array.strides[0]] * count, None)
            self._call(lib().tvsort_rows_sample, len(array))

    def next_operand(self):
        self._call(lib().tvsort_rows_next_operand)

    def sort(self):
        self._call(lib().tvsort_rows_sort)

    def numbers(self, row_max):
        """The numbers of the result's next rows."""
        numbers = numpy.empty(row_max, numpy.int64)
        return numbers[:self._get(row_max, None, numbers)]

    def rows(self, target):
        """Fills the target with the result's next rows; answers how many."""
        return self._get(len(target), target, None)

    def _get(self, row_max, payload, numbers):
        got = ffi.new("size_t *")
        self._call(lib().tvsort_rows_get, row_max,
                   ffi.NULL if payload is None else ffi.cast("void *", payload.ctypes.data),
                   0 if payload is None else payload.strides[0],
                   ffi.NULL if numbers is None else ffi.cast("int64_t *", numbers.ctypes.data), got)
        return got[0]


def take(array, numbers, out=None, threads=1):
    """array[numbers], into `out` where it is given; it must not overlap the array."""
    if array.dtype.hasobject:
        raise BadUse("rows with Python objects in them cannot be copied; take them by argsort")
    if out is None:
        out = numpy.empty(len(numbers), array.dtype)
        if isinstance(array, numpy.recarray):
            out = out.view(numpy.recarray)
    code = lib().tvsort_take(ffi.cast("void *", array.ctypes.data), array.strides[0], len(array),
                             array.dtype.itemsize, ffi.cast("int64_t *", numbers.ctypes.data),
                             len(numbers), ffi.cast("void *", out.ctypes.data), threads)
    check(code, lambda _: ffi.new("char[]", b"a row number lies outside of the rows"), None)
    return out


# Before the servers end, and with threads about that end only after this one.
atexit.register(Rows.close_all)
