"""Servers with their sort processes, kept for the next sort.

To start a process takes longer than a small sort, and the memory that a process has touched need
not be taken up again. So the server used last waits for the next sort that it suits, unless it is
large. A child of a fork forgets what its parent has. What nobody holds any more, as after an
interrupt between two lines, ends with its object.
"""

import atexit
import math
import operator
import os
import threading
import weakref

from ._errors import BadUse
from ._library import check, ffi, lib, struct

# A server may wait with so much memory granted to its processes.
_KEPT_BYTES_MAX = 512 << 20
_MEMORY_MIN = 1 << 20
# What all slots of a server can have, with room for their tables.
_MEMORY_MAX = (4 << 30) - (64 << 20)
_UNITS = {"K": 1 << 10, "M": 1 << 20, "G": 1 << 30}
_MILLISECONDS_MAX = (1 << 31) - 1


class Server:
    """Sort processes, as many as asked for, with so many bytes of memory each."""

    handle = None
    _all = weakref.WeakValueDictionary()

    def __init__(self, processes, memory, directory, timeout):
        self.shape = (processes, directory, timeout)
        self.memory = memory
        self.processes = processes
        self._pid = os.getpid()
        handle = ffi.new("tvsort_server **")
        check(lib().tvsort_server_create(handle), lambda _: ffi.new("char[]", b"no memory"), None)
        # Destroyed by the library itself, between whose lines there are no interrupts.
        self.handle = ffi.gc(handle[0], lib().tvsort_server_destroy)
        Server._all[id(self)] = self
        # What the struct points to lives as long as the call.
        temp = ffi.NULL if directory is None else ffi.new("char[]", directory)
        options = struct("tvsort_server_options", memory_bytes=memory, slot_count=processes,
                         temp_directory=temp, request_timeout=timeout)
        try:
            check(lib().tvsort_server_start(self.handle, options), lib().tvsort_server_text,
                  self.handle, lib().tvsort_server_failure)
        except BaseException:
            self.close()
            raise

    @property
    def is_own(self):
        return self._pid == os.getpid()

    def close(self):
        handle, self.handle = self.handle, None
        if handle is not None:
            ffi.release(handle)


# Of the kind that its own thread may take again: objects end where they like.
_lock = threading.RLock()
_waiting = None


def _forget():
    global _lock, _waiting
    _lock = threading.RLock()  # which another thread of the parent may have held
    _waiting = None
    for reference in Server._all.valuerefs():
        server = reference()
        if server is not None and server.handle is not None:
            ffi.gc(server.handle, None)  # it is the parent's to destroy
            server.handle = None


os.register_at_fork(after_in_child=_forget)


def memory_bytes(memory):
    """Bytes from a number, or from a text like "64K", "512M" or "1G"."""
    text = str(memory).strip().upper()
    unit = _UNITS.get(text[-1:], 1)
    digits = text if unit == 1 else text[:-1]
    if not digits.isdecimal():
        raise BadUse(f'memory={memory!r}: give bytes, or a number with K, M or G, as in "512M"')
    return int(digits) * unit


def process_count(processes):
    if processes is None:
        return 1
    try:
        count = operator.index(processes)
    except TypeError:
        count = 0
    if not 1 <= count <= 64:
        raise BadUse(f"processes={processes!r}: use 1 to 64, or None")
    return count


def copy_threads(processes):
    """Threads to copy rows: memory feeds two about one and a half times as fast as one."""
    return min(2, len(os.sched_getaffinity(0))) if processes is None else process_count(processes)


def _milliseconds(timeout):
    if timeout is None:
        return 0
    try:
        seconds = float(timeout)
    except (TypeError, ValueError):
        seconds = 0.0
    if not 0 < seconds < math.inf:
        raise BadUse(f"timeout={timeout!r}: give seconds above 0, or None")
    return max(1, min(int(seconds * 1000), _MILLISECONDS_MAX))


def _path(directory):
    if directory is None:
        return None
    try:
        path = os.fsencode(directory)
    except TypeError:
        path = b"\0"
    if b"\0" in path:
        raise BadUse(f"directory={directory!r}: give a path, or None")
    return path


def _per_process(memory, processes, wanted):
    """Memory for each process: what the sort wants, in few sizes, or what it may have."""
    most = min(memory_bytes(memory), _MEMORY_MAX) // processes
    if most < _MEMORY_MIN:
        raise BadUse(f"memory={memory!r} is too little for {processes} processes; grant 1M or more "
                     "to each")
    if wanted is None:
        return most
    return min(most, 1 << max(wanted - 1, _MEMORY_MIN - 1).bit_length())


def acquire(memory, processes, wanted, directory, timeout):
    """A server of the caller's own, for `release`. `wanted`: bytes that suffice, None for all."""
    global _waiting
    processes = process_count(processes)
    needed = _per_process(memory, processes, wanted)
    most = min(memory_bytes(memory), _MEMORY_MAX) // processes
    milliseconds = _milliseconds(timeout)
    directory = _path(directory)
    with _lock:
        server, _waiting = _waiting, None
    if server is not None:
        fits = server.shape == (processes, directory, milliseconds)
        if fits and server.is_own and needed <= server.memory <= max(most, needed):
            return server
        server.close()
    return Server(processes, needed, directory, milliseconds)


def release(server, is_whole):
    """Gives the server back; one in the middle of something, or large, is ended."""
    global _waiting
    if not is_whole or server.memory * server.processes > _KEPT_BYTES_MAX:
        return server.close()
    with _lock:
        server, _waiting = _waiting, server
    if server is not None:
        server.close()


def close():
    """Ends the processes that wait for the next sort, and frees their memory."""
    global _waiting
    with _lock:
        server, _waiting = _waiting, None
    if server is not None:
        server.close()


atexit.register(close)
