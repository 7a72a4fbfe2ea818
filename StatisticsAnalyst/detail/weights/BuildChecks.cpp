#include "StatisticsAnalyst/detail/weights/BuildChecks.h"

#include <cstdint>

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/LumaVariant.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

Status CheckWeightsFilePath(const LumaUnicodeString& path) {
  if (path.IsEmpty() || !HasSwmbExtension(path, true)) return Status::Fail(msg::EAf017);
  // An old file at the path goes first, so a failed build never leaves it behind.
  ZoFile::Delete(path);
  return Status::Ok();
}

Status CheckUniqueIdField(ZoDatasetVector* dataset, const LumaUnicodeString& field) {
  if (field.IsEmpty()) return Status::Fail(msg::ECb005);
  bool found = false;
  for (const auto& f : dataset->GetFieldInfos()) found = found || f.GetName().EqualsNoCase(field.Str());
  if (!found) return Status::Fail(msg::ECb004);
  LUMA::LumaFieldInfo info;
  if (!dataset->GetFieldInfo(field, info)) return Status::Fail(msg::ECd001);
  const int type = info.GetType();
  if (type != LUMA::FieldInt16 && type != LUMA::FieldInt32 && type != LUMA::FieldInt64)
    return Status::Fail(msg::ECa009);
  return Status::Ok();
}

Status CheckBuildParameters(ZoRecordset* records, const ZoPatternsInformation& info) {
  const std::int64_t n = records->GetRecordCount();
  switch (info.Conceptualization) {
    case ContiguityEdgesOnly:
    case ContiguityEdgesCorners:
      if (records->GetDataset()->GetType() != DatasetRegion) return Status::Fail(msg::ESa025);
      return Status::Ok();
    case KNearestNeighbors:
      if (info.KNeighbors <= 0) return Status::Fail(msg::ESa050);
      if (info.KNeighbors >= n) return Status::Fail(msg::ESa042);
      return Status::Ok();
    case InverseDistance:
    case InverseDistanceSquared:
    case FixedDistanceBand:
    case ZoneOfIndifference: return Status::Ok();
    default:
      // No weights file stores another relationship.
      return Status::Fail(msg::ESa023);
  }
}

Status PrepareBuild(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField, const LumaUnicodeString& path,
                    const ZoPatternsInformation& info, const LumaUnicodeString* flagPath,
                    LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, ZoRecordsetPtr& records) {
  records.reset();
  if (!dataset) return Status::Fail(msg::EEg002);
  // Points, lines or regions, as the analyses want them: a layer of mixed
  // geometry types has no single way to place its features.
  if (Status s = CheckAnalysisDataset(dataset); !s) return s;
  if (flagPath && !flagPath->IsEmpty() && ZoFile::IsSameFile(*flagPath, path)) return Status::Fail(msg::EUb004);
  if (Status s = CheckWeightsFilePath(path); !s) return s;
  if (Status s = CheckUniqueIdField(dataset, uniqueIdField); !s) return s;
  if (flagPath) {
    if (flagPath->IsEmpty()) return Status::Fail(msg::ESa076);
    ZoFile::Delete(*flagPath);
    if (info.Conceptualization != KNearestNeighbors) return Status::Fail(msg::ESa048);
  }
  ZoRecordsetPtr ordered;
  if (Status s = QueryOrderedBy(dataset, uniqueIdField, ordered); !s) return s;
  // One feature has no neighbour under any relationship.
  if (ordered->GetRecordCount() < 2) return Status::Fail(msg::EUb005);
  if (Status s = CheckBuildParameters(ordered.get(), info); !s) return s;
  // The order puts equal IDs next to each other.
  uniqueIndex.clear();
  const std::int64_t count = ordered->GetRecordCount();
  uniqueIndex.reserve(static_cast<std::size_t>(count));
  const auto take = [&](std::int32_t id) {
    if (!uniqueIndex.empty() && uniqueIndex.back().UniqueID == id) return false;
    uniqueIndex.push_back({id, 0});
    return true;
  };
  // The IDs come without reading a feature: the system ID from the query's
  // own list, a field as one column (a null reads as 0 either way); a record
  // at a time only when the layer cannot be read by columns.
  ZoRecordset::Columns column;
  if (uniqueIdField.EqualsNoCase(kSystemIdField)) {
    for (std::int64_t k = 0; k < count; ++k)
      if (!take(LUMA::LumaVariant(ordered->GetIDAt(k)).ToInt())) return Status::Fail(msg::ESa044);
  } else if (ordered->ReadColumns({uniqueIdField}, false, column)) {
    for (const double id : column.values[0])
      if (!take(LUMA::LumaVariant(id).ToInt())) return Status::Fail(msg::ESa044);
  } else {
    LUMA::LumaVariant value;
    for (bool more = ordered->MoveFirst(); more && !ordered->IsEOF(); more = ordered->MoveNext()) {
      ordered->GetFieldValue(uniqueIdField, value);
      if (!take(value.ToInt())) return Status::Fail(msg::ESa044);
    }
  }
  ordered->MoveFirst();
  records = std::move(ordered);
  return Status::Ok();
}

}  // namespace ZOC::detail::weights
