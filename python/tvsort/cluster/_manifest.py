"""What a sort has made: manifest.json beside the parts."""

import dataclasses
import json
import os
from pathlib import Path
from typing import Optional

from . import _tasks
from ._engine import Task, Tasks, seconds_of
from ._errors import Damaged
from ._files import named_when_whole

NAME = "manifest.json"
_VERSION = 1
_WHOLE = {"parts": list, "inputs": list, "rows": int, "bytes": int, "keys": list, "storage": str}
_PART = {"name": str, "rows": int, "bytes": int, "sha256": str, "worker": str}


def _check_types(content, types):
    for name, kind in types.items():
        if type(content[name]) is not kind:
            raise TypeError(f"{name} is {content[name]!r}")


def part_name(number):
    return f"part-{number:05}"


@dataclasses.dataclass(frozen=True)
class Manifest:
    """Parts are dicts: name, rows, bytes, sha256, from (the least key possible, in hexadecimal) and
    host, where it lies if not all see it."""

    folder: str
    parts: list
    inputs: list
    rows: int
    bytes: int
    keys: list
    skipped: int = 0
    problems: tuple = ()
    storage: str = "shared"
    seconds: Optional[dict] = None

    @property
    def paths(self):
        return [os.path.join(self.folder, part["name"]) for part in self.parts]

    def write(self):
        content = {"tvsort_cluster": _VERSION, **dataclasses.asdict(self)}
        del content["folder"]
        with named_when_whole([os.path.join(self.folder, NAME)]) as (file,):
            file.write(json.dumps(content, indent=1).encode() + b"\n")

    @classmethod
    def read(cls, folder):
        path = Path(folder) / NAME
        try:
            content = json.loads(path.read_text())
            if content.pop("tvsort_cluster") != _VERSION:
                raise Damaged(f"{path} is of another version")
            _check_types(content, _WHOLE)
            for i, part in enumerate(content["parts"]):
                _check_types(part, _PART)
                if part["name"] != part_name(i):
                    raise ValueError(f"part {i} is called {part['name']}")
            return cls(folder=os.fspath(folder), **content)
        except (FileNotFoundError, NotADirectoryError):
            raise Damaged(f"{path} is missing: the sort has not ended, or its result lies "
                          "elsewhere") from None
        except (AttributeError, KeyError, TypeError, ValueError, RecursionError) as error:
            raise Damaged(f"{path} is no manifest: {error}") from None
        except OSError as error:
            raise Damaged(f"{path}: {error.strerror}") from None


def check_part(folder, part):
    """Words about what is wrong; none where nothing is."""
    path = os.path.join(folder, part["name"])
    try:
        size = os.path.getsize(path)
        if size != part["bytes"]:
            return f"{path} has {size} bytes instead of {part['bytes']}"
        if _tasks.sha256_of(path) != part["sha256"]:
            return f"{path} has another checksum than when it was made"
    except OSError as error:
        return f"{path}: {error.strerror}"
    return ""


def verify(folder, client=None, patience=120.0):
    """The manifest, when all parts are there as they were made; else Damaged is raised.

    With a client the workers read the parts, each those on its own disk; a worker that is away for
    `patience` seconds is a ClusterError.
    """
    folder = os.path.abspath(os.fsdecode(folder))
    manifest = Manifest.read(folder)
    if client is None:
        faults = [check_part(manifest.folder, part) for part in manifest.parts]
    else:
        moved = manifest.storage == "moved"
        try:
            hosts = [_tasks.host_of(part["worker"]) if moved else None for part in manifest.parts]
        except ValueError as error:
            raise Damaged(f"a part lies on no worker: {error}") from None
        faults = Tasks(client, None, seconds_of("patience", patience)).all(
            Task((check_part, folder, part), (host,) if host else ())
            for part, host in zip(manifest.parts, hosts))
    for name in ("rows", "bytes"):
        total = sum(part[name] for part in manifest.parts)
        if total != getattr(manifest, name):
            faults.append(f"the parts have {total} {name}, and all together should have "
                          f"{getattr(manifest, name)}")
    faults = [fault for fault in faults if fault]
    known = {part["name"] for part in manifest.parts}
    if client is None or manifest.storage == "shared":
        faults += [f"{name} is no part of this result" for name in sorted(os.listdir(folder))
                   if name.startswith("part-") and name not in known]
    if faults:
        raise Damaged("; ".join(faults))
    return manifest
