// Neighbour search at scale: average nearest neighbour and the weights rows
// of k-nearest (k = 8) and fixed-band (about 8 neighbours) weights over
// uniformly random points, n = 10^4, 10^5, 10^6.
//   build with -DSA_BUILD_BENCH=ON, run build/bench/sa_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "TestSupport.h"

using namespace ZOC;

namespace {

// One memory layer per size, made once: the benchmarks measure the analysis.
satest::MemoryLayer& Layer(std::int64_t n) {
  static std::map<std::int64_t, satest::MemoryLayer> layers;
  auto it = layers.find(n);
  if (it == layers.end())
    it = layers.emplace(n, satest::MakePointLayer(satest::RandomPoints(static_cast<std::size_t>(n), 1.0, 42))).first;
  return it->second;
}

void BM_AverageNearestNeighbor(benchmark::State& state) {
  satest::MemoryLayer& layer = Layer(state.range(0));
  for (auto _ : state) {
    ZoAnalyzingPatterns patterns;
    ZoAnalyzingPatterns::ZoAnalyzingExponent r;
    if (!patterns.AverageNearestNeighbor(layer.dataset, 0.0, Euclidean, r, true, 0.0, false))
      state.SkipWithError("ANN failed");
    benchmark::DoNotOptimize(r);
  }
}

// All rows of a conceptualization, from the points to the last row.
void RunRows(benchmark::State& state, const ZoPatternsInformation& info) {
  const auto raw = satest::RandomPoints(static_cast<std::size_t>(state.range(0)), 1.0, 42);
  std::int64_t stored = 0;
  for (auto _ : state) {
    ZOC::detail::weights::RowBuilder rows;
    if (!rows.PrepareFromPoints(LumaArray<LumaPoint2D>(raw.begin(), raw.end()), ZoPrjCoordSys(), info))
      state.SkipWithError("prepare failed");
    // Rows in blocks computed in spatial order, as the weights-file writers take them.
    ZOC::detail::weights::RowBuilder::Block block;
    stored = 0;
    for (std::int64_t first = 0; first < rows.Count(); first += ZOC::detail::weights::RowBuilder::kBlockRows) {
      rows.FillBlock(first, block);
      for (std::int64_t k = 0; k < block.Count(); ++k) stored += static_cast<std::int64_t>(block.Size(k));
    }
  }
  state.counters["weights_per_feature"] = static_cast<double>(stored) / static_cast<double>(state.range(0));
}

void BM_KNearestRows(benchmark::State& state) {
  ZoPatternsInformation info;
  info.Conceptualization = KNearestNeighbors;
  info.KNeighbors = 8;
  RunRows(state, info);
}

void BM_FixedBandRows(benchmark::State& state) {
  ZoPatternsInformation info;
  info.Conceptualization = FixedDistanceBand;
  // π r² n = 8 expected neighbours in the unit square.
  info.DistanceTolerance = std::sqrt(8.0 / (std::numbers::pi * static_cast<double>(state.range(0))));
  RunRows(state, info);
}

// The in-memory matrix, which the analyses use up to 10000 features.
void BM_GetSpatialWeightKNearest(benchmark::State& state) {
  satest::MemoryLayer& layer = Layer(state.range(0));
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = KNearestNeighbors;
  info.KNeighbors = 8;
  for (auto _ : state) {
    ZoRecordsetPtr records(layer.dataset->Query(ZoQueryDef()));
    ZoStatisticsUtilities utilities;
    LumaArray<WeightMatrixUnit> units;
    if (!utilities.GetSpatialWeight(records.get(), info, units, false)) state.SkipWithError("weights failed");
    benchmark::DoNotOptimize(units.data());
  }
}

}  // namespace

BENCHMARK(BM_AverageNearestNeighbor)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KNearestRows)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FixedBandRows)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GetSpatialWeightKNearest)->Arg(10'000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
