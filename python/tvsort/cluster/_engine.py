"""The engine: tasks in a Dask cluster, each done until one has answered.

Dask chooses the worker, moves what a task needs, and does the tasks of a lost worker again. A task
that fails for another reason is tried on another host, since a full disk is full for all workers of
its host; two that say the same are believed. What Dask would wait for without end, workers that do
not come back and a scheduler that is silent, ends the run.
"""

import contextlib
import dataclasses
import math
import threading
import time
import uuid

import distributed

from . import _tasks
from ._errors import ClusterError, TaskFailed

_ATTEMPTS_MAX = 4
_LOOK_SECONDS = 2.0
_ANSWER_SECONDS = 5.0
_SECONDS_MAX = 1e9
REMOVE_SECONDS = 30.0


@dataclasses.dataclass(frozen=True)
class Task:
    call: tuple  # function and arguments
    workers: tuple = ()  # where alone it can be done
    said: tuple = ()  # by those that failed
    failed: tuple = ()  # workers


def bounded(call, seconds):
    """Does what may never return, if the cluster is gone."""
    def quietly():
        with contextlib.suppress(Exception):
            call()

    thread = threading.Thread(target=quietly, daemon=True)
    thread.start()
    thread.join(seconds)


def seconds_of(name, given):
    """A span of time within what clocks can count."""
    try:
        seconds = float(given)
    except (TypeError, ValueError):
        seconds = math.nan
    if not seconds > 0:
        raise ClusterError(f"{name}={given!r}: give seconds above 0")
    return min(seconds, _SECONDS_MAX)


async def _await_one(client, futures):
    with client.as_current():  # it may not be the one that Dask takes by itself
        await distributed.wait(futures, timeout=_LOOK_SECONDS, return_when="FIRST_COMPLETED")


class Tasks:
    """Tasks in the cluster, each done until one has answered, within bounds of number and time."""

    def __init__(self, client, deadline, patience):
        self.client = client
        self.deadline = deadline
        self.patience = patience
        self.heard = self.able = time.monotonic()
        self.looked = 0.0
        self.known = ()
        self.slots = 0
        self.pending = {}

    def all(self, tasks, gathers=True, on_done=None):
        """What all tasks answer, or futures of it, in the order of the tasks."""
        tasks = list(tasks)
        answers = [None] * len(tasks)
        self.pending = {}
        for i, task in enumerate(tasks):
            self.pending[self.submit(task)] = (i, task)
        while self.pending:
            for future in self.some_done():
                i, task = self.pending.pop(future)
                try:
                    if future.status == "finished":
                        answers[i] = future.result(self.patience) if gathers else future
                        if on_done is not None:
                            on_done(i)
                    else:
                        task = self.once_more(task, future)
                        self.pending[self.submit(task)] = (i, task)
                except distributed.TimeoutError:  # its worker was lost just now
                    self.pending[future] = (i, task)
        return answers

    def submit(self, task):
        options = {"pure": False, "key": f"tvsort-{task.call[0].__name__}-{uuid.uuid4().hex[:12]}"}
        others = list(task.workers) or self.others_than(task.failed)
        if others:
            options.update(workers=others, allow_other_workers=False)
        return self.client.submit(_tasks.attempt, *task.call, **options)

    def others_than(self, failed):
        """Workers for a task that has failed on these: of other hosts, or else other ones."""
        if not failed:
            return []
        hosts = set(map(_tasks.host_of, failed))
        return [worker for worker in self.known if _tasks.host_of(worker) not in hosts] or [
            worker for worker in self.known if worker not in failed]

    def some_done(self):
        """Those of the pending futures that have ended, after some time perhaps none."""
        try:
            # The client's own loop may hang as well.
            self.client.sync(_await_one, self.client, list(self.pending),
                             callback_timeout=_LOOK_SECONDS + _ANSWER_SECONDS)
        except distributed.TimeoutError:
            pass
        except Exception:
            raise ClusterError("the scheduler has gone, and the tasks of this run with it") from None
        self.look()
        done = [future for future in self.pending if future.status != "pending"]
        if any(future.status in ("cancelled", "lost") for future in done):
            raise ClusterError("the scheduler has dropped the tasks of this run")
        return done

    def look(self):
        """Raises where nothing can come of it any more."""
        now = time.monotonic()
        if self.deadline is not None and now > self.deadline:
            raise ClusterError("the time that was given has passed")
        if now - self.looked < _LOOK_SECONDS:
            return
        try:
            info = self.client.sync(self.client.scheduler.identity, callback_timeout=_ANSWER_SECONDS)
            self.known = tuple(info["workers"])
            self.slots = sum(worker["nthreads"] for worker in info["workers"].values())
            self.heard = now
        except Exception:
            if now - self.heard > self.patience:
                raise ClusterError(f"the scheduler has not answered for {self.patience:g} "
                                   "seconds") from None
        self.looked = time.monotonic()
        hosts = set(map(_tasks.host_of, self.known)) | set(self.known)
        lacking = [task.workers[0] for _, task in self.pending.values()
                   if task.workers and not hosts & set(task.workers)]
        if self.known and not lacking:
            self.able = now
        elif now - self.able > self.patience:
            raise ClusterError("there is no worker" + (f" on {lacking[0]}" if lacking else "") +
                               f", for {self.patience:g} seconds")

    def once_more(self, task, future):
        """The task for another attempt, if one may help."""
        error = future.exception(self.patience)
        if isinstance(error, distributed.KilledWorker):
            raise ClusterError(f"workers were lost again and again in the task {error.task}: more "
                               "memory than they have, or a fault; the scheduler gave it up")
        words = str(error) or type(error).__name__
        known = isinstance(error, TaskFailed)
        worker = error.worker if known else ""
        said = task.said + (words,)
        if words in task.said or len(said) >= _ATTEMPTS_MAX or len(self.known) < 2 or not known:
            raise ClusterError(words if known else f"{type(error).__name__}: {words}")
        return dataclasses.replace(task, said=said, failed=task.failed + (worker,))

    def give_up(self):
        futures = list(self.pending)
        bounded(lambda: self.client.cancel(futures, force=True), REMOVE_SECONDS)
