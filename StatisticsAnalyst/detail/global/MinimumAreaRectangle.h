#pragma once
// The minimum-area rectangle enclosing a convex hull, by rotating calipers.
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"

namespace ZOC::detail::global {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;

struct Rectangle {
  LumaPoint2D centre;
  LumaPoint2D u, v;  // unit directions of the length and the width, v = (−u.y, u.x)
  double length = 0.0, width = 0.0, area = 0.0;
};

// Every edge of the hull ring (closed, counter-clockwise) is a base side
// once; the first rectangle of strictly smallest area is kept. Fails with
// "ESa013" for fewer than two ring points, "ESa053" when no edge has length.
Status MinimumAreaRectangle(const LumaArray<LumaPoint2D>& hull, Rectangle& rect);

}  // namespace ZOC::detail::global
