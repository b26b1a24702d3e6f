"""Sorts files of any size on the machines of a Dask cluster.

    cluster.sort(["a.csv", "b.csv"], "sorted", ["name", "born:int:desc"], client=client)

The rows are divided by ranges of their keys, each range is sorted by one worker, and the parts,
one behind the other, are the bytes that one `tvsort-host sort` makes of all inputs. docs/cluster.md
shows the rest.
"""

from ._errors import ClusterError, Damaged
from ._manifest import Manifest, verify
from ._run import sort

__all__ = ["ClusterError", "Damaged", "Manifest", "sort", "verify"]
