"""Files that appear when they are whole."""

import contextlib
import os
import uuid


@contextlib.contextmanager
def named_when_whole(paths):
    """Files to write, which get their names at the end; in a failure they go away. Others may be making
    the same ones meanwhile."""
    own = f".{uuid.uuid4().hex}"
    try:
        with contextlib.ExitStack() as stack:
            yield [stack.enter_context(open(path + own, "wb")) for path in paths]
        for path in paths:
            os.rename(path + own, path)
    except BaseException:
        for path in paths:
            with contextlib.suppress(FileNotFoundError):
                os.remove(path + own)
        raise
