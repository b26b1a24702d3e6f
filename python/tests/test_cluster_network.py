"""The cluster over three network namespaces: a scheduler and a worker of two processes in one, a
worker of two in each of the others, and what is done to them.

    place 0  10.77.0.1  scheduler, caller, 2 worker processes   |
    place 1  10.77.0.2  2 worker processes                      |  bridge, in a namespace of its own
    place 2  10.77.0.3  2 worker processes                      |

Each command that a worker starts goes through a script that notes its step and waits a little, so
that a fault hits the step that it is meant for. Every run ends in the right bytes or in a clear
error, in bounded time, and leaves nothing behind.
"""

import contextlib
import itertools
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import time

import pytest

pytest.importorskip("distributed")
if os.geteuid() != 0 or shutil.which("ip") is None:
    pytest.skip("network namespaces want root and ip", allow_module_level=True)

from tvsort.cluster import _command

PORT = 8786
RUN_SECONDS = 120
START_SECONDS = 60
SCRIPT = """#!/bin/sh
echo "$1 $PPID $TVSORT_TEST_PLACE" >>"$TVSORT_TEST_LOG"
sleep "$TVSORT_TEST_WAIT"
exec "$TVSORT_TEST_COMMAND" "$@"
"""
# Read by each worker: it notes and slows the step that is no command.
PRELOAD = """
import os, time
from tvsort.cluster import _tasks
real = getattr(_tasks, "real_publish", _tasks.publish)  # this is read more than once
_tasks.real_publish = real
def publish(*arguments):
    with open(os.environ["TVSORT_TEST_LOG"], "a") as log:
        log.write(f"publish {os.getpid()} {os.environ['TVSORT_TEST_PLACE']}\\n")
    time.sleep(float(os.environ["TVSORT_TEST_WAIT"]))
    real(*arguments)
_tasks.publish = publish
"""
DASK = {"SCHEDULER__WORKER_TTL": "4s", "SCHEDULER__ALLOWED_FAILURES": "8",
        "COMM__TIMEOUTS__CONNECT": "3s", "COMM__TIMEOUTS__TCP": "11s"}


def ip(*words):
    return subprocess.run(["ip", *words], check=True, capture_output=True, text=True,
                          timeout=20).stdout


class Network:
    numbers = itertools.count()

    def __init__(self, folder, small_disk_at=None):
        self.folder = folder
        self.name = f"tvsort-{os.getpid()}-{next(self.numbers)}"
        self.places = [f"{self.name}-{i}" for i in range(3)]
        self.switch = f"{self.name}-switch"
        self.small_disk_at = small_disk_at
        self.log = folder / "steps"
        self.processes = []
        self.namespaces = []

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in self.processes:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait(20)
        for namespace in self.namespaces:
            # Whoever is left in it, such as a worker process whose nanny is gone.
            for pid in ip("netns", "pids", namespace).split():
                try:
                    os.kill(int(pid), signal.SIGKILL)
                except ProcessLookupError:
                    pass
            ip("netns", "del", namespace)

    def add_namespace(self, name):
        ip("netns", "add", name)
        self.namespaces.append(name)
        ip("-n", name, "link", "set", "lo", "up")

    def start(self):
        (self.folder / "command").write_text(SCRIPT)
        (self.folder / "command").chmod(0o755)
        (self.folder / "preload.py").write_text(PRELOAD)
        self.add_namespace(self.switch)
        ip("-n", self.switch, "link", "add", "bridge", "type", "bridge")
        ip("-n", self.switch, "link", "set", "bridge", "up")
        for i, place in enumerate(self.places):
            self.add_namespace(place)
            ip("-n", self.switch, "link", "add", f"to{i}", "type", "veth", "peer", "name", "net",
               "netns", place)
            ip("-n", self.switch, "link", "set", f"to{i}", "master", "bridge", "up")
            ip("-n", place, "addr", "add", f"10.77.0.{i + 1}/24", "dev", "net")
            ip("-n", place, "link", "set", "net", "up")
            (self.folder / f"disk{i}").mkdir()
            (self.folder / f"dask{i}").mkdir()
        self.scheduler = f"tcp://10.77.0.1:{PORT}"
        self.spawn(0, "-m", "distributed.cli.dask_scheduler", "--host", "10.77.0.1", "--port",
                   str(PORT), "--no-dashboard")
        for i in range(3):
            self.spawn(i, "-m", "distributed.cli.dask_worker", self.scheduler, "--nworkers", "2",
                       "--nthreads", "1", "--host", f"10.77.0.{i + 1}", "--no-dashboard",
                       "--memory-limit", "600MB", "--local-directory", str(self.folder / f"dask{i}"),
                       "--preload", str(self.folder / "preload.py"))
        done = self.run_at(0, "-c", "import distributed as d, sys; c = d.Client(sys.argv[1], "
                           "timeout=40); c.wait_for_workers(6, 40)", self.scheduler)
        assert done.returncode == 0, done.stderr

    def environment(self, i):
        return {**os.environ, **{f"DASK_DISTRIBUTED__{name}": value for name, value in DASK.items()},
                "TVSORT_HOST": str(self.folder / "command"), "TMPDIR": str(self.folder / f"disk{i}"),
                "TVSORT_TEST_PLACE": str(i), "TVSORT_TEST_LOG": str(self.log),
                "TVSORT_TEST_WAIT": "0.3", "TVSORT_TEST_COMMAND": _command.program()}

    def words(self, i, words):
        python = [sys.executable, "-B", *words]
        if i == self.small_disk_at and "dask_worker" in " ".join(words):
            mount = f'mount -t tmpfs -o size=300k tmpfs "{self.folder}/disk{i}" && exec "$@"'
            python = ["sh", "-c", mount, "sh", *python]
        return ["ip", "netns", "exec", self.places[i], *python]

    def spawn(self, i, *words):
        log = open(self.folder / "log", "ab")
        self.processes.append(subprocess.Popen(
            self.words(i, words), env=self.environment(i), stdin=subprocess.DEVNULL, stdout=log,
            stderr=log, start_new_session=True))
        return self.processes[-1]

    def run_at(self, i, *words):
        return subprocess.run(self.words(i, words), env=self.environment(i), capture_output=True,
                              text=True, timeout=RUN_SECONDS, stdin=subprocess.DEVNULL)

    def start_sort(self, inputs, output, *words):
        self.log.write_text("")
        return subprocess.Popen(
            self.words(0, ["-m", "tvsort.cluster", "sort", *inputs, "--key", "name", "--key",
                           "number:int:desc", "-o", str(output), "--scheduler", self.scheduler,
                           "--partitions", "9", "--patience", "20", "--timeout", "90", *words]),
            env=self.environment(0), stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)

    def await_step(self, step, places):
        """Process and place of a worker that is at this step."""
        end = time.monotonic() + START_SECONDS
        while time.monotonic() < end:
            for line in self.log.read_text().splitlines():
                words = line.split()
                if words[0] == step and int(words[2]) in places:
                    return int(words[1]), int(words[2])
            time.sleep(0.01)
        raise AssertionError(f"no {step} has begun")

    def cut(self, i):
        ip("-n", self.switch, "link", "set", f"to{i}", "down")

    def sent_bytes(self):
        return sum(json.loads(ip("-n", place, "-s", "-j", "link", "show", "net"))[0]
                   ["stats64"]["tx"]["bytes"] for place in self.places)


@pytest.fixture(scope="module")
def whole_network(tmp_path_factory):
    """For all that leaves it whole: who kills a worker sees a new one started. It has two small disks."""
    folder = tmp_path_factory.mktemp("network")
    with contextlib.ExitStack() as stack:
        for size in ("1m", "3600k"):
            (folder / size).mkdir()
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder / size],
                           check=True)
            stack.callback(subprocess.run, ["umount", "--lazy", folder / size], check=True)
        yield stack.enter_context(Network(folder))


@pytest.fixture(scope="module")
def data(tmp_path_factory):
    """Six files, and the bytes that one process makes of them."""
    folder = tmp_path_factory.mktemp("data")
    rng = random.Random(4)
    names = [str(folder / f"in{i}.csv") for i in range(6)]
    for name in names:
        with open(name, "w") as file:
            file.write("name,number,rest\n")
            file.writelines(f"{rng.choice('abcdef')}{rng.randrange(99)},{rng.randrange(10 ** 6)},"
                            f"{'x' * 80}\n" for _ in range(6000))
    alone = folder / "alone"
    subprocess.run([_command.program(), "sort", *names, "--key", "name", "--key", "number:int:desc",
                    "-o", alone], check=True)
    return names, alone.read_bytes()


def check_end(sort, network, output, expected, lost=()):
    _, said = sort.communicate(timeout=RUN_SECONDS)
    if sort.returncode == 0:
        manifest = json.loads((output / "manifest.json").read_text())
        names = [part["name"] for part in manifest["parts"]]
        assert b"".join((output / name).read_bytes() for name in names) == expected
        assert sorted(os.listdir(output)) == sorted([*names, "manifest.json"])
    else:
        assert sort.returncode == 2 and said.startswith("tvsort.cluster: "), said
        assert not output.exists()
    end = time.monotonic() + 10  # tasks that were under way find that the run has ended
    while True:
        left = [path for i in range(3) if i not in lost
                for path in (network.folder / f"disk{i}").glob("tvsort*")]
        if not left or time.monotonic() > end:
            break
        time.sleep(0.2)
    assert not left
    return sort.returncode, said


@pytest.mark.parametrize("storage", ["shared", "moved"])
def test_a_whole_run_sends_each_byte_once_at_most(storage, data, whole_network, tmp_path):
    names, expected = data
    before = whole_network.sent_bytes()
    begin = time.monotonic()
    sort = whole_network.start_sort(names, tmp_path / "out", "--storage", storage)
    status, said = check_end(sort, whole_network, tmp_path / "out", expected)
    sent = (whole_network.sent_bytes() - before) / len(expected)
    print(f"{storage}: {time.monotonic() - begin:.1f} s, {sent:.3f} bytes sent per byte; {said}")
    assert status == 0 and sent < 1


@pytest.mark.parametrize("storage", ["shared", "moved"])
@pytest.mark.parametrize("step", ["sample", "split", "sort"])
@pytest.mark.parametrize("fault", ["kill", "cut"])
def test_a_lost_worker_costs_time_alone(fault, step, storage, data, whole_network, tmp_path):
    names, expected = data
    with contextlib.nullcontext(whole_network) if fault == "kill" else Network(tmp_path) as network:
        begin = time.monotonic()
        sort = network.start_sort(names, tmp_path / "out", "--storage", storage)
        worker, place = network.await_step(step, {1, 2})
        if fault == "kill":
            os.kill(worker, signal.SIGKILL)
        else:
            network.cut(place)
        status, said = check_end(sort, network, tmp_path / "out", expected,
                                 {place} if fault == "cut" else ())
        print(f"{fault} {step} {storage}: {time.monotonic() - begin:.1f} s, {said}")
        assert status == 0, said


def test_a_link_that_is_cut_while_parts_get_their_names_ends_the_run(data, tmp_path):
    names, expected = data
    with Network(tmp_path) as network:
        sort = network.start_sort(names, tmp_path / "out", "--storage", "moved", "--patience", "5")
        _, place = network.await_step("publish", {1, 2})
        network.cut(place)
        status, said = check_end(sort, network, tmp_path / "out", expected, {place})
        assert status == 2 and f"no worker on 10.77.0.{place + 1}, for 5 seconds" in said, said


@pytest.mark.parametrize("size, name", [("1m", "piece-"), ("3600k", "part-")])
def test_a_full_disk_under_the_output_ends_the_run(size, name, data, whole_network):
    """Too small for the pieces, and for the parts beside the pieces."""
    names, expected = data
    disk = whole_network.folder / size
    sort = whole_network.start_sort(names, disk / "out")
    status, said = check_end(sort, whole_network, disk / "out", expected)
    assert status == 2 and "No space left" in said and name in said, said
    assert os.listdir(disk) == []


def test_a_full_disk_is_avoided_and_a_broken_input_is_named(data, tmp_path):
    names, expected = data
    with Network(tmp_path, small_disk_at=2) as network:
        sort = network.start_sort(names, tmp_path / "out", "--storage", "moved")
        status, said = check_end(sort, network, tmp_path / "out", expected)
        assert status == 0, said
        assert b"No space left" in (tmp_path / "log").read_bytes()
        broken = tmp_path / "broken.csv"
        broken.write_text("name,number,rest\n" + "a,1,\n" * 500 + "b,one,\n")
        for storage in ("shared", "moved"):
            sort = network.start_sort([*names, str(broken)], tmp_path / "none", "--storage", storage)
            status, said = check_end(sort, network, tmp_path / "none", b"")
            assert status == 2 and 'broken.csv, line 502, column number: "one"' in said


def test_without_scheduler_or_workers_the_run_ends(data, tmp_path):
    names, _ = data
    with Network(tmp_path) as network:
        sort = network.start_sort(names, tmp_path / "out", "--patience", "5")
        network.await_step("split", {0, 1, 2})
        os.killpg(network.processes[0].pid, signal.SIGKILL)
        status, said = check_end(sort, network, tmp_path / "out", b"", {0, 1, 2})
        assert status == 2 and "scheduler" in said, said
