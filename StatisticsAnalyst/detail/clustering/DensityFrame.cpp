// The frame of density-based clustering: choosing the method, reading the
// points, the distance unit and writing the result.

#include <algorithm>
#include <cmath>
#include <new>
#include <string>

#include "StatisticsAnalyst/detail/clustering/DensityClustering.h"
#include "StatisticsAnalyst/detail/spatial/NeighbourSearch.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::clustering {

namespace {
constexpr double kLargestCoordinate = 1e150;
}  // namespace

double percentile(LumaArray<double> values, double q) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  const double x = static_cast<double>(n - 1) * q / 100.0;
  const double lo = std::floor(x);
  const double f = x - lo;
  const auto l = static_cast<std::size_t>(std::clamp(lo, 0.0, static_cast<double>(n - 1)));
  const std::size_t h = std::min(l + 1, n - 1);
  return values[l] * (1.0 - f) + values[h] * f;
}

Status KthDistances(ZoKdTreec* tree, const LumaArray<LumaPoint2D>& points, int k, LumaArray<double>& distances,
                    ZoProgress* progress) {
  if (!tree || k < 1) return Failed();
  // One slice is about kPollWork neighbours; each search is independent of
  // the others, so slicing leaves every distance as one search finds it.
  const std::size_t n = points.size();
  const std::size_t slice = std::clamp<std::size_t>(kPollWork / static_cast<std::size_t>(k), 64, 16384);
  distances.assign(n, 0.0);
  LumaArray<LumaPoint2D> part;
  LumaArray<double> found;
  for (std::size_t begin = 0; begin < n; begin += slice) {
    if (progress && progress->IsCanceled()) return Cancelled();
    const std::size_t end = std::min(n, begin + slice);
    part.assign(points.begin() + static_cast<std::ptrdiff_t>(begin), points.begin() + static_cast<std::ptrdiff_t>(end));
    if (!detail::spatial::KNearestReach(*tree, part, k, Euclidean, found) || found.size() != part.size())
      return Failed();
    std::copy(found.begin(), found.end(), distances.begin() + static_cast<std::ptrdiff_t>(begin));
  }
  return progress && progress->IsCanceled() ? Cancelled() : Status::Ok();
}

Status DensityRun::Run(ZoRecordset* records, ZoDatasetVector* result, const ZoClusterInformation& info,
                       ZoClusterSummary* summary) {
  if (m_bar) {
    m_bar->SetBothPosRange(0, 100);
    m_bar->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb390));
    m_bar->SetMessage(ZoStringEx::Format(ZoStringEx::LoadResString(msg::IMb391), 1, 3));
  }
  m_summary = ZoClusterSummary();
  Status status;
  switch (info.Method) {
    case 1: status = DBSCAN_Method(records, result, info.MinPoints, info.SearchDistance, info.DistanceUnit); break;
    case 2: status = HDBSCAN_Method(records, result, info.MinPoints); break;
    case 3:
      status = OPTICS_Method(records, result, info.MinPoints, info.SearchDistance, info.DistanceUnit,
                             static_cast<double>(info.OpticsParameter));
      break;
    default: return Unexplained();
  }
  if (status && summary) *summary = m_summary;
  return status;
}

Status DensityRun::ReadPoints(ZoRecordset* records, LumaArray<LumaPoint2D>& points) {
  const std::int64_t n = records->GetRecordCount();
  points.clear();
  m_ids.clear();
  points.reserve(static_cast<std::size_t>(std::max<std::int64_t>(n, 0)));
  m_ids.reserve(points.capacity());
  ZoGeometry geometry;
  LumaPoint2D p;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    if (m_bar && points.size() % 4096 == 4095 && m_bar->IsCanceled()) return Cancelled();
    const LUMA::LumaUnicodeString id(std::to_string(records->GetID()).c_str());
    if (!records->GetGeometry(geometry) || !geometry.GetBaryCenter(p) || !std::isfinite(p.x) || !std::isfinite(p.y))
      return Status::Fail(msg::EUc002, {id}).Then(msg::ESa008);
    // Beyond this the squared distances of the neighbour searches overflow,
    // and every distance would read as infinite.
    if (std::fabs(p.x) > kLargestCoordinate || std::fabs(p.y) > kLargestCoordinate)
      return Status::Fail(msg::EUc003, {id});
    points.push_back(p);
    m_ids.push_back(records->GetID());
  }
  if (static_cast<std::int64_t>(points.size()) != n || !records->GetDataset()->GetPrjCoordSys().Forward(points))
    return Status::Fail(msg::ESa008);
  return Status::Ok();
}

double DensityRun::InPointUnits(ZoRecordset* records, double distance, int unit) const {
  if (unit <= 0) return distance;
  const ZoPrjCoordSys& cs = records->GetDataset()->GetPrjCoordSys();
  const double metres = distance * static_cast<double>(unit) / 10000.0;
  if (cs.GetTypeID() == ZoPrjCoordSys::Geographic) return metres;  // the points are in metres
  const double perUnit = cs.GetLinearUnits();
  return perUnit > 0 ? metres / perUnit : distance;  // else no known unit
}

Status DensityRun::WriteResult(ZoRecordset* records, ZoDatasetVector* result, std::vector<Column>& columns) {
  LUMA::LumaFieldInfos fields;
  fields.push_back(LUMA::LumaFieldInfo("Source_ID", LUMA::FieldInt32));
  for (const Column& c : columns) fields.push_back(LUMA::LumaFieldInfo(c.name, c.type));
  if (!ZoEngineToolkit::CreateValidFields(result, fields)) return Status::Fail(msg::ELc071);
  const ZoPrjCoordSys& cs = records->GetDataset()->GetPrjCoordSys();
  if (!result->GetPrjCoordSys().IsSame(cs)) result->SetPrjCoordSys(cs);
  std::vector<LUMA::LumaUnicodeString> names;
  for (const auto& f : fields) names.push_back(f.GetName());
  if (m_bar) {
    m_bar->SetBothPosRange(80, 100);
    m_bar->SetMessage(ZoStringEx::Format(ZoStringEx::LoadResString(msg::IMb391), 3, 3));
  }
  const bool appended =
      result->AppendRecords(records, {}, m_bar, names, [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
        const auto i = static_cast<std::size_t>(k);
        if (i >= m_ids.size()) return false;
        values[0] = LUMA::LumaVariant(m_ids[i]);
        for (std::size_t c = 0; c < columns.size(); ++c) {
          const double v = columns[c].values[i];
          values[c + 1] =
              columns[c].type == LUMA::FieldInt32 ? LUMA::LumaVariant(static_cast<int>(v)) : LUMA::LumaVariant(v);
        }
        return true;
      });
  if (!appended || !result->Commit()) {
    if (m_bar && m_bar->IsCanceled()) return Cancelled().Then(msg::ELc071);
    return Status::Fail(msg::ELc071);
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::clustering
