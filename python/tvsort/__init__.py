"""Sorts numpy's structured arrays, files of records and pandas' frames by the tvsort process.

    tvsort.sort(trades, order=[Key("price", descending=True), "time"])

Every sort is stable and exact. docs/python.md shows the rest.
"""

from ._arrays import argsort, except_, intersect, sort, top, unique
from ._errors import (BadUse, Cancelled, NoMemory, ProcessAnswered, ProcessDied, ProtocolBroken,
                      SortError, SystemFailure, TimedOut, UnsortableType)
from ._frames import sort_frame
from ._keys import Key
from ._servers import close
from ._streams import sort_arrays, sort_file

__all__ = ["BadUse", "Cancelled", "Key", "NoMemory", "ProcessAnswered", "ProcessDied",
           "ProtocolBroken", "SortError", "SystemFailure", "TimedOut", "UnsortableType", "argsort",
           "close", "except_", "intersect", "sort", "sort_arrays", "sort_file", "sort_frame", "top",
           "unique"]
__version__ = "0.1.0"

# What is raised goes by the name under which it is caught.
for _name in __all__:
    globals()[_name].__module__ = __name__
del _name
