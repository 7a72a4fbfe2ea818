#include "StatisticsAnalyst/detail/common/SpatialOrder.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace ZOC {

namespace {
// Spreads the low 32 bits of v over the even bit positions.
std::uint64_t SpreadBits(std::uint64_t v) {
  v &= 0xFFFFFFFFull;
  v = (v | (v << 16)) & 0x0000FFFF0000FFFFull;
  v = (v | (v << 8)) & 0x00FF00FF00FF00FFull;
  v = (v | (v << 4)) & 0x0F0F0F0F0F0F0F0Full;
  v = (v | (v << 2)) & 0x3333333333333333ull;
  v = (v | (v << 1)) & 0x5555555555555555ull;
  return v;
}
}  // namespace

std::vector<std::uint64_t> SpatialKeys(const LUMA::LumaArray<LUMA::LumaPoint2D>& points) {
  const std::size_t n = points.size();
  double minX = std::numeric_limits<double>::max(), minY = minX;
  double maxX = std::numeric_limits<double>::lowest(), maxY = maxX;
  for (const auto& p : points) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) continue;
    minX = std::min(minX, p.x), maxX = std::max(maxX, p.x);
    minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
  }
  const double sx = maxX > minX ? 4294967295.0 / (maxX - minX) : 0.0;
  const double sy = maxY > minY ? 4294967295.0 / (maxY - minY) : 0.0;
  std::vector<std::uint64_t> key(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto& p = points[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) {
      key[i] = std::numeric_limits<std::uint64_t>::max();
      continue;
    }
    const auto qx = static_cast<std::uint64_t>(std::clamp((p.x - minX) * sx, 0.0, 4294967295.0));
    const auto qy = static_cast<std::uint64_t>(std::clamp((p.y - minY) * sy, 0.0, 4294967295.0));
    key[i] = SpreadBits(qx) | (SpreadBits(qy) << 1);
  }
  return key;
}

std::vector<std::size_t> SpatialQueryOrder(const LUMA::LumaArray<LUMA::LumaPoint2D>& points) {
  const std::size_t n = points.size();
  const std::vector<std::uint64_t> key = SpatialKeys(points);
  std::vector<std::size_t> order(n);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(),
            [&](std::size_t a, std::size_t b) { return key[a] < key[b] || (key[a] == key[b] && a < b); });
  return order;
}

}  // namespace ZOC
