"""What goes wrong in a cluster, told from what goes wrong with one task."""

from .._errors import SortError


def words_of(error):
    """For people; an exception of the system names a file and the trouble, of others nothing perhaps."""
    if getattr(error, "filename", None) and getattr(error, "strerror", None):
        return f"{error.filename}: {error.strerror}"
    return str(error) or type(error).__name__


class ClusterError(SortError):
    """The sort has failed, and nothing of it is left."""


class Damaged(ClusterError):
    """Parts are not what their manifest says."""


class TaskFailed(Exception):
    """A task has failed on a worker; another one may do better."""

    def __init__(self, words, worker):
        super().__init__(words, worker)
        self.words = words
        self.worker = worker

    def __str__(self):
        return self.words
