// The mean centre, and the flow it shares with the median centre.
#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::centrography {

void StartProgress(ZoCallProgress& progress, const char* titleId) {
  if (!progress) return;
  progress->SetBothPosRange(0, 100);
  progress->SetTitleMessage(ZoStringEx::LoadResString(titleId));
}

bool RunCentrePoints(MeasureCall& call, const char* titleId, const char* stepId, const CentreFunction& centre) {
  MeasuringFrame frame(call.input, call.output, *call.info, *call.log);
  LumaFieldInfos none, alsoNone;
  if (!frame.Validate() || !frame.CreateFields(none, alsoNone)) return false;
  ZoCallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, titleId);
  if (!frame.Open()) return false;
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    // An ungrouped run over no records still writes its one point, at (0, 0).
    LumaPoint2D point;
    if (kind == GroupKind::Single || kind == GroupKind::SingleRecord)
      point = group.points.front();
    else if (!centre(group, point))
      return false;
    return frame.Write(ZoGeometry::MakePoint(point), {}, group.caseValue, frame.GroupValues(kind, group.count));
  };
  return frame.Pass(progress, stepId, CollectOptions{}, write) && frame.Finish();
}

bool MeanCenter(MeasureCall& call) {
  return RunCentrePoints(call, msg::IMb320, msg::IMb322, [&](const FeatureGroup& group, LumaPoint2D& point) {
    if (call.utilities->GetMeanCenter(group.points, group.weights, point)) return true;
    call.log->Replace(msg::ESa0010);
    return false;
  });
}

double EllipseFactor(int code) {
  switch (code) {
    case OneStandardDeviation: return 1.0;
    case TwoStandardDeviations: return 2.0;
    case ThreeStandardDeviations: return 3.0;
    default: return 0.0;
  }
}

}  // namespace ZOC::centrography
