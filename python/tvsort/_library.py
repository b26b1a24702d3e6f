"""The C interface, loaded when it is first needed.

Its declarations are those of tvsort.h itself, so there is nothing that could differ from it. cffi
lets go of the interpreter's lock for as long as a call takes.
"""

import os
import re
import threading
from pathlib import Path

import cffi

from . import _errors

_HERE = Path(__file__).resolve().parent
_NAME = "libtvsort.so.0"

ffi = cffi.FFI()


def _declarations():
    """What tvsort.h declares, without what only a compiler understands."""
    for folder in (_HERE / "_native", _HERE.parent.parent / "include"):
        header = folder / "tvsort.h"
        if header.exists():
            break
    else:
        raise ImportError("tvsort.h, which tells how to call the library, is not installed with "
                          "the package; install it again")
    text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.DOTALL)
    text = re.sub(r"^#ifdef __cplusplus\n.*?^#endif", "", text, flags=re.DOTALL | re.MULTILINE)
    text = re.sub(r"^#.*$", "", text, flags=re.MULTILINE)
    return text.replace("TVSORT_API ", "")


ffi.cdef(_declarations())


def _path():
    named = os.environ.get("TVSORT_LIBRARY")
    if named:
        return named
    # In the package, as pip lays it there, or in the prefix under which both are installed.
    for folder in (_HERE / "_native", _HERE.parents[2]):
        if (folder / _NAME).exists():
            return str(folder / _NAME)
    return _NAME


_STRUCTS = ("tvsort_server_options", "tvsort_rows_options", "tvsort_column", "tvsort_failure")
_TYPES = ("tvsort_server **", "tvsort_rows **", "size_t *", "char[]", "void *", "int64_t *",
          "tvsort_watch", *_STRUCTS, *(f"{name} *" for name in _STRUCTS))

_lock = threading.RLock()
_library = None
# No child of a fork finds the loading begun by a thread that it does not have.
os.register_at_fork(before=_lock.acquire, after_in_parent=_lock.release,
                    after_in_child=_lock.release)


def lib():
    """The library's functions and constants."""
    global _library
    if _library is None:
        with _lock:
            _library = _library or _load()
    return _library


def _load():
    try:
        library = ffi.dlopen(_path())
    except OSError as error:
        raise ImportError(f"{_NAME} cannot be loaded: {error}; install tvsort, or name the library "
                          "in TVSORT_LIBRARY") from None
    # What cffi looks up for the first time it does under a lock, which a fork would leave locked.
    for name in dir(library):
        getattr(library, name)
    for name in _TYPES:
        ffi.typeof(name)
    return library


def struct(name, **fields):
    """A struct of the interface, its size set."""
    made = ffi.new(f"{name} *")
    made.struct_size = ffi.sizeof(name)
    for field, value in fields.items():
        setattr(made, field, value)
    return made


def check(code, text, handle, failure=None):
    """Raises what the code stands for, with the words of the handle."""
    if code == 0:
        return
    details = struct("tvsort_failure")
    if failure is not None:
        failure(handle, details)
    raise _errors.error_of(code, ffi.string(text(handle)).decode(errors="replace"),
                           details.answer_code, details.system_error)
