"""What can go wrong, as exceptions. Their words are the library's and the process's own."""


class SortError(Exception):
    """Everything that this package raises about a sort."""

    #: The code of the sort process's answer, docs/protocol.md; 0 where it did not answer.
    answer_code = 0
    #: The operating system's error number; 0 where none belongs to the failure.
    system_error = 0


class BadUse(SortError, ValueError):
    """What was asked cannot be. Nothing was started."""


class UnsortableType(BadUse, TypeError):
    """A type that has no order here. Nothing was started."""


class SystemFailure(SortError, OSError):
    """A call to the operating system failed."""


class ProcessDied(SortError):
    """The sort process ended although it was needed."""


class TimedOut(SortError, TimeoutError):
    """The sort process did not answer in time."""


class ProcessAnswered(SortError):
    """The sort process refused or failed."""


class ProtocolBroken(SortError):
    """What came back from the sort process cannot be."""


class Cancelled(SortError):
    """The sort was cancelled."""


class NoMemory(SortError, MemoryError):
    """There is no memory left in this program."""


# By tvsort_code.
_BY_CODE = {1: BadUse, 2: SystemFailure, 3: ProcessDied, 4: TimedOut, 5: ProcessAnswered,
            6: ProtocolBroken, 7: Cancelled, 8: NoMemory}


def error_of(code, words, answer_code, system_error):
    error = _BY_CODE.get(code, SortError)(words)
    error.answer_code = answer_code
    error.system_error = system_error
    return error
