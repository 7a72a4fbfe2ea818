"""Result objects of the global statistics and the regressions."""
from __future__ import annotations

from dataclasses import asdict, dataclass, field
from typing import Any, ClassVar, Mapping, Optional, Sequence


class _GlobalResult:
    def to_dict(self) -> dict[str, float]:
        """The values by name, as ``zostat ... --json`` prints them (the
        permutation test's only when it ran)."""
        values: dict[str, float] = asdict(self)
        return {k: v for k, v in values.items() if v is not None}

    def __str__(self) -> str:
        values = self.to_dict()
        width = max(len(k) for k in values)
        lines = [(type(self).__doc__ or "").splitlines()[0]]
        lines += [f"  {k:<{width}}  {v:.10g}" for k, v in values.items()]
        return "\n".join(lines)


@dataclass(frozen=True)
class _IndexResult(_GlobalResult):
    index: float
    expected_index: float
    variance: float
    z_score: float
    p_value: float
    # The permutation test, when permutations were asked for: the folded
    # pseudo p-value and the simulated statistics' mean, variance and the
    # index's z-score against them.
    permutations: Optional[int] = None
    pseudo_p_value: Optional[float] = None
    simulated_mean: Optional[float] = None
    simulated_variance: Optional[float] = None
    simulated_z_score: Optional[float] = None


@dataclass(frozen=True)
class MoranResult(_IndexResult):
    """Global Moran's I under the randomization assumption."""


@dataclass(frozen=True)
class GeneralGResult(_IndexResult):
    """Getis-Ord General G (high/low clustering)."""


@dataclass(frozen=True)
class AnnResult(_GlobalResult):
    """Average nearest neighbour."""
    ratio: float
    expected_mean_distance: float
    observed_mean_distance: float
    z_score: float
    p_value: float


@dataclass(frozen=True, repr=False, eq=False)
class _ModelResult:
    """The values of a regression by name (``result.r2``, ``to_dict()``, as
    ``zostat ... --json`` prints them) and ``frame``, the per-feature layer.
    The names vary with the options (diagnostics that were skipped are
    absent), so they are read from ``values`` rather than declared. Results
    hold frames, so they compare by identity."""

    values: Mapping[str, Any]
    frame: Any

    def __getattr__(self, name: str) -> Any:
        try:
            return self.__dict__["values"][name]
        except KeyError:
            raise AttributeError(name) from None

    def to_dict(self) -> dict[str, Any]:
        return dict(self.values)

    def __repr__(self) -> str:
        return f"{type(self).__name__}({dict(self.values)!r})"


@dataclass(frozen=True, repr=False, eq=False)
class OlsResult(_ModelResult):
    """Ordinary least squares: coefficients (intercept first), R², adjusted
    R², AICc, joint F and Wald, Koenker (BP), Jarque-Bera, condition index and
    the residuals' Moran's I (None when skipped, or when it cannot be
    computed under the weights given: "residual_moran_missing" then says
    why)."""


@dataclass(frozen=True, repr=False, eq=False)
class GwrResult(_ModelResult):
    """Geographically weighted regression: bandwidth, AICc, effective
    parameters, residual sum of squares, sigma and R²."""


@dataclass(frozen=True, repr=False, eq=False)
class IncrementalResult(_ModelResult):
    """Incremental spatial autocorrelation: Moran's I per distance band
    ("bands": distance, index, expected_index, variance, z_score, p_value;
    index None where it cannot be computed), the first and the highest peak
    ("first_peak", "max_peak": a band or None), "begin_distance",
    "increment" and whether each was the default."""

    field: Optional[str] = None

    def plot(self, *, ax: Any = None, title: Optional[str] = None, file: Any = None) -> Any:
        """The z-scores against distance with the peaks marked, as
        ``zostat incremental --chart`` draws them; returns the Axes."""
        from ._plot import plot_incremental
        return plot_incremental(self, ax=ax, title=title, file=file)


@dataclass(frozen=True, repr=False, eq=False)
class GeoDetectorResult:
    """The geographical detector: "count", "mean" and "variance" of the
    dependent field, and a pandas DataFrame per detector table, columns as
    ``zostat geodetector --json`` keys them:

    * ``factor``: field, strata, q, f, noncentrality, p_value, discretized,
      breaks (the class limits, "; "-separated; None for categories);
    * ``strata``: field, stratum (from 1), label, count, mean, variance;
    * ``risk``: field, first, second (stratum labels), tested, t, df,
      critical, p_value, significant;
    * ``interaction``: first, second, q_first, q_second, q, strata,
      relationship;
    * ``ecological``: first, second, f, critical, p_value, significant.

    A table of a detector that was not run is None ("factor" and "strata"
    come with the factor or the risk detector); a table of a detector that
    ran but has nothing to report (the interaction of a single factor) is an
    empty frame with its columns. Numbers that could not be computed are NaN."""

    TABLES: ClassVar[tuple[str, ...]] = ("factor", "strata", "risk", "interaction", "ecological")
    count: int
    mean: float
    variance: float
    factor: Any
    strata: Any
    risk: Any
    interaction: Any
    ecological: Any
    values: Mapping[str, Any] = field(compare=False)

    @classmethod
    def from_values(cls, values: Mapping[str, Any], columns: Mapping[str, Sequence[str]]) -> GeoDetectorResult:
        """The result from the values as the library reports them, each
        table's rows under its own columns."""
        import pandas as pd

        tables = {name: None if values.get(name) is None else pd.DataFrame(values[name], columns=columns[name])
                  for name in cls.TABLES}
        return cls(count=values["count"], mean=values["mean"], variance=values["variance"], values=dict(values),
                   **tables)

    def to_dict(self) -> dict[str, Any]:
        """The values as ``zostat geodetector --json`` prints them: the three
        numbers and, per table, a list of rows (dicts)."""
        return {key: [dict(row) for row in value] if isinstance(value, list) else value
                for key, value in self.values.items()}

    def interaction_matrix(self) -> Any:
        """The q of every pair of factors taken together, as a symmetric
        factors × factors DataFrame with each factor's own q on the diagonal.
        Needs the interaction detector."""
        import pandas as pd

        if self.interaction is None:
            raise ValueError("the interaction detector was not run (detectors=)")
        own: dict[str, float] = {}
        if self.factor is not None:
            own = dict(zip(self.factor["field"], self.factor["q"]))
        for row in self.interaction.itertuples(index=False):
            own.setdefault(row.first, row.q_first)
            own.setdefault(row.second, row.q_second)
        names = list(own)
        matrix = pd.DataFrame(float("nan"), index=pd.Index(names, name="factor"), columns=names)
        for name, q in own.items():
            matrix.loc[name, name] = q
        for row in self.interaction.itertuples(index=False):
            matrix.loc[row.first, row.second] = matrix.loc[row.second, row.first] = row.q
        return matrix

    def plot(self, *, ax: Any = None, title: Optional[str] = None, file: Any = None) -> Any:
        """A heat map of interaction_matrix() (its lower triangle, each cell
        labelled with its q); returns the Axes; `file` also saves the figure."""
        from ._plot import plot_interaction
        return plot_interaction(self.interaction_matrix(), ax=ax, title=title, file=file)

    def __repr__(self) -> str:
        tables = ", ".join(f"{name}={len(getattr(self, name))} rows" for name in self.TABLES
                           if getattr(self, name) is not None)
        return f"GeoDetectorResult(count={self.count}, mean={self.mean!r}, variance={self.variance!r}, {tables})"
