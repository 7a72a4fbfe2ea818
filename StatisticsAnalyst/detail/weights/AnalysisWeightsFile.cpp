#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"

#include <new>
#include <vector>

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"
#include "host/LumaVariant.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

namespace wf = weights;

Status OpenForAnalysis(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& path, AnalysisWeightsFile& out) {
  out.file.reset();
  if (!dataset) return Status::Fail(msg::EEg002);
  if (path.IsEmpty()) return Status::Fail(msg::ESa076);
  if (!wf::HasSwmbExtension(path, true)) return Status::Fail(msg::EAf017);
  if (!ZoFile::IsExist(path)) return Status::Fail(msg::ESa077);
  FilePtr file(std::fopen(path.c_str(), "rb"));
  if (!file) return Status::Fail(msg::ESa049);
  try {
    // The header first, then the dataset it must describe, then the tables:
    // a file for another dataset is named as such before its size is judged.
    wf::BinaryLayout layout;
    if (Status s = wf::ReadBinaryHeaderValues(file.get(), layout); !s) return s;
    out.uniqueIdField = layout.values[wf::kUniqueId];
    LUMA::LumaFieldInfo field;
    if (!dataset->GetFieldInfo(out.uniqueIdField, field)) return Status::Fail(msg::ESa078);
    ZoRecordsetPtr records;
    if (Status s = QueryOrderedBy(dataset, out.uniqueIdField, records); !s) return s;
    if (layout.count != records->GetRecordCount()) return Status::Fail(msg::ESa079);
    if (Status s = wf::ReadBinaryTables(file.get(), layout); !s) return s;
    LUMA::LumaVariant value;
    std::size_t k = 0;
    for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext(), ++k) {
      records->GetFieldValue(out.uniqueIdField, value);
      if (k >= layout.index.size() || value.ToInt() != layout.index[k].UniqueID) return Status::Fail(msg::ESa080);
    }
    out.index = std::move(layout.index);
    out.standardized = layout.standardization != 0;
    if (out.standardized)
      out.rowSums = std::move(layout.rowSums);
    else
      out.rowSums.assign(out.index.size(), 1.0);
    out.model = static_cast<ZoConceptualizationModel>(layout.conceptualization);
    out.position = layout.rowsStart;
    out.file = std::move(file);
    return Status::Ok();
  } catch (const std::bad_alloc&) {
    return Status::Fail(msg::EUc010);
  }
}

Status ReadSparseRow(std::FILE* file, int count, int n, LUMA::LumaArray<std::int32_t>& columns,
                     LUMA::LumaArray<double>& weights) {
  columns.clear();
  weights.clear();
  if (!file) return Status::Fail(msg::EEg020);
  if (count == 0) return Status::Ok();
  std::vector<wf::RowRecord> records;
  if (Status s = wf::ReadBinaryRow(file, count, n, records); !s) return s;
  columns.reserve(records.size());
  weights.reserve(records.size());
  for (const auto& r : records) {
    columns.push_back(r.column);
    weights.push_back(r.weight);
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::weights
