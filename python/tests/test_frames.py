import numpy
import pytest

import tvsort
from tvsort import Key

pandas = pytest.importorskip("pandas")


def frame(seed, count=3000):
    rng = numpy.random.default_rng(seed)
    integers = rng.integers(-3, 3, count)
    nulls = rng.integers(0, 4, count) == 0
    texts = numpy.array(["b", "a", "é", "ab"], object)[rng.integers(0, 4, count)]
    texts[nulls] = None
    return pandas.DataFrame({
        "int": integers,
        "float": numpy.where(nulls, numpy.nan, rng.integers(-2, 2, count)),
        "Int": pandas.array(integers, "Int64"),
        "null": pandas.Series(integers, dtype="Int16").mask(nulls),
        "bool": rng.integers(0, 2, count) == 1,
        "text": texts,
        "string": pandas.array(texts, "string"),
        "when": pandas.Series(pandas.to_datetime(integers, unit="D")).mask(nulls),
        "zoned": pandas.Series(pandas.to_datetime(integers, unit="D", utc=True)).mask(nulls),
        "category": pandas.Categorical(texts, ["é", "b", "ab", "a"], ordered=True),
        "place": numpy.arange(count)}, index=rng.permutation(count))


@pytest.mark.parametrize("seed", range(20))
def test_frames_sort_as_pandas_sorts_them(seed):
    rng = numpy.random.default_rng(seed)
    data = frame(seed)
    by = [str(name) for name in rng.permutation(data.columns[:-1])[:rng.integers(1, 4)]]
    ascending = [bool(up) for up in rng.integers(0, 2, len(by))]
    position = str(rng.choice(["first", "last"]))
    expected = data.sort_values(by, ascending=ascending, na_position=position, kind="stable")
    result = tvsort.sort_frame(data, by, ascending, position)
    if len(by) == 1 and not ascending[0]:
        pandas.testing.assert_series_equal(result["place"], expected["place"])
    pandas.testing.assert_frame_equal(result, expected)


def test_each_key_may_say_for_itself():
    data = frame(7)
    result = tvsort.sort_frame(data, [Key("null", descending=True, nulls="first"), "float"])
    nulls = int(data["null"].isna().sum())
    assert result["null"].isna().to_numpy()[:nulls].all()
    assert result["null"].iloc[nulls:].is_monotonic_decreasing


@pytest.mark.parametrize("by, ascending, words", [
    ([], True, "names no column"), ("none", True, "no column 'none'"),
    (["int", "float"], [True], "1 values for 2 columns"), ("mixed", True, "without an order")])
def test_what_a_frame_cannot_be_sorted_by_is_refused(by, ascending, words):
    data = frame(1, 2).assign(mixed=[object(), object()])
    with pytest.raises(tvsort.BadUse, match=words):
        tvsort.sort_frame(data, by, ascending)
    with pytest.raises(tvsort.BadUse, match="more than one column 'int'"):
        tvsort.sort_frame(pandas.concat([data, data], axis=1), "int")
