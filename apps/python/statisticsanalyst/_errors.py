"""The exception every failed analysis raises."""
from __future__ import annotations

import re

# "[ESa014] At least 4 records ..." : identifiers open each message line.
_ID = re.compile(r"\[([A-Z]{2}[a-z][0-9]{3,4})\]")


class StatisticsAnalystError(RuntimeError):
    """An analysis failed. ``ids`` lists the message identifiers in the order
    the library raised them (``"ESa014"``, ...); ``str(error)`` is the text."""

    def __init__(self, text: str) -> None:
        super().__init__(text)
        self.text = text
        self.ids: list[str] = _ID.findall(text)

    def __repr__(self) -> str:
        return f"StatisticsAnalystError(ids={self.ids!r})"


class StatisticsAnalystUsageError(StatisticsAnalystError, ValueError, TypeError):
    """An argument the analysis cannot take, refused before it runs with the
    identifier and words zostat gives the same option ("[EUa057] ...").
    Like numpy's AxisError it is also a ValueError and a TypeError, so the
    usual except clauses for a bad argument catch it."""
