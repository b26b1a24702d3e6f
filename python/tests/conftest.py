"""What the tests of the package share: random structured arrays, and numpy's own order of them."""

import numpy
import pytest

import tvsort

SCALARS = ["i1", "i2", "i4", "i8", "u1", "u2", "u4", "u8", "f2", "f4", "f8", "S1", "S5", "U1", "U3",
           "?", "M8[ns]", "m8[s]", ">i4", ">u2", ">f8", ">U2", ">M8[D]"]


def random_values(rng, code, count):
    """Few different values, so that keys are often equal, with the odd ones of each type."""
    dtype = numpy.dtype(code)
    if dtype.kind in "iu":
        info = numpy.iinfo(dtype)
        pool = [info.min, info.max, 0, 1, info.max // 3, info.min // 5]
    elif dtype.kind == "f":
        pool = [numpy.nan, -numpy.nan, numpy.inf, -numpy.inf, 0.0, -0.0, 1.5, -1.5,
                numpy.nextafter(dtype.type(1.5), dtype.type(2)), 6e-5]
    elif dtype.kind in "SU":
        pool = ["", "a", "ab", "b", "\x7f", "aa"] + (["é", "\U0001f600", "\uffff"]
                                                     if dtype.kind == "U" else [])
    elif dtype.kind == "b":
        pool = [False, True]
    else:
        pool = [numpy.iinfo("i8").min, numpy.iinfo("i8").max, numpy.iinfo("i8").min + 1, 0, 1, -1]
    if dtype.kind in "mM":
        return numpy.array(pool, "i8")[rng.integers(len(pool), size=count)].view(
            dtype.newbyteorder("=")).astype(dtype)
    made = numpy.array(pool, dtype) if dtype.kind in "iu" else numpy.array(pool).astype(dtype)
    return made[rng.integers(len(pool), size=count)]


def random_array(rng, count):
    """Rows of random fields, with padding, gaps or strides; and the names of the fields."""
    codes = [str(code) for code in rng.choice(SCALARS, size=rng.integers(1, 6))]
    names = [f"f{i}" for i in range(len(codes))]
    dtype = numpy.dtype({"names": names, "formats": codes}, align=bool(rng.integers(2)))
    if rng.integers(3) == 0:  # the fields in another order than in the record
        dtype = numpy.dtype({"names": names[::-1], "formats": codes[::-1],
                             "offsets": [dtype.fields[name][1] + 3 for name in names[::-1]],
                             "itemsize": dtype.itemsize + 5})
    array = numpy.zeros(count, dtype)
    for name, code in zip(names, codes):
        array[name] = random_values(rng, code, count)
    step = int(rng.choice([1, 1, 2, -1, -3]))
    return array[::step], names


def lexsorted(array, keys):
    """numpy's stable order by Keys, of any direction and place of nulls."""
    columns = []
    for key in keys:
        values = array[key.name]
        if values.dtype.kind in "SU?V":
            nulls = numpy.zeros(len(values), bool)
            ranks = numpy.unique(values, return_inverse=True)[1].astype("i8")
        else:
            nulls = numpy.isnan(values) if values.dtype.kind in "fmM" else numpy.zeros(
                len(values), bool)
            ranks = numpy.zeros(len(values), "i8")
            ranks[~nulls] = numpy.unique(values[~nulls], return_inverse=True)[1]
        ranks[nulls] = 0
        columns.append(~nulls if key.nulls == "first" else nulls)
        columns.append(-ranks if key.descending else ranks)
    return numpy.lexsort(columns[::-1])


@pytest.fixture(scope="session", autouse=True)
def nothing_is_left():
    yield
    tvsort.close()
