"""Files that appear when they are whole."""

import contextlib
import errno
import os
import resource
import uuid

_FULL = errno.ENOSPC, errno.EDQUOT, errno.EFBIG


def allow_files():
    """As many open files as the system lets a process have: one for each piece."""
    _, files_max = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (files_max, files_max))


@contextlib.contextmanager
def naming(path):
    """Says what did not fit on a full disk; whoever writes to an open file hears no name."""
    try:
        yield
    except OSError as error:
        if error.filename is None and error.errno in _FULL:
            raise OSError(error.errno, error.strerror, path) from None
        raise


@contextlib.contextmanager
def named_when_whole(paths):
    """Files to write, which get their names at the end; in a failure they go away. Others may be making
    the same ones meanwhile."""
    own = f".{uuid.uuid4().hex}"
    try:
        with naming(paths[0]), contextlib.ExitStack() as stack:
            yield [stack.enter_context(open(path + own, "wb")) for path in paths]
        for path in paths:
            os.rename(path + own, path)
    except BaseException:
        for path in paths:
            with contextlib.suppress(FileNotFoundError):
                os.remove(path + own)
        raise
