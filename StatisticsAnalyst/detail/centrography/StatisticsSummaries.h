#pragma once
// The per-group summaries of the statistics fields (MAX, MIN, Sum, Mean,
// First, Last, Median), gathered feature by feature in the pass's order.
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/ZoMeasuringInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaVariant.h"

namespace ZOC {
class ZoRecordset;
}

namespace ZOC::detail::centrography {

using LUMA::LumaVariant;

// The suffix of a statistics type ("MAX", "Sum", ...), or null for an unknown code.
const char* StatisticsSuffix(int type);

class StatisticsSummaries {
 public:
  StatisticsSummaries(const LumaArray<LumaUnicodeString>& fields, const LumaArray<ZoStatisticsType>& types);

  // Starts a group with the current record's values. "EEg024" for no
  // recordset, "ESa001" for mismatched lists.
  detail::Status Start(ZoRecordset* records);
  // Folds the current record's values in.
  detail::Status Add(ZoRecordset* records);

  // The values as gathered: what a group of one feature writes.
  const LumaArray<LumaVariant>& Gathered() const { return m_values; }
  // The finished values: Mean divided by `count` (the group's features,
  // nulls included), Median from the non-null values; the rest as gathered.
  LumaArray<LumaVariant> Finished(std::int64_t count) const;

  // The median of the values as a double: the middle one, or the mean of
  // the middle two. An empty list leaves `out` as it was.
  static void GetMedian(const LumaArray<LumaVariant>& values, LumaVariant& out);

 private:
  detail::Status CheckRecords(ZoRecordset* records) const;

  const LumaArray<LumaUnicodeString>& m_fields;
  const LumaArray<ZoStatisticsType>& m_types;
  LumaArray<LumaVariant> m_values;
  // One collector per field; only the Median fields' are used.
  std::vector<LumaArray<LumaVariant>> m_medians;
};

}  // namespace ZOC::detail::centrography
