// Global Moran's I and General G of ZoAnalyzingPatterns: the in-memory path
// over sorted weight units and the path that streams a weights file.
#include <new>

#include "StatisticsAnalyst/GlobalStatisticSums.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileRows.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "host/ZoStringEx.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace {

// The in-memory path holds weights for at most this many features.
constexpr std::int64_t kInMemoryLimit = 10000;

bool UsesFile(const ZoPatternsInformation& info, std::int64_t n) {
  return info.Conceptualization == SpatialWeightsFile || n > kInMemoryLimit;
}

// Progress of the statistic stage: positions 61-100 of the run.
void EnterStatisticStage(ZoCallProgress& progress, const char* title, const char* format,
                         LumaUnicodeString& formatText) {
  if (!progress) return;
  progress->SetBothPosRange(61, 100);
  progress->SetTitleMessage(ZoStringEx::LoadResString(title));
  progress->SetMessage(ZoStringEx::LoadResString(title));
  formatText = ZoStringEx::LoadResString(format);
}

// Points m_stage at a call's progress for as long as the call runs.
class StageScope {
 public:
  StageScope(ZoCallProgress*& slot, ZoCallProgress& progress) : m_slot(slot) { m_slot = &progress; }
  ~StageScope() { m_slot = nullptr; }

 private:
  ZoCallProgress*& m_slot;
};

}  // namespace

bool ZoAnalyzingPatterns::InMemoryWeights(ZoRecordset* records, const ZoPatternsInformation& info,
                                          ZoCallProgress& progress, LumaArray<WeightMatrixUnit>& units) {
  ZoStatisticsUtilities utilities;
  utilities.SetProgress(progress.get());
  if (utilities.GetSpatialWeight(records, info, units, static_cast<bool>(progress))) return true;
  AppendErrorText(utilities.GetStrErrorMes());
  return false;
}

bool ZoAnalyzingPatterns::ReadValues(ZoRecordset* records, const LumaUnicodeString& field, bool nonNegative,
                                     LumaArray<double>& values) {
  values.clear();
  values.reserve(static_cast<std::size_t>(records->GetRecordCount()));
  LUMA::LumaVariant value;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(field, value);
    const double x = value.ToDouble();
    if (nonNegative && x < 0.0) {
      AddErrorMessage(msg::ESa022);
      return false;
    }
    values.push_back(x);
  }
  return true;
}

template <class Sums>
bool ZoAnalyzingPatterns::FeedUnits(const LumaArray<WeightMatrixUnit>& units, std::int64_t n, Sums& sums) {
  ZoSparseRow row;
  std::size_t u = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    if (m_stage && !m_stage->Step(m_stageFormat, i, n)) {
      AddErrorMessage(msg::IMb030);
      return false;
    }
    row.columns.clear();
    row.weights.clear();
    row.transposed.clear();
    // Units are sorted by key i·n + j; w(j, i) is found by one binary search
    // per stored weight, never by visiting all n² positions.
    for (; u < units.size() && units[u].Index < (i + 1) * n; ++u) {
      const auto j = static_cast<std::int32_t>(units[u].Index - i * n);
      const int t = ZoStatisticsUtilities::FindWeightIndex(units, static_cast<int>(j * n + i));
      row.columns.push_back(j);
      row.weights.push_back(units[u].Weight);
      row.transposed.push_back(t >= 0 ? units[static_cast<std::size_t>(t)].Weight : 0.0);
    }
    sums.AddRow(i, row);
  }
  return true;
}

bool ZoAnalyzingPatterns::GetAutoCorrelation(const LumaArray<double>& values,
                                             const LumaArray<WeightMatrixUnit>& weights,
                                             ZoAnalyzingExponent& result) {
  if (values.empty() || weights.empty()) {
    AddErrorMessage(msg::ESa031);
    return false;
  }
  ZoMoranSums sums(values);
  if (!FeedUnits(weights, static_cast<std::int64_t>(values.size()), sums)) return false;
  ZoAnalyzingExponent r;
  if (const char* id = sums.Finish(r)) {
    AddErrorMessage(id);
    return false;
  }
  result = r;
  return true;
}

unsigned char ZoAnalyzingPatterns::GetGeneralG(const LumaArray<double>& values,
                                               const LumaArray<WeightMatrixUnit>& weights,
                                               ZoAnalyzingExponent& result) {
  if (values.empty() || weights.empty()) {
    AddErrorMessage(msg::ESa031);
    return 0;
  }
  ZoGeneralGSums sums(values);
  if (!FeedUnits(weights, static_cast<std::int64_t>(values.size()), sums)) return 0;
  ZoAnalyzingExponent r;
  if (const char* id = sums.Finish(r)) {
    AddErrorMessage(id);
    return 0;
  }
  result = r;
  return 1;
}

template <class Sums>
bool ZoAnalyzingPatterns::StreamStatistic(ZoRecordset* records, const ZoPatternsInformation& info,
                                          ZoAnalyzingExponent& result, bool showProgress, const char* title,
                                          const char* format, bool nonNegative) {
  ZoCallProgress progress(nullptr, showProgress);
  StageScope stage(m_stage, progress);
  if (progress) {
    progress->SetBothPosRange(0, 60);
    progress->SetTitleMessage(ZoStringEx::LoadResString(title));
    m_stageFormat = ZoStringEx::LoadResString(format);
  }
  ZoDatasetVector* dataset = records->GetDataset();
  LumaArray<double> values;
  if (!ReadValues(records, info.FieldName, nonNegative, values)) return false;

  // The weights file: built here for conceptualizations 1 to 7 (K nearest
  // included: its transpose is taken in memory, not from an n × n file), or
  // the caller's file for 8.
  ZoWeightsFileRows file;
  LumaUnicodeString path = info.WeightsFilePath;
  if (info.Conceptualization >= InverseDistance && info.Conceptualization <= KNearestNeighbors) {
    if (!file.BuildTemporary(dataset, info, progress.get())) {
      AppendErrorText(file.Error());
      return false;
    }
  } else if (info.Conceptualization != SpatialWeightsFile) {
    AddErrorMessage(msg::ESa026);
    return false;
  }
  if (!file.Open(dataset, info.Conceptualization == SpatialWeightsFile ? path : file.TemporaryPath())) {
    AppendErrorText(file.Error());
    return false;
  }
  // A caller's file orders its features by its own unique-ID field: read the
  // values in that order so that row i and value i belong to one feature.
  if (!file.UniqueIdField().EqualsNoCase(kSystemIdField)) {
    ZoRecordsetPtr ordered = QueryOrderedBy(dataset, file.UniqueIdField());
    if (!ordered) return false;
    if (!ReadValues(ordered.get(), info.FieldName, nonNegative, values)) return false;
  }

  EnterStatisticStage(progress, title, format, m_stageFormat);
  Sums sums(values);
  ZoSparseRow row;
  const std::int64_t n = file.Count();
  for (std::int64_t i = 0; i < n; ++i) {
    if (progress && !progress.Step(m_stageFormat, i, n)) {
      AddErrorMessage(msg::IMb030);
      return false;
    }
    if (!file.Next(i, row)) {
      AppendErrorText(file.Error());
      return false;
    }
    sums.AddRow(i, row);
  }
  file.Close();
  ZoAnalyzingExponent r;
  if (const char* id = sums.Finish(r)) {
    AddErrorMessage(id);
    return false;
  }
  result = r;
  return true;
}

bool ZoAnalyzingPatterns::SpatialAutocorrelationBinary(ZoRecordset* records, const ZoPatternsInformation& info,
                                                       ZoAnalyzingExponent& result, bool showProgress) {
  return StreamStatistic<ZoMoranSums>(records, info, result, showProgress, msg::IMb328, msg::IMb329, false);
}

unsigned char ZoAnalyzingPatterns::HighOrLowClusterBinary(ZoRecordset* records, const ZoPatternsInformation& info,
                                                          ZoAnalyzingExponent& result, unsigned char showProgress) {
  return StreamStatistic<ZoGeneralGSums>(records, info, result, showProgress != 0, msg::IMb334, msg::IMb335, true) ? 1 : 0;
}

bool ZoAnalyzingPatterns::SpatialAutocorrelation(ZoDatasetVector* dataset, const ZoPatternsInformation& info,
                                                 ZoAnalyzingExponent& result, bool showProgress) {
  ClearErrorMessage();
  try {
    ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
    if (!records) return false;
    const std::int64_t n = records->GetRecordCount();
    bool ok = false;
    if (UsesFile(info, n)) {
      ok = SpatialAutocorrelationBinary(records.get(), info, result, showProgress);
    } else {
      ZoCallProgress progress(nullptr, showProgress);
      StageScope stage(m_stage, progress);
      if (progress) progress->SetBothPosRange(0, 60);
      LumaArray<WeightMatrixUnit> units;
      if (!InMemoryWeights(records.get(), info, progress, units)) return false;  // its own message stands alone
      LumaArray<double> values;
      ReadValues(records.get(), info.FieldName, false, values);
      EnterStatisticStage(progress, msg::IMb328, msg::IMb329, m_stageFormat);
      ok = GetAutoCorrelation(values, units, result);
    }
    if (!ok) AddErrorMessage(msg::ESa041);
    return ok;
  } catch (const std::bad_alloc&) {
    AddErrorMessage(msg::EUb002);
    AddErrorMessage(msg::ESa041);
    return false;
  }
}

unsigned char ZoAnalyzingPatterns::HighOrLowCluster(ZoDatasetVector* dataset, const ZoPatternsInformation& info,
                                                    ZoAnalyzingExponent& result, unsigned char showProgress) {
  ClearErrorMessage();
  try {
    ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
    if (!records) return 0;
    const std::int64_t n = records->GetRecordCount();
    unsigned char ok = 0;
    if (UsesFile(info, n)) {
      ok = HighOrLowClusterBinary(records.get(), info, result, showProgress);
    } else {
      ZoCallProgress progress(nullptr, showProgress != 0);
      StageScope stage(m_stage, progress);
      if (progress) progress->SetBothPosRange(0, 60);
      LumaArray<double> values;
      if (!ReadValues(records.get(), info.FieldName, true, values)) return 0;
      LumaArray<WeightMatrixUnit> units;
      if (!InMemoryWeights(records.get(), info, progress, units)) return 0;
      EnterStatisticStage(progress, msg::IMb334, msg::IMb335, m_stageFormat);
      ok = GetGeneralG(values, units, result);
    }
    if (!ok) AddErrorMessage(msg::ESa035);
    return ok;
  } catch (const std::bad_alloc&) {
    AddErrorMessage(msg::EUb002);
    AddErrorMessage(msg::ESa035);
    return 0;
  }
}

}  // namespace ZOC
