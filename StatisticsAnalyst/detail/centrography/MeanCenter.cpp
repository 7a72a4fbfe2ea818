// The mean centre, and the flow it shares with the median centre.
#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringPlane.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::centrography {

void StartProgress(detail::CallProgress& progress, const char* titleId) {
  if (!progress) return;
  progress->SetBothPosRange(0, 100);
  progress->SetTitleMessage(ZoStringEx::LoadResString(titleId));
}

Status RunCentrePoints(MeasureCall& call, const char* titleId, const char* stepId, const CentreFunction& centre) {
  MeasuringFrame frame(call.input, call.output, *call.info);
  LumaFieldInfos none, alsoNone;
  if (Status status = frame.Validate(); !status) return status;
  if (Status status = frame.CreateFields(none, alsoNone); !status) return status;
  detail::CallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, titleId);
  if (Status status = frame.Open(); !status) return status;
  MeasuringPlane plane(call.input->GetPrjCoordSys());
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    // An ungrouped run over no records still writes its one point, at (0, 0).
    LumaPoint2D point;
    if (kind == GroupKind::Single || kind == GroupKind::SingleRecord) {
      point = group.points.front();
    } else {
      LumaArray<LumaPoint2D> points = group.points;
      if (Status status = plane.Enter(points); !status) return status;
      if (Status status = centre(points, RelativeWeights(group.weights), point); !status) return status;
      if (!points.empty())
        if (Status status = plane.Back(point); !status) return status;
    }
    return frame.Write(ZoGeometry::MakePoint(point), {}, group.caseValue, frame.GroupValues(kind, group.count));
  };
  if (Status status = frame.Pass(progress, stepId, CollectOptions{}, write); !status) return status;
  return frame.Finish();
}

Status MeanCenter(MeasureCall& call) {
  return RunCentrePoints(
      call, msg::IMb320, msg::IMb322,
      [&](const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, LumaPoint2D& point) {
        return spatial::MeanCentre(points, weights, point) ? Status() : Status::Fail(msg::ESa0010);
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

}  // namespace ZOC::detail::centrography
