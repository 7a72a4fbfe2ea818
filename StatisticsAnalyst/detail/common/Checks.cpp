#include "StatisticsAnalyst/detail/common/Checks.h"

#include <cmath>
#include <limits>
#include <string>

#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoQueryDef.h"

namespace ZOC::detail {

Status CheckAnalysisDataset(ZoDatasetVector* dataset) {
  if (!dataset) return Status::Fail(msg::EEg002);
  if (!dataset->IsOpen()) dataset->Open();
  const int type = dataset->GetType();
  if (type != DatasetPoint && type != DatasetLine && type != DatasetRegion) return Status::Fail(msg::EEe018);
  return Status::Ok();
}

Status CheckInputAndResult(ZoDatasetVector* input, ZoDatasetVector* result) {
  if (!input) return Status::Fail(msg::EEg002);
  if (!result) return Status::Fail(msg::EEg032);
  if (!result->IsOpen()) result->Open();
  if (Status s = CheckAnalysisDataset(input); !s) return s;
  if (result->GetType() != input->GetType()) return Status::Fail(msg::EEe017);
  return Status::Ok();
}

Status CheckNumericField(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& fieldName) {
  if (fieldName.IsEmpty()) return Status::Ok();
  if (!dataset) return Status::Fail(msg::EEg002);
  LUMA::LumaFieldInfo field;
  if (!dataset->GetFieldInfo(fieldName, field)) return Status::Fail(msg::ECd001);
  if (!LUMA::IsNumericFieldType(field.GetType())) return Status::Fail(msg::ESa006);
  return Status::Ok();
}

Status CheckPermutations(std::int32_t permutations) {
  if (permutations >= 0 && permutations <= kMaxPermutations) return Status::Ok();
  return Status::Fail(msg::ESa109, {LUMA::LumaUnicodeString(std::to_string(permutations))});
}

Status CheckWeightParameters(ZoRecordset* records, const ZoPatternsInformation& info) {
  if (!records) return Status::Fail(msg::EEg024);
  const std::int64_t count = records->GetRecordCount();
  if (count < 4) return Status::Fail(msg::ESa014);
  if (info.FieldName.IsEmpty()) return Status::Fail(msg::ESa005);
  ZoDatasetVector* dataset = records->GetDataset();
  if (Status s = CheckNumericField(dataset, info.FieldName); !s) return s;
  if (info.Conceptualization == SpatialWeightsFile) {
    if (info.WeightsFilePath.IsEmpty()) return Status::Fail(msg::ESa076);
    if (!ZoFile::IsExist(info.WeightsFilePath)) return Status::Fail(msg::ESa077);
  }
  if ((info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners) &&
      (!dataset || dataset->GetType() != DatasetRegion))
    return Status::Fail(msg::ESa025);
  if (info.KNeighbors < 1) return Status::Fail(msg::ESa050);
  if (info.KNeighbors >= count) return Status::Fail(msg::ESa042);
  // -1 asks for the default band; other negative values, values beyond the
  // largest double and NaN are not bands.
  const double band = info.DistanceTolerance;
  const bool defaultBand = std::fabs(band + 1.0) < 1e-10;
  if (std::isnan(band) || band > std::numeric_limits<double>::max() || (band < 0.0 && !defaultBand))
    return Status::Fail(msg::ESa061);
  if (!(info.Exponent >= 0.0)) return Status::Fail(msg::ESa062);
  if (!(info.SnapTolerance >= 0.0) || !std::isfinite(info.SnapTolerance)) return Status::Fail(msg::EUb008);
  return Status::Ok();
}

Status QueryOrderedBy(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& field, ZoRecordsetPtr& records) {
  ZoQueryDef query;
  query.m_order = LUMA::LumaUnicodeString(" Order BY ") + field;
  records.reset(dataset->Query(query));
  return records ? Status::Ok() : Status::Fail(msg::EKa013);
}

Status OpenAnalysisRecords(ZoDatasetVector* dataset, const ZoPatternsInformation& info, ZoRecordsetPtr& records) {
  if (Status s = CheckAnalysisDataset(dataset); !s) return s;
  if (Status s = QueryOrderedBy(dataset, kSystemIdField, records); !s) return s;
  if (Status s = CheckWeightParameters(records.get(), info); !s) {
    records.reset();
    return s;
  }
  return Status::Ok();
}

}  // namespace ZOC::detail
