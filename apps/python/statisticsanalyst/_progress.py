"""Progress reporting: a tqdm bar when tqdm is installed, silence otherwise,
or the caller's own callable(percent, title, message)."""
from __future__ import annotations

import contextlib
import importlib
from typing import Any, Iterator, Optional

from ._types import Progress, ProgressCallback

_tqdm: Any
try:
    _tqdm = importlib.import_module("tqdm.auto").tqdm
except ImportError:  # tqdm is optional
    _tqdm = None


class _TqdmBar:
    """One bar over the whole run (the library reports overall percentages);
    its description follows the stage under way."""

    def __init__(self) -> None:
        self._bar: Any = None

    def __call__(self, percent: float, title: str, message: str) -> None:
        if self._bar is None:
            self._bar = _tqdm(total=100, leave=False, bar_format="{desc}: {percentage:3.0f}%|{bar}| {elapsed}")
        if title != self._bar.desc:
            self._bar.set_description_str(title, refresh=False)
        self._bar.n = min(max(percent, 0.0), 100.0)
        self._bar.refresh()

    def close(self) -> None:
        if self._bar is not None:
            self._bar.close()
            self._bar = None


@contextlib.contextmanager
def reporter(progress: Progress) -> Iterator[Optional[ProgressCallback]]:
    """What the compiled layer calls while an analysis runs: None (the run is
    still polled for Ctrl-C), a tqdm bar, or the caller's callable."""
    if callable(progress):
        yield progress
    elif progress and _tqdm is not None:
        bar = _TqdmBar()
        try:
            yield bar
        finally:
            bar.close()
    else:
        yield None
