// Reading binary weights files for the analyses: the checked open and the
// row readers of ZoStatisticsUtilities, and the flag-matrix reader of
// ZoAnalyzingPatterns.
#include <new>
#include <vector>

#include "StatisticsAnalyst/WeightsFileFormat.h"
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
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
    ZoWeightsUtilities header;
    LumaArray<LumaUnicodeString> values;
    if (!header.ReadHeader(file, values, position)) {
      AppendErrorText(header.GetStrErrorMes());
      return fail(nullptr);
    }
    uniqueIdField = values[wf::kUniqueId];
    LUMA::LumaFieldInfo field;
    if (!dataset->GetFieldInfo(uniqueIdField, field)) return fail(msg::ESa078);
    ZoQueryDef query;
    query.m_order = LumaUnicodeString(" Order BY ") + uniqueIdField;
    ZoRecordsetPtr records(dataset->Query(query));
    if (!records) return fail(msg::EKa013);
    std::int32_t counts = 0, flag = 0, conceptualization = 0;
    if (!wf::ParseInt32(values[wf::kCounts].Str(), counts) ||
        !wf::ParseInt32(values[wf::kStandardization].Str(), flag) ||
        !wf::ParseInt32(values[wf::kConceptualization].Str(), conceptualization))
      return fail(msg::ESa045);
    const std::int64_t r = records->GetRecordCount();
    if (counts != r) return fail(msg::ESa079);
    if (!wf::Fits(file, r, 8) || !wf::ReadUniqueIndex(file, uniqueIndex, static_cast<std::size_t>(r)))
      return fail(msg::ESa046);
    position += 8 * r;
    LUMA::LumaVariant value;
    std::size_t k = 0;
    for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext(), ++k) {
      records->GetFieldValue(uniqueIdField, value);
      if (k >= uniqueIndex.size() || value.ToInt() != uniqueIndex[k].UniqueID) return fail(msg::ESa080);
    }
    standardization = flag != 0 ? 1 : 0;
    if (flag == 0) {
      rowSums.assign(static_cast<std::size_t>(r), 1.0);
    } else {
      if (!wf::Fits(file, r, 8) || !wf::ReadDoubles(file, rowSums, static_cast<std::size_t>(r)))
        return fail(msg::ESa046);
      position += 8 * r;
    }
    // The rows must hold exactly the records the index announces, so every
    // later row read stays inside the file.
    std::int64_t records16 = 0;
    for (const auto& entry : uniqueIndex) {
      if (entry.Count < 0) return fail(msg::ESa046);
      records16 += entry.Count;
    }
    if (wf::FileSize(file) - position != records16 * static_cast<std::int64_t>(wf::kRecordBytes))
      return fail(msg::ESa046);
    model = static_cast<ZoConceptualizationModel>(conceptualization);
    return file;
  } catch (const std::bad_alloc&) {
    return fail(msg::EBa003);
  }
}

unsigned char ZoStatisticsUtilities::ReadWeightMatrixBinarySparse(std::FILE* file, int count, int n,
                                                                  LumaArray<std::int32_t>& columns,
                                                                  LumaArray<double>& weights) {
  columns.clear();
  weights.clear();
  if (!file) {
    AddErrorMessage(msg::EEg020);
    return 0;
  }
  if (count == 0) return 1;
  thread_local std::vector<wf::RowRecord> records;
  if (count < 0 || !wf::Fits(file, count, wf::kRecordBytes) ||
      !wf::ReadRecords(file, static_cast<std::size_t>(count), records)) {
    AddErrorMessage(msg::ESa046);
    return 0;
  }
  columns.reserve(records.size());
  weights.reserve(records.size());
  for (const auto& r : records) {
    if (r.column < 0 || r.column >= n) {
      AddErrorMessage(msg::ESa046);
      return 0;
    }
    columns.push_back(r.column);
    weights.push_back(r.weight);
  }
  return 1;
}

unsigned char ZoStatisticsUtilities::ReadWeightMatrixBinary(std::FILE* file, int count, int n,
                                                            LumaArray<double>& row) {
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
}

// ------------------------------------------------------- K-nearest flag matrix

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
  if (n < 0 || !wf::Fits(m_flagMatrix, n, 1)) {
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
