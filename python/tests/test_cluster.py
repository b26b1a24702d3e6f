"""The cluster on one machine, beside one tvsort-host: the same bytes, or an error and nothing else."""

import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy
import pytest

distributed = pytest.importorskip("distributed")

import tvsort
from tvsort import Key, cluster
from tvsort.cluster import _command, _engine, _files, _ranges, _records, _run, _shares, _tasks, _text


@pytest.fixture(scope="module", autouse=True)
def own_temporary_folder(tmp_path_factory):
    """Others may sort on this machine meanwhile."""
    folder = str(tmp_path_factory.mktemp("temporary"))
    with pytest.MonkeyPatch.context() as patch:
        patch.setenv("TMPDIR", folder)
        patch.setattr(tempfile, "tempdir", folder)
        yield


@pytest.fixture(scope="module")
def client(own_temporary_folder):
    with distributed.LocalCluster(n_workers=2, threads_per_worker=2, processes=False,
                                  dashboard_address=None) as local:
        with distributed.Client(local) as made:
            yield made


@pytest.fixture(autouse=True)
def nothing_is_left_on_the_worker():
    yield
    assert not list(Path(tempfile.gettempdir()).glob("tvsort-cluster-*"))


def alone(names, words, out):
    """What one process makes: its status, words, and output."""
    done = subprocess.run([_command.program(), "sort", *words, "-o", out, "--", *names],
                          capture_output=True, text=True)
    return done.returncode, done.stderr, out.read_bytes() if out.exists() else b""


def contents(manifest):
    return b"".join(Path(path).read_bytes() for path in manifest.paths)


def csv_row(rng, end):
    name = rng.choice(["", '""', "b", "a", "ab", '"q""t"', '"two\nlines"', '"c,d"', "b" * 90, "\xe9"])
    number = rng.choice(["", "7", "-1", "1000000", str(rng.randrange(9))])
    return f"{name},{number},{rng.randrange(99)}{end}"


def csv_files(rng, folder, odd_rows=()):
    names = []
    for i in range(rng.randint(1, 4)):
        end = rng.choice(["\n", "\r\n"])
        mark = rng.choice(["", "\ufeff"])
        rows = [csv_row(rng, end) for _ in range(rng.choice([0, 1, 2, 50, 400]))]
        for row in odd_rows:
            rows.insert(rng.randint(0, len(rows)), row + end)
        text = mark + f'name,number,"x:y"{end}' + "".join(rows)
        if rng.random() < 0.5 and text.endswith(end) and not text.endswith(f'"{end}'):
            text = text[:-len(end)]
        names.append(folder / (f"in {i}'.csv" if odd_rows else f"in {i}\n.csv"))
        names[-1].write_text(text, newline="")
    return [str(name) for name in names]


def divide(monkeypatch, share_bytes):
    """Inputs into shares of about so many bytes, for however small they are."""
    real = _shares.shares_of
    monkeypatch.setattr(_shares, "shares_of", lambda size, _: real(size, share_bytes))


@pytest.mark.parametrize("seed", range(18))
def test_rows_are_the_bytes_of_one_process(seed, client, tmp_path, monkeypatch):
    rng = random.Random(seed)
    if seed >= 6:
        divide(monkeypatch, rng.choice([7, 40, 300]) if seed % 2 else 2000)
    odd = ["a,x,1", 'a"b,1,2', "short", '"open,1,2', ',"",3', ""] if seed % 3 else []
    policy = {0: "stop", 1: "skip", 2: "last"}[seed % 3]
    names = csv_files(rng, tmp_path, odd)
    keys = rng.choice([["name", "number:int:desc"], ["number:int"], ["name:text:nocase:desc"],
                       ['"x:y":int', "#1"], ["number:int:nulls-first", "name"]])
    words = [f"--on-error={policy}", *(f"--key={key}" for key in keys)]
    reverse = rng.random() < 0.3
    status, said, expected = alone(names, words + ["-r"] * reverse, tmp_path / "alone")
    manifest = cluster.sort(names, tmp_path / "out", keys, client=client, on_error=policy,
                            reverse=reverse, partitions=rng.choice([1, 3, 20]),
                            storage=rng.choice(["shared", "moved"]))
    print(names, keys, policy, said)
    assert contents(manifest) == expected
    assert (manifest.skipped > 0) == (status == 3)
    assert list(manifest.problems) == said.splitlines()[:-1]
    assert cluster.verify(tmp_path / "out").rows == manifest.rows
    assert set(os.listdir(tmp_path / "out")) == {Path(p).name for p in manifest.paths} | {
        "manifest.json"}


@pytest.mark.parametrize("content, order, options", [
    (b"b\na\n\nc\nab", None, {"lines": True}),
    (b"b\0a\n\0", None, {"lines": True, "zero_terminated": True, "reverse": True}),
    (b"10\n\n9\n-3\n" * 50, None, {"lines": True, "as_": "int:desc"}),
    (b"x  3\ny 20 \n z\n" * 9, ["2:int"], {"format": "fields"}),
    (b"b;1\na;2\nb;0", ["1:text:desc"], {"format": "csv", "delimiter": ";", "no_header": True}),
    (b"a\tb\n1\t\\N\n2\n3\t4\t5\n", ["b:int"], {"format": "tsv", "ragged": True, "null": "\\N"}),
    (b"null,1\n,2\nx,3\n", ["1"], {"format": "csv", "no_header": True, "null": ""}),
    (b"same,1\nsame,2\n" * 3000, ["1"], {"format": "csv", "no_header": True}),
    (b"", ["1"], {"format": "csv", "no_header": True}),
    (b"long" * 60000 + b"\nlong" + b"long" * 60000 + b"x\na\n", None, {"lines": True}),
    (b"\xff\xfe,1\n\x80,2\n", ["1"], {"format": "csv", "no_header": True, "on_error": "skip"}),
], ids=map(str, range(11)))
@pytest.mark.parametrize("shares", [1, 9])
def test_other_words_do_as_the_command_does(shares, content, order, options, client, tmp_path,
                                            monkeypatch):
    divide(monkeypatch, len(content) // shares + 1)
    names = [str(tmp_path / name) for name in ("one", "-two", "empty")]
    for name in names:
        with open(name, "wb") as file:
            file.write(b"" if name.endswith("empty") and "ragged" not in options else content)
    if content.startswith(b"\xff\xfe"):
        with pytest.raises(cluster.ClusterError, match="UTF-16"):
            cluster.sort(names, tmp_path / "out", order, client=client, **options)
        return
    words = [_text.FLAGS[name] if given is True else f"{_text.VALUES[name]}={given}"
             for name, given in options.items()]
    words += [f"--key={key}" for key in order or ()]
    manifest = cluster.sort(names, tmp_path / "out", order, client=client, partitions=4, **options)
    assert contents(manifest) == alone(names, words, tmp_path / "alone")[2]


MARKS = [b"\xef\xbb\xbf", b"\x1f\x8b\x08", b"\x28\xb5\x2f\xfd", b"\xff\xfe", b"\xfe\xff"]


@pytest.mark.parametrize("partitions", [1, 3, 40])
@pytest.mark.parametrize("contents_given, order, options", [
    # Rows that at the start of a piece look like the mark of an encoding or a compression.
    ([b"t,n\n" + b"".join(b"%sx,%d\nm,5\n" % (mark, i) for i, mark in enumerate(MARKS))], "n:int", {}),
    ([b"a,1\n" + b"".join(b"%sx,%d\n" % (mark, i) for i, mark in enumerate(MARKS))], "2:int:desc",
     {"no_header": True}),
    ([b"a\n" + b"\n".join(MARKS), MARKS[0] + b"\n"], None, {"lines": True, "reverse": True}),
    # What stands before all rows.
    ([b"", MARKS[0], MARKS[0] + b"b,1\na,2\n", b"c,0"], "1", {"no_header": True}),
    ([b"b,1\n", MARKS[0] + b"a,2\n"], "1", {"no_header": True}),
    ([MARKS[0] + b"t\nb\n", b"t\r\na\r\n"], "t", {}),
    # How many fields rows should have.
    ([b"", b"1,b\n3\nx,y\n", b"4\n2,a\n", b'"q"r,1\n0,c\n', b"1,2,3\n"], "1:int",
     {"no_header": True, "on_error": "skip"}),
    ([b"1,b\n3\n", b'"q"r\n0,c\n', b"5\n"], "2", {"no_header": True, "on_error": "last"}),
    ([b"1,b\n3\n", b'"q"r\n0,c,d\n'], "2:text:desc",
     {"no_header": True, "on_error": "last", "ragged": True}),
])
def test_inputs_may_begin_with_anything(contents_given, order, options, partitions, client, tmp_path,
                                        monkeypatch):
    divide(monkeypatch, 9)
    names = []
    for i, content in enumerate(contents_given):
        names.append(str(tmp_path / f"{i}"))
        Path(names[-1]).write_bytes(content)
    if not options.get("lines"):
        options = {**options, "format": "csv"}
    words = [_text.FLAGS[name] if given is True else f"{_text.VALUES[name]}={given}"
             for name, given in options.items()] + ([f"--key={order}"] if order else [])
    _, said, expected = alone(names, words, tmp_path / "alone")
    assert expected
    monkeypatch.setattr(_run, "_RANGE_BYTES_MIN", 1)
    manifest = cluster.sort(names, tmp_path / "out", order, client=client, partitions=partitions,
                            **options)
    assert contents(manifest) == expected
    assert list(manifest.problems) == said.splitlines()[:-1]


@pytest.mark.parametrize("storage", ["shared", "moved"])
def test_a_share_that_guessed_its_begin_wrong_is_split_again(storage, client, tmp_path, monkeypatch):
    """Texts in quotes look like rows, good ones and bad ones, until somebody knows where they begin."""
    begun = []
    real = _run._Sort.split_all

    def split_all(self, tasks):
        begun.append([task.call[-2].begins_row for task in tasks])
        return real(self, tasks)

    monkeypatch.setattr(_run._Sort, "split_all", split_all)
    rng = random.Random(8)
    lie = '1,"' + "\n5,no\nx,,\n7,yes" * 9 + '"\n'
    rows = [rng.choice([lie, f"{rng.randrange(99)},\r\n", ",\n", "\n", f"3,{'y' * 120}\n"])
            for _ in range(120)]
    divide(monkeypatch, 150)
    for policy, odd in [("stop", ""), ("stop", "bad,\n"), ("skip", "bad,\n"), ("last", '4,"x"y\n')]:
        name = tmp_path / f"{policy}{len(odd)}"
        name.write_text("n,t\n" + "".join(rows).replace("\n\n", "\n") + odd + "".join(rows[:9]) + "8,",
                        newline="")
        begun.clear()
        words = ["--format=csv", "--key=n:int", f"--on-error={policy}"]
        status, said, expected = alone([name], words, tmp_path / f"alone{name.name}")
        out = tmp_path / f"out{name.name}"
        if status == 2:
            with pytest.raises(cluster.ClusterError) as error:
                cluster.sort(name, out, "n:int", client=client, format="csv", storage=storage)
            assert f"tvsort-host: {error.value}\n" == said
        else:
            manifest = cluster.sort(name, out, "n:int", client=client, format="csv", partitions=5,
                                    on_error=policy, storage=storage)
            assert contents(manifest) == expected
            assert list(manifest.problems) == said.splitlines()[:-1]
        assert not any(begun[0]) and len(begun) > 1 and all(map(all, begun[1:]))


def test_inputs_are_divided_that_are_large_beside_the_others():
    for size, share_bytes, begins in [(0, 10, [0]), (30, 10, [0]), (31, 10, [0, 10, 20]),
                                      (39, 10, [0, 13, 26])]:
        shares = _shares.shares_of(size, share_bytes)
        assert [share.begin for share in shares] == begins
        assert [share.end for share in shares] == [*begins[1:], None]


def test_a_heavy_key_has_a_range_of_its_own(client, tmp_path, monkeypatch):
    divide(monkeypatch, 200_000)
    rng = random.Random(5)
    rows = ["m" * 30] * 30000 + [f"m{'n' * 30}{rng.randrange(10 ** 6)}" for _ in range(30000)]
    rng.shuffle(rows)
    (tmp_path / "in").write_text("\n".join(rows))
    manifest = cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True,
                            partitions=40)
    sizes = [part["bytes"] for part in manifest.parts]
    assert max(sizes) == 30000 * 31 and sorted(sizes)[-2] < 5 * sum(sizes) / 40
    assert contents(manifest) == ("\n".join(sorted(rows)) + "\n").encode()


@pytest.mark.parametrize("storage", ["shared", "moved"])
def test_ranges_that_a_poor_sample_made_too_large_are_split_again(storage, client, tmp_path,
                                                                  monkeypatch):
    for name in ("_SAMPLES_PER_RANGE", "_SAMPLES_FIRST"):
        monkeypatch.setattr(_run, name, 0)  # 16 keys of each, for 100 ranges
    rng = random.Random(6)
    names = [str(tmp_path / "a.csv"), str(tmp_path / "b.csv")]
    for name in names:
        with open(name, "w") as file:
            file.write("n,t\n")
            file.writelines(f"{rng.randrange(10 ** 5)},{i}\n" for i in range(3000))
    manifest = cluster.sort(names, tmp_path / "out", "n:int:desc", client=client, partitions=100,
                            storage=storage)
    assert contents(manifest) == alone(names, ["--key=n:int:desc"], tmp_path / "alone")[2]
    assert len(manifest.parts) > 60 and manifest.seconds["split again"] > 0
    sizes = [part["bytes"] for part in manifest.parts]
    assert max(sizes) < 5 * sum(sizes) / 100


RECORD = numpy.dtype([("a", "f4"), ("b", ">i2"), ("c", "S2"), ("d", "U1"), ("e", "M8[s]"), ("n", "u4")])


@pytest.mark.parametrize("storage", ["shared", "moved"])
def test_records_are_those_of_sort_file(storage, client, tmp_path, monkeypatch):
    rng = numpy.random.default_rng(3)
    names, count = [], 0
    for i, rows in enumerate((4000, 0, 1, 900)):
        records = numpy.zeros(rows, RECORD)
        records["a"] = rng.choice([numpy.nan, -0.0, 0.0, -1.5, 2, numpy.inf], rows)
        records["b"] = rng.integers(-300, 300, rows)
        records["c"] = rng.choice([b"", b"a", b"\xff", b"ab"], rows)
        records["d"] = rng.choice(["", "a", "\uffff", "\U0001f600"], rows)
        records["e"] = rng.choice(numpy.array(["NaT", "1969-01-01", "2000-01-01"], "M8[s]"), rows)
        records["n"] = numpy.arange(count, count + rows)
        count += rows
        names.append(str(tmp_path / f"{i}"))
        records.tofile(names[-1])
    (tmp_path / "all").write_bytes(b"".join(Path(name).read_bytes() for name in names))
    for n, order in enumerate((["a", Key("b", descending=True)], [Key("d", True), "c"], "c",
                               [Key("e", True, "first"), Key("a", nulls="first")])):
        tvsort.sort_file(tmp_path / "all", RECORD, order, tmp_path / "sorted")
        if n == 2:
            divide(monkeypatch, 1001)
        manifest = cluster.sort(names, tmp_path / f"out{n}", order, client=client, dtype=RECORD,
                                partitions=9, storage=storage)
        assert contents(manifest) == (tmp_path / "sorted").read_bytes()
        assert len(manifest.parts) > 2


def test_records_may_be_small_arrays(client, tmp_path):
    numpy.random.default_rng(2).integers(0, 9, 900, "i2").tofile(tmp_path / "in")
    tvsort.sort_file(tmp_path / "in", "(3,)i2", None, tmp_path / "sorted")
    manifest = cluster.sort(tmp_path / "in", tmp_path / "out", client=client, dtype="(3,)i2",
                            partitions=3)
    assert contents(manifest) == (tmp_path / "sorted").read_bytes()


def test_records_keep_what_no_field_names(client, tmp_path):
    padded = numpy.dtype({"names": ["a"], "formats": ["<i4"], "offsets": [4], "itemsize": 12})
    numpy.random.default_rng(2).integers(0, 256, 12 * 900, "u1").tofile(tmp_path / "in")
    tvsort.sort_file(tmp_path / "in", padded, None, tmp_path / "sorted")
    manifest = cluster.sort(tmp_path / "in", tmp_path / "out", client=client, dtype=padded,
                            partitions=5)
    assert contents(manifest) == (tmp_path / "sorted").read_bytes()


def test_records_may_have_long_keys_alike_and_unlike(client, tmp_path, monkeypatch):
    monkeypatch.setattr(_run, "_RANGE_BYTES_MIN", 1)
    rng = numpy.random.default_rng(2)
    records = numpy.zeros(600, "S3000")
    for i in range(600):
        records[i] = b"a" * int(rng.choice([0, 5, 1500, 2990])) + bytes(rng.integers(1, 4, 9, "u1"))
    records.tofile(tmp_path / "in")
    tvsort.sort_file(tmp_path / "in", "S3000", None, tmp_path / "sorted")
    manifest = cluster.sort(tmp_path / "in", tmp_path / "out", client=client, dtype="S3000",
                            partitions=40)
    assert contents(manifest) == (tmp_path / "sorted").read_bytes()
    assert len(manifest.parts) > 10


def test_ranges_are_no_more_than_can_be_open(client, tmp_path, monkeypatch):
    monkeypatch.setattr(_run, "_RANGE_BYTES_MIN", 1)
    lines = [f"{i:04}" for i in range(520)] * 40
    random.Random(3).shuffle(lines)
    (tmp_path / "in").write_text("\n".join(lines) + "\n")
    manifest = cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True,
                            partitions=600)
    assert contents(manifest).decode().split() == sorted(lines)
    heavy = [(b"%04d" % i, 1.0) for i in range(520)]
    assert len(_ranges.splitters_of(heavy, 600, _text.TextForm)) == 900


def test_records_are_sampled_all_over_the_file(tmp_path):
    numpy.arange(9000, dtype=">u2").tofile(tmp_path / "in")
    form = _records.RecordForm(numpy.dtype(">u2"), (), "1000000")
    for share, begin, end in [(_shares.WHOLE, 0, 9000), (_shares.Share(5999, 8001), 3000, 4001)]:
        keys = [int(key, 16) for key in form.sample(tmp_path / "in", 100, None, share=share)["samples"]]
        assert keys == [begin + (end - begin) * i // 100 for i in range(100)]


@pytest.mark.parametrize("key", [Key("a"), Key("a", True), Key("a", nulls="first"), Key("d", True),
                                 Key("e", nulls="first")])
def test_key_bytes_stand_in_the_order_of_the_values(key):
    rows = numpy.zeros(200, RECORD)
    rng = numpy.random.default_rng(1)
    rows["a"] = rng.choice([numpy.nan, -0.0, 0.0, -1.5, 2, -numpy.inf, 1e-40, -1e-40], 200)
    rows["d"] = rng.choice(["", "a", "\uffff", "\U0001f600"], 200)
    rows["e"] = rng.choice(numpy.array(["NaT", "1969-01-01", "2000-01-01"], "M8[s]"), 200)
    made = _records.key_bytes(rows, tvsort._keys.columns_of(RECORD, key))
    order = sorted(range(200), key=lambda i: made[i].tobytes())
    assert order == list(tvsort.argsort(rows, key))


def test_what_is_wrong_is_said_before_anything_is_made(client, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    files = {"a.csv": "id,name\n1,x\n", "b.csv": "id,nom\n1,x\n", "c.csv": "1,x,2\n", "e.csv": "",
             "bad.csv": "id,name\n1,x\ny,z\n", "r": "12345", "wide.csv": "1,2\n",
             "t.tsv": "id\tname\n", "h0.csv": "b,a\n", "h1.csv": "x,y\n2,1\n"}
    for name, content in files.items():
        Path(name).write_text(content)
    numpy.array([0x110007, 97] * 50, "u4").tofile("u")
    monkeypatch.setattr(_run, "_RANGE_BYTES_MIN", 1)
    Path("full").mkdir()
    os.mkfifo("pipe")
    Path("full/thing").write_text("")
    for inputs, order, options, words in [
            (["a.csv", "b.csv"], "id", {}, "b.csv has the columns id, nom and .*a.csv has id, name"),
            (["c.csv", "wide.csv"], "1", {"no_header": True}, "has the columns 1 to 2 and"),
            (["a.csv", "missing.csv"], "id", {}, "missing.csv: No such file"),
            (["a.csv", "e.csv"], "id", {}, "e.csv is empty"),
            (["a.csv", "full"], "id", {"format": "csv"}, "full is no regular file"),
            ("pipe", None, {"lines": True}, "pipe is no regular file"),
            (["a.csv", "b.csv"], "id", {"ragged": True}, "b.csv has the columns id, nom and"),
            (["a.csv", "t.tsv"], "#1", {"ragged": True}, "t.tsv is taken for tsv and .*a.csv for csv"),
            ("a.csv", "nix", {}, 'there is no column "nix"; the columns are id, name'),
            ("a.csv", "id:wkt", {}, "have no ordered bytes"),
            ("a.csv", "id:auto", {}, "name the type that is meant"),
            ("a.csv", [], {}, "say what to order by"),
            ("r", None, {}, "say what the records are"),
            ("r", None, {"dtype": "i4"}, "5 bytes, which is no multiple of the 4"),
            ("r", None, {"dtype": "O"}, "cannot be stored"),
            ("r", "f", {"dtype": [("f", "S0"), ("g", "i1")]}, "keys have no bytes"),
            ("r", "f", {"dtype": [("f", "c8")]}, "has no order"),
            ("r", "g", {"dtype": [("f", "i1")]}, "no field 'g'"),
            ("r", None, {"dtype": "i1", "lines": True}, "lines is for lines and rows"),
            ("r", None, {"dtype": "foo"}, "foo"),
            ("r", None, {"dtype": "S40000"}, "a record of 80004 bytes"),
            ("u", None, {"dtype": "U1", "partitions": 2}, "no code point"),
            (["h0.csv", "h1.csv"], "#1", {"ragged": True}, "h1.csv has the columns x, y"),
            ("a.csv", "id", {"patience": 0}, "patience=0: give seconds above 0"),
            ("a.csv", "id", {"timeout": float("nan")}, "timeout=nan: give"),
            ("a.csv", "id", {"delimiter": ""}, "--delimiter : name one"),
            ([], "id", {}, "name one input"),
            ("a.csv", "id", {"memory": "much"}, "64M"),
            ("a.csv", "id", {"memory": "0M"}, "64M"),
            ("a.csv", "id", {"temp_dir": "-none"}, "-none/tvsort-cluster.*: No such file"),
            ("a.csv", "id", {"storage": "tape"}, "shared"),
            ("a.csv", "id", {"timeout": 1e-9}, "time that was given"),
            ("bad.csv", "id:int", {}, r'bad.csv, line 3, column id: "y" is no integer'),
            ("a.csv", "id", {"output": "full"}, "not an empty folder"),
            ("a.csv", "id", {"output": "r"}, "not an empty folder"),
            ("a.csv", "id", {"output": "none/out"}, "No such file")]:
        output = options.pop("output", "out")
        with pytest.raises(cluster.ClusterError, match=words):
            cluster.sort(inputs, output, order, client=client, **options)
        assert not Path("out").exists() and os.listdir("full") == ["thing"]
    with pytest.raises(TypeError, match="no option 'limit'"):
        cluster.sort("a.csv", "out", "id", client=client, limit=3)


def script_before_command(folder, text):
    script = folder / "command"
    script.write_text(f'#!/bin/sh\ncd "{folder}"\n{text}\nexec "{_command.program()}" "$@"\n')
    script.chmod(0o755)
    return str(script)


@pytest.mark.parametrize("deaths, is_enough", [(2, True), (9, False)])
def test_a_command_that_is_killed_is_started_again(deaths, is_enough, client, tmp_path, monkeypatch):
    monkeypatch.setenv("TVSORT_HOST", script_before_command(
        tmp_path, f'[ $1 != split ] || [ $(ls dead.* 2>/dev/null | wc -l) -ge {deaths} ] || '
        "{ mktemp dead.XXXXXX; kill -9 $$; }"))
    (tmp_path / "in").write_text("b\na\n")
    if is_enough:
        cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True)
        assert (tmp_path / "out" / "part-00000").read_text() == "a\nb\n"
    else:
        with pytest.raises(cluster.ClusterError, match="ended by signal 9"):
            cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True)
        assert not (tmp_path / "out").exists()


@pytest.mark.parametrize("change", ["echo zz >>in", "touch in", "echo 'b\nc' >in"])
def test_an_input_that_is_changed_meanwhile_ends_the_run(change, client, tmp_path, monkeypatch):
    monkeypatch.setenv("TVSORT_HOST", script_before_command(tmp_path, f"[ $1 != split ] || {change}"))
    (tmp_path / "in").write_text("b\na\n")
    with pytest.raises(cluster.ClusterError, match="in was changed while it was sorted"):
        cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True)
    assert not (tmp_path / "out").exists()


@pytest.mark.parametrize("storage", ["shared", "moved"])
def test_an_output_that_another_run_has_just_taken_is_left_to_it(storage, client, tmp_path,
                                                                monkeypatch):
    (tmp_path / "in").write_text("b\na\n")
    theirs = tmp_path / "out" / "part-00000"
    real = _tasks.make_folder

    def make_folder(place):
        real(place)
        theirs.write_text("theirs")

    monkeypatch.setattr(_tasks, "make_folder", make_folder)
    with pytest.raises(cluster.ClusterError, match="is not empty, it has part-00000"):
        cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True, storage=storage)
    assert theirs.read_text() == "theirs" and os.listdir(tmp_path / "out") == ["part-00000"]


def test_a_task_that_fails_leaves_no_half_file(tmp_path):
    numpy.arange(5, dtype="i4").tofile(tmp_path / "in")
    form = _records.RecordForm(numpy.dtype("i4"), (), "1000000")
    with pytest.raises(tvsort.SortError, match="run has ended"):
        form.split(tmp_path / "in", [], str(tmp_path / "p"), tmp_path, lambda: False)
    with pytest.raises(FileNotFoundError):
        with _files.named_when_whole([str(tmp_path / "joined")]) as (out,):
            _tasks._join([tmp_path / "in", tmp_path / "gone"], out)
    assert os.listdir(tmp_path) == ["in"]


def test_without_rows_the_result_is_that_of_one_process(client, tmp_path):
    for name in "ab":
        (tmp_path / name).write_text("n,t\r\n", newline="")
        (tmp_path / f"{name}.i4").write_bytes(b"")
    for storage in ("shared", "moved"):
        manifest = cluster.sort([tmp_path / "a", tmp_path / "b"], tmp_path / storage, "n:int",
                                client=client, format="csv", partitions=1000, storage=storage)
        assert (contents(manifest), manifest.rows) == (b"n,t\r\n", 0)
    manifest = cluster.sort([tmp_path / "a.i4", tmp_path / "b.i4"], tmp_path / "i4", client=client,
                            dtype="i4", partitions=5)
    assert contents(manifest) == b"" and cluster.verify(tmp_path / "i4").rows == 0


def test_a_range_has_thousands_of_pieces(tmp_path):
    names = [str(tmp_path / f"{i}") for i in range(3000)]
    for i, name in enumerate(names):
        Path(name).write_text(f"{i * 7919 % 3000}\n{i % 2}\n")
    form = _text.TextForm(("--format=csv",), ("n:int",), "64M", format="csv", keys_by_number=("1:int",))
    with open(tmp_path / "out", "wb") as out:
        form.sort(names, out, lambda: True)
    numbers = [int(line) for line in (tmp_path / "out").read_text().splitlines()]
    assert numbers == sorted([*range(3000), *[0, 1] * 1500])


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interrupt_ends_the_tasks_and_leaves_nothing(number, tmp_path):
    environment = {**os.environ, "TVSORT_HOST": script_before_command(
        tmp_path, "[ $1 != sort ] || { echo $$ >begun; sleep 60; }")}
    (tmp_path / "in").write_text("b\na\n")
    child = subprocess.Popen([sys.executable, "-m", "tvsort.cluster", "sort", "in", "--lines",
                              "--workers", "1", "-o", "out"], cwd=tmp_path, env=environment,
                             stderr=subprocess.PIPE, text=True)
    end = time.monotonic() + 60
    while not (tmp_path / "begun").exists() and time.monotonic() < end:
        time.sleep(0.02)
    begin = time.monotonic()
    for _ in range(10):  # whoever is impatient
        child.send_signal(number)
        time.sleep(0.05)
    said = child.communicate(timeout=60)[1]
    assert (child.returncode, time.monotonic() - begin < 30) == (128 + number, True), said
    assert not (tmp_path / "out").exists()
    command = int((tmp_path / "begun").read_text())
    while os.path.exists(f"/proc/{command}") and time.monotonic() < end:
        time.sleep(0.05)
    assert not os.path.exists(f"/proc/{command}")


def test_a_manifest_tells_every_change(client, tmp_path):
    (tmp_path / "in").write_text("".join(f"{i % 97}\n" for i in range(5000)))
    out = tmp_path / "out"
    manifest = cluster.sort(tmp_path / "in", out, client=client, lines=True, partitions=4)
    assert cluster.verify(out, client).parts == manifest.parts
    part = Path(manifest.paths[1])
    good = part.read_bytes()

    def damaged(words):
        with pytest.raises(cluster.Damaged, match=words):
            cluster.verify(out)

    part.write_bytes(good[:-1])
    damaged("bytes instead of")
    part.write_bytes(bytes([good[0] ^ 1]) + good[1:])
    damaged("another checksum")
    part.rename(out / "part-99999")
    damaged("No such file.*part-99999 is no part")
    (out / "part-99999").rename(part)
    part.write_bytes(good)
    content = json.loads((out / "manifest.json").read_text())
    content["parts"][0]["rows"] += 1
    (out / "manifest.json").write_text(json.dumps(content))
    damaged("rows")
    moved = json.loads((out / "manifest.json").read_text())
    moved["storage"], moved["parts"][0]["worker"] = "moved", "tcp://192.0.2.9:9"
    (out / "manifest.json").write_text(json.dumps(moved))
    with pytest.raises(cluster.ClusterError, match="no worker on 192.0.2.9"):
        cluster.verify(out, client, patience=0.5)
    (out / "manifest.json").write_text(json.dumps({**content, "parts": content["parts"][::-1]}))
    damaged("part 0 is called part-00003")
    del content["parts"][0]["name"]
    wrong = json.dumps({**content, "parts": [{**content["parts"][1], "rows": "7"}]})
    odd = json.dumps({**content, "parts": [], "rows": 2.0})
    for text in ("{", "[]", "7", "[" * 10 ** 5, wrong, odd, json.dumps(content)):
        (out / "manifest.json").write_text(text)
        damaged("no manifest")
    (out / "manifest.json").unlink()
    damaged("missing")
    (out / "manifest.json").mkdir()
    damaged("Is a directory")


def test_the_client_need_not_be_the_one_that_dask_takes(client, tmp_path):
    (tmp_path / "in").write_text("b\na\n")
    with distributed.Client(client.scheduler.address, set_as_default=False) as other:
        for storage in ("shared", "moved"):
            cluster.sort(tmp_path / "in", tmp_path / storage, client=other, lines=True,
                         storage=storage)
            assert cluster.verify(tmp_path / storage, other).rows == 2


def test_a_host_without_the_run_loses_nothing(tmp_path):
    place = _tasks.Place("run", str(tmp_path / "out" / ".tvsort-run"), True, str(tmp_path))
    (tmp_path / "out").mkdir()
    (tmp_path / "out" / "part-00000").write_text("theirs")
    _tasks.remove(place, str(tmp_path / "out"), ["part-00000"])
    assert (tmp_path / "out" / "part-00000").read_text() == "theirs"
    with pytest.raises(OSError, match="No space left.*name"):
        with _files.named_when_whole([str(tmp_path / "name")]) as (file,):
            with open("/dev/full", "wb") as full:
                os.dup2(full.fileno(), file.fileno())
            file.write(b"x")
    assert not list(tmp_path.glob("name*"))


def test_a_loop_that_hangs_ends_the_run(client, tmp_path, monkeypatch):
    for name in ("_LOOK_SECONDS", "_ANSWER_SECONDS"):
        monkeypatch.setattr(_engine, name, 0.2)
    (tmp_path / "in").write_text("b\na\n")
    real = _run._Sort.split_all

    def split_all(self, tasks):
        client.loop.add_callback(time.sleep, 4)
        return real(self, tasks)

    monkeypatch.setattr(_run._Sort, "split_all", split_all)
    with pytest.raises(cluster.ClusterError, match="has not answered for 0.5 seconds"):
        cluster.sort(tmp_path / "in", tmp_path / "out", client=client, lines=True, patience=0.5)
    assert not (tmp_path / "out").exists()


def test_what_has_failed_is_tried_on_another_host():
    tasks = _engine.Tasks(None, None, 0)
    tasks.known = ("tcp://a:1", "tcp://a:2", "tcp://b:1")
    for failed, others in [((), []), (("tcp://a:1",), ["tcp://b:1"]),
                           (("tcp://a:1", "tcp://b:1"), ["tcp://a:2"])]:
        assert tasks.others_than(failed) == others


def test_splitters_divide_by_weight():
    class Form:
        successor = staticmethod(_text.TextForm.successor)

    even = [(bytes([i]), 1.0) for i in range(1, 101)]
    assert _ranges.splitters_of(even, 4, Form) == [bytes([i]) for i in (25, 50, 75)]
    assert _ranges.splitters_of(even, 1, Form) == [] == _ranges.splitters_of([], 4, Form)
    heavy = even + [(b"\x32", 900.0)]
    assert _ranges.splitters_of(heavy, 4, Form) == [b"\x32", b"\x32\x00"]
    assert _ranges.is_one_key(b"\x32", b"\x32\x00", Form)
    assert not _ranges.is_one_key(None, b"\x00", Form)


def test_the_command_line(tmp_path):
    (tmp_path / "in.csv").write_text("n,t\n2,b\nx,c\n1,a\n")

    def run(*words):
        done = subprocess.run(["/usr/bin/python3", "-m", "tvsort.cluster", *words], cwd=tmp_path,
                              capture_output=True, text=True, timeout=100)
        return done.returncode, done.stdout + done.stderr

    status, said = run("sort", "in.csv", "--workers", "1", "-o", "out", "--key", "n:int:desc",
                       "--on-error", "skip")
    assert status == 3 and "in.csv, line 3, column n" in said and "1 row skipped" in said
    assert (tmp_path / "out" / "part-00000").read_text() == "n,t\n2,b\n1,a\n"
    assert run("verify", "out")[0] == 0
    (tmp_path / "out" / "part-00000").write_text("")
    assert run("verify", "out")[0] == 1
    status, said = run("sort", "in.csv", "--scheduler", "tcp://127.0.0.1:1", "--patience", "1",
                       "-o", "new", "--key", "n")
    assert (status, "no scheduler answers" in said) == (2, True) and not (tmp_path / "new").exists()
    for words, wrong in [(("--scheduler", ""), "no scheduler answers"), (("--workers", "0"), "--workers"),
                         (("--workers", "1", "--patience", "nan"), "patience=nan"),
                         (("--workers", "1", "--dtype", ""), "dtype=''")]:
        status, said = run("sort", "in.csv", "-o", "new", "--key", "n", *words)
        assert (status, wrong in said) == (2, True) and not (tmp_path / "new").exists(), said
    status, said = run("demo", "--rows", "4000")
    assert status == 0 and "byte by byte" in said, said
