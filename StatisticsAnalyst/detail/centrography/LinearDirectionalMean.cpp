// The linear directional mean: the mean direction (or orientation) of line
// features, as one line per group through their mean centre.
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::centrography {

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr double kDegrees = 57.29577951308232;
constexpr double kEpsilon = 1e-20;
bool Near(double a, double b) { return a - b > -kEpsilon && a - b < kEpsilon; }
}  // namespace

double GetAngle(double p, double q) {
  const double base = Near(q, 0.0) ? kPi / 2.0 : Near(p, 0.0) ? kPi : std::fabs(std::atan(p / q));
  if (p < 0.0) return q >= 0.0 ? 2.0 * kPi - base : base + kPi;
  // q exactly -1 keeps the base angle: a fixed rule of this bearing.
  if (q < 0.0 && !Near(q, -1.0)) return kPi - base;
  return base;
}

bool LineHasDirection(const ZoGeometry& line) {
  const LumaArray<LumaPoint2D>& vertices = line.GetPoints();
  if (vertices.empty()) return false;
  const LumaPoint2D& from = vertices.front();
  const LumaPoint2D& to = vertices.back();
  return std::hypot(to.x - from.x, to.y - from.y) > limits::kCoincident;
}

Status GetDirectionalMean(const LumaArray<ZoGeometry>& lines, bool orientationOnly, DirectionalMeanResult& result,
                          ZoStatisticsUtilities& utilities) {
  if (lines.empty()) return Status::Fail(msg::ESa067);
  LumaArray<LumaPoint2D> kept;
  double length = 0.0, sinSum = 0.0, cosSum = 0.0;
  for (const ZoGeometry& line : lines) {
    LumaPoint2D point;
    if (!ZoStatisticsUtilities::GetBaryCenter(&line, point)) return Status::Fail(msg::ESa008);
    const LumaArray<LumaPoint2D>& vertices = line.GetPoints();
    if (vertices.empty()) continue;  // nothing to take a direction from
    // From the very first vertex to the last vertex of the last part.
    const LumaPoint2D& from = vertices.front();
    const LumaPoint2D& to = vertices.back();
    double theta = GetAngle(to.x - from.x, to.y - from.y);
    if (orientationOnly && theta * kDegrees < 180.0) theta = GetAngle(from.x - to.x, from.y - to.y);
    kept.push_back(point);
    length += line.GetLength();
    sinSum += std::sin(theta);
    cosSum += std::cos(theta);
  }
  const double k = static_cast<double>(kept.size());
  if (kept.empty()) return Status::Fail(msg::ESa074, {"1"});  // at least one line is needed
  LumaPoint2D centre;
  if (!utilities.GetMeanCenter(kept, LumaArray<double>(kept.size(), 1.0), centre))
    return Status::FromText(utilities.GetStrErrorMes());
  const double meanLength = length / k;
  const double phi = GetAngle(sinSum, cosSum);
  double compass = phi * kDegrees;
  // Orientations report the bearing reduced by 180°, while the line's ends
  // keep the unreduced direction.
  if (orientationOnly) compass -= 180.0;
  result.centre = centre;
  result.meanLength = meanLength;
  result.compassAngle = compass;
  result.frontEnd = {centre.x + std::sin(phi) * meanLength / 2.0, centre.y + std::cos(phi) * meanLength / 2.0};
  result.backEnd = {2.0 * centre.x - result.frontEnd.x, 2.0 * centre.y - result.frontEnd.y};
  result.circularVariance = 1.0 - std::sqrt(cosSum * cosSum + sinSum * sinSum) / k;
  result.directionalMean = 360.0 - compass + 90.0;
  if (result.directionalMean >= 360.0) result.directionalMean -= 360.0;
  return {};
}

namespace {

Status ValidateLines(MeasuringFrame& frame) {
  if (Status status = frame.CheckDatasets(); !status) return status;
  if (frame.Input()->GetType() != DatasetLine || frame.Output()->GetType() != DatasetLine)
    return Status::Fail(msg::EEe018);
  if (Status status = frame.CheckStatisticsCount(); !status) return status;
  if (Status status = frame.CheckCaseField(); !status) return status;
  return frame.CheckStatisticsFields();
}

}  // namespace

Status LinearDirectionalMean(MeasureCall& call) {
  MeasuringFrame frame(call.input, call.output, *call.info);
  LumaFieldInfos none, own;
  for (const char* name :
       {"AverageX", "AverageY", "AverageLength", "CompassAngle", "DirectionalMean", "CircleVariance"})
    own.emplace_back(name, LUMA::FieldDouble);
  if (Status status = ValidateLines(frame); !status) return status;
  if (Status status = frame.CreateFields(none, own); !status) return status;
  ZoCallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, msg::IMb362);
  if (Status status = frame.Open(); !status) return status;
  if (frame.RecordCount() < 1) return Status::Fail(msg::ESa067);
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    DirectionalMeanResult r;
    if (Status status = GetDirectionalMean(group.lines, call.info->OrientationOnly, r, *call.utilities); !status)
      return status.Then(msg::ESa073);
    if (!std::isfinite(r.backEnd.x) || !std::isfinite(r.backEnd.y) || !std::isfinite(r.frontEnd.x) ||
        !std::isfinite(r.frontEnd.y))
      return Status::Fail(msg::ESa015);
    const ZoGeometry line = ZoGeometry::MakeLine({r.backEnd, r.frontEnd}, {2});
    const double values[] = {r.centre.x,     r.centre.y,        r.meanLength,
                             r.compassAngle, r.directionalMean, r.circularVariance};
    std::vector<std::pair<LumaUnicodeString, LumaVariant>> fields;
    for (std::size_t i = 0; i < own.size(); ++i) fields.emplace_back(own[i].GetName(), LumaVariant(values[i]));
    return frame.Write(line, fields, group.caseValue, frame.GroupValues(kind, group.count));
  };
  CollectOptions collect;
  collect.lines = true;
  if (Status status = frame.Pass(progress, msg::IMb363, collect, write); !status) return status;
  return frame.Finish();
}

}  // namespace ZOC::centrography
