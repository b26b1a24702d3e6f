"""What the workers do: pure functions from named files, or bytes, to the same.

A source is the path of a file or, where pieces travel with Dask, the bytes themselves. A file comes
into being under another name and gets its own when it is whole, and always has the same bytes, so a
task may be done twice, at once as well.
"""

import contextlib
import dataclasses
import hashlib
import os
import shutil
import socket
import tempfile

import distributed

from .. import _servers
from .._errors import SortError
from . import _command
from ._errors import ClusterError, TaskFailed, words_of
from ._files import named_when_whole, naming
from ._shares import WHOLE

_COPY_BYTES = 1 << 20
_SWEEP_MEMORY = "1M"
_MADE = ".made"  # in the run's folder, where the run has made that of the output


@dataclasses.dataclass(frozen=True)
class Place:
    """Where a run keeps what it makes: a folder that is there for as long as the run is."""

    run: str  # a word that no other run has
    folder: str  # beside the parts
    travels: bool  # pieces do, and every worker has a folder of that name
    scratch: str = ""  # on the worker's own disk; empty: where the system has it

    def alive(self):
        return os.path.isdir(self.own) and (self.travels or os.path.isdir(self.folder))

    @property
    def own(self):
        return os.path.join(self.scratch or tempfile.gettempdir(), f"tvsort-cluster-{self.run}")


def host_of(address):
    """Where a task is to be done that needs what the worker has on its disk; a worker that has died
    has a successor there."""
    if address.startswith("inproc:"):
        return address
    return distributed.comm.get_address_host(address)


@contextlib.contextmanager
def _folder(place):
    """A folder on the worker's own disk, for one task."""
    while True:
        with contextlib.suppress(FileExistsError):
            os.mkdir(place.own, 0o700)
        try:
            folder = tempfile.mkdtemp(dir=place.own)
            break
        except FileNotFoundError:  # another task has just ended
            pass
    try:
        yield folder
    finally:
        shutil.rmtree(folder, ignore_errors=True)
        with contextlib.suppress(OSError):
            os.rmdir(place.own)


def _named(source, folder):
    """A path of the source."""
    if isinstance(source, str):
        # Whoever opens a pipe waits for its writer, for ever perhaps.
        if os.path.exists(source) and not os.path.isfile(source):
            raise ValueError(f"{source} is no regular file; copy what it gives to one")
        return source
    handle, path = tempfile.mkstemp(dir=folder)
    with naming(path), open(handle, "wb") as file:
        file.write(source)
    return path


def make_folder(place):
    """The run's folder, in that of the output, which goes away with a run that has made it."""
    output = os.path.dirname(place.folder)
    made = False
    with contextlib.suppress(FileExistsError):
        os.mkdir(output)
        made = True
    try:
        with contextlib.suppress(FileExistsError):
            os.mkdir(place.folder)
        if made:
            open(os.path.join(place.folder, _MADE), "x").close()
    except OSError:  # nothing tells who has made the output then
        for folder in (place.folder, output) if made else ():
            with contextlib.suppress(OSError):
                os.rmdir(folder)
        raise


def check_alone(place):
    """The folder of the output has nothing but what the run makes: nothing is overwritten, and no two
    runs go into one folder."""
    output = os.path.dirname(place.folder)
    others = sorted(set(os.listdir(output)) - {os.path.basename(place.folder),
                                               os.path.basename(place.own)})
    if others:
        raise ClusterError(f"{output} on {socket.gethostname()} is not empty, it has {others[0]}; "
                           "name a folder for this run alone")


def attempt(task, *arguments):
    """The task's result; what fails says where."""
    try:
        return task(*arguments)
    except (OSError, ValueError, MemoryError, SortError, _command.CommandFailed,
            _command.Abandoned) as error:
        raise TaskFailed(words_of(error), distributed.get_worker().address) from None


def state_of(path):
    """What another task, or another host, has to find again; of a copy elsewhere the first number."""
    status = os.stat(path)
    return [status.st_size, status.st_mtime_ns]


def sample(form, place, source, count, is_piece, share=WHOLE):
    with _folder(place) as folder:
        path = _named(source, folder)
        state = state_of(path)
        return {**form.sample(path, count, place.alive, is_piece, share), "state": state}


@dataclasses.dataclass(frozen=True)
class Split:
    rows: tuple  # of each range
    bytes: tuple
    begin: int  # of the first row
    end: int  # of the row behind the last one
    lines: int
    skipped: int
    problems: tuple  # the first few: words, the line's number in the share, words
    pieces: tuple  # sources
    worker: str


def split(form, place, source, splitters, name, is_piece, share=WHOLE, state=()):
    with _folder(place) as folder:
        path = _named(source, folder)
        prefix = os.path.join(folder if place.travels else place.folder, f"{name}-")
        report = form.split(path, splitters, prefix, folder, place.alive, is_piece, share)
        if state and state_of(path)[:len(state)] != state:
            raise OSError(f"{path} was changed while it was sorted, or is not the same on all hosts")
        pieces = report["pieces"]
        paths = [f"{prefix}{i:05}" for i in range(len(pieces))]
        if place.travels:
            sources = tuple(_take(path) for path in paths)
        else:
            sources = tuple(paths)
        return Split(tuple(piece["rows"] for piece in pieces),
                     tuple(piece["bytes"] for piece in pieces), report["begin"], report["end"],
                     report["lines"], report["skipped"], tuple(report["problems"]), sources,
                     distributed.get_worker().address)


def _take(path):
    with open(path, "rb") as file:
        content = file.read()
    os.remove(path)  # two copies of a large input are one too many
    return content


def piece_of(result, index):
    return result.pieces[index]


def without_pieces(result):
    return dataclasses.replace(result, pieces=())


@dataclasses.dataclass(frozen=True)
class Part:
    name: str
    bytes: int
    sha256: str
    host: str
    worker: str


def sort_given(form, place, name, head, is_one_key, wanted_bytes, *sources):
    """One range of all inputs, in the folder of the run, behind what comes before all rows. Rows of one
    key are in order as they come.

    Sources stand last and by themselves: Dask looks for what has to travel among the arguments.
    """
    target = os.path.join(place.folder, name)
    if place.travels:
        make_folder(place)
        check_alone(place)
    with _folder(place) as folder:
        paths = [_named(source, folder) for source in sources]
        with named_when_whole([target]) as (file,):
            file.write(head)
            file.flush()  # whoever sorts may write to it by its number
            if is_one_key or not paths:
                _join(paths, file)
            else:
                form.sort(paths, file, place.alive)
    size = os.path.getsize(target)
    if size != len(head) + wanted_bytes:
        raise OSError(f"{name} has {size - len(head)} bytes of rows where its pieces had "
                      f"{wanted_bytes}; a file was changed meanwhile")
    return Part(name, size, sha256_of(target), socket.gethostname(),
                distributed.get_worker().address)


def _join(paths, out):
    for path in paths:
        with open(path, "rb") as piece:
            shutil.copyfileobj(piece, out, _COPY_BYTES)


def sha256_of(path):
    digest = hashlib.sha256()
    with open(path, "rb") as file:
        while block := file.read(_COPY_BYTES):
            digest.update(block)
    return digest.hexdigest()


def publish(place, output, names):
    """Gives parts their final place; done twice, it does nothing."""
    for name in names:
        source, target = os.path.join(place.folder, name), os.path.join(output, name)
        if os.path.exists(source) or not os.path.exists(target):
            os.rename(source, target)


def remove(place, output="", published=(), seconds=30.0):
    """Takes away what the run has made on this machine. Those who still write find their folder gone
    and end. With an output, its parts go, and itself where it was made for them."""
    is_here = os.path.isdir(place.folder)
    made = os.path.exists(os.path.join(place.folder, _MADE))
    for name in published if output and is_here else ():
        with contextlib.suppress(FileNotFoundError):
            os.remove(os.path.join(output, name))
    for folder in (place.folder, place.own):
        gone = f"{folder}-gone"
        with contextlib.suppress(FileNotFoundError):
            os.rename(folder, gone)
        _command.settle(lambda gone=gone: shutil.rmtree(gone), seconds)
    if output and made:
        with contextlib.suppress(OSError):
            os.rmdir(output)


def remove_from_worker(place, output, published):
    """The same, and the process that waits for more records, and what those of killed workers have
    left, which each start sweeps."""
    remove(place, output, published)
    with contextlib.suppress(Exception):
        _servers.close()
        _servers.acquire(_SWEEP_MEMORY, None, None, place.scratch or None, None).close()
