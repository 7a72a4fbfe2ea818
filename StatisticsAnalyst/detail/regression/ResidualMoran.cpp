// Moran's I of the ordinary least squares residuals. The residuals are
// already in memory in the records' order, and the points were read with the
// model's values, so nothing is read again: the weights are opened and fed,
// with the residuals, exactly as the global Moran's I opens and feeds them.
#include <algorithm>

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/global/GlobalStatistic.h"
#include "StatisticsAnalyst/detail/regression/Run.h"
#include "StatisticsAnalyst/detail/weights/WeightRows.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoQueryDef.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::regression {

namespace {

// The residuals in the order of the rows. A caller's weights file orders its
// rows by its own unique-ID field: the records are queried in that order and
// each is found among the model's records by its QlID.
Status RowOrder(ZoRecordset* records, const LumaUnicodeString& field, const std::vector<double>& residual,
                const std::vector<std::int64_t>& ids, LumaArray<double>& values) {
  values.assign(residual.begin(), residual.end());
  if (field.EqualsNoCase(kSystemIdField)) return Status::Ok();
  std::vector<std::pair<std::int64_t, std::size_t>> byId(ids.size());
  for (std::size_t k = 0; k < ids.size(); ++k) byId[k] = {ids[k], k};
  std::sort(byId.begin(), byId.end());
  ZoRecordsetPtr ordered;
  if (Status s = detail::QueryOrderedBy(records->GetDataset(), field, ordered); !s) return s;
  std::size_t r = 0;
  for (bool more = ordered->MoveFirst(); more && !ordered->IsEOF(); more = ordered->MoveNext(), ++r) {
    const auto it = std::lower_bound(byId.begin(), byId.end(), std::make_pair(ordered->GetID(), std::size_t{0}));
    if (r >= values.size() || it == byId.end() || it->first != ordered->GetID()) return Status::Fail(msg::EKa013);
    values[r] = residual[it->second];
  }
  return r == values.size() ? Status::Ok() : Status::Fail(msg::EKa013);
}

}  // namespace

Status ResidualMoran(ZoRecordset* records, const ZoPatternsInformation& weights, const std::vector<double>& residual,
                     DesignExtras& extras, detail::CallProgress& progress, ZoAnalyzingExponent& out) {
  // Points read with the model serve the weights built from points.
  const ZoConceptualizationModel model = weights.Conceptualization;
  const bool fromPoints =
      extras.wantPoints && ((model >= InverseDistance && model <= ZoneOfIndifference) || model == KNearestNeighbors);
  detail::weights::WeightRows::GivenPoints given;
  if (fromPoints) given.points = std::move(extras.points), given.status = extras.status;
  detail::weights::WeightRows file;
  Status status = detail::global::OpenRows(records, weights, progress.get(), file, fromPoints ? &given : nullptr);
  LumaArray<double> values;
  if (status) status = RowOrder(records, file.UniqueIdField(), residual, extras.ids, values);
  if (status && file.Count() != static_cast<std::int64_t>(values.size())) status = Status::Fail(msg::ESa046);
  if (!status) return status.Then(msg::ESa041);
  detail::ScaleToUnitRange(values);
  detail::global::MoranSums sums(values);
  if (Status fed = detail::global::FeedMoran(file, sums, progress); !fed) return fed.Then(msg::ESa041);
  ZoAnalyzingExponent r;
  status = sums.Finish(r);
  if (status) out = r;
  return status.Then(msg::ESa041);
}

}  // namespace ZOC::detail::regression
