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

# What a file of text begins with is taken for a mark of its encoding, or of its compression.
_FILE_MARKS = (b"\x1f\x8b\x08", b"\x28\xb5\x2f\xfd", b"\xff\xfe", b"\xfe\xff")
_BYTE_ORDER_MARK = b"\xef\xbb\xbf"

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

    @property
    def has_header(self):
        return self.format in ("csv", "tsv") and "--no-header" not in self.words

    def _words(self, first=True):
        """With the header, as the inputs and the first range have it, or without."""
        words = list(self.words)
        keys = self.keys
        if self.format not in ("", "lines") and not any(one.startswith("--format=") for one in words):
            words += ["--format", self.format]
        if not first and self.has_header:
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

    def sample(self, path, count, alive, first=True, share=WHOLE):
        words = share.words() if share != WHOLE else []
        return _command.run_json(["sample", *self._words(first), *self._resources(), "--samples",
                                  str(count), *words, "--", path], alive)

    def learn(self, names, samples):
        """The form with what the samples say; ValueError where the inputs do not fit one another."""
        is_ragged = "--ragged" in self.words
        like = 0
        for i, sample in enumerate(samples):
            first = samples[like]
            if first["column_count"] is None and not (is_ragged and first["bytes"] > 0):
                like = i  # one without rows says nothing
                first = sample
            if sample["head_bytes"] > 0 and "--no-header" in self.words:
                raise ValueError(f"{names[i]} begins with a byte order mark, and has no header to stay "
                                 "with; take the mark away")
            if sample["format"] != first["format"]:
                raise ValueError(f"{names[i]} is taken for {sample['format']} and {names[like]} for "
                                 f"{first['format']}; say which with --format")
            if sample["columns"] != first["columns"] or (
                    None not in (sample["column_count"], first["column_count"])
                    and sample["column_count"] != first["column_count"]):
                raise ValueError(f"{names[i]} has the columns {_shown(sample)} and {names[like]} "
                                 f"has {_shown(first)}; sort files of one kind")
        first = samples[like]
        ends = {b"\n": "lf", b"\r\n": "crlf"}
        return dataclasses.replace(
            self, format=first["format"], keys_by_number=tuple(first["keys_by_number"]),
            line_end=ends.get(bytes.fromhex(first["line_end"]), ""))

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

    def split(self, path, splitters, prefix, folder, alive, first=True, share=WHOLE):
        """What the command reports."""
        borders = os.path.join(folder, "splitters")
        with open(borders, "w") as file:
            file.writelines(key.hex() + "\n" for key in splitters)
        words = ["split", *self._words(first), *self._resources(), "--splitters", borders, "-o",
                 prefix, *share.words()]
        if share.begin > 0 and self.stops:
            # What cannot be read may be none of the rows, until the share is known to begin right.
            words = [word for word in words if word != "--on-error=stop"] + ["--on-error=skip"]
        if self.line_end and self.format in ("csv", "tsv"):
            words += ["--line-end", self.line_end]
        report = _command.run_json([*words, "--", path], alive)
        self._check_begins(path, [f"{prefix}{i:05}" for i in range(len(report["pieces"]))], first)
        return report

    def _check_begins(self, path, pieces, first):
        """Refuses rows that at the start of a piece would be no row any more."""
        marks = _FILE_MARKS + (_BYTE_ORDER_MARK,) * (self.format in ("csv", "tsv"))
        for i, piece in enumerate(pieces):
            with open(piece, "rb") as file:
                begin = file.read(4)
            if begin.startswith(marks) and not (first and i == 0 and self.has_header):
                raise ValueError(f"{path} has a row that begins as an encoded or compressed file does, "
                                 f"with the bytes {begin.hex()}; sort it on one machine")

    def complaint(self, problem, lines_before):
        """About a row that could not be read, as the command has it."""
        before, line, behind = problem
        words = f"{before}{lines_before + line}{behind}"
        if self.stops:
            return f"{words}; correct it, or leave such rows out with --on-error=skip"
        return ("unreadable: " if "--on-error=last" in self.words else "skipped: ") + words

    def sort(self, paths, out, alive, first):
        _command.run(["sort", *self._words(first), *self._resources(), "--processes", "1", "-o", out,
                      "--", *paths], alive)

    def head_bytes(self, path):
        """Of a file of the first range, what stands before its rows."""
        if not self.has_header:
            return 0
        sample = self.sample(path, 0, lambda: True)
        return os.path.getsize(path) - sample["bytes"]


def _shown(sample):
    names = [bytes.fromhex(name).decode(errors="replace") for name in sample["columns"]]
    return ", ".join(names) if names else f"1 to {sample['column_count']}"
