#include "StatisticsAnalyst/ZoWeightsUtilities.h"

#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/BinaryFileWriter.h"
#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"
#include "StatisticsAnalyst/detail/weights/BuildChecks.h"
#include "StatisticsAnalyst/detail/weights/FileDump.h"
#include "StatisticsAnalyst/detail/weights/FlagMatrix.h"
#include "StatisticsAnalyst/detail/weights/TableConversion.h"
#include "StatisticsAnalyst/detail/weights/TextFileWriter.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/ZoMessageIds.h"

// Every member is an adapter over the private weights-file code: it runs the
// step and turns its status into this object's message.
namespace ZOC {

namespace wf = detail::weights;
using detail::Status;

// ---------------------------------------------------------------- builders

unsigned char ZoWeightsUtilities::BuildWeightMatrixBinary(ZoDatasetVector* dataset,
                                                          const LumaUnicodeString& uniqueIdField,
                                                          const LumaUnicodeString& path,
                                                          const ZoPatternsInformation& info,
                                                          unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    return Report(wf::BuildBinaryFile(dataset, uniqueIdField, path, nullptr, info, m_progress, showProgress != 0)) ? 1
                                                                                                                   : 0;
  });
}

unsigned char ZoWeightsUtilities::BuildWeightMatrixBinaryK(
    ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField, const LumaUnicodeString& path,
    const LumaUnicodeString& flagPath, const ZoPatternsInformation& info, unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    return Report(wf::BuildBinaryFile(dataset, uniqueIdField, path, &flagPath, info, m_progress, showProgress != 0))
               ? 1
               : 0;
  });
}

unsigned char ZoWeightsUtilities::BuildWeightsDictionary(std::FILE* file, const LumaUnicodeString& outputPath,
                                                         unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    return Report(wf::BuildFlagMatrix(file, outputPath, m_progress, showProgress != 0)) ? 1 : 0;
  });
}

unsigned char ZoWeightsUtilities::BuildWeightMatrixFromRows(
    const LumaUnicodeString& path, const LumaUnicodeString& datasetName, const LumaUnicodeString& uniqueIdField,
    const std::vector<std::int32_t>& ids, const std::vector<std::int32_t>& uniqueIds,
    const std::vector<std::int32_t>& neighborIds, const std::vector<double>& weights, unsigned char standardization) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    return Report(wf::BuildBinaryFileFromRows(path, datasetName, uniqueIdField, ids, uniqueIds, neighborIds, weights,
                                              standardization != 0))
               ? 1
               : 0;
  });
}

unsigned char ZoWeightsUtilities::BuildWeightMatrixText(ZoDatasetVector* dataset,
                                                        const LumaUnicodeString& uniqueIdField,
                                                        const LumaUnicodeString& path,
                                                        const ZoPatternsInformation& info, unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    return Report(wf::BuildTextFile(dataset, uniqueIdField, path, info, m_progress, showProgress != 0)) ? 1 : 0;
  });
}

// ------------------------------------------------------------------- dumps

unsigned char ZoWeightsUtilities::ReadWeightMatrixText(const LumaUnicodeString& path) {
  return Guard([&]() -> unsigned char {
    ClearErrorMessage();
    return Report(wf::DumpTextFile(path)) ? 1 : 0;
  });
}

unsigned char ZoWeightsUtilities::ReadWeightMatrixTextEx(const LumaUnicodeString& path) {
  return Guard([&]() -> unsigned char {
    ClearErrorMessage();
    return Report(wf::DumpBinaryFile(path)) ? 1 : 0;
  });
}

// -------------------------------------------------------------- conversion

unsigned char ZoWeightsUtilities::BinaryConverToTable(ZoDatasetVector* target, const LumaUnicodeString& path,
                                                      unsigned char showProgress) {
  return Guard([&]() -> unsigned char {
    ClearErrorMessage();
    return Report(wf::BinaryFileToTable(target, path, m_progress, showProgress != 0)) ? 1 : 0;
  });
}

unsigned char ZoWeightsUtilities::TextConverToTable(ZoDatasetVector* target, const LumaUnicodeString& path,
                                                    unsigned char showProgress) {
  return Guard([&]() -> unsigned char {
    ClearErrorMessage();
    return Report(wf::TextFileToTable(target, path, m_progress, showProgress != 0)) ? 1 : 0;
  });
}

// ------------------------------------------------------------------ layout

// The layout pieces report a failed write by their return value alone, as
// they always have: their callers name the failure.
std::int64_t ZoWeightsUtilities::WriteFileHead(std::FILE* file, ZoDatasetVector* dataset, int count,
                                               const LumaUnicodeString& uniqueIdField, ZoConceptualizationModel model,
                                               unsigned char standardization, ZoDistanceMethod method,
                                               const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex) {
  std::int64_t offset = -1;
  const bool written = Guard([&] {
    return wf::WriteFileHead(file, dataset, count, uniqueIdField, model, standardization != 0, method, uniqueIndex,
                             offset)
        .ok();
  });
  return written ? offset : -1;
}

bool ZoWeightsUtilities::WriteUniqueIDFieldSWMB(std::FILE* file, std::int64_t offset,
                                                const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                                unsigned char standardization, const LumaArray<double>& rowSums) {
  return Guard([&] { return wf::WriteFileTables(file, offset, uniqueIndex, standardization != 0, rowSums).ok(); });
}

int ZoWeightsUtilities::WriteDistanceSWMB(std::FILE* file, ZoRecordset* records, const ZoPatternsInformation& info,
                                          LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums) {
  return Guard([&]() -> int {
    return Report(wf::WriteBinaryRows(file, nullptr, records, info, uniqueIndex, rowSums, nullptr)) ? 1 : 0;
  });
}

int ZoWeightsUtilities::WriteContiguitySWMB(std::FILE* file, ZoRecordset* records, ZoConceptualizationModel model,
                                            unsigned char standardization, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                            LumaArray<double>& rowSums) {
  return Guard([&]() -> int {
    ZoPatternsInformation info;
    info.Conceptualization = model;
    info.Standardization = standardization != 0;
    return Report(wf::WriteBinaryRows(file, nullptr, records, info, uniqueIndex, rowSums, nullptr)) ? 1 : 0;
  });
}

int ZoWeightsUtilities::WriteKNearestSWMB(std::FILE* file, ZoRecordset* records, int k, unsigned char standardization,
                                          ZoDistanceMethod method, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                          LumaArray<double>& rowSums) {
  return Guard([&]() -> int {
    ZoPatternsInformation info;
    info.Conceptualization = KNearestNeighbors;
    info.KNeighbors = k;
    info.Standardization = standardization != 0;
    info.DistanceMethod = method;
    return Report(wf::WriteBinaryRows(file, nullptr, records, info, uniqueIndex, rowSums, nullptr)) ? 1 : 0;
  });
}

// ----------------------------------------------------------------- headers

unsigned char ZoWeightsUtilities::ReadHeader(std::FILE*& file, LumaArray<LumaUnicodeString>& values,
                                             std::int64_t& position) {
  return Guard([&]() -> unsigned char {
    if (!file) return Report(Status::Fail(msg::EEg020)) ? 1 : 0;
    return Report(wf::ReadBinaryHeader(file, values, position)) ? 1 : 0;
  });
}

unsigned char ZoWeightsUtilities::ReadHeader(const std::string& line, LumaArray<LumaUnicodeString>& values) {
  return Guard([&]() -> unsigned char { return wf::ReadTextHeader(line, values) ? 1 : 0; });
}

// ------------------------------------------------------------------ checks

bool ZoWeightsUtilities::CheckParameter(ZoRecordset* records, const ZoPatternsInformation& info) {
  return Guard([&] { return Report(wf::CheckBuildParameters(records, info)); });
}

}  // namespace ZOC
