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
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::centrography {

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

bool GetCentralElement(const LumaArray<LumaPoint2D>& points, const LumaArray<std::int64_t>& ids,
                       const LumaArray<double>& weights, const LumaArray<double>& selfWeights, ZoDistanceMethod method,
                       ZoCallProgress* progress, bool reportSteps, LumaArray<std::int64_t>& centralIds,
                       MessageLog& log) {
  const std::size_t n = points.size();
  if (n == 0 || weights.empty()) return true;
  if (weights.size() != n || ids.size() != n || selfWeights.size() != n) {
    log.Add(msg::ESa019);
    return false;
  }
  double total = 0.0;
  for (const double w : weights) total += w;
  if (total > -1e-10 && total < 1e-10) {
    log.Add(msg::ESa018);
    return false;
  }
  const LumaUnicodeString step =
      progress && *progress && reportSteps ? ZoStringEx::LoadResString(msg::IMb325) : LumaUnicodeString();
  double best = Cost(points, weights, selfWeights, 0, method);
  LumaArray<std::int64_t> found{ids[0]};
  for (std::size_t i = 1; i < n; ++i) {
    const bool go = !progress || !*progress ||
                    (reportSteps ? progress->Step(step, static_cast<long long>(i), static_cast<long long>(n))
                                 : !(*progress)->IsCanceled());
    if (!go) {
      log.Add(msg::IMb030);
      return false;
    }
    const double cost = Cost(points, weights, selfWeights, i, method);
    if (cost < best) {
      best = cost;
      found.assign(1, ids[i]);
    } else if (cost == best) {
      found.push_back(ids[i]);  // exact ties are all central
    }
  }
  centralIds.insert(centralIds.end(), found.begin(), found.end());
  return true;
}

namespace {

bool ValidateCentral(MeasuringFrame& frame, const ZoMeasuringInformation& info, MessageLog& log) {
  if (!frame.CheckDatasets()) return false;
  if (frame.Input()->GetType() != frame.Output()->GetType()) {
    log.Add(msg::EEe017);
    return false;
  }
  return frame.CheckInputType() && frame.CheckStatisticsCount() && frame.CheckCaseField() &&
         frame.CheckWeightField(info.WeightField) && frame.CheckWeightField(info.SelfWeightField) &&
         frame.CheckStatisticsFields();
}

// Writes a copy of each central feature, found by its ID.
bool WriteCopies(MeasuringFrame& frame, ZoRecordset* byId, const LumaArray<std::int64_t>& centralIds,
                 const FeatureGroup& group, const LumaArray<LumaVariant>& values, MessageLog& log) {
  ZoGeometry geometry;
  for (const std::int64_t id : centralIds) {
    if (!byId->SeekID(id) || !byId->GetGeometry(geometry)) {
      log.Add(msg::EFd037);
      return false;
    }
    if (!frame.Write(geometry, {}, group.caseValue, values)) return false;
  }
  return true;
}

}  // namespace

bool CentralElement(MeasureCall& call) {
  MeasuringFrame frame(call.input, call.output, *call.info, *call.log);
  LumaFieldInfos none, alsoNone;
  if (!ValidateCentral(frame, *call.info, *call.log) || !frame.CreateFields(none, alsoNone)) return false;
  // Distances on geographic data are measured after a forward projection
  // to metres, always Euclidean.
  const ZoPrjCoordSys& cs = call.input->GetPrjCoordSys();
  const ZoDistanceMethod method = ZoStatisticsUtilities::ValidateDistanceMethod(call.info->DistanceMethod, cs);
  ZoCallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, msg::IMb324);
  const bool grouped = !call.info->CaseField.IsEmpty();
  if (progress && !grouped) progress->SetBothPosRange(0, 40);
  if (!frame.Open()) return false;
  ZoRecordsetPtr byId(call.input->Query(ZoQueryDef()));
  if (!byId) {
    call.log->Add(msg::EKa013);
    return false;
  }
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    LumaArray<std::int64_t> centralIds;
    if (kind == GroupKind::Single || kind == GroupKind::SingleRecord) {
      centralIds.push_back(group.ids.front());
    } else {
      if (progress && !grouped) progress->SetBothPosRange(41, 100);
      if (!ZoStatisticsUtilities::Forward(group.points, cs)) {
        call.log->Add(msg::ESa060);
        return false;
      }
      if (!GetCentralElement(group.points, group.ids, group.weights, group.selfWeights, method, &progress, !grouped,
                             centralIds, *call.log)) {
        call.log->Replace(msg::ESa016);
        return false;
      }
    }
    return WriteCopies(frame, byId.get(), centralIds, group, frame.GroupValues(kind, group.count), *call.log);
  };
  CollectOptions collect;
  collect.selfWeightsAndIds = true;
  return frame.Pass(progress, msg::IMb325, collect, write) && frame.Finish();
}

}  // namespace ZOC::centrography
