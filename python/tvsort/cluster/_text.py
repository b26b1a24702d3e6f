"""Lines and rows: by the command, with its words."""

import dataclasses
import os

from . import _command
from ._shares import WHOLE

# Words that a sort by ranges has in common with `tvsort-host sort`, as options of sort().
FLAGS = {"lines": "--lines", "no_header": "--no-header", "ragged": "--ragged",
         "reverse": "--reverse", "zero_terminated": "--zero-terminated"}
VALUES = {"format": "--format", "as_": "--as", "delimiter": "--delimiter", "null": "--null",
          "on_error": "--on-error"}

_COLUMNS_MAX = 65535  # where each row may have its own number of them

# The key of a malformed row, which --on-error=last puts behind all that can be read.
_MALFORMED = b"\x04\x00"


@dataclasses.dataclass(frozen=True)
class TextForm:
    """How inputs are read and ordered. Sent to the workers with each task."""

    words: tuple  # of the command, without keys
    keys: tuple
    memory: str
    temp_dir: str = ""
    # Known when the inputs have been sampled.
    format: str = ""
    line_end: str = ""
    keys_by_number: tuple = ()
    columns: int = 0  # of rows without a header, where unreadable ones are kept or left out
    head: bytes = b""  # before all rows: a byte order mark, a header
    joins_one_key = True  # a range of one key needs no sort

    @property
    def has_header(self):
        return self.format in ("csv", "tsv") and "--no-header" not in self.words

    def _words(self, is_piece):
        """For an input, or for a piece, which has rows and nothing else, whatever they begin with."""
        words = list(self.words)
        keys = self.keys
        if self.format not in ("", "lines") and not any(one.startswith("--format=") for one in words):
            words += ["--format", self.format]
        if is_piece:
            words.append("--plain")
        elif self.columns:
            words.append(f"--columns={self.columns}")
        if is_piece and self.has_header:
            words.append("--no-header")
            keys = self.keys_by_number
        return words + [f"--key={key}" for key in keys]

    def _resources(self):
        return ["--memory", self.memory] + (
            [f"--temp-dir={self.temp_dir}"] if self.temp_dir else [])

    @property
    def stops(self):
        """At the first row that cannot be read."""
        return not {"--on-error=skip", "--on-error=last"} & set(self.words)

    @property
    def awaits_rows(self):
        """Without a header, the first row of all inputs says how many fields the others should have; a
        first row of a later one is unreadable where it has not so many."""
        return "--no-header" in self.words and not self.stops and not self.columns

    def taught(self, sample):
        """The form with the columns of an input, if it has rows."""
        if sample["bytes"] == 0:
            return self
        return dataclasses.replace(self, columns=sample["column_count"] or _COLUMNS_MAX)

    def sample(self, path, count, alive, is_piece=False, share=WHOLE):
        words = share.words() if share != WHOLE else []
        return _command.run_json(["sample", *self._words(is_piece), *self._resources(), "--samples",
                                  str(count), *words, "--", path], alive)

    def learn(self, names, samples):
        """The form with what the samples say; ValueError where the inputs do not fit one another."""
        # Without header and rows an input says nothing about columns.
        tells = [bool(sample["columns"] or sample["bytes"]) for sample in samples]
        like = tells.index(True) if any(tells) else 0
        first = samples[like]
        for i, sample in enumerate(samples):
            if sample["format"] != first["format"]:
                raise ValueError(f"{names[i]} is taken for {sample['format']} and {names[like]} for "
                                 f"{first['format']}; say which with --format")
            if tells[i] and [sample[name] for name in ("columns", "column_count")] != [
                    first[name] for name in ("columns", "column_count")]:
                raise ValueError(f"{names[i]} has the columns {_shown(sample)} and {names[like]} "
                                 f"has {_shown(first)}; sort files of one kind")
        ends = {b"\n": "lf", b"\r\n": "crlf"}
        heads = [sample["head"] for sample in samples if sample["head"] or sample["bytes"] > 0]
        return dataclasses.replace(
            self, format=first["format"], keys_by_number=tuple(first["keys_by_number"]),
            line_end=ends.get(bytes.fromhex(first["line_end"]), ""),
            head=bytes.fromhex(heads[0]) if heads else b"")

    def fixed_splitters(self):
        """Malformed rows go to a range of their own: they may stand nowhere else, for what follows
        one could be taken for a part of it."""
        keeps = "--on-error=last" in self.words
        return [_MALFORMED, self.successor(_MALFORMED)] if keeps and self.format in (
            "csv", "tsv") else []

    @staticmethod
    def successor(key):
        """The least key above this one."""
        return key + b"\x00"

    def split(self, path, splitters, prefix, folder, alive, is_piece=False, share=WHOLE):
        """What the command reports."""
        borders = os.path.join(folder, "splitters")
        with open(borders, "w") as file:
            file.writelines(key.hex() + "\n" for key in splitters)
        words = ["split", *self._words(is_piece), *self._resources(), "--splitters", borders, "-o",
                 prefix, *share.words()]
        if share.begin > 0 and self.stops:
            # What cannot be read may be none of the rows, until the share is known to begin right.
            words = [word for word in words if word != "--on-error=stop"] + ["--on-error=skip"]
        if self.line_end and self.format in ("csv", "tsv"):
            words += ["--line-end", self.line_end]
        return _command.run_json([*words, "--", path], alive)

    def complaint(self, problem, lines_before):
        """About a row that could not be read, as the command has it."""
        before, line, behind = problem
        words = f"{before}{lines_before + line}{behind}"
        if self.stops:
            return f"{words}; correct it, or leave such rows out with --on-error=skip"
        return ("unreadable: " if "--on-error=last" in self.words else "skipped: ") + words

    def sort(self, paths, out, alive):
        _command.run(["sort", *self._words(True), *self._resources(), "--processes", "1", "--", *paths],
                     alive, out)


def _shown(sample):
    names = [bytes.fromhex(name).decode(errors="replace") for name in sample["columns"]]
    return ", ".join(names) if names else f"1 to {sample['column_count']}"
