#include "StatisticsAnalyst/detail/partition/Part.h"

#include <algorithm>
#include <cmath>

#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoPrjCoordSys.h"

namespace ZOC::detail::partition {

std::vector<char> OwnFlags(const ZoPartition& part, const LUMA::LumaArray<LUMA::LumaPoint2D>& points) {
  std::vector<char> own(points.size(), 1);
  if (!part.Active) return own;
  for (std::size_t i = 0; i < points.size(); ++i) own[i] = Owns(part, points[i]) ? 1 : 0;
  return own;
}

Status CheckPart(ZoDatasetVector* dataset, const ZoPatternsInformation& info, bool tests) {
  const ZoPartition& part = info.Partition;
  if (!part.Active) return Status::Ok();
  auto refuse = [](const char* what) { return Status::Fail(msg::ESa110, {LUMA::LumaUnicodeString(what)}); };
  if (info.Permutations > 0) return refuse("permutations");
  if (info.FDRCorrection && !tests && !std::isfinite(part.FdrMean))
    return refuse("the false discovery rate correction without the whole dataset's levels");
  if (part.FdrIds.size() != part.FdrLevels.size() || !std::is_sorted(part.FdrIds.begin(), part.FdrIds.end()))
    return Status::Fail(msg::ESa111);
  if (info.Conceptualization == SpatialWeightsFile) return refuse("a weights file");
  if (info.Conceptualization == ZoneOfIndifference) return refuse("zone of indifference weights");
  const bool banded = info.Conceptualization >= InverseDistance && info.Conceptualization <= FixedDistanceBand;
  if (banded && info.DistanceTolerance >= 0.0 && info.DistanceTolerance < limits::kZero)
    return refuse("weights without a distance limit");
  if (banded && info.DistanceTolerance < 0.0) return refuse("the default distance band (give the whole dataset's)");
  if (dataset && dataset->GetPrjCoordSys().GetTypeID() == 1) return refuse("geographic coordinates");
  const bool finite = std::isfinite(part.Sum) && std::isfinite(part.SumSquares) && std::isfinite(part.Deviation2) &&
                      std::isfinite(part.Deviation4);
  if (!finite || part.Count < 1 || !(part.MinX < part.MaxX) || !(part.MinY < part.MaxY))
    return Status::Fail(msg::ESa111);
  return Status::Ok();
}

ValueMoments GivenMoments(const ZoPartition& part, double divisor) {
  ValueMoments m;
  m.count = static_cast<double>(part.Count);
  const double d2 = divisor * divisor;
  m.mean = (part.Sum / divisor) / m.count;
  m.sumSquares = part.SumSquares / d2;
  m.m2 = part.Deviation2 / d2;
  m.m4 = part.Deviation4 / (d2 * d2);
  return m;
}

ValueMoments MomentsFor(const ZoPatternsInformation& info, const LUMA::LumaArray<double>& values, double divisor) {
  return info.Partition.Active ? GivenMoments(info.Partition, divisor) : MomentsOf(values);
}

}  // namespace ZOC::detail::partition
