"""tvsort-host, run by a task."""

import json
import os
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

from ._files import allow_files

ENDED = "the run has ended, or this worker does not see the folder of its output"

_WAIT_SECONDS = 0.2
_END_SECONDS = 10
_SKIPPED = 3  # exit status: rows could not be read, and the rest is as it should be


class CommandFailed(Exception):
    """Its own words."""


class Abandoned(Exception):
    """The run that the task belongs to has ended."""


def program():
    named = os.environ.get("TVSORT_HOST")
    found = named or shutil.which("tvsort-host")
    if found:
        return found
    # In the prefix under which both are installed: lib/python3/dist-packages/tvsort/cluster.
    beside = Path(__file__).resolve().parents[5] / "bin" / "tvsort-host"
    if beside.exists():
        return str(beside)
    raise CommandFailed("tvsort-host is not on this worker's PATH; install it there, or name it in "
                        "TVSORT_HOST")


def run(words, alive, output=None):
    """Its standard output, if no file is given that it goes to. Ends it when `alive()` no longer holds.

    The command ends with the thread that waits for it, so that a worker that is killed leaves no
    sort behind.
    """
    allow_files()
    command = ["setpriv", "--pdeathsig", "TERM", program(), *words]
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as errors:
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output or out,
                              stderr=errors) as child:
            try:
                _wait(child, alive)
            except BaseException:
                child.terminate()
                try:
                    child.wait(_END_SECONDS)
                except subprocess.TimeoutExpired:
                    child.kill()
                raise
        out.seek(0)
        errors.seek(0)
        said = errors.read().decode(errors="replace")
        if child.returncode < 0:
            # Never the same words twice: the next attempt may end well.
            raise CommandFailed(f"tvsort-host was ended by signal {-child.returncode} as process "
                                f"{child.pid}; the system may lack memory")
        if child.returncode not in (0, _SKIPPED):
            words = said.strip().removeprefix("tvsort-host: ")
            if output is not None:  # by the name that it is to get
                words = words.replace("standard output", os.path.splitext(output.name)[0])
            raise CommandFailed(words or f"tvsort-host ended with status {child.returncode}")
        return out.read()


def _wait(child, alive):
    wait = 0.005
    while True:
        try:
            child.wait(wait)
            return
        except subprocess.TimeoutExpired:
            if not alive():
                raise Abandoned(ENDED) from None
        wait = min(2 * wait, _WAIT_SECONDS)


def run_json(words, alive):
    return json.loads(run(words, alive))


def settle(remove, seconds):
    """Removes what somebody may be writing to a little longer."""
    end = time.monotonic() + seconds
    while True:
        try:
            remove()
            return
        except FileNotFoundError:
            return
        except OSError:
            if time.monotonic() > end:
                raise
        time.sleep(_WAIT_SECONDS)
