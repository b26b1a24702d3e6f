import numpy
import pytest

import tvsort
from conftest import lexsorted, random_array
from tvsort import Key, _rows

# The quicksort and the distribution sort take turns at 10000 records.
SIZES = [0, 1, 2, 17, 300, 300, 300, 2000, 12000]


def random_keys(rng, names):
    chosen = rng.permutation(names)[:rng.integers(1, len(names) + 1)]
    return [Key(str(name), bool(rng.integers(2)), str(rng.choice(["first", "last"])))
            for name in chosen]


@pytest.mark.parametrize("seed", range(30))
def test_random_arrays_sort_as_lexsort_has_them(seed):
    rng = numpy.random.default_rng(seed)
    for _ in range(100):
        array, names = random_array(rng, int(rng.choice(SIZES)))
        keys = random_keys(rng, names)
        numbers = tvsort.argsort(array, keys)
        expected = lexsorted(array, keys)
        assert numpy.array_equal(numbers, expected), (seed, array.dtype, keys)


@pytest.mark.parametrize("seed", range(4))
def test_ascending_rows_are_those_of_plain_lexsort(seed):
    rng = numpy.random.default_rng(100 + seed)
    for _ in range(40):
        array, names = random_array(rng, int(rng.choice(SIZES)))
        # Native ones: lexsort compares text of the other byte order as if it were native.
        plain = [array[name].astype(array.dtype[name].newbyteorder("=")) for name in names]
        result = tvsort.sort(array, names)
        expected = array[numpy.lexsort(plain[::-1])]
        assert result.dtype == array.dtype
        for name in names:
            assert result[name].tobytes() == expected[name].tobytes(), (seed, array.dtype)


@pytest.mark.parametrize("code", ["i8", "u1", "f4", ">f8", "S7", "U4", "M8[s]"])
def test_plain_arrays_sort_as_numpy_sorts_them(code):
    rng = numpy.random.default_rng(5)
    array = rng.integers(0, 50, 20000).astype(code)
    assert numpy.array_equal(tvsort.argsort(array), numpy.argsort(array, kind="stable"))
    assert numpy.array_equal(tvsort.sort(array), numpy.sort(array))


def test_keys_of_no_bytes_leave_rows_as_they_are():
    array = numpy.zeros(12000, [("k", "V0"), ("n", "i4")])
    array["n"] = numpy.arange(12000)[::-1]
    assert numpy.array_equal(tvsort.argsort(array, "k"), numpy.arange(12000))


def table(count, seed=1, groups=500):
    rng = numpy.random.default_rng(seed)
    array = numpy.zeros(count, [("group", "i4"), ("price", "f8"), ("rest", "S20")])
    array["group"] = rng.integers(0, groups, count)
    array["price"] = rng.normal(size=count).round(1)
    array["rest"] = rng.integers(0, 9, count)
    return array


@pytest.mark.parametrize("processes", [1, 2, 3])
@pytest.mark.parametrize("memory", ["4M", "1G"])
def test_processes_and_memory_change_nothing(processes, memory):
    array = table(200_000)
    keys = [Key("group", descending=True), "price"]
    expected = lexsorted(array, [keys[0], Key("price")])
    assert numpy.array_equal(
        tvsort.argsort(array, keys, processes=processes, memory=memory), expected)
    leading = tvsort.top(array, 777, keys, processes=processes, memory=memory)
    assert numpy.array_equal(leading, array[expected[:777]])


def first_rows(array, names):
    """The first of equal rows, in order, by numpy's means alone."""
    keys = array[names].copy()
    return numpy.unique(keys, return_index=True)[1]


@pytest.mark.parametrize("count", [1, 50, 40_000])
@pytest.mark.parametrize("processes", [1, 2])
def test_unique_intersect_and_except_agree_with_sets(count, processes):
    first, second = table(count, 1), table(count // 2 + 1, 2)
    names = ["group", "price"]
    ours = first_rows(first, names)
    others = set(second[names].tolist())
    shared = numpy.array([row in others for row in first[names][ours].tolist()], bool)
    options = {"processes": processes}
    assert numpy.array_equal(tvsort.unique(first, names, **options), first[ours])
    assert numpy.array_equal(tvsort.intersect(first, second, names, **options),
                             first[ours[shared]])
    assert numpy.array_equal(tvsort.except_(first, second, names, **options), first[ours[~shared]])
    assert len(tvsort.except_(first, first, names)) == 0
    assert len(tvsort.intersect(first, second[:0], names)) == 0


@pytest.mark.parametrize("memory", ["2M", "1G"])
def test_a_file_may_be_sorted_into_another_place_of_itself(memory, tmp_path):
    rows = numpy.random.default_rng(1).permutation(300_000)
    rows.tofile(tmp_path / "rows")
    mapped = [numpy.memmap(tmp_path / "rows", rows.dtype, "r+", 8 * begin, 200_000)
              for begin in (0, 7)]
    tvsort.sort(mapped[0], out=mapped[1], memory=memory)
    assert numpy.array_equal(mapped[1], numpy.sort(rows[:200_000]))


def test_other_arrays_may_have_their_fields_elsewhere():
    first = numpy.array([(1, 7), (2, 7), (3, 7)], [("x", "i4"), ("y", "i4")])
    second = numpy.array([(b"", 1, 2), (b"", 9, 3)], [("s", "S1"), ("y", "i4"), ("x", "i4")])
    assert list(tvsort.intersect(first, second, "x")["x"]) == [2, 3]
    assert list(tvsort.except_(first, second, (key for key in ["x"]))["x"]) == [1]


def test_kinds_of_arrays_and_of_orders_that_come_along():
    records = numpy.rec.array([(2, b"b"), (1, b"a")], dtype=[("x", "i4"), ("y", "S1")])
    assert list(tvsort.sort(records, (key for key in ["x"])).y) == [b"a", b"b"]
    assert list(tvsort.top([3, 1, 2], numpy.int8(2), processes=numpy.int64(1))) == [1, 2]
    assert list(tvsort.top([3, 1], 1 << 70)) == [1, 3] and len(tvsort.top([3, 1], 0)) == 0


def test_files_of_subarrays_pass_in_pieces(tmp_path, monkeypatch):
    monkeypatch.setattr(_rows, "PIECE_BYTES", 1000)
    rows = numpy.random.default_rng(1).integers(0, 256, (5000, 3)).astype("u1")
    rows.tofile(tmp_path / "rows")
    assert tvsort.sort_file(tmp_path / "rows", ("u1", 3), out=tmp_path / "out") == 5000
    out = numpy.fromfile(tmp_path / "out", "u1").reshape(-1, 3)
    assert numpy.array_equal(out, rows[numpy.lexsort(rows.T[::-1])])
    with pytest.raises(OSError):  # before anything is read
        tvsort.sort_file(tmp_path / "rows", "u1", out=tmp_path / "none" / "out")


def test_out_may_be_the_array_and_have_strides():
    array = table(5000)
    expected = array[numpy.lexsort((array["price"], array["group"]))]
    strided = numpy.zeros(10000, array.dtype)[::2]
    assert tvsort.sort(array, ["group", "price"], out=strided) is strided
    assert numpy.array_equal(strided, expected)
    tvsort.sort(array, ["group", "price"], out=array)
    assert numpy.array_equal(array, expected)


def test_subarrays_and_nested_fields_count():
    array = numpy.zeros(300, [("key", [("a", ">u2"), ("b", "u1", (2,))]), ("n", "i4")])
    rng = numpy.random.default_rng(3)
    array["key"]["a"] = rng.integers(0, 3, 300)
    array["key"]["b"] = rng.integers(0, 3, (300, 2))
    key = array["key"]
    expected = numpy.lexsort((key["b"][:, 1], key["b"][:, 0], key["a"]))
    assert numpy.array_equal(tvsort.argsort(array, "key"), expected)


@pytest.mark.parametrize("memory", ["2M", "64M"])
@pytest.mark.parametrize("processes", [1, 2])
def test_mapped_arrays_pass_through_memory_in_pieces(tmp_path, memory, processes):
    array = table(250_000)  # 8 MB
    path = tmp_path / "rows"
    array.tofile(path)
    mapped = numpy.memmap(path, array.dtype, "r")
    out = numpy.memmap(tmp_path / "sorted", array.dtype, "w+", shape=array.shape)
    expected = array[numpy.lexsort((array["price"], array["group"]))]
    options = {"memory": memory, "processes": processes}
    tvsort.sort(mapped, ["group", "price"], out=out, **options)
    out.flush()
    assert (tmp_path / "sorted").read_bytes() == expected.tobytes()
    assert tvsort.sort_file(path, array.dtype, ["group", "price"], tmp_path / "out",
                            **options) == len(array)
    assert (tmp_path / "out").read_bytes() == expected.tobytes()
    pieces = (array[i:i + 7777] for i in range(0, len(array), 7777))
    sorted_pieces = list(tvsort.sort_arrays(pieces, ["group", "price"], rows=1000, **options))
    assert max(map(len, sorted_pieces)) == 1000
    assert numpy.array_equal(numpy.concatenate(sorted_pieces), expected)
    tvsort.sort_file(path, array.dtype, ["group", "price"], **options)
    assert path.read_bytes() == expected.tobytes()


def test_empty_input_has_empty_results(tmp_path):
    empty = table(0)
    assert len(tvsort.sort(empty, "group")) == len(tvsort.unique(empty, "group")) == 0
    assert list(tvsort.sort_arrays([], "group")) == list(tvsort.sort_arrays([empty], "group")) == []
    (tmp_path / "none").write_bytes(b"")
    assert tvsort.sort_file(tmp_path / "none", empty.dtype, "group", tmp_path / "out") == 0
