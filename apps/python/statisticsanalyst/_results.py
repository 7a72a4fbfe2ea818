"""Result objects of the global statistics and the regressions."""
from dataclasses import asdict, dataclass


class _GlobalResult:
    def to_dict(self):
        """The values by name, as ``zostat ... --json`` prints them."""
        return asdict(self)

    def __str__(self):
        width = max(len(k) for k in self.to_dict())
        lines = [type(self).__doc__.splitlines()[0]]
        lines += [f"  {k:<{width}}  {v:.10g}" for k, v in self.to_dict().items()]
        return "\n".join(lines)


@dataclass(frozen=True)
class _IndexResult(_GlobalResult):
    index: float
    expected_index: float
    variance: float
    z_score: float
    p_value: float


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


class _ModelResult:
    """The values of a regression by name (``result.r2``, ``to_dict()``, as
    ``zostat ... --json`` prints them) and ``frame``, the per-feature layer."""

    def __init__(self, values, frame):
        self._values, self.frame = dict(values), frame

    def __getattr__(self, name):
        try:
            return self.__dict__["_values"][name]
        except KeyError:
            raise AttributeError(name) from None

    def to_dict(self):
        return dict(self._values)

    def __repr__(self):
        return f"{type(self).__name__}({self._values!r})"


class OlsResult(_ModelResult):
    """Ordinary least squares: coefficients (intercept first), R², adjusted
    R², AICc, joint F and Wald, Koenker (BP), Jarque-Bera, condition index and
    the residuals' Moran's I (None when skipped, or when it cannot be
    computed under the weights given: "residual_moran_missing" then says
    why)."""


class GwrResult(_ModelResult):
    """Geographically weighted regression: bandwidth, AICc, effective
    parameters, residual sum of squares, sigma and R²."""


class IncrementalResult(_ModelResult):
    """Incremental spatial autocorrelation: Moran's I per distance band
    ("bands": distance, index, expected_index, variance, z_score, p_value;
    index None where it cannot be computed), the first and the highest peak
    ("first_peak", "max_peak": a band or None), "begin_distance",
    "increment" and whether each was the default."""

    def __init__(self, values, frame, field=None):
        super().__init__(values, frame)
        self.field = field

    def plot(self, *, ax=None, title=None, file=None):
        """The z-scores against distance with the peaks marked, as
        ``zostat incremental --chart`` draws them; returns the Axes."""
        from ._plot import plot_incremental
        return plot_incremental(self, ax=ax, title=title, file=file)
