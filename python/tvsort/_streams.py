"""Sorting what is never in memory as a whole: files, and streams of arrays."""

import os

import numpy

from . import _rows
from ._errors import BadUse
from ._keys import columns_of, rows_of


def _piece_rows(dtype):
    return max(1, _rows.PIECE_BYTES // dtype.itemsize)


def _sorted_pieces(rows, dtype, piece_rows):
    while True:
        piece = numpy.empty(piece_rows, dtype)
        count = rows.rows(piece)
        if count == 0:
            return
        yield piece[:count]


def _check_type(dtype):
    if dtype.hasobject or dtype.itemsize == 0:
        raise BadUse(f"rows of type {dtype} cannot be stored; use fixed-length fields without "
                     "Python objects")


def sort_arrays(arrays, order=None, *, rows=None, **options):
    """The rows of all arrays in order, as an iterator of arrays of up to `rows` rows.

    The arrays, of one type, are asked for one by one when the first sorted one is. What is not in
    the memory granted stands in a file meanwhile.
    """
    if rows is not None and (not isinstance(rows, (int, numpy.integer)) or rows < 1):
        raise BadUse(f"rows={rows!r}: give a number of rows above 0, or None")
    return _sort_arrays(iter(arrays), order, rows, options)


def _sort_arrays(arrays, order, rows, options):
    first = next(arrays, None)
    if first is None:
        return
    first = rows_of(first)
    dtype = first.dtype
    _check_type(dtype)
    columns = columns_of(dtype, order)
    with _rows.Rows(columns, None, dtype.itemsize, **options) as sort:
        sort.put(first, with_payload=True)
        for array in arrays:
            array = rows_of(array)
            if array.dtype != dtype:
                raise BadUse(f"an array of type {array.dtype} came after one of type {dtype}")
            sort.put(array, with_payload=True, sample=False)
        sort.sort()
        yield from _sorted_pieces(sort, dtype, _piece_rows(dtype) if rows is None else rows)


def _file_sample(file, dtype, row_count):
    """Rows from all over the file."""
    places = min(row_count, 1024)
    sample = numpy.empty(places, dtype)
    view = memoryview(sample.view(numpy.uint8))
    size = dtype.itemsize
    for place in range(places):
        file.seek(place * (row_count // places) * size)
        file.readinto(view[place * size:(place + 1) * size])
    file.seek(0)
    return sample


def sort_file(path, dtype, order=None, out=None, **options):
    """Sorts a file of rows of the type into the file `out`; without it, in place.

    In place means that a failure before the last byte is written leaves the file half written;
    before that, it is as it was. Returns the number of rows.
    """
    dtype = numpy.dtype(dtype)
    if dtype.subdtype is not None:  # of which numpy makes arrays of more dimensions
        dtype = numpy.dtype([("", dtype)])
    _check_type(dtype)
    columns = columns_of(dtype, order)
    size = os.path.getsize(path)
    if size % dtype.itemsize != 0:
        raise BadUse(f"{os.fspath(path)} has {size} bytes, which is no multiple of the "
                     f"{dtype.itemsize} bytes of a row")
    row_count = size // dtype.itemsize
    if out is not None:
        with open(out, "ab"):  # or the sort would be for nothing
            pass
    buffer = numpy.empty(_piece_rows(dtype), dtype)
    with _rows.Rows(columns, row_count, dtype.itemsize, **options) as rows:
        with open(path, "rb", buffering=0) as file:
            rows.sample(_file_sample(file, dtype, row_count))
            left = row_count
            while left > 0:
                count = min(left, len(buffer))
                _fill(file, memoryview(buffer.view(numpy.uint8))[:count * dtype.itemsize], path)
                rows.put(buffer[:count], with_payload=True, sample=False)
                left -= count
        rows.sort()
        with open(path if out is None else out, "r+b" if out is None else "wb") as file:
            while True:
                count = rows.rows(buffer)
                if count == 0:
                    break
                file.write(memoryview(buffer.view(numpy.uint8))[:count * dtype.itemsize])
    return row_count


def _fill(file, view, path):
    while len(view) > 0:
        count = file.readinto(view)
        if not count:
            raise BadUse(f"{os.fspath(path)} has become shorter while it was read")
        view = view[count:]
