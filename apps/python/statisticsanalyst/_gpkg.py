"""A distributed run's cut of a GeoPackage by SQLite itself: GDAL creates
the part's layer (its metadata and coordinate system) and one INSERT ...
SELECT moves the rows the spatial index finds, geometry blobs as stored.
Where the files do not allow it (not a GeoPackage, no spatial index,
another coordinate system id) the caller falls back to GDAL's own copy."""
from __future__ import annotations

import sqlite3
from dataclasses import dataclass
from typing import Optional, Sequence

Box = tuple[float, float, float, float]


@dataclass(frozen=True)
class Table:
    name: str
    fid: str
    geometry: str
    srs_id: int
    rtree: Optional[str]


def _quote(name: str) -> str:
    return '"' + name.replace('"', '""') + '"'


def describe(path: str, layer: str) -> Optional[Table]:
    """The layer's table in the GeoPackage at `path`, or None."""
    try:
        with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as db:
            row = db.execute("SELECT table_name, column_name, srs_id FROM gpkg_geometry_columns "
                             "WHERE lower(table_name) = lower(?)", (layer,)).fetchone()
            if row is None:
                return None
            table, geometry, srs = row
            keys = [r[1] for r in db.execute(f"PRAGMA table_info({_quote(table)})") if r[5]]
            rtree = f"rtree_{table}_{geometry}"
            found = db.execute("SELECT 1 FROM sqlite_master WHERE name = ?", (rtree,)).fetchone()
            return Table(table, keys[0], geometry, int(srs), rtree if found else None) if len(keys) == 1 else None
    except sqlite3.Error:
        return None


def cut_rows(target: str, into: Table, source: str, table: Table, columns: Sequence[str], box: Box,
             offset: int = 0) -> bool:
    """Appends the rows of `table` in the GeoPackage `source` whose bounds
    meet `box` (found by its spatial index) to the table `into` of the
    GeoPackage `target`, their feature ids moved by `offset`. False when the rows cannot go
    over as stored or SQLite fails: the target is then only fit to be
    deleted."""
    if table.rtree is None or table.srs_id != into.srs_id:
        return False
    target_columns = ", ".join(_quote(c) for c in (into.fid, into.geometry, *columns))
    source_columns = ", ".join([f"{_quote(table.fid)} + {int(offset)}"] + [_quote(c) for c in (table.geometry, *columns)])
    db = sqlite3.connect(target, isolation_level=None)
    try:
        db.execute("ATTACH DATABASE ? AS source", (f"file:{source}?mode=ro",))
        db.execute(f"INSERT INTO main.{_quote(into.name)} ({target_columns}) SELECT {source_columns} "
                   f"FROM source.{_quote(table.name)} WHERE {_quote(table.fid)} IN "
                   f"(SELECT id FROM source.{_quote(table.rtree)} "
                   "WHERE maxx >= ? AND minx <= ? AND maxy >= ? AND miny <= ?)", (box[0], box[2], box[1], box[3]))
        db.execute("DETACH DATABASE source")
        # GDAL counts features from its own table; keep it true.
        if db.execute("SELECT 1 FROM sqlite_master WHERE name = 'gpkg_ogr_contents'").fetchone():
            db.execute("UPDATE gpkg_ogr_contents SET feature_count = "
                       f"(SELECT COUNT(*) FROM {_quote(into.name)}) WHERE lower(table_name) = lower(?)", (into.name,))
    except sqlite3.Error:
        return False
    finally:
        db.close()
    return True
