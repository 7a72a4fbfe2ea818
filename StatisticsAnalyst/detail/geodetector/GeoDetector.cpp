#include "StatisticsAnalyst/detail/geodetector/GeoDetector.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/geodetector/Detectors.h"
#include "StatisticsAnalyst/detail/geodetector/Strata.h"
#include "host/LumaFieldInfo.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::geodetector {

namespace {

using LUMA::LumaUnicodeString;

LumaUnicodeString Count(std::int64_t n) { return LumaUnicodeString(std::to_string(n)); }

// Every factor's strata, checked: more than one, fewer than the features,
// and few enough for the risk detector when it is asked.
Status FormStrata(const DetectorTable& table, const std::vector<FactorSpec>& specs,
                  const ZoGeoDetectorInformation& info, std::vector<FactorStrata>& strata) {
  const auto n = static_cast<std::int64_t>(table.y.size());
  strata.clear();
  for (std::size_t f = 0; f < specs.size(); ++f) {
    const FactorSpec& spec = specs[f];
    strata.push_back(spec.text
                         ? StratifyTexts(table.texts[f])
                         : StratifyNumbers(table.numbers[f], spec.categorical, info.Discretization, info.Classes));
    const std::int32_t L = strata.back().strata.count;
    if (L < 2) return Status::Fail(msg::ESa102, {spec.field});
    if (L >= n) return Status::Fail(msg::ESa105, {spec.field, Count(L), Count(n)});
    if ((info.Detectors & DetectRisk) && L > kRiskStrataLimit) return Status::Fail(msg::ESa106, {spec.field, Count(L)});
  }
  return Status::Ok();
}

Status Detect(const DetectorTable& table, const std::vector<FactorSpec>& specs, std::vector<FactorStrata>& strata,
              const ZoGeoDetectorInformation& info, CallProgress& progress, ZoGeoDetectorResult& result) {
  const Totals totals = TotalsOf(table.y);
  result.Count = totals.n;
  result.Mean = totals.mean;
  result.Variance = totals.squares / static_cast<double>(totals.n);
  const std::size_t k = specs.size();
  const bool interactions = (info.Detectors & DetectInteraction) != 0;
  const long long steps = static_cast<long long>(k + (interactions ? k * (k - 1) / 2 : 0));
  const LumaUnicodeString format = progress ? ZoStringEx::LoadResString(msg::IMb400) : LumaUnicodeString();
  long long step = 0;
  result.Factors.assign(k, {});
  for (std::size_t f = 0; f < k; ++f) {
    if (!progress.Step(format, step++, steps)) return Status::Fail(msg::IMb030);
    ZoDetectorFactor& factor = result.Factors[f];
    factor.Field = specs[f].field;
    factor.Discretized = strata[f].discretized;
    factor.Breaks = strata[f].breaks;
    const Moments moments = MomentsOf(table.y, strata[f].strata);
    FactorDetector(moments, totals, factor);
    for (std::size_t h = 0; h < factor.Strata.size(); ++h) factor.Strata[h].Label = strata[f].labels[h];
    if (info.Detectors & DetectRisk) factor.Risk = RiskDetector(moments, info.Alpha);
  }
  if (interactions) {
    for (std::size_t a = 0; a < k; ++a) {
      for (std::size_t b = a + 1; b < k; ++b) {
        if (!progress.Step(format, step++, steps)) return Status::Fail(msg::IMb030);
        const Stratification both = Intersect(strata[a].strata, strata[b].strata);
        ZoDetectorInteraction i;
        i.First = static_cast<std::int32_t>(a), i.Second = static_cast<std::int32_t>(b);
        i.Q = QStatistic(MomentsOf(table.y, both).Within(), totals);
        i.Strata = both.count;
        i.Kind = ClassifyInteraction(result.Factors[a].Q, result.Factors[b].Q, i.Q);
        result.Interactions.push_back(i);
      }
    }
  }
  if (info.Detectors & DetectEcological) {
    for (std::size_t a = 0; a < k; ++a)
      for (std::size_t b = 0; b < k; ++b)
        if (a != b)
          result.Ecological.push_back(EcologicalDetector(static_cast<std::int32_t>(a), static_cast<std::int32_t>(b),
                                                         result.Factors[a].WithinSumOfSquares,
                                                         result.Factors[b].WithinSumOfSquares, totals.n, info.Alpha));
  }
  return Status::Ok();
}

// Every feature with its geometry, its QlID ("SourceID"), the dependent
// value and, per factor, its stratum's label and mean ("<field>_Stratum",
// "<field>_Mean").
Status WriteStrata(ZoRecordset* records, ZoDatasetVector* out, const ZoGeoDetectorInformation& info,
                   const std::vector<FactorStrata>& strata, const ZoGeoDetectorResult& result, CallProgress& progress) {
  ZoDatasetVector* source = records->GetDataset();
  LUMA::LumaFieldInfo dependent;
  source->GetFieldInfo(info.DependentField, dependent);
  LUMA::LumaFieldInfos fields{LUMA::LumaFieldInfo("SourceID", LUMA::FieldInt32),
                              LUMA::LumaFieldInfo(dependent.GetName(), LUMA::FieldDouble)};
  for (const ZoDetectorFactor& factor : result.Factors) {
    fields.push_back(LUMA::LumaFieldInfo(factor.Field + "_Stratum", LUMA::FieldText));
    fields.push_back(LUMA::LumaFieldInfo(factor.Field + "_Mean", LUMA::FieldDouble));
  }
  if (!ZoEngineToolkit::CreateValidFields(out, fields) || fields.size() != 2 + 2 * result.Factors.size())
    return Status::Fail(msg::ELc071);
  if (!out->GetPrjCoordSys().IsSame(source->GetPrjCoordSys())) out->SetPrjCoordSys(source->GetPrjCoordSys());
  const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>> copied{{kSystemIdField, fields[0].GetName()},
                                                                            {dependent.GetName(), fields[1].GetName()}};
  std::vector<LumaUnicodeString> own;
  for (std::size_t f = 2; f < fields.size(); ++f) own.push_back(fields[f].GetName());
  if (progress) {
    progress->SetMessage(ZoStringEx::LoadResString(msg::IMb037));
  }
  const std::size_t n = strata.empty() ? 0 : strata[0].strata.of.size();
  const bool appended = out->AppendRecords(
      records, copied, progress.get(), own, [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
        if (k < 0 || static_cast<std::size_t>(k) >= n) return false;
        values.clear();
        for (std::size_t f = 0; f < strata.size(); ++f) {
          const auto h = static_cast<std::size_t>(strata[f].strata.of[static_cast<std::size_t>(k)]);
          values.emplace_back(strata[f].labels[h]);
          values.emplace_back(result.Factors[f].Strata[h].Mean);
        }
        return true;
      });
  if (appended && out->Commit()) return Status::Ok();
  if (progress && progress->IsCanceled()) return Status::Fail(msg::IMb030).Then(msg::ELc071);
  return Status::Fail(msg::ELc071);
}

}  // namespace

Status Run(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info, CallProgress& progress,
           ZoGeoDetectorResult& result, ZoDatasetVector* strataOut) {
  if (!dataset) return Status::Fail(msg::EEg002);
  if (!dataset->IsOpen()) dataset->Open();
  if (strataOut) {
    if (!strataOut->IsOpen()) strataOut->Open();
    if (strataOut->GetType() != dataset->GetType()) return Status::Fail(msg::EEe017);
  }
  std::vector<FactorSpec> specs;
  if (Status s = CheckParameters(dataset, info, specs); !s) return s;
  ZoRecordsetPtr records;
  if (Status s = QueryOrderedBy(dataset, kSystemIdField, records); !s) return s;
  if (progress) progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb398));
  DetectorTable table;
  if (Status s = ReadTable(records.get(), info.DependentField, specs, progress, table); !s) return s;
  const auto n = static_cast<std::int64_t>(table.y.size());
  if (n < 3) return Status::Fail(msg::ESa108, {Count(n)});
  const auto [low, high] = std::minmax_element(table.y.begin(), table.y.end());
  if (*low == *high) return Status::Fail(msg::ESa104, {info.DependentField});
  std::vector<FactorStrata> strata;
  if (Status s = FormStrata(table, specs, info, strata); !s) return s;
  ZoGeoDetectorResult computed;
  if (Status s = Detect(table, specs, strata, info, progress, computed); !s) return s;
  if (strataOut) {
    if (Status s = WriteStrata(records.get(), strataOut, info, strata, computed, progress); !s) return s;
  }
  result = std::move(computed);
  return Status::Ok();
}

}  // namespace ZOC::detail::geodetector
