// Permutation inference: the counter-based generator against the published
// known answers, the moments of conditional and total randomization against
// their closed forms, and the analyses' pseudo p-values: the same bits on
// one thread or two and from memory or a weights file, NULL without
// neighbours, nothing written on failure.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <numeric>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/detail/permutation/ConditionalRandomization.h"
#include "StatisticsAnalyst/detail/permutation/CounterRandom.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

using namespace ZOC;
namespace permutation = ZOC::detail::permutation;

namespace {

// Random123's known-answer vectors for Philox4x32-10 (counter, key, output).
TEST(CounterRandom, PhiloxKnownAnswersAndStreams) {
  struct Vector {
    std::array<std::uint32_t, 4> counter;
    std::array<std::uint32_t, 2> key;
    std::array<std::uint32_t, 4> output;
  };
  const Vector vectors[] = {
      {{0, 0, 0, 0}, {0, 0}, {0x6627e8d5, 0xe169c58d, 0xbc57ac4c, 0x9b00dbd8}},
      {{~0u, ~0u, ~0u, ~0u}, {~0u, ~0u}, {0x408f276d, 0x41c83b0e, 0xa20bc7c6, 0x6d5451fd}},
      {{0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344},
       {0xa4093822, 0x299f31d0},
       {0xd16cfe09, 0x94fdcceb, 0x5001e420, 0x24126ea1}},
  };
  for (const Vector& v : vectors) EXPECT_EQ(permutation::Philox4x32(v.counter, v.key), v.output);

  // Every implementation this processor runs enciphers a chunk as the block
  // function does, word-major, even when the block number carries into its
  // high word; a stream is its chunks in counter order.
  const std::uint64_t seed = 0x0123456789abcdefULL, stream = 0xfedcba9876543210ULL;
  const std::array<std::uint32_t, 2> key{0x89abcdefu, 0x01234567u};
  for (const auto& [name, chunk] : permutation::PhiloxChunkImplementations()) {
    for (const std::uint64_t first : {std::uint64_t{0}, std::uint64_t{0xfffffff8u}}) {
      std::uint32_t words[permutation::kChunkWords];
      chunk(first, stream, seed, words);
      for (int l = 0; l < permutation::kChunkBlocks; ++l) {
        const std::uint64_t block = first + l;
        const auto expected = permutation::Philox4x32(
            {static_cast<std::uint32_t>(block), static_cast<std::uint32_t>(block >> 32), 0x76543210u, 0xfedcba98u},
            key);
        for (int j = 0; j < 4; ++j)
          EXPECT_EQ(words[permutation::kChunkBlocks * j + l], expected[j]) << name << " " << block;
      }
    }
  }
  permutation::CounterStream s(seed, stream);
  std::uint32_t second[permutation::kChunkWords];
  permutation::PhiloxChunk(permutation::kChunkBlocks, stream, seed, second);
  for (int w = 0; w < permutation::kChunkWords; ++w) s.Next();
  for (std::uint32_t word : second) EXPECT_EQ(s.Next(), word);
  // Below stays below its bound and reaches both ends.
  permutation::CounterStream t(7, 3);
  int seen[5] = {};
  for (int k = 0; k < 5000; ++k) ++seen[t.Below(5)];
  for (int c : seen) EXPECT_NEAR(c, 1000, 150);
}

// Σ w_m y_m with the y drawn without replacement from N values of population
// variance σ²: mean μ Σw, variance σ² (N Σw² − (Σw)²) / (N − 1).
void ExpectDrawMoments(std::size_t neighbours) {
  const std::int64_t n = 61;
  std::vector<double> values(n);
  for (std::int64_t j = 0; j < n; ++j) values[j] = std::sin(1.7 * j) + 0.01 * j * j;
  const std::int64_t i = 17;
  detail::SparseRow row;
  for (std::size_t m = 0; m < neighbours; ++m) {
    row.columns.push_back(static_cast<std::int32_t>((i + 1 + m) % n));
    row.weights.push_back(0.5 + 0.1 * m);
  }
  row.columns.push_back(static_cast<std::int32_t>(i));  // a self weight: held, never drawn
  row.weights.push_back(3.0);
  const std::int32_t permutations = 40000;
  permutation::ConditionalRandomization randomization(values.data(), n, permutations, 11);
  permutation::ConditionalRandomization::Scratch scratch;
  permutation::Simulated s;
  ASSERT_TRUE(randomization.Simulate(i, row, scratch, s));

  const double N = n - 1;
  double mu = 0, sigma2 = 0, w = 0, w2 = 0;
  for (std::int64_t j = 0; j < n; ++j)
    if (j != i) mu += values[j] / N;
  for (std::int64_t j = 0; j < n; ++j)
    if (j != i) sigma2 += (values[j] - mu) * (values[j] - mu) / N;
  for (std::size_t m = 0; m < neighbours; ++m) w += row.weights[m], w2 += row.weights[m] * row.weights[m];
  const double mean = mu * w, variance = sigma2 * (N * w2 - w * w) / (N - 1);
  const double simulatedMean = s.sum / permutations;
  const double simulatedVariance = s.sumSquares / permutations - simulatedMean * simulatedMean;
  EXPECT_NEAR(simulatedMean, mean, 4 * std::sqrt(variance / permutations)) << neighbours;
  EXPECT_NEAR(simulatedVariance / variance, 1.0, 0.04) << neighbours;
  EXPECT_EQ(s.atLeast + s.atMost, permutations) << "continuous values tie with none";
}

TEST(ConditionalRandomization, DrawMomentsMatchSamplingWithoutReplacement) {
  ExpectDrawMoments(5);   // draws one by one, repeats drawn again
  ExpectDrawMoments(40);  // the partial shuffle of a table
  // No neighbour but itself: nothing to draw.
  std::vector<double> values = {1, 2, 3};
  permutation::ConditionalRandomization randomization(values.data(), 3, 9, 1);
  permutation::ConditionalRandomization::Scratch scratch;
  permutation::Simulated s;
  detail::SparseRow alone;
  alone.columns = {1};
  alone.weights = {1.0};
  EXPECT_FALSE(randomization.Simulate(1, alone, scratch, s));
  EXPECT_DOUBLE_EQ(permutation::FoldedPseudoP({3, 9, 0, 0}, 9), 0.4);
}

ZoPatternsInformation Knn(std::int32_t permutations, std::uint64_t seed) {
  ZoPatternsInformation info;
  info.FieldName = "VALUE";
  info.Conceptualization = KNearestNeighbors;
  info.KNeighbors = 4;
  info.Permutations = permutations;
  info.Seed = seed;
  return info;
}

// Under total randomization the permutation moments of Moran's I and General
// G are those of the randomization assumption the analytic results use.
TEST(TotalRandomization, SimulatedMomentsMatchTheAnalyticOnes) {
  const auto points = satest::RandomPoints(40, 10.0, 9);
  std::vector<double> values;
  for (std::size_t i = 0; i < points.size(); ++i) values.push_back(5.0 + points[i].x + 3 * std::cos(1.3 * i));
  auto layer = satest::MakePointLayer(points, values);
  ZoAnalyzingPatterns patterns;
  for (int kind = 0; kind < 2; ++kind) {
    ZoAnalyzingExponent r;
    const ZoPatternsInformation info = Knn(20000, 5);
    ASSERT_TRUE(kind == 0 ? patterns.SpatialAutocorrelation(layer.dataset, info, r, false)
                          : patterns.HighOrLowCluster(layer.dataset, info, r, false) != 0);
    EXPECT_EQ(r.Permutations, 20000);
    EXPECT_NEAR(r.SimulatedMean, r.ExpectedIndex, 4 * std::sqrt(r.Variance / 20000)) << kind;
    EXPECT_NEAR(r.SimulatedVariance / r.Variance, 1.0, 0.05) << kind;
    EXPECT_NEAR(r.SimulatedZScore, (r.Index - r.SimulatedMean) / std::sqrt(r.SimulatedVariance), 1e-9);
    EXPECT_GE(r.PseudoPValue, 1.0 / 20001);
    EXPECT_LE(r.PseudoPValue, 1.0);
    // Without permutations the record is as it always was.
    ZoAnalyzingExponent plain;
    ASSERT_TRUE(kind == 0 ? patterns.SpatialAutocorrelation(layer.dataset, Knn(0, 5), plain, false)
                          : patterns.HighOrLowCluster(layer.dataset, Knn(0, 5), plain, false) != 0);
    EXPECT_EQ(plain.Permutations, 0);
    EXPECT_TRUE(std::isnan(plain.PseudoPValue));
    EXPECT_EQ(plain.Index, r.Index);
    EXPECT_EQ(plain.PValue, r.PValue);
  }
}

std::vector<std::string> FieldNames(ZoDatasetVector* dataset) {
  std::vector<std::string> names;
  for (const auto& field : dataset->GetFieldInfos()) names.push_back(field.GetName().Str());
  return names;
}

TEST(LocalPermutations, SameBitsOnAnyThreadCountAndWeightsSource) {
  satest::TempDir tmp;
  satest::ScopedEnv tmpdir("TMPDIR", tmp.path().string());
  auto points = satest::RandomPoints(3000, 50.0, 21);
  points.push_back({1000, 1000});  // far from all: no neighbour within the band
  std::vector<double> values;
  for (std::size_t i = 0; i < points.size(); ++i) values.push_back(points[i].y + 5 * std::sin(0.7 * i));
  auto layer = satest::MakePointLayer(points, values);
  ZoPatternsInformation info = Knn(199, 42);
  info.Conceptualization = FixedDistanceBand;
  info.DistanceTolerance = 3.0;
  ZoClusteringDistributions analysis;
  const int threads = omp_get_max_threads();
  auto run = [&](bool hot, const ZoPatternsInformation& i, int nThreads) {
    omp_set_num_threads(nThreads);
    satest::MemoryResult result;
    const bool ok = hot ? analysis.HotSpotAnalyst(layer.dataset, result.dataset, i, false)
                        : analysis.ClusterOutlier(layer.dataset, result.dataset, i, false);
    omp_set_num_threads(threads);
    EXPECT_TRUE(ok) << analysis.GetStrErrorMes().Str();
    return std::make_pair(FieldNames(result.dataset),
                          satest::Texts(result.dataset, hot ? "Gi_PseudoP" : "ALMI_PseudoP"));
  };
  for (bool hot : {true, false}) {
    const auto one = run(hot, info, 1);
    EXPECT_EQ(one.first.back(), hot ? "Gi_PseudoP" : "ALMI_PseudoP");
    EXPECT_EQ(run(hot, info, 2), one) << hot;
    ZoPatternsInformation streamed = info;
    streamed.WeightsMemoryBudget = 1;  // the rows come from a temporary weights file
    EXPECT_EQ(run(hot, streamed, 2), one) << hot;
    EXPECT_EQ(one.second.back(), "") << "no neighbour: NULL";
    for (std::size_t k = 0; k + 1 < one.second.size(); ++k) {
      const double p = std::stod(one.second[k]);
      EXPECT_TRUE(p >= 1.0 / 200 && p <= 1.0) << k;
    }
    ZoPatternsInformation reseeded = info;
    reseeded.Seed = 43;
    EXPECT_NE(run(hot, reseeded, 2).second, one.second);
    // No permutations: the fields of old.
    ZoPatternsInformation plain = info;
    plain.Permutations = 0;
    auto fields = run(hot, plain, 2).first;
    fields.push_back(hot ? "Gi_PseudoP" : "ALMI_PseudoP");
    EXPECT_EQ(fields, one.first);
  }
  EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
}

TEST(LocalPermutations, RefusalsWriteNothing) {
  auto constant = satest::MakePointLayer(satest::RandomPoints(20, 5.0, 2), std::vector<double>(20, 4.0));
  ZoClusteringDistributions analysis;
  satest::MemoryResult hot;
  EXPECT_FALSE(analysis.HotSpotAnalyst(constant.dataset, hot.dataset, Knn(99, 1), false));
  EXPECT_EQ(satest::MessageIds(analysis.GetStrErrorMes()),
            (std::vector<std::string>{ZOC::msg::ESa021, ZOC::msg::ESa035}));
  EXPECT_EQ(hot.dataset->GetRecordCount(), 0);

  auto layer = satest::MakePointLayer(satest::RandomPoints(20, 5.0, 2));
  for (std::int32_t p : {-1, 1000001}) {
    satest::MemoryResult clusters;
    EXPECT_FALSE(analysis.ClusterOutlier(layer.dataset, clusters.dataset, Knn(p, 1), false));
    EXPECT_TRUE(satest::HasMessageId(analysis.GetStrErrorMes(), ZOC::msg::ESa109)) << p;
    EXPECT_EQ(clusters.dataset->GetRecordCount(), 0);
    ZoAnalyzingPatterns patterns;
    ZoAnalyzingExponent r;
    EXPECT_FALSE(patterns.SpatialAutocorrelation(layer.dataset, Knn(p, 1), r, false));
    EXPECT_TRUE(satest::HasMessageId(patterns.GetStrErrorMes(), ZOC::msg::ESa109)) << p;
  }
}

}  // namespace
