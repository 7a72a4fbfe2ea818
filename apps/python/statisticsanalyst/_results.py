"""Result objects of the global statistics."""
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
class MoranResult(_GlobalResult):
    """Global Moran's I under the randomization assumption."""
    index: float
    expected_index: float
    variance: float
    z_score: float
    p_value: float


@dataclass(frozen=True)
class GeneralGResult(_GlobalResult):
    """Getis-Ord General G (high/low clustering)."""
    index: float
    expected_index: float
    variance: float
    z_score: float
    p_value: float


@dataclass(frozen=True)
class AnnResult(_GlobalResult):
    """Average nearest neighbour."""
    ratio: float
    expected_mean_distance: float
    observed_mean_distance: float
    z_score: float
    p_value: float
