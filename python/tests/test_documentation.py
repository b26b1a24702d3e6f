"""The examples of docs/python.md, run as they stand."""

import doctest
from pathlib import Path

PAGE = Path(__file__).resolve().parents[2] / "docs" / "python.md"


def test_examples_do_what_the_page_shows(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    text = PAGE.read_text().replace("```python\n", "").replace("```\n", "")
    examples = doctest.DocTestParser().get_doctest(text, {}, "python.md", str(PAGE), 0)
    assert text.count("\n## ") >= 11 and len(examples.examples) > 25
    report = []
    results = doctest.DocTestRunner().run(examples, out=report.append)
    assert results.failed == 0, "".join(report)
