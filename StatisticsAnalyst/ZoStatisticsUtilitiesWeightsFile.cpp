// ZoStatisticsUtilities: opening a binary weights file for an analysis,
// checked against the dataset, and reading its rows, through the one binary
// reader.
#include <new>
#include <vector>

#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace wf = weightsfile;

std::FILE* ZoStatisticsUtilities::CheckSWMFileValid(ZoDatasetVector* dataset, const LumaUnicodeString& path,
                                                    LumaUnicodeString& uniqueIdField,
                                                    LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                                    ZoConceptualizationModel& model, unsigned char& standardization,
                                                    LumaArray<double>& rowSums, std::int64_t& position) {
  if (!dataset) {
    AddErrorMessage(msg::EEg002);
    return nullptr;
  }
  if (path.IsEmpty()) {
    AddErrorMessage(msg::ESa076);
    return nullptr;
  }
  if (!wf::HasSwmbExtension(path, true)) {
    AddErrorMessage(msg::EAf017);
    return nullptr;
  }
  if (!ZoFile::IsExist(path)) {
    AddErrorMessage(msg::ESa077);
    return nullptr;
  }
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) {
    AddErrorMessage(msg::ESa049);
    return nullptr;
  }
  // Every failure below closes the file; success hands it to the caller.
  auto fail = [&](const char* id) -> std::FILE* {
    if (id) AddErrorMessage(id);
    std::fclose(file);
    return nullptr;
  };
  try {
    // The header first, then the dataset it must describe, then the tables:
    // a file for another dataset is named as such before its size is judged.
    wf::BinaryLayout layout;
    if (const char* id = wf::ReadBinaryHeaderValues(file, layout)) return fail(id);
    uniqueIdField = layout.values[wf::kUniqueId];
    position = layout.indexStart;
    LUMA::LumaFieldInfo field;
    if (!dataset->GetFieldInfo(uniqueIdField, field)) return fail(msg::ESa078);
    ZoQueryDef query;
    query.m_order = LumaUnicodeString(" Order BY ") + uniqueIdField;
    ZoRecordsetPtr records(dataset->Query(query));
    if (!records) return fail(msg::EKa013);
    if (layout.count != records->GetRecordCount()) return fail(msg::ESa079);
    if (const char* id = wf::ReadBinaryTables(file, layout)) return fail(id);
    LUMA::LumaVariant value;
    std::size_t k = 0;
    for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext(), ++k) {
      records->GetFieldValue(uniqueIdField, value);
      if (k >= layout.index.size() || value.ToInt() != layout.index[k].UniqueID) return fail(msg::ESa080);
    }
    uniqueIndex = std::move(layout.index);
    standardization = layout.standardization != 0 ? 1 : 0;
    if (standardization)
      rowSums = std::move(layout.rowSums);
    else
      rowSums.assign(uniqueIndex.size(), 1.0);
    model = static_cast<ZoConceptualizationModel>(layout.conceptualization);
    position = layout.rowsStart;
    return file;
  } catch (const std::bad_alloc&) {
    return fail(msg::EUb002);
  } catch (const std::exception& e) {
    ReportException(e.what(), nullptr);
    return fail(nullptr);
  } catch (...) {
    ReportException("", nullptr);
    return fail(nullptr);
  }
}

unsigned char ZoStatisticsUtilities::ReadWeightMatrixBinarySparse(std::FILE* file, int count, int n,
                                                                  LumaArray<std::int32_t>& columns,
                                                                  LumaArray<double>& weights) {
  return Guard([&]() -> unsigned char {
    columns.clear();
    weights.clear();
    if (!file) {
      AddErrorMessage(msg::EEg020);
      return 0;
    }
    if (count == 0) return 1;
    std::vector<wf::RowRecord> records;
    if (const char* id = wf::ReadBinaryRow(file, count, n, records)) {
      AddErrorMessage(id);
      return 0;
    }
    columns.reserve(records.size());
    weights.reserve(records.size());
    for (const auto& r : records) {
      columns.push_back(r.column);
      weights.push_back(r.weight);
    }
    return 1;
  });
}

unsigned char ZoStatisticsUtilities::ReadWeightMatrixBinary(std::FILE* file, int count, int n, LumaArray<double>& row) {
  return Guard([&]() -> unsigned char {
    if (!file) {
      AddErrorMessage(msg::EEg020);
      return 0;
    }
    row.assign(n > 0 ? static_cast<std::size_t>(n) : 0u, 0.0);
    LumaArray<std::int32_t> columns;
    LumaArray<double> weights;
    if (!ReadWeightMatrixBinarySparse(file, count, n, columns, weights)) return 0;
    for (std::size_t h = 0; h < columns.size(); ++h) row[static_cast<std::size_t>(columns[h])] = weights[h];
    return 1;
  });
}

}  // namespace ZOC
