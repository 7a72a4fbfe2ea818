#include "StatisticsAnalyst/detail/weights/FlagMatrix.h"

#include <unistd.h>
#include <new>
#include <vector>

#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::weights {

bool StartFlagMatrix(std::FILE* flags, std::int64_t n) {
  return std::fflush(flags) == 0 && ftruncate(fileno(flags), n * n) == 0;
}

bool SetFlag(std::FILE* flags, std::int64_t n, std::int64_t i, std::int64_t j) {
  static constexpr unsigned char kOne = 1;
  return Seek(flags, j * n + i) && std::fwrite(&kOne, 1, 1, flags) == 1;
}

Status MarkFlagMatrix(std::FILE* file, std::FILE* out, const BinaryLayout& layout, BuildProgress& progress) {
  const std::int64_t n = layout.count;
  if (!StartFlagMatrix(out, n)) return Status::Fail(msg::ESa049);
  std::vector<RowRecord> records;
  for (std::int64_t i = 0; i < n; ++i) {
    if (!progress.Step(i, n)) return Status::Fail(msg::IMb030);
    if (Status s = ReadBinaryRow(file, layout.index[static_cast<std::size_t>(i)].Count, layout.count, records); !s)
      return s;
    for (const auto& r : records)
      if (!SetFlag(out, n, i, r.column)) return Status::Fail(msg::ESa049);
  }
  return Status::Ok();
}

Status BuildFlagMatrix(std::FILE* file, const LumaUnicodeString& outputPath, ZoProgress* progress, bool show) {
  if (!file) return Status::Fail(msg::EEg020);
  if (outputPath.IsEmpty()) return Status::Fail(msg::EAf017);
  ZoFile::Delete(outputPath);
  return Guarded([&]() -> Status {
    // The whole source is checked before the matrix is sized from it.
    BinaryLayout layout;
    if (Status s = ReadBinaryLayout(file, layout); !s) return s;
    ZoTempFileGuard outGuard(SiblingTemporary(outputPath));
    FilePtr out(std::fopen(outGuard.Path().c_str(), "w+b"));
    if (!out) return Status::Fail(msg::ESa049);
    BuildProgress buildProgress(progress, show, false);
    if (Status s = MarkFlagMatrix(file, out.get(), layout, buildProgress); !s) return s;
    if (std::fclose(out.release()) != 0 || !ZoFile::Rename(outGuard.Path(), outputPath))
      return Status::Fail(msg::ESa049);
    outGuard.Release();
    return Status::Ok();
  });
}

}  // namespace ZOC::detail::weights
