"""The examples of the documentation, run as they stand."""

import ast
import doctest
import functools
import inspect
import re
import subprocess
import sys
from pathlib import Path

import pytest

import tvsort
from tvsort import _rows

PROJECT = Path(__file__).resolve().parents[2]


@pytest.mark.parametrize("page, examples_min", [("docs/python.md", 25), ("README.md", 5),
                                                ("docs/cluster.md", 8)])
def test_examples_do_what_the_pages_show(page, examples_min, tmp_path, monkeypatch):
    if page == "docs/cluster.md":
        pytest.importorskip("distributed")
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"```python\n(.*?)```", (PROJECT / page).read_text(), re.DOTALL)
    test = doctest.DocTestParser().get_doctest("".join(blocks), {}, page, page, 0)
    assert len(test.examples) >= examples_min
    report = []
    results = doctest.DocTestRunner().run(test, out=report.append)
    assert results.failed == 0, "".join(report)


def test_stubs_declare_what_the_package_has():
    stub = ast.parse((PROJECT / "python" / "tvsort" / "__init__.pyi").read_text()).body
    functions = {node.name: node for node in stub if isinstance(node, ast.FunctionDef)}
    classes = {node.name for node in stub if isinstance(node, ast.ClassDef)}
    assert functions.keys() | classes == set(tvsort.__all__)
    common = {name for name, parameter in inspect.signature(_rows.Rows).parameters.items()
              if parameter.kind is parameter.KEYWORD_ONLY}
    for name, function in functions.items():
        has = inspect.signature(getattr(tvsort, name)).parameters
        takes = set(has) - {"options"} | (common if "options" in has else set())
        declared = function.args
        assert {one.arg for one in declared.args + declared.kwonlyargs} == takes, name


def test_the_benchmark_of_the_cluster_runs_and_its_costs_are_those_of_the_page():
    pytest.importorskip("distributed")
    run = functools.partial(subprocess.run, capture_output=True, text=True, timeout=100, check=True)
    output = run([sys.executable, PROJECT / "python" / "cluster_benchmark.py", "--small"]).stdout
    assert output.count("worker") == 7
    cost = run([sys.executable, PROJECT / "python" / "cluster_cost.py"]).stdout
    assert cost.partition("\n")[2] in (PROJECT / "docs" / "cluster.md").read_text()


def test_the_benchmark_runs_and_its_results_are_in_order():
    output = subprocess.run([sys.executable, PROJECT / "python" / "benchmark.py", "--small"],
                            capture_output=True, text=True, timeout=100, check=True).stdout
    assert len(output.splitlines()) == 8 and "tvsort" in output
