"""Sorting pandas' data frames, by columns with nulls as pandas has them."""

import numpy

from . import _rows
from ._errors import BadUse, UnsortableType
from ._keys import NULLABLE, Column, Key, columns_of


def _values_of(series, name):
    """A column's values as an array that can be sorted, and its nulls where the array has none."""
    import pandas

    dtype = series.dtype
    if isinstance(dtype, pandas.CategoricalDtype):
        codes = series.cat.codes.to_numpy()
        return codes, codes < 0
    if isinstance(dtype, pandas.DatetimeTZDtype):
        return series.dt.tz_convert("UTC").dt.tz_localize(None).to_numpy(), None
    if isinstance(dtype, numpy.dtype) and dtype.kind in "biufmM":
        return series.to_numpy(), None
    if getattr(dtype, "numpy_dtype", None) is not None and dtype.numpy_dtype.kind in "biuf":
        nulls = series.isna().to_numpy()
        return series.to_numpy(dtype.numpy_dtype, na_value=dtype.numpy_dtype.type(0)), nulls
    # Texts and other objects: their places among themselves.
    try:
        codes, _ = pandas.factorize(series, sort=True)
    except TypeError as error:
        raise UnsortableType(f"column {name!r} holds values without an order: {error}") from None
    return codes, codes < 0


def _keys_of_frame(frame, by, ascending, na_position):
    by = [by] if isinstance(by, (str, Key)) or not isinstance(by, (list, tuple)) else list(by)
    if not by:
        raise BadUse("by names no column; name one at least")
    directions = [ascending] * len(by) if isinstance(ascending, bool) else list(ascending)
    if len(directions) != len(by):
        raise BadUse(f"ascending has {len(directions)} values for {len(by)} columns")
    keys = [one if isinstance(one, Key) else Key(one, not up, na_position)
            for one, up in zip(by, directions)]
    for key in keys:
        if key.name not in frame.columns:
            raise BadUse(f"there is no column {key.name!r}")
        if list(frame.columns).count(key.name) > 1:
            raise BadUse(f"there is more than one column {key.name!r}")
    return keys


def sort_frame(frame, by, ascending=True, na_position="last", **options):
    """The frame in order, stable, as frame.sort_values(..., kind="stable") gives it."""
    arrays, nulls, columns = [], [], []
    for key in _keys_of_frame(frame, by, ascending, na_position):
        values, mask = _values_of(frame[key.name], key.name)
        column = columns_of(values.dtype, Key(None, key.descending, key.nulls))[0]
        if mask is not None:
            column = Column(column.type, column.flags | NULLABLE, column.value_bytes, 0)
        arrays.append(values)
        nulls.append(mask)
        columns.append(column)
    with _rows.Rows(columns, len(frame), **options) as rows:
        rows.put_values(arrays, len(frame), nulls=nulls)
        rows.sort()
        numbers = rows.numbers(len(frame))
    return frame.take(numbers)
