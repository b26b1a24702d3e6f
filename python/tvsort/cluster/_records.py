"""Files of records of a numpy type: by the package, in the worker's own process."""

import dataclasses
import os

import numpy

from .. import _keys, _streams
from .._errors import BadUse
from ._command import ENDED
from ._files import allow_files, named_when_whole
from ._shares import WHOLE

_PIECE_BYTES = 4 << 20
_SAMPLE_KEY_BYTES_MAX = 1024  # ranges between cut keys are ranges as well


def key_bytes(rows, columns):
    """For each row, bytes whose plain order is that of its keys."""
    raw = rows.view(numpy.uint8).reshape(len(rows), rows.dtype.itemsize)
    return numpy.concatenate([_column_bytes(raw, column) for column in columns], axis=1)


def _column_bytes(raw, column):
    count = column.value_bytes
    values = numpy.ascontiguousarray(raw[:, column.offset:column.offset + count])
    if count == 0:
        return values
    unit = {_keys.BYTES: 1, _keys.UCS4: 4}.get(column.type, count)
    if unit > 1 and not column.flags & _keys.BIG_ENDIAN:
        values = values.reshape(-1, unit)[:, ::-1].reshape(-1, count)
    values = values.copy()
    nulls = None
    if column.type == _keys.SIGNED:
        values[:, 0] ^= 0x80
    elif column.type == _keys.TIME:
        nulls = (values[:, 0] == 0x80) & ~values[:, 1:].any(axis=1)
        values[:, 0] ^= 0x80
    elif column.type == _keys.FLOAT:
        numbers = values.view(f">f{count}")[:, 0]
        nulls = numpy.isnan(numbers)
        values[numbers == 0] = 0  # -0 is 0
        negative = values[:, 0] >= 0x80
        values[negative] ^= 0xff
        values[~negative, 0] ^= 0x80
    if column.flags & _keys.DESCENDING:
        values ^= 0xff
    if nulls is None:
        return values
    values[nulls] = 0
    marks = numpy.where(nulls, 0 if column.flags & _keys.NULLS_FIRST else 2, 1)
    return numpy.concatenate([marks.astype(numpy.uint8)[:, None], values], axis=1)


@dataclasses.dataclass(frozen=True)
class RecordForm:
    """Takes what TextForm takes."""

    dtype: numpy.dtype
    order: tuple
    memory: str
    temp_dir: str = ""
    head = b""  # before all rows
    joins_one_key = False  # the sort also looks for values that have no order
    awaits_rows = False  # to know how inputs are read
    stops = True  # at what cannot be read, of which there is nothing

    @property
    def columns(self):
        return _keys.columns_of(self.dtype, list(self.order) or None)

    def _pieces(self, path, share=WHOLE):
        with open(path, "rb", buffering=0) as file:
            size = os.fstat(file.fileno()).st_size
            self._check_size(path, size)
            rows = max(1, _PIECE_BYTES // self.dtype.itemsize)
            begin, end = self._rows_of(share, size)
            file.seek(begin)
            size = end - begin
            while size > 0:
                piece = numpy.empty(min(rows, size // self.dtype.itemsize), self.dtype)
                _streams._fill(file, memoryview(piece.view(numpy.uint8)), path)
                size -= piece.nbytes
                yield piece

    def _rows_of(self, share, size):
        """Bytes where the share's rows begin and end."""
        row = self.dtype.itemsize
        return [min(size, -(-at // row) * row)
                for at in (share.begin, size if share.end is None else share.end)]

    def _check_size(self, path, size):
        if size % self.dtype.itemsize != 0:
            raise BadUse(f"{path} has {size} bytes, which is no multiple of the "
                         f"{self.dtype.itemsize} bytes of a row")

    def sample(self, path, count, alive, is_piece=False, share=WHOLE):
        size = os.path.getsize(path)
        self._check_size(path, size)
        begin, end = (at // self.dtype.itemsize for at in self._rows_of(share, size))
        count = min(end - begin, count)
        rows = numpy.empty(count, self.dtype)
        with open(path, "rb", buffering=0) as file:
            for i in range(count):
                file.seek((begin + (end - begin) * i // count) * self.dtype.itemsize)
                _streams._fill(file, memoryview(rows[i:i + 1].view(numpy.uint8)), path)
        keys = key_bytes(rows, self.columns) if count else ()
        return {"bytes": size, "head_bytes": 0, "packed": False,
                "samples": [key[:_SAMPLE_KEY_BYTES_MAX].tobytes().hex() for key in keys]}

    def learn(self, names, samples):
        return self

    @staticmethod
    def fixed_splitters():
        return []

    def successor(self, key):
        """None where there is none, or many keys begin so."""
        whole = key_bytes(numpy.zeros(1, self.dtype), self.columns).shape[1]
        following = int.from_bytes(key, "big") + 1
        if len(key) < whole or following >= 256 ** len(key):
            return None
        return following.to_bytes(len(key), "big")

    def split(self, path, splitters, prefix, folder, alive, is_piece=False, share=WHOLE):
        columns = self.columns
        borders = numpy.array(splitters, dtype=f"S{max(map(len, splitters), default=1)}")
        names = [f"{prefix}{i:05}" for i in range(len(splitters) + 1)]
        rows = numpy.zeros(len(names), numpy.int64)
        allow_files()
        with named_when_whole(names) as files:
            for piece in self._pieces(path, share):
                keys = key_bytes(piece, columns)
                keys = keys.view(f"S{keys.shape[1]}")[:, 0]
                ranges = numpy.searchsorted(borders, keys, side="right")
                order = numpy.argsort(ranges, kind="stable")
                counts = numpy.bincount(ranges, minlength=len(names))
                ends = numpy.cumsum(counts)
                # Field by field numpy would leave out what lies between them.
                raw = piece.view(numpy.uint8).reshape(len(piece), -1)
                for i in numpy.flatnonzero(counts):
                    files[i].write(raw[order[ends[i] - counts[i]:ends[i]]])
                rows += counts
                if not alive():
                    raise BadUse(ENDED)
        begin, end = self._rows_of(share, os.path.getsize(path))
        return {"pieces": [{"rows": int(n), "bytes": int(n) * self.dtype.itemsize} for n in rows],
                "skipped": 0, "problems": [], "begin": begin, "end": end, "lines": 0}

    def sort(self, paths, out, alive):
        def watch(stage, done, total):
            if not alive():
                raise BadUse(ENDED)

        options = {"directory": self.temp_dir} if self.temp_dir else {}
        pieces = (piece for path in paths for piece in self._pieces(path))
        for rows in _streams.sort_arrays(pieces, list(self.order) or None, memory=self.memory,
                                         progress=watch, processes=1, **options):
            out.write(rows.view(numpy.uint8))
