"""Shares of an input's bytes, so that several tasks may read one input.

A row belongs to the share that it begins in. In a CSV file the first row of a share is a guess, since
a line end may stand in quotes; it holds where the share before ends there.
"""

import dataclasses
from typing import Optional


@dataclasses.dataclass(frozen=True)
class Share:
    begin: int = 0
    end: Optional[int] = None  # None: all that follows
    begins_row: bool = False

    def words(self):
        """Of the command."""
        end = "" if self.end is None else max(self.begin, self.end)
        return [f"--share={self.begin}:{end}"] + ["--begins-row"] * self.begins_row


WHOLE = Share()


def shares_of(size, share_bytes):
    """Shares of about one size, a third larger at most. What is no larger than three is not divided,
    for a file that is a part already, as large as the others, is best left so."""
    count = size // share_bytes if size > 3 * share_bytes else 1
    borders = [size * i // count for i in range(count)]
    return [Share(begin, end) for begin, end in zip(borders, [*borders[1:], None])]
