// The linear directional mean: the mean direction (or orientation) of line
// features, as one line per group through their mean centre.
#include <cmath>
#include <vector>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::centrography {

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

namespace {

// An angle in degrees brought into [0, period). A value within 1e-9° below
// the period is rounding noise of 0 (two symmetric directions whose sines
// almost cancel), so it reads 0, not 360 (or 180 for orientations).
double Normalised(double degrees, double period) {
  double d = std::fmod(degrees, period);
  if (d < 0.0) d += period;
  return d >= period - 1e-9 ? 0.0 : d;
}

// The bearings of one line as an orientation: the one the western-half fold
// gives (a bearing in [180°, 360°) for most lines, by turning the line
// round when it points east) and the opposite one.
struct Orientation {
  double folded, opposite;
};

// Takes each orientation on the side of its axis nearest the lines' own mean
// axis. Folding every line into the western half, as such, averages lines
// just either side of north (bearings 359° and 181° once folded) to west, a
// right angle off. The mean axis comes from the doubled angles, where a
// bearing and its opposite coincide (axial statistics); each line is then
// taken within 90° of the axis's western end. When the folded bearings all
// lie within 90° of that end anyway (no line near the fold), every choice is
// the fold's own and the result is exactly the fold's.
void AlignWithMeanAxis(std::vector<Orientation>& lines, std::vector<double>& theta) {
  double s2 = 0.0, c2 = 0.0;
  for (const Orientation& o : lines) s2 += std::sin(2.0 * o.folded), c2 += std::cos(2.0 * o.folded);
  // Doubled angles that cancel (lines at right angles in equal measure)
  // have no mean axis: the fold stands.
  if (std::hypot(s2, c2) <= 1e-9 * static_cast<double>(lines.size())) return;
  const double axis = std::remainder(std::atan2(s2, c2) / 2.0, kPi);  // in [-π/2, π/2]
  const double west = axis < 0.0 ? axis + 2.0 * kPi : axis + kPi;     // the end in [π, 2π)
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const double off = std::fabs(std::remainder(lines[i].folded - west, 2.0 * kPi));
    theta[i] = off <= kPi / 2.0 ? lines[i].folded : lines[i].opposite;
  }
}

}  // namespace

Status GetDirectionalMean(const LumaArray<ZoGeometry>& lines, bool orientationOnly, DirectionalMeanResult& result) {
  if (lines.empty()) return Status::Fail(msg::ESa067);
  LumaArray<LumaPoint2D> kept;
  std::vector<double> theta;
  std::vector<Orientation> orientations;
  double length = 0.0;
  for (const ZoGeometry& line : lines) {
    LumaPoint2D point;
    if (!line.GetBaryCenter(point)) return Status::Fail(msg::ESa008);
    const LumaArray<LumaPoint2D>& vertices = line.GetPoints();
    if (vertices.empty()) continue;  // nothing to take a direction from
    // From the very first vertex to the last vertex of the last part.
    const LumaPoint2D& from = vertices.front();
    const LumaPoint2D& to = vertices.back();
    const double forward = GetAngle(to.x - from.x, to.y - from.y);
    double bearing = forward;
    if (orientationOnly) {
      const double backward = GetAngle(from.x - to.x, from.y - to.y);
      const bool turned = forward * kDegrees < 180.0;
      bearing = turned ? backward : forward;
      orientations.push_back({bearing, turned ? forward : backward});
    }
    kept.push_back(point);
    length += line.GetLength();
    theta.push_back(bearing);
  }
  const double k = static_cast<double>(kept.size());
  if (kept.empty()) return Status::Fail(msg::ESa074, {"1"});  // at least one line is needed
  if (orientationOnly) AlignWithMeanAxis(orientations, theta);
  double sinSum = 0.0, cosSum = 0.0;
  for (const double t : theta) sinSum += std::sin(t), cosSum += std::cos(t);
  LumaPoint2D centre;
  if (Status s = spatial::MeanCentre(kept, LumaArray<double>(kept.size(), 1.0), centre); !s) return s;
  const double meanLength = length / k;
  const double phi = GetAngle(sinSum, cosSum);
  // Orientations report the bearing reduced by 180° (an orientation lies in
  // [0°, 180°)), while the line's ends keep the unreduced direction.
  const double compass =
      orientationOnly ? Normalised(phi * kDegrees - 180.0, 180.0) : Normalised(phi * kDegrees, 360.0);
  result.centre = centre;
  result.meanLength = meanLength;
  result.compassAngle = compass;
  result.frontEnd = {centre.x + std::sin(phi) * meanLength / 2.0, centre.y + std::cos(phi) * meanLength / 2.0};
  result.backEnd = {2.0 * centre.x - result.frontEnd.x, 2.0 * centre.y - result.frontEnd.y};
  result.circularVariance = 1.0 - std::sqrt(cosSum * cosSum + sinSum * sinSum) / k;
  result.directionalMean = Normalised(360.0 - compass + 90.0, 360.0);
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
  detail::CallProgress progress(call.callerProgress, call.showProgress);
  StartProgress(progress, msg::IMb362);
  if (Status status = frame.Open(); !status) return status;
  if (frame.RecordCount() < 1) return Status::Fail(msg::ESa067);
  const auto write = [&](FeatureGroup& group, GroupKind kind) {
    DirectionalMeanResult r;
    if (Status status = GetDirectionalMean(group.lines, call.info->OrientationOnly, r); !status)
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

}  // namespace ZOC::detail::centrography
