// The public calls of ZoAnalyzingPatterns for one part of a dataset split
// over processes; the work is in detail/partition/.
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/detail/common/ExactSum.h"
#include "StatisticsAnalyst/detail/global/GeneralG.h"
#include "StatisticsAnalyst/detail/global/Moran.h"
#include "StatisticsAnalyst/detail/partition/GlobalParts.h"
#include "StatisticsAnalyst/detail/partition/Scan.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

bool ZoAnalyzingPatterns::PartitionScan(ZoDatasetVector* dataset, const ZoPatternsInformation& info, double centre,
                                        bool reach, ZoPartitionScan& scan) {
  ClearErrorMessage();
  return Guard(
      [&] {
        ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
        if (!records) return false;
        return Report(detail::partition::Scan(records.get(), info, centre, reach, scan));
      },
      msg::ESa111);
}

bool ZoAnalyzingPatterns::PartitionEdges(ZoDatasetVector* dataset, const ZoPatternsInformation& info, bool generalG,
                                         ZoPartitionEdges& edges) {
  ClearErrorMessage();
  const char* summary = generalG ? msg::ESa035 : msg::ESa041;
  return Guard(
      [&] {
        ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
        if (!records) return false;
        return Report(detail::partition::Edges(records.get(), info, generalG, edges).Then(summary));
      },
      summary);
}

bool ZoAnalyzingPatterns::PartitionSums(ZoDatasetVector* dataset, const ZoPatternsInformation& info, bool generalG,
                                        const ZoPartitionEdges& incoming, ZoPartitionSums& sums) {
  ClearErrorMessage();
  const char* summary = generalG ? msg::ESa035 : msg::ESa041;
  return Guard(
      [&] {
        ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
        if (!records) return false;
        return Report(detail::partition::Sums(records.get(), info, generalG, incoming, sums).Then(summary));
      },
      summary);
}

namespace {

double Total(const LumaArray<double>& expansion) { return detail::SumExactly(expansion); }

}  // namespace

bool ZoAnalyzingPatterns::MoranFromSums(const ZoPartitionSums& total, const ZoPartition& whole,
                                        ZoAnalyzingExponent& result) {
  ZoAnalyzingExponent r;
  const detail::global::MoranSums::Part pairs{Total(total.S0), Total(total.S1), Total(total.Cross)};
  if (!detail::global::FinishMoran(static_cast<double>(whole.Count), pairs, Total(total.S2), whole.Deviation2,
                                   whole.Deviation4, r))
    return false;
  result = r;
  return true;
}

bool ZoAnalyzingPatterns::GeneralGFromSums(const ZoPartitionSums& total, const ZoPartition& whole,
                                           ZoAnalyzingExponent& result) {
  ZoAnalyzingExponent r;
  const detail::global::GeneralGSums::Part sum{Total(total.S0), Total(total.S1), Total(total.Cross), Total(total.Pairs),
                                               Total(total.M1), Total(total.M2), Total(total.M3),    Total(total.M4)};
  if (!detail::global::GeneralGSums::Finish(static_cast<double>(whole.Count), sum, Total(total.S2), r)) return false;
  result = r;
  return true;
}

}  // namespace ZOC
