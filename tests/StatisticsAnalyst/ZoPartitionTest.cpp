// A dataset split into parts, each analysed from its own features and a halo
// of their neighbours, then put back together: local statistics equal one
// process's to the last bit, and so do global ones. The parts are cut here as
// a distributed run cuts them (features whose bounds meet the halo box, with
// their source ids), and the halo of K nearest grows until every own
// feature's neighbours are certainly inside.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "TestSupport.h"
#include "host/ZoDataSource.h"
#include "host/ZoGeometry.h"
#include "host/ZoRecordset.h"

using namespace ZOC;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

struct Box {
  double minX, minY, maxX, maxY;
};

// Every feature whose bounds meet `halo`, keeping its source id.
ZoDatasetVector* Cut(ZoDataSource& memory, ZoDatasetVector* whole, const Box& halo, const char* field,
                     const std::string& name) {
  ZoRecordsetPtr all(whole->Query({}));
  ZoQueryDef query;
  ZoGeometry g;
  for (all->MoveFirst(); !all->IsEOF(); all->MoveNext()) {
    double x0, y0, x1, y1;
    if (all->GetGeometry(g) && g.GetBounds(x0, y0, x1, y1) && x1 >= halo.minX && x0 <= halo.maxX && y1 >= halo.minY &&
        y0 <= halo.maxY)
      query.m_ids.push_back(all->GetID());
  }
  ZoDatasetVector* part = memory.CreateDatasetVector(name.c_str(), *whole, true);
  LUMA::LumaFieldInfo info;
  whole->GetFieldInfo(field, info);
  part->CreateField(info);
  ZoRecordsetPtr chosen(whole->Query(query));
  part->KeepSourceIds(true);
  EXPECT_TRUE(part->AppendRecords(chosen.get(), {{field, field}}));
  return part;
}

// A field by feature id: the record's own, or with `source` the id of the
// source record in the same position (a result numbered afresh).
std::map<std::int64_t, double> ById(ZoDatasetVector* dataset, const char* field, ZoDatasetVector* source = nullptr) {
  std::map<std::int64_t, double> out;
  ZoRecordsetPtr rs(dataset->Query({}));
  ZoRecordsetPtr ids(source ? source->Query({}) : nullptr);
  std::int64_t k = 0;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext(), ++k) {
    LUMA::LumaVariant v;
    rs->GetFieldValue(field, v);
    out[ids ? ids->GetIDAt(k) : rs->GetID()] = v.ToDouble();
  }
  return out;
}

// The whole dataset split at `cut` on x into two parts, analysed apart.
struct Split {
  ZoDatasetVector* whole;
  ZoPatternsInformation info;
  std::vector<ZoPatternsInformation> parts;  // info with each part's record
  std::vector<ZoDatasetVector*> datasets;
  std::unique_ptr<ZoDataSource> memory = ZoDataSource::CreateMemory();
  ZoAnalyzingPatterns patterns;

  Split(ZoDatasetVector* dataset, const ZoPatternsInformation& weights, double cut, double halo) : whole(dataset) {
    info = weights;
    double bounds[4];
    ZoRecordsetPtr all(whole->Query({}));
    ZoGeometry g;
    bounds[0] = bounds[1] = kInf, bounds[2] = bounds[3] = -kInf;
    for (all->MoveFirst(); !all->IsEOF(); all->MoveNext()) {
      double b[4];
      all->GetGeometry(g);
      g.GetBounds(b[0], b[1], b[2], b[3]);
      bounds[0] = std::min(bounds[0], b[0]), bounds[1] = std::min(bounds[1], b[1]);
      bounds[2] = std::max(bounds[2], b[2]), bounds[3] = std::max(bounds[3], b[3]);
    }
    for (int p = 0; p < 2; ++p) {
      ZoPatternsInformation part = info;
      part.Partition.Active = true;
      part.Partition.MinX = p == 0 ? -kInf : cut;
      part.Partition.MaxX = p == 0 ? cut : kInf;
      parts.push_back(part);
    }
    // K nearest: the halo grows until every own feature's reach is inside.
    for (int p = 0; p < 2; ++p) {
      for (double h = halo;; h *= 2) {
        ZoPartition& part = parts[p].Partition;
        part.HaloMinX = (p == 0 ? bounds[0] : cut) - h, part.HaloMaxX = (p == 0 ? cut : bounds[2]) + h;
        part.HaloMinY = bounds[1] - h, part.HaloMaxY = bounds[3] + h;
        ZoDatasetVector* d = Cut(*memory, whole, {part.HaloMinX, part.HaloMinY, part.HaloMaxX, part.HaloMaxY},
                                 info.FieldName.Str().c_str(), "part" + std::to_string(p));
        ZoPartitionScan scan;
        EXPECT_TRUE(patterns.PartitionScan(d, parts[p], 0.0, true, scan)) << patterns.GetStrErrorMes().Str();
        if (scan.Uncertain == 0 || info.Conceptualization != KNearestNeighbors) {
          datasets.push_back(d);
          break;
        }
      }
    }
    // The whole dataset's moments, merged exactly from the parts' scans.
    ZOC::detail::ExactSum sum, squares, deviation2, deviation4;
    std::int64_t count = 0;
    for (int p = 0; p < 2; ++p) {
      ZoPartitionScan scan;
      EXPECT_TRUE(patterns.PartitionScan(datasets[p], parts[p], 0.0, true, scan));
      count += scan.Features;
      for (double v : scan.Sum) sum.Add(v);
      for (double v : scan.Squares) squares.Add(v);
    }
    const double mean = sum.Value() / static_cast<double>(count);
    for (int p = 0; p < 2; ++p) {
      ZoPartitionScan scan;
      EXPECT_TRUE(patterns.PartitionScan(datasets[p], parts[p], mean, false, scan));
      for (double v : scan.Squares) deviation2.Add(v);
      for (double v : scan.Fourth) deviation4.Add(v);
    }
    for (auto& part : parts) {
      ZoPartition& r = part.Partition;
      r.Count = count, r.Sum = sum.Value(), r.SumSquares = squares.Value();
      r.Deviation2 = deviation2.Value(), r.Deviation4 = deviation4.Value();
      r.ExtentMinX = bounds[0], r.ExtentMinY = bounds[1], r.ExtentMaxX = bounds[2], r.ExtentMaxY = bounds[3];
    }
  }

  // The false discovery rate over the whole dataset from the parts' tests.
  void WithFdr(bool clusterOutlier) {
    ZoClusteringDistributions local;
    ZoPartitionTests all;
    for (int p = 0; p < 2; ++p) {
      ZoPartitionTests tests;
      ASSERT_TRUE(local.PartitionTests(datasets[p], parts[p], clusterOutlier, tests)) << local.GetStrErrorMes().Str();
      all.Ids.insert(all.Ids.end(), tests.Ids.begin(), tests.Ids.end());
      all.PValues.insert(all.PValues.end(), tests.PValues.begin(), tests.PValues.end());
      all.Sum.insert(all.Sum.end(), tests.Sum.begin(), tests.Sum.end());
      all.Finite += tests.Finite;
    }
    info.FDRCorrection = true;
    for (auto& part : parts) {
      ASSERT_TRUE(ZoClusteringDistributions::PartitionFdr(all, part.Partition.Count, part.Partition));
      part.FDRCorrection = true;
    }
  }

  // Global statistic from the parts: edges routed to their owners, sums in
  // part order.
  ZoAnalyzingExponent Global(bool generalG) {
    std::vector<ZoPartitionEdges> out(2), in(2);
    for (int p = 0; p < 2; ++p)
      EXPECT_TRUE(patterns.PartitionEdges(datasets[p], parts[p], generalG, out[p])) << patterns.GetStrErrorMes().Str();
    for (int p = 0; p < 2; ++p)
      for (std::size_t e = 0; e < out[p].From.size(); ++e) {
        const int owner = out[p].ToX[e] < parts[0].Partition.MaxX ? 0 : 1;
        EXPECT_NE(owner, p);
        in[owner].From.push_back(out[p].From[e]);
        in[owner].To.push_back(out[p].To[e]);
        in[owner].Weight.push_back(out[p].Weight[e]);
      }
    ZoPartitionSums total;
    auto append = [](LumaArray<double>& to, const LumaArray<double>& from) {
      to.insert(to.end(), from.begin(), from.end());
    };
    for (int p = 1; p >= 0; --p) {  // any order
      ZoPartitionSums s;
      EXPECT_TRUE(patterns.PartitionSums(datasets[p], parts[p], generalG, in[p], s)) << patterns.GetStrErrorMes().Str();
      append(total.S0, s.S0), append(total.S1, s.S1), append(total.S2, s.S2), append(total.Cross, s.Cross);
      append(total.Pairs, s.Pairs), append(total.M1, s.M1), append(total.M2, s.M2), append(total.M3, s.M3);
      append(total.M4, s.M4);
    }
    ZoAnalyzingExponent result;
    const bool ok = generalG ? ZoAnalyzingPatterns::GeneralGFromSums(total, parts[0].Partition, result)
                             : ZoAnalyzingPatterns::MoranFromSums(total, parts[0].Partition, result);
    EXPECT_TRUE(ok);
    return result;
  }
};

void ExpectSameGlobal(Split& split, bool generalG) {
  ZoAnalyzingExponent one;
  ASSERT_TRUE(generalG ? split.patterns.HighOrLowCluster(split.whole, split.info, one, 0)
                       : split.patterns.SpatialAutocorrelation(split.whole, split.info, one, false))
      << split.patterns.GetStrErrorMes().Str();
  const ZoAnalyzingExponent parts = split.Global(generalG);
  EXPECT_EQ(parts.Index, one.Index);
  EXPECT_EQ(parts.ExpectedIndex, one.ExpectedIndex);
  EXPECT_EQ(parts.Variance, one.Variance);
  EXPECT_EQ(parts.ZScore, one.ZScore);
}

// Each part's records (its own features only, under their source ids) hold
// exactly the one-process values.
template <class Run>
void ExpectSameLocal(Split& split, const std::vector<const char*>& fields, Run run) {
  auto results = ZoDataSource::CreateMemory("results");
  ZoDatasetVector* whole = results->CreateDatasetVector("whole", *split.whole);
  ZoClusteringDistributions local;
  ASSERT_TRUE(run(local, split.whole, whole, split.info)) << local.GetStrErrorMes().Str();
  std::size_t seen = 0;
  for (int p = 0; p < 2; ++p) {
    ZoDatasetVector* part = results->CreateDatasetVector(("part" + std::to_string(p)).c_str(), *split.whole);
    ASSERT_TRUE(run(local, split.datasets[p], part, split.parts[p])) << local.GetStrErrorMes().Str();
    for (const char* field : fields) {
      const auto expected = ById(whole, field, split.whole);
      const auto got = ById(part, field);
      for (const auto& [id, value] : got) {
        ASSERT_TRUE(expected.count(id)) << id;
        EXPECT_EQ(value, expected.at(id)) << field << " of feature " << id;
      }
      if (field == fields.front()) seen += got.size();
    }
  }
  EXPECT_EQ(seen, static_cast<std::size_t>(split.whole->GetRecordCount()));  // every feature once
}

// Local Moran's I, Moran's I and General G.
void ExpectSameOthers(Split& split) {
  ExpectSameLocal(split, {"ALMI_MoranI", "ALMI_Zscore", "ALMI_Pvalue"},
                  [](auto& l, auto* s, auto* r, const auto& i) { return l.ClusterOutlier(s, r, i, 0) != 0; });
  ExpectSameGlobal(split, false);
  ExpectSameGlobal(split, true);
}

ZoDatasetVector* Layer(std::unique_ptr<ZoDataSource>& source, const char* file) {
  source = ZoDataSource::Open(satest::DataPath(file).c_str(), false);
  return source ? source->GetDataset(0) : nullptr;
}

TEST(ZoPartition, PointPartsGiveOneProcessResults) {
  std::unique_ptr<ZoDataSource> source;
  ZoDatasetVector* baltim = Layer(source, "baltim.gpkg");
  ASSERT_TRUE(baltim);
  for (ZoConceptualizationModel c : {KNearestNeighbors, InverseDistance}) {
    ZoPatternsInformation info;
    info.FieldName = "PRICE";
    info.Conceptualization = c;
    info.KNeighbors = 6;
    info.DistanceTolerance = 12.0;
    info.Standardization = true;
    Split split(baltim, info, 925.0, c == KNearestNeighbors ? 1.0 : 12.0);
    auto hotSpot = [](auto& l, auto* s, auto* r, const auto& i) { return l.HotSpotAnalyst(s, r, i, 0) != 0; };
    ExpectSameLocal(split, {"Gi_Zscore", "Gi_Pvalue", "Gi_ConfInvl"}, hotSpot);
    ExpectSameOthers(split);
    split.WithFdr(false);  // the corrected bins, from every part's candidates
    ExpectSameLocal(split, {"Gi_ConfInvl"}, hotSpot);
  }
}

TEST(ZoPartition, RegionPartsGiveOneProcessResults) {
  std::unique_ptr<ZoDataSource> source;
  ZoDatasetVector* ny8 = Layer(source, "ny8.gpkg");
  ASSERT_TRUE(ny8);
  ZoPatternsInformation info;
  info.FieldName = "Cases";
  info.Conceptualization = ContiguityEdgesCorners;
  info.Standardization = true;
  // A halo of the largest tract's size holds every neighbour of an own tract.
  Split split(ny8, info, 420000.0, 60000.0);
  ExpectSameOthers(split);
}

TEST(ZoPartition, WholeDatasetOptionsAreRefusedInAPart) {
  std::unique_ptr<ZoDataSource> source;
  ZoDatasetVector* baltim = Layer(source, "baltim.gpkg");
  ASSERT_TRUE(baltim);
  ZoPatternsInformation info;
  info.FieldName = "PRICE";
  info.Conceptualization = KNearestNeighbors;
  info.KNeighbors = 4;
  info.Partition.Active = true;
  info.Partition.Count = 211;
  ZoClusteringDistributions local;
  for (auto change : {+[](ZoPatternsInformation& i) { i.Permutations = 99; },
                      +[](ZoPatternsInformation& i) { i.FDRCorrection = true; },  // without the levels
                      +[](ZoPatternsInformation& i) { i.Conceptualization = ZoneOfIndifference; }}) {
    ZoPatternsInformation refused = info;
    change(refused);
    satest::MemoryResult result;
    EXPECT_FALSE(local.HotSpotAnalyst(baltim, result.dataset, refused, 0));
    EXPECT_TRUE(satest::HasMessageId(local.GetStrErrorMes(), "ESa110")) << local.GetStrErrorMes().Str();
    EXPECT_EQ(result.dataset->GetRecordCount(), 0);
  }
  info.Partition.MinX = info.Partition.MaxX = 900.0;  // an empty box
  satest::MemoryResult result;
  EXPECT_FALSE(local.HotSpotAnalyst(baltim, result.dataset, info, 0));
  EXPECT_TRUE(satest::HasMessageId(local.GetStrErrorMes(), "ESa111")) << local.GetStrErrorMes().Str();
  // A part owning none of the features it holds writes none of them.
  info.Partition.MinX = 5000.0, info.Partition.MaxX = 6000.0;
  satest::MemoryResult nothing;
  EXPECT_TRUE(local.HotSpotAnalyst(baltim, nothing.dataset, info, 0)) << local.GetStrErrorMes().Str();
  EXPECT_EQ(nothing.dataset->GetRecordCount(), 0);
}

}  // namespace
