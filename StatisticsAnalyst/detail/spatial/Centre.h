#pragma once
// The weighted mean centre of feature points.
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC::detail::spatial {

// (Σ w·x / Σ w, Σ w·y / Σ w). Empty lists leave `centre` as it was and
// succeed. "ESa019" when the lists differ in length, "ESa018" when the
// weights sum to 0 (within ±1e-20).
Status MeanCentre(const LUMA::LumaArray<LUMA::LumaPoint2D>& points, const LUMA::LumaArray<double>& weights,
                  LUMA::LumaPoint2D& centre);

}  // namespace ZOC::detail::spatial
