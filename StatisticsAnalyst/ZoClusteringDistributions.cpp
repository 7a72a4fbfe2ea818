// The public calls of ZoClusteringDistributions: the shared checks, then the
// local-statistics pipeline of detail/local/ with the analysis' own part.
#include "StatisticsAnalyst/ZoClusteringDistributions.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/local/Classification.h"
#include "StatisticsAnalyst/detail/local/ClusterOutlier.h"
#include "StatisticsAnalyst/detail/local/HotSpot.h"
#include "StatisticsAnalyst/detail/local/OptimizedHotSpot.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

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

bool ZoClusteringDistributions::PartitionTests(ZoDatasetVector* source, const ZoPatternsInformation& info,
                                               bool clusterOutlier, ZoPartitionTests& tests) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
           if (!CheckInputAndResult(source, source)) return 0;
           ZoRecordsetPtr records = QueryOrderedBy(source, kSystemIdField);
           if (!records || !CheckParameterValid(records.get(), info)) return 0;
           detail::CallProgress progress(m_progress, false);
           detail::local::HotSpot hotSpot(info.SecondFieldName);
           detail::local::ClusterOutlier clusters;
           detail::local::LocalStatistic& statistic =
               clusterOutlier ? static_cast<detail::local::LocalStatistic&>(clusters) : hotSpot;
           return Report(detail::local::RunLocalTests(source, records.get(), info, progress, statistic, tests));
         }) != 0;
}

bool ZoClusteringDistributions::PartitionFdr(const ZoPartitionTests& all, std::int64_t count, ZoPartition& whole) {
  if (all.Ids.size() != all.PValues.size() || count < static_cast<std::int64_t>(all.Ids.size())) return false;
  std::vector<detail::local::FdrCandidate> candidates(all.Ids.size());
  for (std::size_t k = 0; k < candidates.size(); ++k) candidates[k] = {all.Ids[k], all.PValues[k]};
  std::vector<int> levels;
  detail::local::FdrLevels(candidates, count, levels);
  std::vector<std::pair<std::int64_t, int>> byId;
  for (std::size_t k = 0; k < candidates.size(); ++k)
    if (levels[k] > 0) byId.push_back({candidates[k].id, levels[k]});
  std::sort(byId.begin(), byId.end());
  whole.FdrIds.clear(), whole.FdrLevels.clear();
  for (const auto& [id, level] : byId) whole.FdrIds.push_back(id), whole.FdrLevels.push_back(level);
  const double sum = detail::SumExactly(all.Sum);
  whole.FdrMean = all.Finite > 0 ? sum / static_cast<double>(all.Finite) : 0.0;
  return true;
}

unsigned char ZoClusteringDistributions::OptimizedHotSpotAnalyst(ZoDatasetVector* source, ZoDatasetVector* result,
                                                                 const ZoOptimizedInformation& info,
                                                                 unsigned char showProgress,
                                                                 ZoOptimizedReport* report) {
  ClearErrorMessage();
  return Guard(
      [&]() -> unsigned char {
        detail::CallProgress progress(m_progress, showProgress != 0);
        ZoOptimizedReport found;
        detail::Status status = detail::local::OptimizedHotSpot(source, result, info, progress, found);
        if (status && report) *report = found;
        return Report(status.Then(msg::ESa095));
      },
      msg::ESa095);
}

int ZoClusteringDistributions::OptimizedResultType(const ZoOptimizedInformation& info, int sourceType) {
  return detail::local::OptimizedResultType(info, sourceType);
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
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    // Point datasets only: the methods cluster point locations. The order of
    // the checks decides which identifier a call with several faults reports.
    if (!source) return AddErrorMessage(msg::EEg002), 0;
    if (!result) return AddErrorMessage(msg::EEg032), 0;
    if (!source->IsOpen() && !source->Open()) return AddErrorMessage(msg::EEe018), 0;
    if (source->GetType() != DatasetPoint) return AddErrorMessage(msg::EEe018), 0;
    if (!result->IsOpen()) result->Open();
    if (result->GetType() != source->GetType()) return AddErrorMessage(msg::EEe017), 0;
    if (info.MinPoints > source->GetRecordCount()) {
      AppendErrorText(ZoStringEx::Format(ZoStringEx::LoadResString(msg::ESa074),
                                         {LumaUnicodeString(std::to_string(info.MinPoints))}));
      return 0;
    }
    ZoRecordsetPtr records = QueryOrderedBy(source, kSystemIdField);
    if (!records) return 0;
    detail::CallProgress progress(m_progress, showProgress != 0);
    detail::clustering::DensityRun run(progress.get());
    return Report(run.Run(records.get(), result, info, summary));
  });
}

}  // namespace ZOC
