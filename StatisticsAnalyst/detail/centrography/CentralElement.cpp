// The central feature: the feature of a group with the smallest weighted sum
// of distances to the others, the most accessible one.
//
// Cost: every candidate's sum runs over the whole group, so a group of k
// features costs k² distances in O(k) memory. This is the one measure whose
// definition needs all pairs; the others are linear in the group. One
// group of 10^4 random points takes about 1.3 s of search (1.75 s for the
// whole zostat run; bench/centrography.sh).
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringPlane.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::centrography {

namespace {

// Σ over the group of d(i, j)·w(j), with s(i)·w(i) in place of the
// feature's own term, summed in feature order.
double Cost(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights,
            const LumaArray<double>& selfWeights, std::size_t i, ZoDistanceMethod method) {
  const LumaPoint2D& p = points[i];
  double cost = 0.0;
  for (std::size_t j = 0; j < points.size(); ++j) {
    if (j == i) {
      cost += selfWeights[i] * weights[i];
      continue;
    }
    const double dx = points[j].x - p.x, dy = points[j].y - p.y;
    const double d = method == Euclidean ? std::sqrt(dx * dx + dy * dy) : std::fabs(dx) + std::fabs(dy);
    cost += d * weights[j];
  }
  return cost;
}

}  // namespace

Status GetCentralElement(const LumaArray<LumaPoint2D>& points, const LumaArray<std::int64_t>& ids,
                         const LumaArray<double>& weights, const LumaArray<double>& selfWeights,
                         ZoDistanceMethod method, detail::CallProgress* progress, bool reportSteps,
                         LumaArray<std::int64_t>& centralIds) {
  const std::size_t n = points.size();
  if (n == 0 || weights.empty()) return {};
  if (weights.size() != n || ids.size() != n || selfWeights.size() != n) return Status::Fail(msg::ESa019);
  double total = 0.0;
  for (const double w : weights) total += w;
  if (total > -1e-10 && total < 1e-10) return Status::Fail(msg::ESa018);
  const LumaUnicodeString step =
      progress && *progress && reportSteps ? ZoStringEx::LoadResString(msg::IMb325) : LumaUnicodeString();
  double best = Cost(points, weights, selfWeights, 0, method);
  LumaArray<std::int64_t> found{ids[0]};
  for (std::size_t i = 1; i < n; ++i) {
    const bool go = !progress || !*progress ||
                    (reportSteps ? progress->Step(step, static_cast<long long>(i), static_cast<long long>(n))
                                 : !(*progress)->IsCanceled());
    if (!go) return Status::Fail(msg::IMb030);
    const double cost = Cost(points, weights, selfWeights, i, method);
    if (cost < best) {
      best = cost;
      found.assign(1, ids[i]);
    } else if (cost == best) {
      found.push_back(ids[i]);  // exact ties are all central
    }
  }
  centralIds.insert(centralIds.end(), found.begin(), found.end());
  return {};
}

namespace {

Status ValidateCentral(MeasuringFrame& frame, const ZoMeasuringInformation& info) {
  if (Status status = frame.CheckDatasets(); !status) return status;
  if (frame.Input()->GetType() != frame.Output()->GetType()) return Status::Fail(msg::EEe017);
  if (Status status = frame.CheckInputType(); !status) return status;
  if (Status status = frame.CheckStatisticsCount(); !status) return status;
  if (Status status = frame.CheckCaseField(); !status) return status;
  if (Status status = frame.CheckWeightField(info.WeightField); !status) return status;
  if (Status status = frame.CheckWeightField(info.SelfWeightField); !status) return status;
  return frame.CheckStatisticsFields();
}

// Writes a copy of each central feature, found by its ID.
Status WriteCopies(MeasuringFrame& frame, ZoRecordset* byId, const LumaArray<std::int64_t>& centralIds,
                   const FeatureGroup& group, const LumaArray<LumaVariant>& values) {
  ZoGeometry geometry;
  for (const std::int64_t id : centralIds) {
    if (!byId->SeekID(id) || !byId->GetGeometry(geometry)) return Status::Fail(msg::EFd037);
    if (Status status = frame.Write(geometry, {}, group.caseValue, values); !status) return status;
  }
  return {};
}

}  // namespace

Status CentralElement(MeasureCall& call) {
  MeasuringFrame frame(call.input, call.output, *call.info);
  LumaFieldInfos none, alsoNone;
  if (Status status = ValidateCentral(frame, *call.info); !status) return status;
  if (Status status = frame.CreateFields(none, alsoNone); !status) return status;
  // Distances on geographic data are measured in metres in the group's
  // measuring plane, always Euclidean; the self weights are distances too.
  const ZoPrjCoordSys& cs = call.input->GetPrjCoordSys();
  const ZoDistanceMethod method = spatial::EffectiveMethod(call.info->DistanceMethod, cs);
  MeasuringPlane plane(cs);
  detail::CallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, msg::IMb324);
  const bool grouped = !call.info->CaseField.IsEmpty();
  if (progress && !grouped) progress->SetBothPosRange(0, 40);
  if (Status status = frame.Open(); !status) return status;
  ZoRecordsetPtr byId(call.input->Query(ZoQueryDef()));
  if (!byId) return Status::Fail(msg::EKa013);
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    LumaArray<std::int64_t> centralIds;
    if (kind == GroupKind::Single || kind == GroupKind::SingleRecord) {
      centralIds.push_back(group.ids.front());
    } else {
      if (progress && !grouped) progress->SetBothPosRange(41, 100);
      if (Status status = plane.Enter(group.points); !status) return status;
      LumaArray<double> selfWeights = group.selfWeights;
      for (double& s : selfWeights) s /= plane.Scale();
      // The group's failure stands in for its cause.
      if (!GetCentralElement(group.points, group.ids, RelativeWeights(group.weights), selfWeights, method, &progress,
                             !grouped, centralIds))
        return Status::Fail(msg::ESa016);
    }
    return WriteCopies(frame, byId.get(), centralIds, group, frame.GroupValues(kind, group.count));
  };
  CollectOptions collect;
  collect.selfWeightsAndIds = true;
  if (Status status = frame.Pass(progress, msg::IMb325, collect, write); !status) return status;
  return frame.Finish();
}

}  // namespace ZOC::detail::centrography
