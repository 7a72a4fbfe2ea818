#include "StatisticsAnalyst/ZoWeightsUtilities.h"

#include <unistd.h>
#include <memory>
#include <new>

#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/weights/BinaryWeightsReader.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC {

namespace wf = detail::weights;

namespace {

// Closes a stdio file when it goes out of scope.
struct FileCloser {
  void operator()(std::FILE* f) const {
    if (f) std::fclose(f);
  }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// The progress of one build, visible to WriteRows for as long as it runs.
class BuildProgress {
 public:
  BuildProgress(detail::CallProgress*& slot, LumaUnicodeString& format, ZoProgress* caller, bool show)
      : m_progress(caller, show), m_slot(slot) {
    // The range is left to the caller: an analysis that builds a temporary
    // file gives the build its own slice of the run.
    if (m_progress) {
      m_progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb330));
      format = ZoStringEx::LoadResString(msg::IMb331);
    }
    m_slot = &m_progress;
  }
  ~BuildProgress() { m_slot = nullptr; }
  detail::CallProgress& get() { return m_progress; }

 private:
  detail::CallProgress m_progress;
  detail::CallProgress*& m_slot;
};

}  // namespace

// ------------------------------------------------------------------ checks

bool ZoWeightsUtilities::CheckFilePath(const LumaUnicodeString& path) {
  if (path.IsEmpty() || !wf::HasSwmbExtension(path, true)) {
    AddErrorMessage(msg::EAf017);
    return false;
  }
  // An old file at the path goes first, so a failed build never leaves it behind.
  ZoFile::Delete(path);
  return true;
}

bool ZoWeightsUtilities::CheckUniqueIDField(ZoDatasetVector* dataset, const LumaUnicodeString& field) {
  if (field.IsEmpty()) {
    AddErrorMessage(msg::ECb005);
    return false;
  }
  bool found = false;
  for (const auto& f : dataset->GetFieldInfos()) found = found || f.GetName().EqualsNoCase(field.Str());
  if (!found) {
    AddErrorMessage(msg::ECb004);
    return false;
  }
  LUMA::LumaFieldInfo info;
  if (!dataset->GetFieldInfo(field, info)) {
    AddErrorMessage(msg::ECd001);
    return false;
  }
  const int type = info.GetType();
  if (type != LUMA::FieldInt16 && type != LUMA::FieldInt32 && type != LUMA::FieldInt64) {
    AddErrorMessage(msg::ECa009);
    return false;
  }
  return true;
}

bool ZoWeightsUtilities::CheckParameter(ZoRecordset* records, const ZoPatternsInformation& info) {
  return Guard([&]() -> bool {
    const std::int64_t n = records->GetRecordCount();
    switch (info.Conceptualization) {
      case ContiguityEdgesOnly:
      case ContiguityEdgesCorners:
        if (records->GetDataset()->GetType() != DatasetRegion) {
          AddErrorMessage(msg::ESa025);
          return false;
        }
        return true;
      case KNearestNeighbors:
        if (info.KNeighbors <= 0) {
          AddErrorMessage(msg::ESa050);
          return false;
        }
        if (info.KNeighbors >= n) {
          AddErrorMessage(msg::ESa042);
          return false;
        }
        return true;
      case InverseDistance:
      case InverseDistanceSquared:
      case FixedDistanceBand:
      case ZoneOfIndifference: return true;
      default:
        // No weights file stores another relationship.
        AddErrorMessage(msg::ESa023);
        return false;
    }
  });
}

ZoRecordsetPtr ZoWeightsUtilities::PrepareBuild(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                                                const LumaUnicodeString& path, const ZoPatternsInformation& info,
                                                LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                                const LumaUnicodeString* flagPath) {
  if (!dataset) {
    AddErrorMessage(msg::EEg002);
    return nullptr;
  }
  // Points, lines or regions, as the analyses want them: a layer of mixed
  // geometry types has no single way to place its features.
  if (!CheckAnalysisDataset(dataset)) return nullptr;
  if (flagPath && !flagPath->IsEmpty() && ZoFile::IsSameFile(*flagPath, path)) {
    AddErrorMessage(msg::EUb004);
    return nullptr;
  }
  if (!CheckFilePath(path) || !CheckUniqueIDField(dataset, uniqueIdField)) return nullptr;
  if (flagPath) {
    if (flagPath->IsEmpty()) {
      AddErrorMessage(msg::ESa076);
      return nullptr;
    }
    ZoFile::Delete(*flagPath);
    if (info.Conceptualization != KNearestNeighbors) {
      AddErrorMessage(msg::ESa048);
      return nullptr;
    }
  }
  ZoRecordsetPtr records = QueryOrderedBy(dataset, uniqueIdField);
  if (!records) return nullptr;
  // One feature has no neighbour under any relationship.
  if (records->GetRecordCount() < 2) {
    AddErrorMessage(msg::EUb005);
    return nullptr;
  }
  if (!CheckParameter(records.get(), info)) return nullptr;
  // The order puts equal IDs next to each other.
  uniqueIndex.clear();
  uniqueIndex.reserve(static_cast<std::size_t>(records->GetRecordCount()));
  LUMA::LumaVariant value;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(uniqueIdField, value);
    const std::int32_t id = value.ToInt();
    if (!uniqueIndex.empty() && uniqueIndex.back().UniqueID == id) {
      AddErrorMessage(msg::ESa044);
      return nullptr;
    }
    uniqueIndex.push_back({id, 0});
  }
  records->MoveFirst();
  return records;
}

// ------------------------------------------------------------------ layout

std::int64_t ZoWeightsUtilities::WriteFileHead(std::FILE* file, ZoDatasetVector* dataset, int count,
                                               const LumaUnicodeString& uniqueIdField, ZoConceptualizationModel model,
                                               unsigned char standardization, ZoDistanceMethod method,
                                               const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex) {
  // An escaping exception gives 0, which is never a valid offset (4 + L).
  const std::int64_t offset = Guard([&]() -> std::int64_t {
    if (!file || !dataset) return -1;
    const std::string text = wf::HeaderText(dataset->GetName().Str(), dataset->GetType(), count, uniqueIdField.Str(),
                                            model, standardization ? 1 : 0, method, true);
    const std::u16string units = LumaUnicodeString(text).ToUtf16();
    const auto length = static_cast<std::int32_t>(units.size() * 2);
    bool ok = wf::WriteInt32(file, length);
    for (char16_t u : units) {
      const unsigned char bytes[2] = {static_cast<unsigned char>(u & 0xFF), static_cast<unsigned char>(u >> 8)};
      ok = ok && std::fwrite(bytes, 1, 2, file) == 2;
    }
    ok = ok && wf::WriteUniqueIndex(file, uniqueIndex);
    if (standardization) ok = ok && wf::WriteDoubles(file, LumaArray<double>(uniqueIndex.size(), 0.0));
    return ok ? 4 + static_cast<std::int64_t>(length) : -1;
  });
  return offset > 0 ? offset : -1;
}

bool ZoWeightsUtilities::WriteUniqueIDFieldSWMB(std::FILE* file, std::int64_t offset,
                                                const LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                                unsigned char standardization, const LumaArray<double>& rowSums) {
  return Guard([&]() -> bool {
    return file && wf::Seek(file, offset) && wf::WriteUniqueIndex(file, uniqueIndex) &&
           (!standardization || wf::WriteDoubles(file, rowSums)) && std::fflush(file) == 0;
  });
}

unsigned char ZoWeightsUtilities::ReadHeader(std::FILE*& file, LumaArray<LumaUnicodeString>& values,
                                             std::int64_t& position) {
  return Guard([&]() -> unsigned char {
    if (!file) {
      AddErrorMessage(msg::EEg020);
      return 0;
    }
    if (const char* id = wf::ReadBinaryHeader(file, values, position)) {
      AddErrorMessage(id);
      return 0;
    }
    return 1;
  });
}

// ------------------------------------------------------------- row writers

namespace {
// Writes a kept row as binary records and, for the flag matrix, marks its columns.
struct BinaryRowSink {
  std::FILE* file;
  std::FILE* flags;  // null unless the K-nearest flag matrix is written too
  std::int64_t n;
  std::vector<wf::RowRecord> records;

  bool operator()(std::int64_t i, const std::vector<std::int64_t>& columns, const std::vector<double>& weights) {
    records.resize(columns.size());
    for (std::size_t h = 0; h < columns.size(); ++h)
      records[h] = {static_cast<std::int32_t>(i), static_cast<std::int32_t>(columns[h]), weights[h]};
    if (!wf::WriteRecords(file, records)) return false;
    if (flags) {
      static constexpr unsigned char kOne = 1;
      for (std::int64_t j : columns)
        if (!wf::Seek(flags, j * n + i) || std::fwrite(&kOne, 1, 1, flags) != 1) return false;
    }
    return true;
  }
};
}  // namespace

int ZoWeightsUtilities::WriteBinaryRows(std::FILE* file, std::FILE* flags, ZoRecordset* records,
                                        const ZoPatternsInformation& info, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                        LumaArray<double>& rowSums) {
  detail::weights::RowBuilder rows;
  if (!Report(rows.Prepare(records, info))) return 0;
  BinaryRowSink sink{file, flags, rows.Count(), {}};
  return WriteRows(rows, uniqueIndex, rowSums, info.Standardization, sink) ? 1 : 0;
}

int ZoWeightsUtilities::WriteDistanceSWMB(std::FILE* file, ZoRecordset* records, const ZoPatternsInformation& info,
                                          LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex, LumaArray<double>& rowSums) {
  return Guard([&]() -> int { return WriteBinaryRows(file, nullptr, records, info, uniqueIndex, rowSums); });
}

int ZoWeightsUtilities::WriteContiguitySWMB(std::FILE* file, ZoRecordset* records, ZoConceptualizationModel model,
                                            unsigned char standardization, LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                                            LumaArray<double>& rowSums) {
  return Guard([&]() -> int {
    ZoPatternsInformation info;
    info.Conceptualization = model;
    info.Standardization = standardization != 0;
    return WriteBinaryRows(file, nullptr, records, info, uniqueIndex, rowSums);
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
    return WriteBinaryRows(file, nullptr, records, info, uniqueIndex, rowSums);
  });
}

// ---------------------------------------------------------------- builders

unsigned char ZoWeightsUtilities::BuildWeightMatrixBinary(ZoDatasetVector* dataset,
                                                          const LumaUnicodeString& uniqueIdField,
                                                          const LumaUnicodeString& path,
                                                          const ZoPatternsInformation& info,
                                                          unsigned char showProgress) {
  ClearErrorMessage();
  return BuildBinary(dataset, uniqueIdField, path, nullptr, info, showProgress);
}

unsigned char ZoWeightsUtilities::BuildWeightMatrixBinaryK(
    ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField, const LumaUnicodeString& path,
    const LumaUnicodeString& flagPath, const ZoPatternsInformation& info, unsigned char showProgress) {
  ClearErrorMessage();
  return BuildBinary(dataset, uniqueIdField, path, &flagPath, info, showProgress);
}

unsigned char ZoWeightsUtilities::RunBuild(const std::function<unsigned char()>& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    AddErrorMessage(msg::EUb002);
  } catch (const std::exception& e) {
    ReportException(e.what(), nullptr);
  } catch (...) {
    ReportException("", nullptr);
  }
  return 0;
}

unsigned char ZoWeightsUtilities::BuildBinary(ZoDatasetVector* dataset, const LumaUnicodeString& uniqueIdField,
                                              const LumaUnicodeString& path, const LumaUnicodeString* flagPath,
                                              const ZoPatternsInformation& info, unsigned char showProgress) {
  return RunBuild([&]() -> unsigned char {
    LumaArray<ZoSWMFileUniqueIndex> uniqueIndex;
    ZoRecordsetPtr records = PrepareBuild(dataset, uniqueIdField, path, info, uniqueIndex, flagPath);
    if (!records) return 0;
    const ZoDistanceMethod method = detail::spatial::EffectiveMethod(info.DistanceMethod, dataset->GetPrjCoordSys());
    const auto n = static_cast<std::int64_t>(uniqueIndex.size());

    // Both outputs are built under temporary names beside them, deleted on
    // every way out but success, which renames them onto their real names.
    ZoTempFileGuard flagGuard, fileGuard;
    FilePtr flags;
    if (flagPath) {
      flagGuard.Reset(wf::SiblingTemporary(*flagPath));
      flags.reset(std::fopen(flagGuard.Path().c_str(), "w+b"));
      if (!flags) {
        AddErrorMessage(msg::ESa049);
        return 0;
      }
    }
    fileGuard.Reset(wf::SiblingTemporary(path));
    FilePtr file(std::fopen(fileGuard.Path().c_str(), "w+b"));
    if (!file) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }

    const unsigned char standardize = info.Standardization ? 1 : 0;
    const std::int64_t offset = WriteFileHead(file.get(), dataset, static_cast<int>(n), uniqueIdField,
                                              info.Conceptualization, standardize, method, uniqueIndex);
    // The flag matrix starts as N blocks of N zero bytes (a sparse file).
    if (offset < 0 || (flags && (std::fflush(flags.get()) != 0 || ftruncate(fileno(flags.get()), n * n) != 0))) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    LumaArray<double> rowSums(static_cast<std::size_t>(n), 0.0);

    BuildProgress progress(m_call, m_progressFormat, m_progress, showProgress != 0);
    ZoPatternsInformation rowsInfo = info;
    rowsInfo.DistanceMethod = method;
    if (!WriteBinaryRows(file.get(), flags.get(), records.get(), rowsInfo, uniqueIndex, rowSums)) return 0;
    if (!WriteUniqueIDFieldSWMB(file.get(), offset, uniqueIndex, standardize, rowSums) ||
        std::fclose(file.release()) != 0 || (flags && std::fclose(flags.release()) != 0) ||
        (flagPath && !ZoFile::Rename(flagGuard.Path(), *flagPath)) || !ZoFile::Rename(fileGuard.Path(), path)) {
      AddErrorMessage(msg::ESa049);
      if (flagPath) ZoFile::Delete(*flagPath);  // never a flag matrix without its weights file
      return 0;
    }
    fileGuard.Release();
    flagGuard.Release();
    return 1;
  });
}

unsigned char ZoWeightsUtilities::BuildWeightsDictionary(std::FILE* file, const LumaUnicodeString& outputPath,
                                                         unsigned char showProgress) {
  ClearErrorMessage();
  if (!file) {
    AddErrorMessage(msg::EEg020);
    return 0;
  }
  if (outputPath.IsEmpty()) {
    AddErrorMessage(msg::EAf017);
    return 0;
  }
  ZoFile::Delete(outputPath);
  return RunBuild([&]() -> unsigned char {
    // The whole source is checked before the matrix is sized from it.
    wf::BinaryLayout layout;
    if (const char* id = wf::ReadBinaryLayout(file, layout)) {
      AddErrorMessage(id);
      return 0;
    }
    ZoTempFileGuard outGuard(wf::SiblingTemporary(outputPath));
    FilePtr out(std::fopen(outGuard.Path().c_str(), "w+b"));
    if (!out) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    BuildProgress progress(m_call, m_progressFormat, m_progress, showProgress != 0);
    if (!MarkFlagMatrix(file, out.get(), layout, progress.get())) return 0;
    if (std::fclose(out.release()) != 0 || !ZoFile::Rename(outGuard.Path(), outputPath)) {
      AddErrorMessage(msg::ESa049);
      return 0;
    }
    outGuard.Release();
    return 1;
  });
}

bool ZoWeightsUtilities::MarkFlagMatrix(std::FILE* file, std::FILE* out, const detail::weights::BinaryLayout& layout,
                                        detail::CallProgress& progress) {
  const std::int64_t n = layout.count;
  // N blocks of N zero bytes (a sparse file), then a 1 for every record.
  if (std::fflush(out) != 0 || ftruncate(fileno(out), n * n) != 0) {
    AddErrorMessage(msg::ESa049);
    return false;
  }
  std::vector<wf::RowRecord> records;
  static constexpr unsigned char kOne = 1;
  for (std::int64_t i = 0; i < n; ++i) {
    if (!progress.Step(m_progressFormat, i, n)) {
      AddErrorMessage(msg::IMb030);
      return false;
    }
    if (const char* id =
            wf::ReadBinaryRow(file, layout.index[static_cast<std::size_t>(i)].Count, layout.count, records)) {
      AddErrorMessage(id);
      return false;
    }
    for (const auto& r : records) {
      if (!wf::Seek(out, static_cast<std::int64_t>(r.column) * n + i) || std::fwrite(&kOne, 1, 1, out) != 1) {
        AddErrorMessage(msg::ESa049);
        return false;
      }
    }
  }
  return true;
}

}  // namespace ZOC
