#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"

#include <cmath>
#include <memory>
#include <vector>

#include "StatisticsAnalyst/SpatialOrder.h"
#include "host/ZoOpPoints.h"
#include "host/ZoStringEx.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace {
// About 2 m expressed in degrees of latitude, the default width of a
// degenerate study rectangle on geographic data.
constexpr double kDefaultGeographicWidth = 1.7966305682435e-05;
constexpr double kDefaultPlanarWidth = 2.0;
}  // namespace

bool ZoAnalyzingPatterns::ComputeStudyArea(const LumaArray<LumaPoint2D>& c, const ZoPrjCoordSys& cs, double width,
                                           double& area) {
  LumaPoint2D centre, u, v;
  double length = 0.0;
  double rectWidth = width;
  if (c.size() == 2) {
    centre = {(c[0].x + c[1].x) / 2, (c[0].y + c[1].y) / 2};
    length = ZoOpPoints::Distance(c[0], c[1]);
    u = length > 0 ? LumaPoint2D{(c[1].x - c[0].x) / length, (c[1].y - c[0].y) / length} : LumaPoint2D{1, 0};
  } else {
    LumaArray<LumaPoint2D> hull;
    if (!ZoOpPoints::Flange(c, hull)) {
      AddErrorMessage(msg::ESa053);
      return false;
    }
    if (hull.size() == 1) {
      // Every centroid at one location: a width × width square.
      centre = hull[0];
      u = {1, 0};
      length = width;
    } else if (hull.size() == 3) {
      // Collinear centroids: the hull is a closed ring over the two extremes,
      // which give the centre and the length. The direction is taken from the
      // first two input centroids on purpose; when those coincide there is no
      // direction, the rectangle has no extent and the statistic fails.
      centre = {(hull[0].x + hull[1].x) / 2, (hull[0].y + hull[1].y) / 2};
      length = ZoOpPoints::Distance(hull[0], hull[1]);
      const double step = ZoOpPoints::Distance(c[0], c[1]);
      u = step > 0 ? LumaPoint2D{(c[1].x - c[0].x) / step, (c[1].y - c[0].y) / step} : LumaPoint2D{0, 0};
    } else {
      double rectArea = 0.0;
      if (!GetMinAreaRect1(hull, centre, u, v, length, rectWidth, rectArea)) {
        AddErrorMessage(msg::ESa053);
        return false;
      }
    }
  }
  v = {-u.y, u.x};
  const double hl = length / 2, hw = rectWidth / 2;
  LumaArray<LumaPoint2D> corners = {
      {centre.x + hl * u.x + hw * v.x, centre.y + hl * u.y + hw * v.y},
      {centre.x + hl * u.x - hw * v.x, centre.y + hl * u.y - hw * v.y},
      {centre.x - hl * u.x - hw * v.x, centre.y - hl * u.y - hw * v.y},
      {centre.x - hl * u.x + hw * v.x, centre.y - hl * u.y + hw * v.y},
  };
  // The host's region area: planar, or the true surface area on the
  // ellipsoid for a geographic coordinate system.
  const ZoGeometry rectangle = ZoGeometry::MakeRegion(corners, {4});
  area = rectangle.GetArea(&cs);
  return true;
}

unsigned char ZoAnalyzingPatterns::AverageNearestNeighbor(ZoDatasetVector* dataset, double area,
                                                          const ZoDistanceMethod& method, ZoAnalyzingExponent& result,
                                                          unsigned char useDefaultWidth, double width,
                                                          unsigned char showProgress) {
  ClearErrorMessage();
  if (!CheckAnalysisDataset(dataset)) return 0;
  if (!(area >= 0.0)) {
    AddErrorMessage(msg::ESa051);
    return 0;
  }

  LumaArray<LumaPoint2D> centroids;
  {
    ZoRecordsetPtr records = QueryOrderedBy(dataset, kSystemIdField);
    if (!records) return 0;
    if (records->GetRecordCount() < 2) {
      AddErrorMessage(msg::ESa013);
      return 0;
    }
    if (!m_utilities.PickUpBaryCenters(records.get(), centroids)) {
      AddErrorMessage(msg::ESa008);
      return 0;
    }
  }
  const double n = static_cast<double>(centroids.size());
  const ZoPrjCoordSys& cs = dataset->GetPrjCoordSys();
  const bool geographic = cs.GetTypeID() == ZoPrjCoordSys::Geographic;

  if (area == 0.0) {
    if (useDefaultWidth) width = geographic ? kDefaultGeographicWidth : kDefaultPlanarWidth;
    if (!ComputeStudyArea(centroids, cs, width, area)) return 0;
  }

  // Nearest-neighbour distances over the projected centroids; geographic
  // data measures the chord on the ellipsoid between the original positions.
  LumaArray<LumaPoint2D> projected = centroids;
  if (!ZoStatisticsUtilities::Forward(projected, cs)) {
    AddErrorMessage(msg::ESa060);
    return 0;
  }
  const ZoDistanceMethod validMethod = ZoStatisticsUtilities::ValidateDistanceMethod(method, cs);
  const double a = geographic ? cs.GetSemiMajorAxis() : 0.0;
  const double f = geographic ? cs.GetFlattening() : 0.0;
  LumaArray<LumaPoint3D> buffer;
  std::unique_ptr<ZoKdTree> tree(m_utilities.CreateKDTree(&buffer, projected));
  if (!tree) {
    SetStrErrorMes(m_utilities.GetStrErrorMes());
    return 0;
  }

  ZoCallProgress progress(nullptr, showProgress != 0);
  LumaUnicodeString format;
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb359));
    format = ZoStringEx::LoadResString(msg::IMb360);
  }
  const std::size_t count = centroids.size();
  // Queries run in spatial order for speed; each distance is stored under its
  // feature and summed in feature order, so the result does not depend on it.
  const std::vector<std::size_t> order = SpatialQueryOrder(projected);
  std::vector<double> nearest(count, 0.0);
  std::vector<std::size_t> hits;
  std::vector<double> distances;
  for (std::size_t step = 0; step < count; ++step) {
    if (!progress.Step(format, static_cast<long long>(step), static_cast<long long>(count))) {
      AddErrorMessage(msg::IMb030);
      return 0;
    }
    const std::size_t i = order[step];
    const std::size_t found = tree->SearchKdTree(buffer[i], 2, hits, distances, validMethod);
    if (found < 2) {
      AddErrorMessage(msg::ESa032);
      return 0;
    }
    const std::size_t h = hits[0] == i ? 1 : 0;
    nearest[i] = geographic ? ZoOpPoints::GetSpheroidChordalDistance(centroids[i], centroids[hits[h]], a, f)
                            : distances[h];
  }
  double sum = 0.0;
  for (double d : nearest) sum += d;
  const double observed = sum / n;

  const double expected = 0.5 / std::sqrt(n / area);
  const double standardError = 0.26136 / std::sqrt(n * n / area);
  if (!(standardError > 0.0) || !(expected > 0.0)) {
    AddErrorMessage(msg::ESa052);
    return 0;
  }
  const double z = (observed - expected) / standardError;
  result.Index = observed / expected;
  result.ExpectedIndex = expected;
  result.Variance = observed;
  result.ZScore = z;
  result.PValue = ZoStatisticsUtilities::GetPvalue(z);
  return 1;
}

// ---------------------------------------------- copies and the K-nearest flag matrix

ZoAnalyzingPatterns::~ZoAnalyzingPatterns() { CloseWeightsDictionary(); }

ZoAnalyzingPatterns::ZoAnalyzingPatterns(const ZoAnalyzingPatterns& other)
    : ZoAnalysisFrame(other), m_utilities(other.m_utilities) {}

ZoAnalyzingPatterns& ZoAnalyzingPatterns::operator=(const ZoAnalyzingPatterns& other) {
  if (this != &other) {
    CloseWeightsDictionary();
    ZoAnalysisFrame::operator=(other);
    m_utilities = other.m_utilities;
  }
  return *this;
}

bool ZoAnalyzingPatterns::OpenWeightsDictionary(const LumaUnicodeString& path) {
  CloseWeightsDictionary();
  m_flagMatrix = std::fopen(path.c_str(), "rb");
  if (!m_flagMatrix) AddErrorMessage(msg::ESa049);
  return m_flagMatrix != nullptr;
}

void ZoAnalyzingPatterns::CloseWeightsDictionary() {
  if (m_flagMatrix) std::fclose(m_flagMatrix);
  m_flagMatrix = nullptr;
}

unsigned char ZoAnalyzingPatterns::ReadWeightMatrixBinaryK(int n, LumaArray<double>& row) {
  if (!m_flagMatrix) {
    AddErrorMessage(msg::EEg020);
    return 0;
  }
  // n is the caller's feature count; a short file shows in the read.
  if (n < 0) {
    AddErrorMessage(msg::ESa046);
    return 0;
  }
  std::vector<unsigned char> block(static_cast<std::size_t>(n));
  if (n > 0 && std::fread(block.data(), 1, block.size(), m_flagMatrix) != block.size()) {
    AddErrorMessage(msg::ESa046);
    return 0;
  }
  row.resize(block.size());
  for (std::size_t i = 0; i < block.size(); ++i) row[i] = block[i] != 0 ? 1.0 : 0.0;
  return 1;
}

}  // namespace ZOC
