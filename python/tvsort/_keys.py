"""Keys, and the columns of the C interface that they stand for."""

import dataclasses
from typing import Optional

import numpy

from ._errors import BadUse, UnsortableType

# As tvsort.h has them; a test compares.
SIGNED, UNSIGNED, FLOAT, BYTES, UCS4, TIME = range(1, 7)
DESCENDING, NULLS_FIRST, BIG_ENDIAN, NULLABLE = 1, 2, 4, 8

_SIZES = {"i": (1, 2, 4, 8), "u": (1, 2, 4, 8), "f": (2, 4, 8)}
_TYPES = {"i": SIGNED, "u": UNSIGNED, "b": UNSIGNED, "f": FLOAT, "S": BYTES, "V": BYTES, "U": UCS4,
          "M": TIME, "m": TIME}


@dataclasses.dataclass(frozen=True)
class Key:
    """A field to sort by; None for the values of an array without fields.

    Nulls are NaN, NaT and pandas' NA; they stand last unless nulls is "first", in both directions.
    """

    name: Optional[str] = None
    descending: bool = False
    nulls: str = "last"

    def __post_init__(self):
        if self.nulls not in ("first", "last"):
            raise BadUse(f'nulls={self.nulls!r}: nulls stand "first" or "last"')

    @property
    def flags(self):
        return (DESCENDING if self.descending else 0) | (NULLS_FIRST if self.nulls == "first" else 0)


@dataclasses.dataclass(frozen=True)
class Column:
    """A column of the C interface, and where its values lie in a row."""

    type: int
    flags: int
    value_bytes: int
    offset: int

    @property
    def key_bytes(self):
        size = self.value_bytes // 4 * 3 if self.type == UCS4 else self.value_bytes
        return size + (1 if self.flags & NULLABLE else 0)


def _columns_of_type(dtype, offset, flags, name):
    if dtype.subdtype is not None:
        if dtype.hasobject:
            raise _unsortable(dtype, name)
        return [Column(BYTES, flags & ~BIG_ENDIAN, dtype.itemsize, offset)]
    if dtype.names is not None:
        return [column for field in dtype.names
                for column in _columns_of_type(dtype.fields[field][0],
                                               offset + dtype.fields[field][1], flags,
                                               f"{name}.{field}" if name else field)]
    kind = dtype.kind
    if kind not in _TYPES or dtype.itemsize not in _SIZES.get(kind, (dtype.itemsize,)):
        raise _unsortable(dtype, name)
    swapped = BIG_ENDIAN if dtype.byteorder == ">" and _TYPES[kind] != BYTES else 0
    return [Column(_TYPES[kind], flags | swapped, dtype.itemsize, offset)]


def _unsortable(dtype, name):
    what = f"field {name!r}" if name else "the array"
    return UnsortableType(f"{what} is of type {dtype}, which has no order here; sort by integers, "
                          "floats of 2 to 8 bytes, bytes, text, times or bool")


def keys_of(order):
    """The keys that a user's order stands for; None stays None."""
    if order is None:
        return None
    if isinstance(order, (str, Key)):
        order = [order]
    try:
        order = list(order)
    except TypeError:
        order = [order]
    keys = [Key(one) if isinstance(one, str) else one for one in order]
    if not keys or not all(isinstance(key, Key) for key in keys):
        raise BadUse(f"order={order!r}: name fields, or give Keys, one at least")
    return keys


def columns_of(dtype, order):
    """The columns by which rows of the type are sorted; without order by all fields, as they come."""
    keys = keys_of(order)
    if keys is None:
        keys = [Key()]
    columns = []
    for key in keys:
        if key.name is None:
            columns += _columns_of_type(dtype, 0, key.flags, "")
            continue
        if dtype.names is None or key.name not in dtype.names:
            known = ", ".join(dtype.names or ()) or "none"
            raise BadUse(f"there is no field {key.name!r}; the array's fields: {known}")
        field = dtype.fields[key.name]
        columns += _columns_of_type(field[0], field[1], key.flags, key.name)
    return columns


def key_types(dtype, order):
    """The types by which rows are sorted, wherever they lie."""
    types = [dtype if key.name is None else dtype.fields[key.name][0]
             for key in keys_of(order) or [Key()]]
    return [_leaves(one) for one in types]


def _leaves(dtype):
    if dtype.names is None:
        return dtype
    return [(name, _leaves(dtype.fields[name][0])) for name in dtype.names]


def rows_of(array, name="array"):
    """The array as one that can be sorted: of one dimension, and not a view of objects."""
    if not isinstance(array, numpy.ndarray):
        array = numpy.asarray(array)
    if isinstance(array, numpy.ma.MaskedArray):
        raise BadUse(f"{name} is masked, and a mask has no place in the order; fill it, or sort a frame")
    if array.ndim != 1:
        raise BadUse(f"{name} has {array.ndim} dimensions; sort arrays of one")
    return array
