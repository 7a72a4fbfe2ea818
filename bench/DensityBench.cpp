// Density-based clustering without dataset input and output: DBSCAN (the
// point aggregation), HDBSCAN and OPTICS over the same random points as
// make_random_points (unit square, seed 42), with a radius giving about 8
// neighbours per point and minimum points 5. Prints seconds per method.
//   density_bench N [dbscan|hdbscan|optics ...]
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>

#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "TestSupport.h"
#include "host/ZoAggregation.h"

using namespace ZOC;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: density_bench N [dbscan|hdbscan|optics ...]\n");
    return 2;
  }
  const long n = std::atol(argv[1]);
  const auto raw = satest::RandomPoints(static_cast<std::size_t>(n), 1.0, 42);
  const LUMA::LumaArray<LUMA::LumaPoint2D> points(raw.begin(), raw.end());
  const double band = std::sqrt(8.0 / (std::numbers::pi * static_cast<double>(n)));
  for (int a = 2; a < argc; ++a) {
    const std::string method = argv[a];
    const auto start = std::chrono::steady_clock::now();
    long clusters = 0;
    if (method == "dbscan") {
      LUMA::LumaArray<std::int32_t> ids;
      if (ZoAggregation::AggregatePoints(points, band, 5, ids) != 1) return 1;
      for (std::int32_t id : ids) clusters = std::max<long>(clusters, id);
    } else if (method == "hdbscan") {
      detail::clustering::HdbscanResult result;
      if (!detail::clustering::Hdbscan(points, 5, result, nullptr)) return 1;
      clusters = result.clusters;
    } else if (method == "optics") {
      detail::clustering::OpticsResult result;
      if (!detail::clustering::Optics(points, 5, band, result, nullptr)) return 1;
      detail::clustering::ExtractXi(0.05, 5, result);
      clusters = result.clusters;
    } else {
      std::fprintf(stderr, "unknown method %s\n", method.c_str());
      return 2;
    }
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%s %.3f s %ld clusters\n", method.c_str(), s, clusters);
  }
  return 0;
}
