#include "StatisticsAnalyst/detail/global/GlobalStatistic.h"

#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/weights/MatrixWeights.h"
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

// Feeds sorted in-memory units row by row.
template <class Sums>
Status FeedUnits(const LumaArray<WeightMatrixUnit>& units, std::int64_t n, Sums& sums, Stage& stage) {
  ZoSparseRow row;
  std::size_t u = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    if (!stage.Step(i, n)) return Status::Fail(msg::IMb030);
    row.columns.clear();
    row.weights.clear();
    row.transposed.clear();
    // Units are sorted by key i·n + j; w(j, i) is found by one binary search
    // per stored weight, never by visiting all n² positions.
    for (; u < units.size() && units[u].Index < (i + 1) * n; ++u) {
      const auto j = static_cast<std::int32_t>(units[u].Index - i * n);
      const int t = weights::FindUnit(units, static_cast<int>(j * n + i));
      row.columns.push_back(j);
      row.weights.push_back(units[u].Weight);
      row.transposed.push_back(t >= 0 ? units[static_cast<std::size_t>(t)].Weight : 0.0);
    }
    sums.AddRow(i, row);
  }
  return Status::Ok();
}

template <class Sums>
Status InMemory(ZoRecordset* records, const ZoPatternsInformation& info, const KindTexts& texts, Stage& stage,
                Exponent& result) {
  if (stage.progress) stage.progress->SetBothPosRange(0, 60);
  LumaArray<double> values;
  Status status = ReadFieldValues(records, info.FieldName, texts.nonNegative, values);
  if (!status) return status;  // reported alone, as the weights' failures are
  ScaleToUnitRange(values);
  LumaArray<WeightMatrixUnit> units;
  status = weights::BuildWeightList(records, info, stage.progress.get(), static_cast<bool>(stage.progress), units);
  if (!status) return status;
  stage.Enter(texts);
  if (values.empty() || units.empty()) return Status::Fail(msg::ESa031).Then(texts.summary);
  Sums sums(values);
  status = FeedUnits(units, static_cast<std::int64_t>(values.size()), sums, stage);
  if (status) status = Finish(sums, result);
  return status.Then(texts.summary);
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
// by one. Both give the same bits (see kSumBlock).
template <class Sums>
Status Feed(weights::WeightRows& file, Sums& sums, Stage& stage) {
  const std::int64_t n = file.Count();
  if (const weights::CsrWeights* csr = file.Memory()) {
    const bool fed = FeedParallel(
        sums, n, [csr](std::int64_t i, ZoSparseRow& row) { csr->Row(i, row); },
        [&](std::int64_t i) { return stage.Step(i, n); });
    if (!fed) return Status::Fail(msg::IMb030);
    csr->ColumnSums(Sums::kDiagonalInColumns, sums.Columns());
    return Status::Ok();
  }
  ZoSparseRow row;
  for (std::int64_t i = 0; i < n; ++i) {
    if (!stage.Step(i, n)) return Status::Fail(msg::IMb030);
    if (Status s = file.Next(i, row); !s) return s;
    sums.AddRow(i, row);
  }
  return Status::Ok();
}

template <class Sums>
Status Streamed(ZoRecordset* records, const ZoPatternsInformation& info, const KindTexts& texts, Stage& stage,
                Exponent& result) {
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
  // A caller's file orders its features by its own unique-ID field: read the
  // values in that order so that row i and value i belong to one feature.
  if (status && !file.UniqueIdField().EqualsNoCase(kSystemIdField)) {
    ZoQueryDef query;
    query.m_order = LumaUnicodeString(" Order BY ") + file.UniqueIdField();
    ZoRecordsetPtr ordered(dataset->Query(query));
    status =
        ordered ? ReadFieldValues(ordered.get(), info.FieldName, texts.nonNegative, values) : Status::Fail(msg::EKa013);
  }
  if (!status) return status.Then(texts.summary);
  ScaleToUnitRange(values);

  stage.Enter(texts);
  Sums sums(values);
  if (Status fed = Feed(file, sums, stage); !fed) return fed.Then(texts.summary);
  file.Close();
  return Finish(sums, result).Then(texts.summary);
}

}  // namespace

Status FeedMoran(weights::WeightRows& file, ZoMoranSums& sums, detail::CallProgress& progress) {
  Stage stage{progress, progress ? ZoStringEx::LoadResString(msg::IMb329) : LumaUnicodeString()};
  return Feed(file, sums, stage);
}

Status Run(ZoRecordset* records, const ZoPatternsInformation& info, Kind kind, detail::CallProgress& progress,
           Exponent& result) {
  const KindTexts texts = TextsOf(kind);
  Stage stage{progress, {}};
  const bool streamed =
      info.Conceptualization == SpatialWeightsFile || records->GetRecordCount() > limits::kInMemoryFeatures;
  if (kind == Kind::Moran)
    return streamed ? Streamed<ZoMoranSums>(records, info, texts, stage, result)
                    : InMemory<ZoMoranSums>(records, info, texts, stage, result);
  return streamed ? Streamed<ZoGeneralGSums>(records, info, texts, stage, result)
                  : InMemory<ZoGeneralGSums>(records, info, texts, stage, result);
}

}  // namespace ZOC::detail::global
