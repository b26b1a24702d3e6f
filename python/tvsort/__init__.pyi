from collections.abc import Callable, Iterable, Iterator, Sequence
from os import PathLike
from typing import Any, Literal, TypeVar

import numpy
import numpy.typing
import pandas

_Order = str | Key | Sequence[str | Key] | None
_Progress = Callable[[Literal["put", "sort", "get"], int, int | None], object]
_Path = str | PathLike[str]
_Rows = numpy.ndarray[Any, Any]

__version__: str

class Key:
    name: str | None
    descending: bool
    nulls: Literal["first", "last"]
    def __init__(self, name: str | None = None, descending: bool = False,
                 nulls: Literal["first", "last"] = "last") -> None: ...

class SortError(Exception):
    answer_code: int
    system_error: int

class BadUse(SortError, ValueError): ...
class UnsortableType(BadUse, TypeError): ...
class SystemFailure(SortError, OSError): ...
class ProcessDied(SortError): ...
class TimedOut(SortError, TimeoutError): ...
class ProcessAnswered(SortError): ...
class ProtocolBroken(SortError): ...
class Cancelled(SortError): ...
class NoMemory(SortError, MemoryError): ...

def argsort(array: numpy.typing.ArrayLike, order: _Order = None, *, memory: int | str = "1G",
            processes: int | None = None, progress: _Progress | None = None,
            directory: _Path | None = None,
            timeout: float | None = None) -> numpy.typing.NDArray[numpy.int64]: ...
def sort(array: numpy.typing.ArrayLike, order: _Order = None, *, memory: int | str = "1G",
         processes: int | None = None, out: _Rows | None = None,
         progress: _Progress | None = None, directory: _Path | None = None,
         timeout: float | None = None) -> _Rows: ...
def unique(array: numpy.typing.ArrayLike, order: _Order = None, *, memory: int | str = "1G",
           processes: int | None = None, progress: _Progress | None = None,
           directory: _Path | None = None, timeout: float | None = None) -> _Rows: ...
def intersect(first: numpy.typing.ArrayLike, second: numpy.typing.ArrayLike,
              order: _Order = None, *, memory: int | str = "1G", processes: int | None = None,
              progress: _Progress | None = None, directory: _Path | None = None,
              timeout: float | None = None) -> _Rows: ...
def except_(first: numpy.typing.ArrayLike, second: numpy.typing.ArrayLike,
            order: _Order = None, *, memory: int | str = "1G", processes: int | None = None,
            progress: _Progress | None = None, directory: _Path | None = None,
            timeout: float | None = None) -> _Rows: ...
def top(array: numpy.typing.ArrayLike, n: int, order: _Order = None, *,
        memory: int | str = "1G", processes: int | None = None,
        progress: _Progress | None = None, directory: _Path | None = None,
        timeout: float | None = None) -> _Rows: ...
def sort_arrays(arrays: Iterable[numpy.typing.ArrayLike], order: _Order = None, *,
                rows: int | None = None, memory: int | str = "1G", processes: int | None = None,
                progress: _Progress | None = None, directory: _Path | None = None,
                timeout: float | None = None) -> Iterator[_Rows]: ...
def sort_file(path: _Path, dtype: numpy.typing.DTypeLike, order: _Order = None,
              out: _Path | None = None, *, memory: int | str = "1G",
              processes: int | None = None, progress: _Progress | None = None,
              directory: _Path | None = None, timeout: float | None = None) -> int: ...
def sort_frame(frame: pandas.DataFrame, by: str | Key | Sequence[str | Key],
               ascending: bool | Sequence[bool] = True,
               na_position: Literal["first", "last"] = "last", *, memory: int | str = "1G",
               processes: int | None = None, progress: _Progress | None = None,
               directory: _Path | None = None,
               timeout: float | None = None) -> pandas.DataFrame: ...
def close() -> None: ...
