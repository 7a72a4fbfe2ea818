"""Keyword arguments checked by the same code that checks zostat's options,
under the options' names, so a value is refused with the same identifier and
words from Python as from the command line."""
from __future__ import annotations

import contextlib
import numbers
import os
import re
from typing import Iterator, NoReturn, TypeVar

from . import _core
from ._errors import StatisticsAnalystUsageError

T = TypeVar("T")


def text(value: object) -> str:
    """A value as it would be typed: whole numbers without a fraction, other
    numbers in full precision, booleans as words (so never as counts)."""
    if isinstance(value, bool):
        return str(value).lower()
    if isinstance(value, numbers.Integral):
        return str(int(value))
    if isinstance(value, numbers.Real):
        number = float(value)
        return str(int(number)) if number.is_integer() and abs(number) < 2**63 else repr(number)
    return str(value)


def refuse(text: str) -> NoReturn:
    raise StatisticsAnalystUsageError(text)


@contextlib.contextmanager
def as_keywords(*names: str) -> Iterator[None]:
    """Refuses what the compiled layer refuses as zostat would refuse options
    `names`, with the same identifier and words, the options named as the
    keyword arguments they came from."""
    try:
        yield
    except _core.UsageError as error:
        message = str(error)
        for name in names:
            message = re.sub("--" + re.escape(name) + r"\b", name.replace("-", "_"), message)
        refuse(message)


def option(command: str, name: str, value: T) -> T:
    """Checks `value` as zostat's option --`name` of `command`; returns it."""
    with as_keywords(name):
        _core.check_option(command, name, text(value))
    return value


def count(command: str, name: str, value: object) -> int:
    return int(text(option(command, name, value)))


def number(command: str, name: str, value: object) -> float:
    return float(text(option(command, name, value)))


def field(value: object, what: str = "field") -> str:
    """A field name: a non-empty string."""
    if not isinstance(value, str) or not value.strip():
        refuse(_core.message("EUa060", [], f"{what} must be a field name, not {value!r}"))
    return value


def path(value: object, what: str = "data") -> str:
    if not isinstance(value, (str, os.PathLike)):
        refuse(_core.message("EUa060", [], f"{what} must be a path or a GeoDataFrame, not {type(value).__name__}"))
    return os.fspath(value)
