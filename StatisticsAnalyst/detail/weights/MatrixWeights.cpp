#include "StatisticsAnalyst/detail/weights/MatrixWeights.h"

#include <algorithm>
#include <vector>

#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

namespace {

// Rows arrive in order with ascending columns, so the units are already
// sorted by key. A row whose sum is zero is left as it is.
void StandardizeRows(LUMA::LumaArray<WeightMatrixUnit>& units, const LUMA::LumaArray<double>& rowSums, std::int64_t n) {
  std::size_t cursor = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    const double s = rowSums[static_cast<std::size_t>(i)];
    const std::int64_t end = (i + 1) * n;
    const bool zero = limits::IsZero(s);
    for (; cursor < units.size() && units[cursor].Index < end; ++cursor)
      if (!zero) units[cursor].Weight /= s;
  }
}

}  // namespace

Status CheckListRequest(ZoRecordset* records, const ZoPatternsInformation& info) {
  if ((info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners) &&
      records->GetDataset()->GetType() != DatasetRegion)
    return Status::Fail(msg::ESa025);
  if (records->GetRecordCount() > kMaxListFeatures) return Status::Fail(msg::EUb003);
  return Status::Ok();
}

Status BuildWeightList(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* callerProgress,
                       bool showProgress, LUMA::LumaArray<WeightMatrixUnit>& units) {
  if (Status s = CheckListRequest(records, info); !s) return s;
  const std::int64_t n = records->GetRecordCount();
  CallProgress progress(callerProgress, showProgress);
  LUMA::LumaUnicodeString format;
  if (progress) {
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb330));
    format = ZoStringEx::LoadResString(msg::IMb331);
  }
  units.clear();
  LUMA::LumaArray<double> rowSums;
  RowBuilder rows;
  if (Status prepared = rows.Prepare(records, info); !prepared) return prepared;
  units.reserve(8192);
  std::vector<std::int64_t> columns;
  std::vector<double> weights;
  for (std::int64_t i = 0; i < n; ++i) {
    if (!progress.Step(format, i, n)) return Status::Fail(msg::IMb030);
    rows.Row(i, columns, weights);
    double sum = 0.0;
    for (std::size_t h = 0; h < columns.size(); ++h) {
      units.push_back({static_cast<std::int32_t>(i * n + columns[h]), weights[h]});
      sum += weights[h];
    }
    if (info.Standardization) rowSums.push_back(sum);
  }
  if (units.empty()) return Status::Fail(msg::ESa023);
  units.shrink_to_fit();
  if (info.Standardization) StandardizeRows(units, rowSums, n);
  return Status::Ok();
}

int FindUnit(const LUMA::LumaArray<WeightMatrixUnit>& units, int key) {
  std::int64_t low = 0, high = static_cast<std::int64_t>(units.size()) - 1;
  while (low <= high) {
    const std::int64_t mid = (low + high) / 2;
    const int k = units[static_cast<std::size_t>(mid)].Index;
    if (k == key) return static_cast<int>(mid);
    if (k < key)
      low = mid + 1;
    else
      high = mid - 1;
  }
  return -1;
}

void DenseRow(const LUMA::LumaArray<WeightMatrixUnit>& units, int row, int n, LUMA::LumaArray<double>& out) {
  out.assign(n > 0 ? static_cast<std::size_t>(n) : 0u, 0.0);
  if (n <= 0 || row < 0 || row >= n) return;
  const std::int64_t first = static_cast<std::int64_t>(row) * n, end = first + n;
  auto it = std::lower_bound(units.begin(), units.end(), first,
                             [](const WeightMatrixUnit& u, std::int64_t key) { return u.Index < key; });
  for (; it != units.end() && it->Index < end; ++it) out[static_cast<std::size_t>(it->Index - first)] = it->Weight;
}

}  // namespace ZOC::detail::weights
