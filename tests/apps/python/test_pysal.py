"""Weights shared with PySAL: files read as libpysal's W and written from one."""
import os

import geopandas as gpd
import numpy as np
import pytest

import statisticsanalyst as sa
from conftest import data

weights = pytest.importorskip("libpysal.weights")


def test_a_weights_file_reads_as_the_queen_pysal_computes(tmp_path):
    path = sa.weights_build(data("columbus.gpkg"), "POLYID", tmp_path / "q.swmb",
                            conceptualization="contiguity-edges-corners", row_standardize=True, progress=False)
    w = sa.weights_to_pysal(path)
    frame = gpd.read_file(data("columbus.gpkg"))
    queen = weights.Queen.from_dataframe(frame, idVariable="POLYID", silence_warnings=True)
    assert w.id_order == sorted(frame["POLYID"])
    assert {i: sorted(w.neighbors[i]) for i in w.id_order} == {i: sorted(queen.neighbors[i]) for i in w.id_order}
    # Stored raw with row sums, read as the analyses read it: rows summing to 1.
    assert all(sum(w.weights[i]) == pytest.approx(1.0, rel=1e-15) for i in w.id_order)


def test_pysal_weights_serve_the_analyses(tmp_path):
    frame = gpd.read_file(data("columbus.gpkg"))
    queen = weights.Queen.from_dataframe(frame, silence_warnings=True)  # keyed by row position
    queen.transform = "r"
    path = sa.weights_from_pysal(queen, tmp_path / "q.swmb", "POLYID", ids=frame["POLYID"])
    result = sa.moran(data("columbus.gpkg"), "CRIME", weights_file=path, progress=False)
    # Moran's I from its definition on PySAL's own matrix.
    z = frame["CRIME"].to_numpy() - frame["CRIME"].mean()
    matrix = queen.full()[0]
    assert result.index == pytest.approx(len(z) / matrix.sum() * (z @ matrix @ z) / (z @ z), rel=1e-12)
    built = sa.moran(data("columbus.gpkg"), "CRIME", conceptualization="contiguity-edges-corners",
                     row_standardize=True, progress=False)
    assert result.to_dict() == pytest.approx(built.to_dict(), rel=1e-12)
    back = sa.weights_to_pysal(path)
    for position, polyid in enumerate(frame["POLYID"]):
        expected = {frame["POLYID"][j]: v for j, v in zip(queen.neighbors[position], queen.weights[position])}
        assert dict(zip(back.neighbors[polyid], back.weights[polyid])) == pytest.approx(expected, rel=1e-15)


def test_weights_that_cannot_be_written_leave_nothing(tmp_path, private_tmpdir):
    w = weights.W({"a": ["b"], "b": ["a"]})
    with pytest.raises(sa.StatisticsAnalystUsageError) as caught:
        sa.weights_from_pysal(w, tmp_path / "w.swmb", "POLYID")  # no integer IDs
    assert caught.value.ids == ["ECa009"]
    with pytest.raises(sa.StatisticsAnalystError) as caught:
        sa.weights_from_pysal(w, tmp_path / "w.swmb", "POLYID", ids={"a": 7, "b": 7})
    assert caught.value.ids == ["ESa044"]  # refused by the library's writer
    assert os.listdir(tmp_path) == ["tmp"] and os.listdir(private_tmpdir) == []
    old = tmp_path / "old.swmb"
    old.write_bytes(b"kept")
    with pytest.raises(sa.StatisticsAnalystUsageError) as caught:
        sa.weights_from_pysal(w, old, "POLYID", ids=[1, 2])
    assert caught.value.ids == ["EUb006"] and old.read_bytes() == b"kept"
