// The linear directional mean: the mean direction (or orientation) of line
// features, as one line per group through their mean centre.
#include <cmath>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
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

bool GetDirectionalMean(const LumaArray<ZoGeometry>& lines, bool orientationOnly, DirectionalMeanResult& result,
                        ZoStatisticsUtilities& utilities, MessageLog& log) {
  if (lines.empty()) {
    log.Replace(msg::ESa067);
    return false;
  }
  LumaArray<LumaPoint2D> kept;
  double length = 0.0, sinSum = 0.0, cosSum = 0.0;
  for (const ZoGeometry& line : lines) {
    LumaPoint2D point;
    if (!ZoStatisticsUtilities::GetBaryCenter(&line, point)) {
      log.Add(msg::ESa008);
      return false;
    }
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
  if (kept.empty()) {
    log.Replace(msg::ESa074, 1);  // at least one line is needed
    return false;
  }
  LumaPoint2D centre;
  if (!utilities.GetMeanCenter(kept, LumaArray<double>(kept.size(), 1.0), centre)) {
    log.Append(utilities.GetStrErrorMes());
    return false;
  }
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
  return true;
}

namespace {

bool ValidateLines(MeasuringFrame& frame, MessageLog& log) {
  if (!frame.CheckDatasets()) return false;
  if (frame.Input()->GetType() != DatasetLine || frame.Output()->GetType() != DatasetLine) {
    log.Add(msg::EEe018);
    return false;
  }
  return frame.CheckStatisticsCount() && frame.CheckCaseField() && frame.CheckStatisticsFields();
}

}  // namespace

bool LinearDirectionalMean(MeasureCall& call) {
  MeasuringFrame frame(call.input, call.output, *call.info, *call.log);
  LumaFieldInfos none, own;
  for (const char* name :
       {"AverageX", "AverageY", "AverageLength", "CompassAngle", "DirectionalMean", "CircleVariance"})
    own.emplace_back(name, LUMA::FieldDouble);
  if (!ValidateLines(frame, *call.log) || !frame.CreateFields(none, own)) return false;
  ZoCallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, msg::IMb362);
  if (!frame.Open()) return false;
  if (frame.RecordCount() < 1) {
    call.log->Add(msg::ESa067);
    return false;
  }
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    DirectionalMeanResult r;
    if (!GetDirectionalMean(group.lines, call.info->OrientationOnly, r, *call.utilities, *call.log)) {
      call.log->Add(msg::ESa073);
      return false;
    }
    if (!std::isfinite(r.backEnd.x) || !std::isfinite(r.backEnd.y) || !std::isfinite(r.frontEnd.x) ||
        !std::isfinite(r.frontEnd.y)) {
      call.log->Replace(msg::ESa015);
      return false;
    }
    const ZoGeometry line = ZoGeometry::MakeLine({r.backEnd, r.frontEnd}, {2});
    const double values[] = {r.centre.x,     r.centre.y,        r.meanLength,
                             r.compassAngle, r.directionalMean, r.circularVariance};
    std::vector<std::pair<LumaUnicodeString, LumaVariant>> fields;
    for (std::size_t i = 0; i < own.size(); ++i) fields.emplace_back(own[i].GetName(), LumaVariant(values[i]));
    return frame.Write(line, fields, group.caseValue, frame.GroupValues(kind, group.count));
  };
  CollectOptions collect;
  collect.lines = true;
  return frame.Pass(progress, msg::IMb363, collect, write) && frame.Finish();
}

}  // namespace ZOC::centrography
