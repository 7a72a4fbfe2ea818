#include "StatisticsAnalyst/detail/centrography/StatisticsSummaries.h"

#include <algorithm>

#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::centrography {

const char* StatisticsSuffix(int type) {
  switch (type) {
    case StatisticsMax: return "MAX";
    case StatisticsMin: return "MIN";
    case StatisticsSum: return "Sum";
    case StatisticsMean: return "Mean";
    case StatisticsFirst: return "First";
    case StatisticsLast: return "Last";
    case StatisticsMedian: return "Median";
    default: return nullptr;
  }
}

StatisticsSummaries::StatisticsSummaries(const LumaArray<LumaUnicodeString>& fields,
                                         const LumaArray<ZoStatisticsType>& types)
    : m_fields(fields), m_types(types), m_values(fields.size()), m_medians(fields.size()) {}

detail::Status StatisticsSummaries::CheckRecords(ZoRecordset* records) const {
  if (!records) return detail::Status::Fail(msg::EEg024);
  if (m_fields.size() != m_types.size()) return detail::Status::Fail(msg::ESa001);
  return {};
}

detail::Status StatisticsSummaries::Start(ZoRecordset* records) {
  if (detail::Status status = CheckRecords(records); !status) return status;
  LumaVariant v;
  for (std::size_t i = 0; i < m_fields.size(); ++i) {
    records->GetFieldValue(m_fields[i], v);
    LumaVariant& slot = m_values[i];
    slot = LumaVariant();
    switch (m_types[i]) {
      case StatisticsMax:
      case StatisticsMin:
      case StatisticsSum:
      case StatisticsMean:
        if (!v.IsNull()) slot = LumaVariant(v.ToDouble());
        break;
      case StatisticsFirst:
      case StatisticsLast: slot = v; break;
      case StatisticsMedian:
        m_medians[i].clear();
        if (!v.IsNull()) m_medians[i].push_back(v);
        break;
      default: break;
    }
  }
  return {};
}

detail::Status StatisticsSummaries::Add(ZoRecordset* records) {
  if (detail::Status status = CheckRecords(records); !status) return status;
  LumaVariant v;
  for (std::size_t i = 0; i < m_fields.size(); ++i) {
    records->GetFieldValue(m_fields[i], v);
    LumaVariant& slot = m_values[i];
    switch (m_types[i]) {
      case StatisticsMax:
      case StatisticsMin: {
        if (v.IsNull()) break;
        const bool larger = m_types[i] == StatisticsMax;
        if (slot.IsNull())
          slot = v;
        else if (larger ? v.ToDouble() > slot.ToDouble() : v.ToDouble() < slot.ToDouble())
          slot = LumaVariant(v.ToDouble());
        break;
      }
      case StatisticsSum:
      case StatisticsMean:
        if (v.IsNull()) break;
        slot = slot.IsNull() ? v : LumaVariant(slot.ToDouble() + v.ToDouble());
        break;
      case StatisticsLast:
        slot = v;  // a null last value gives a null Last
        break;
      case StatisticsMedian:
        if (!v.IsNull()) m_medians[i].push_back(v);
        break;
      default:  // First keeps the group's first value
        break;
    }
  }
  return {};
}

LumaArray<LumaVariant> StatisticsSummaries::Finished(std::int64_t count) const {
  LumaArray<LumaVariant> out = m_values;
  for (std::size_t i = 0; i < out.size(); ++i) {
    if (m_types[i] == StatisticsMean && !out[i].IsNull() && count > 0)
      out[i] = LumaVariant(out[i].ToDouble() / static_cast<double>(count));
    else if (m_types[i] == StatisticsMedian)
      GetMedian(m_medians[i], out[i]);
  }
  return out;
}

void StatisticsSummaries::GetMedian(const LumaArray<LumaVariant>& values, LumaVariant& out) {
  const std::size_t n = values.size();
  if (n == 0) return;
  std::vector<double> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = values[i].ToDouble();
  // Only the lower half and the middle need ordering.
  std::partial_sort(v.begin(), v.begin() + static_cast<long>(n / 2 + 1), v.end());
  out = LumaVariant(n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0);
}

}  // namespace ZOC::detail::centrography
