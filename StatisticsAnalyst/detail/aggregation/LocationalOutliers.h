#pragma once
// Locational outliers: incidents so far from the bulk of the others that
// they would stretch any extent or spacing derived from all of them.
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC::detail::aggregation {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

// The quantile of `values` at probability p in [0, 1] by R's default
// definition (type 7): with the values sorted, h = (n − 1)·p and the result
// x[⌊h⌋] + (h − ⌊h⌋)·(x[⌊h⌋ + 1] − x[⌊h⌋]). Found with nth_element in O(n);
// `values` is reordered. 0 for no values; the values must not be NaN.
double Quantile(std::vector<double>& values, double p);

// One flag per point (1 = locational outlier): its distance (by `method`) to
// the coordinate-wise median centre of all points lies beyond Q3 + 3·IQR of
// those distances, the quartiles as Quantile gives them. A point with a
// non-finite coordinate takes no part and is not flagged. Fewer than 4
// usable points: none. May throw std::bad_alloc.
std::vector<char> LocationalOutliers(const LumaArray<LumaPoint2D>& points, ZoDistanceMethod method);

}  // namespace ZOC::detail::aggregation
