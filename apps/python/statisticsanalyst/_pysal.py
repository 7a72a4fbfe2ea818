"""Weights shared with PySAL: a weights file read into a libpysal W, and a W
written as a weights file by the library's own writer, so weights made with
PySAL (or edited there) serve every analysis through ``weights_file=``."""
from __future__ import annotations

import numbers
import os
from typing import Any, Hashable, Mapping, Optional, Sequence, Union

from . import _core, _validate
from ._analyses import _library_errors, weights_dump, weights_to_table
from ._types import PathLike

INT32 = (-2**31, 2**31 - 1)


def weights_to_pysal(weights: PathLike, *, text: bool = False) -> Any:
    """A weights file as a ``libpysal.weights.W`` keyed by the file's unique
    IDs, in the file's order, features without neighbours included. A
    row-standardized file gives its weights divided by the row sums, as the
    analyses read them."""
    from libpysal.weights import W

    # The dump's first line lists every unique ID (islands too); the table
    # holds the neighbour records in full precision.
    ids = [int(value) for value in weights_dump(weights, text=text).split("\n", 1)[0].split()]
    table = weights_to_table(weights, text=text, progress=False)
    neighbors: dict[int, list[int]] = {i: [] for i in ids}
    values: dict[int, list[float]] = {i: [] for i in ids}
    for row, column, weight in zip(table["UniqueID"], table["NeighborsID"], table["Weight"]):
        neighbors[int(row)].append(int(column))
        values[int(row)].append(float(weight))
    return W(neighbors, values, id_order=ids, silence_warnings=True)


def weights_from_pysal(w: Any, output: PathLike, id_field: str, *,
                       ids: Union[Mapping[Hashable, int], Sequence[int], None] = None, row_standardize: bool = False,
                       overwrite: bool = False) -> str:
    """Writes a ``libpysal.weights.W`` as a binary weights file (.swmb) for
    the analyses' ``weights_file=``. The file names `id_field`, the integer
    unique-ID field of the dataset it will be used with. The W's IDs must be
    that field's values, or `ids` maps them: a mapping from W ID to value, or
    a sequence of values in ``w.id_order`` (for a W keyed by row position, as
    ``Queen.from_dataframe`` makes it: ``ids=frame["POLYID"]``). The weights
    are stored as the W holds them (its current transform);
    `row_standardize` asks the analyses to divide each row by its sum. An
    existing file is replaced only with `overwrite`, and only once the new
    one is complete. Returns the output path."""
    path = os.fspath(output)
    field = _validate.field(id_field, "id_field")
    order = list(w.id_order)
    if ids is None:
        to_value: Mapping[Hashable, Any] = {i: i for i in order}
    elif isinstance(ids, Mapping):
        to_value = ids
    else:
        values = list(ids)
        if len(values) != len(order):
            _validate.refuse(_core.message("ESa079", [], f"ids has {len(values)} values for the W's {len(order)} IDs"))
        to_value = dict(zip(order, values))

    def value(key: Hashable) -> int:
        given = to_value.get(key)
        if isinstance(given, numbers.Integral) and INT32[0] <= int(given) <= INT32[1]:
            return int(given)
        _validate.refuse(_core.message("ECa009", [], f"the W's ID {key!r} has no 32-bit integer value (ids=)"))

    unique_ids = [value(i) for i in order]
    rows: list[int] = []
    columns: list[int] = []
    weights: list[float] = []
    for i, row in zip(order, unique_ids):
        for j, weight in zip(w.neighbors[i], w.weights[i]):
            rows.append(row)
            columns.append(value(j))
            weights.append(float(weight))
    if not overwrite and os.path.exists(path):
        _validate.refuse(_core.message("EUb006", [], path))
    with _library_errors():
        _core.weights_from_rows(path, "pysal", field, unique_ids, rows, columns, weights, bool(row_standardize))
    return path
