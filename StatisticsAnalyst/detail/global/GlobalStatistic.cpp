#include "StatisticsAnalyst/detail/global/GlobalStatistic.h"

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/permutation/TotalRandomization.h"
#include "StatisticsAnalyst/detail/weights/WeightRows.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::global {

namespace {

struct KindTexts {
  const char* title;
  const char* format;
  const char* summary;
  bool nonNegative;
};

KindTexts TextsOf(Kind kind) {
  return kind == Kind::Moran ? KindTexts{msg::IMb328, msg::IMb329, msg::ESa041, false}
                             : KindTexts{msg::IMb334, msg::IMb335, msg::ESa035, true};
}

// The statistic stage of a call: its progress and per-feature format.
struct Stage {
  detail::CallProgress& progress;
  LumaUnicodeString format;

  // Progress of the statistic stage: positions 61-100 of the run.
  void Enter(const KindTexts& texts) {
    if (!progress) return;
    progress->SetBothPosRange(61, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(texts.title));
    progress->SetMessage(ZoStringEx::LoadResString(texts.title));
    format = ZoStringEx::LoadResString(texts.format);
  }
  bool Step(std::int64_t i, std::int64_t n) { return progress.Step(format, i, n); }
};

template <class Sums>
Status Finish(const Sums& sums, Exponent& result) {
  Exponent r;
  Status status = sums.Finish(r);
  if (status) result = r;
  return status;
}

}  // namespace

// K nearest included: its transpose is taken in memory, not from an n × n file.
Status OpenRows(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* progress,
                weights::WeightRows& file, weights::WeightRows::GivenPoints* given) {
  ZoDatasetVector* dataset = records->GetDataset();
  if (info.Conceptualization >= InverseDistance && info.Conceptualization <= KNearestNeighbors) {
    if (Status s = file.BuildInMemory(records, info, progress, true, true, given); !s || file.InMemory()) return s;
    if (Status s = file.BuildTemporary(dataset, info, progress); !s) return s;
  } else if (info.Conceptualization != SpatialWeightsFile) {
    return Status::Fail(msg::ESa026);
  }
  const bool callers = info.Conceptualization == SpatialWeightsFile;
  return file.Open(dataset, callers ? info.WeightsFilePath : file.TemporaryPath());
}

namespace {

// Rows held in memory are summed on every core; rows read from a file one
// by one. Both give the same bits (see kSumBlock). With `store`, every row
// is also kept there for the permutation test.
template <class Sums>
Status Feed(weights::WeightRows& file, Sums& sums, Stage& stage, permutation::RowStore* store = nullptr) {
  const std::int64_t n = file.Count();
  const bool withDiagonal = Sums::kDiagonalInColumns;
  if (const weights::CsrWeights* csr = file.Memory()) {
    const bool fed = FeedParallel(
        sums, n, [csr](std::int64_t i, SparseRow& row) { csr->Row(i, row); },
        [&](std::int64_t i) { return stage.Step(i, n); });
    if (!fed) return Status::Fail(msg::IMb030);
    csr->ColumnSums(Sums::kDiagonalInColumns, sums.Columns());
    if (store) {
      SparseRow row;
      for (std::int64_t i = 0; i < n; ++i) csr->Row(i, row), store->Add(i, row, withDiagonal);
    }
    return Status::Ok();
  }
  SparseRow row;
  for (std::int64_t i = 0; i < n; ++i) {
    if (!stage.Step(i, n)) return Status::Fail(msg::IMb030);
    if (Status s = file.Next(i, row); !s) return s;
    sums.AddRow(i, row);
    if (store) store->Add(i, row, withDiagonal);
  }
  return Status::Ok();
}

// The permutation test beside the analytic result: Moran's I shuffles the
// deviations and scores the cross product, scaled to I; General G shuffles
// the values.
template <class Sums>
Status PermutationTest(const LumaArray<double>& values, const permutation::RowStore& store,
                       const ZoPatternsInformation& info, detail::CallProgress& progress, Exponent& result) {
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb401) : LumaUnicodeString();
  auto step = [&](std::int64_t done, std::int64_t total) { return progress.Step(format, done, total); };
  permutation::GlobalSimulation simulation;
  Status status;
  if constexpr (Sums::kDiagonalInColumns) {
    const std::vector<double> d = MoranSums::Deviations(values);
    double s0 = 0, d2 = 0;
    for (double w : store.weights) s0 += w;
    for (double v : d) d2 += v * v;
    const double scale = static_cast<double>(d.size()) / (s0 * d2);
    status = permutation::SimulateGlobal(permutation::GlobalForm::CrossProduct, d, store, scale, info.Permutations,
                                         info.Seed, step, simulation);
  } else {
    const std::vector<double> x(values.begin(), values.end());
    status = permutation::SimulateGlobal(permutation::GlobalForm::GeneralG, x, store, 1.0, info.Permutations, info.Seed,
                                         step, simulation);
  }
  if (!status) return status;
  result.Permutations = simulation.permutations;
  result.PseudoPValue = simulation.pseudoP;
  result.SimulatedMean = simulation.mean;
  result.SimulatedVariance = simulation.variance;
  result.SimulatedZScore = simulation.zScore;
  return Status::Ok();
}

// The statistic of `records`, whatever the size: rows from compressed sparse
// rows in memory within the budget, else from a weights file. With `alone`
// (up to 10000 features and no weights file named) a failure to read the
// values or to build the weights is reported without the statistic's
// summary; the statistic's own failures always carry it.
template <class Sums>
Status Compute(ZoRecordset* records, const ZoPatternsInformation& info, const KindTexts& texts, Stage& stage,
               bool alone, Exponent& result) {
  if (stage.progress) {
    stage.progress->SetBothPosRange(0, 60);
    stage.progress->SetTitleMessage(ZoStringEx::LoadResString(texts.title));
  }
  ZoDatasetVector* dataset = records->GetDataset();
  // Values and points come from one pass when the weights are built from points.
  LumaArray<double> values, none;
  weights::WeightRows::GivenPoints given;
  const bool fromPoints = (info.Conceptualization >= InverseDistance && info.Conceptualization <= ZoneOfIndifference) ||
                          info.Conceptualization == KNearestNeighbors;
  Status status = ReadFeatures(records, info.FieldName, texts.nonNegative, values, {}, none,
                               fromPoints ? &given.points : nullptr, given.status);
  weights::WeightRows file;
  if (status) status = OpenRows(records, info, stage.progress.get(), file, fromPoints ? &given : nullptr);
  if (status && alone && file.NoWeights()) status = Status::Fail(msg::ESa023);
  // A caller's file orders its features by its own unique-ID field: read the
  // values in that order so that row i and value i belong to one feature.
  if (status && !file.UniqueIdField().EqualsNoCase(kSystemIdField)) {
    ZoRecordsetPtr ordered;
    status = QueryOrderedBy(dataset, file.UniqueIdField(), ordered);
    if (status) status = ReadFieldValues(ordered.get(), info.FieldName, texts.nonNegative, values);
  }
  if (!status) return alone ? status : status.Then(texts.summary);
  ScaleToUnitRange(values);

  stage.Enter(texts);
  Sums sums(values);
  permutation::RowStore store;
  const bool permute = info.Permutations > 0;
  if (Status fed = Feed(file, sums, stage, permute ? &store : nullptr); !fed) return fed.Then(texts.summary);
  file.Close();
  Exponent analytic;
  if (Status finished = Finish(sums, analytic); !finished) return finished.Then(texts.summary);
  if (permute) {
    if (Status tested = PermutationTest<Sums>(values, store, info, stage.progress, analytic); !tested)
      return tested.Then(texts.summary);
  }
  result = analytic;
  return Status::Ok();
}

}  // namespace

Status FeedMoran(weights::WeightRows& file, MoranSums& sums, detail::CallProgress& progress) {
  Stage stage{progress, progress ? ZoStringEx::LoadResString(msg::IMb329) : LumaUnicodeString()};
  return Feed(file, sums, stage);
}

Status Run(ZoRecordset* records, const ZoPatternsInformation& info, Kind kind, detail::CallProgress& progress,
           Exponent& result) {
  if (Status status = CheckPermutations(info.Permutations); !status) return status;
  const KindTexts texts = TextsOf(kind);
  Stage stage{progress, {}};
  const bool alone =
      info.Conceptualization != SpatialWeightsFile && records->GetRecordCount() <= limits::kInMemoryFeatures;
  if (kind == Kind::Moran) return Compute<MoranSums>(records, info, texts, stage, alone, result);
  return Compute<GeneralGSums>(records, info, texts, stage, alone, result);
}

}  // namespace ZOC::detail::global
