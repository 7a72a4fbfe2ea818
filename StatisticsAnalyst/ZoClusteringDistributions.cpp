// The public calls of ZoClusteringDistributions: the shared checks, then the
// local-statistics pipeline of detail/local/ with the analysis' own part.
#include "StatisticsAnalyst/ZoClusteringDistributions.h"

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "StatisticsAnalyst/detail/local/ClusterOutlier.h"
#include "StatisticsAnalyst/detail/local/HotSpot.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

ZoRecordsetPtr ZoClusteringDistributions::OpenLocalRecords(ZoDatasetVector* source, ZoDatasetVector* result,
                                                           const ZoPatternsInformation& info,
                                                           const LumaUnicodeString& selfWeightField) {
  if (!CheckInputAndResult(source, result)) return nullptr;
  ZoRecordsetPtr records = QueryOrderedBy(source, kSystemIdField);
  if (!records || !CheckParameterValid(records.get(), info)) return nullptr;
  if (!selfWeightField.IsEmpty()) {
    ZoStatisticsUtilities fieldCheck;
    if (!fieldCheck.CheckFieldValid(source, selfWeightField)) {
      AddErrorMessage(msg::ESa004);
      return nullptr;
    }
  }
  return records;
}

unsigned char ZoClusteringDistributions::HotSpotAnalyst(ZoDatasetVector* source, ZoDatasetVector* result,
                                                        const ZoPatternsInformation& info, unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    ZoRecordsetPtr records = OpenLocalRecords(source, result, info, info.SecondFieldName);
    if (!records) return 0;
    detail::CallProgress progress(m_progress, showProgress != 0);
    detail::local::HotSpot statistic(info.SecondFieldName);
    return Report(detail::local::RunLocal(source, records.get(), result, info, progress, statistic));
  });
}

unsigned char ZoClusteringDistributions::ClusterOutlier(ZoDatasetVector* source, ZoDatasetVector* result,
                                                        const ZoPatternsInformation& info, unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    ZoRecordsetPtr records = OpenLocalRecords(source, result, info, {});
    if (!records) return 0;
    detail::CallProgress progress(m_progress, showProgress != 0);
    detail::local::ClusterOutlier statistic;
    return Report(detail::local::RunLocal(source, records.get(), result, info, progress, statistic));
  });
}

unsigned char ZoClusteringDistributions::DensityBasedClustering(ZoDatasetVector* source, ZoDatasetVector* result,
                                                                const ZoClusterInformation& info,
                                                                unsigned char showProgress, ZoClusterSummary* summary) {
  return Guard([&]() -> unsigned char {
    detail::clustering::DensityRun run;
    run.SetProgress(m_progress);
    const unsigned char ok = run.Run(source, result, info, showProgress != 0, summary);
    SetStrErrorMes(run.GetStrErrorMes());
    return ok;
  });
}

}  // namespace ZOC
