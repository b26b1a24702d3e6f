"""Sorting arrays that are in memory, and memory-mapped ones of any size."""

import mmap
import operator
import os

import numpy

from . import _rows, _servers
from ._errors import BadUse
from ._keys import columns_of, key_types, keys_of, rows_of


def _check_out(out, array, row_count):
    if out is None:
        return
    if not isinstance(out, numpy.ndarray) or out.dtype != array.dtype or out.shape != (row_count,):
        raise BadUse(f"out must be an array of {row_count} rows of the type of the input")
    if not out.flags.writeable:
        raise BadUse("out cannot be written to")
    if row_count > 1 and abs(out.strides[0]) < out.dtype.itemsize:
        raise BadUse("out has rows that lie in one place")


def _check_copied(array):
    if array.dtype.hasobject:
        raise BadUse("rows with Python objects in them cannot be copied; take them by argsort")


def argsort(array, order=None, **options):
    """The row numbers that put the array in order, stable."""
    array = rows_of(array)
    columns = columns_of(array.dtype, order)
    with _rows.Rows(columns, len(array), **options) as rows:
        rows.put(array)
        rows.sort()
        return rows.numbers(len(array))


def _is_beyond(array, out, memory):
    """Whether an array should pass through memory in pieces."""
    mapped = isinstance(array, numpy.memmap) or isinstance(out, numpy.memmap)
    return mapped and array.nbytes > _servers.memory_bytes(memory) // 2


def _forget(array, first, last):
    """Lets go of the pages of a mapped file that have been used; the file keeps their content."""
    mapping = getattr(array, "_mmap", None)
    if mapping is None or getattr(array, "mode", "c") == "c" or array.strides[0] <= 0:
        return
    base = numpy.frombuffer(mapping, numpy.uint8).ctypes.data
    begin = array.ctypes.data + first * array.strides[0] - base
    end = array.ctypes.data + last * array.strides[0] - base
    begin = -(-begin // mmap.PAGESIZE) * mmap.PAGESIZE if first > 0 else 0
    end = end // mmap.PAGESIZE * mmap.PAGESIZE
    if begin < end:
        mapping.madvise(mmap.MADV_DONTNEED, begin, end - begin)


def _sort_in_pieces(array, columns, out, options):
    piece = max(1, _rows.PIECE_BYTES // max(1, array.dtype.itemsize))
    with _rows.Rows(columns, len(array), array.dtype.itemsize, **options) as rows:
        # Rows from everywhere, copied, so that no column needs to be looked for again.
        step = max(1, len(array) // 4096)
        rows.sample(numpy.ascontiguousarray(array[::step]))
        for first in range(0, len(array), piece):
            rows.put(array[first:first + piece], with_payload=True, sample=False)
            _forget(array, first, min(first + piece, len(array)))
        rows.sort()
        for first in range(0, len(array), piece):
            rows.rows(out[first:first + piece])
            _forget(out, first, min(first + piece, len(array)))
    return out


def sort(array, order=None, *, memory="1G", processes=None, out=None, **options):
    """A sorted copy of the array, or `out`, which may be the array itself."""
    array, order = rows_of(array), keys_of(order)
    columns = columns_of(array.dtype, order)
    _check_copied(array)
    _check_out(out, array, len(array))
    options.update(memory=memory, processes=processes)
    if _is_beyond(array, out, memory) and array.dtype.itemsize > 0:
        target = numpy.empty(len(array), array.dtype) if out is None else out
        return _sort_in_pieces(array, columns, target, options)
    numbers = argsort(array, order, **options)
    return _taken(array, numbers, out, processes)


def _may_share(array, out):
    """Whether writing one may change the other: in memory, or in a file that both map."""
    if numpy.may_share_memory(array, out):
        return True
    if not (isinstance(array, numpy.memmap) and isinstance(out, numpy.memmap)):
        return False
    try:
        return os.path.samefile(array.filename, out.filename)
    except (OSError, TypeError):  # it has no name, or no longer
        return True


def _taken(array, numbers, out, processes):
    threads = _servers.copy_threads(processes)
    if out is None:
        return _rows.take(array, numbers, None, threads)
    if not out.flags.c_contiguous or _may_share(array, out):
        out[...] = _rows.take(array, numbers, None, threads)
        return out
    return _rows.take(array, numbers, out, threads)


def _chosen(first, second, order, result, limit, options):
    first, order = rows_of(first), keys_of(order)
    columns = columns_of(first.dtype, order)
    _check_copied(first)
    row_count = len(first)
    if second is not None:
        second = rows_of(second, "the second array")
        # Fields may lie elsewhere, but have to be of the same types.
        second_columns = columns_of(second.dtype, order)
        if key_types(second.dtype, order) != key_types(first.dtype, order):
            raise BadUse("the keys of the two arrays are of different types")
        row_count += len(second)
    with _rows.Rows(columns, row_count, 0, result, limit, **options) as rows:
        rows.put(first)
        if second is not None:
            rows.next_operand()
            rows.put(second, sample=len(first) == 0, columns=second_columns)
        rows.sort()
        numbers = rows.numbers(len(first))
    return _rows.take(first, numbers, None, _servers.copy_threads(options.get("processes")))


def unique(array, order=None, **options):
    """Of rows that are equal in all keys the first, in order."""
    return _chosen(array, None, order, _rows.DISTINCT, 0, options)


def intersect(first, second, order=None, **options):
    """Of equal rows of the first array one, if the second has equal ones too; in order."""
    return _chosen(first, second, order, _rows.INTERSECT, 0, options)


def except_(first, second, order=None, **options):
    """Of equal rows of the first array one, if the second has none; in order."""
    return _chosen(first, second, order, _rows.EXCEPT, 0, options)


def top(array, n, order=None, **options):
    """The first n rows of the sorted array."""
    try:
        count = operator.index(n)
    except TypeError:
        count = -1
    if count < 0:
        raise BadUse(f"n={n!r}: give a number of rows")
    array = rows_of(array)
    # None of the rows are those of no rows.
    return _chosen(array if count > 0 else array[:0], None, order, _rows.ALL,
                   min(count, len(array)), options)
