#pragma once
// ZoWeightsFileRows: the rows of a binary weights file as the global
// statistics stream them: opened and checked against the dataset, each row
// normalized by its row sum when the file is standardized (a zero-sum row
// reads as empty), and each stored weight w(i, j) paired with w(j, i).
//
// Weights of the distance and contiguity relationships are symmetric before
// standardization, so w(j, i) = raw(i, j) / s(j) needs nothing but the row
// sums. K-nearest weights are not symmetric: for them (and for any file whose
// relationship is not known to be symmetric) the raw weights are also held
// in memory, sorted by row and column, and w(j, i) is looked up there. That
// costs memory in proportion to the stored weights, never n × n.
//
// A temporary file made here is deleted when the object goes away, on every
// path out of the analysis.
#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/common/SparseRow.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/CsrWeights.h"
#include "host/ZoFile.h"

namespace ZOC {

namespace detail::weights {
class RowBuilder;
}

class ZoWeightsFileRows {
 public:
  ZoWeightsFileRows() = default;
  ~ZoWeightsFileRows() { Close(); }
  ZoWeightsFileRows(const ZoWeightsFileRows&) = delete;
  ZoWeightsFileRows& operator=(const ZoWeightsFileRows&) = delete;

  // Builds a temporary weights file ("Quillard…" in the temporary folder),
  // keyed by "QlID", for conceptualizations 1 to 7; the build reports to
  // `progress` when it is not null.
  bool BuildTemporary(ZoDatasetVector* dataset, const ZoPatternsInformation& info, ZoProgress* progress);
  // Instead of a temporary file: the weights of conceptualizations 1 to 7
  // over `records` (ordered by "QlID") held in memory as compressed sparse
  // rows, when they take at most info.WeightsMemoryBudget bytes (0: a quarter
  // of physical memory). The rows then read as Open(…, normalize, transposed)
  // would read them from the file. False with an empty Error() when they do
  // not fit (nothing is held; build the file instead), false with a message
  // when the weights cannot be made.
  // `given`: the features' points already read with their values (and how
  // reading them went), used instead of reading them again; null: read here.
  struct GivenPoints {
    LumaArray<LumaPoint2D> points;
    detail::Status status;
  };
  bool BuildInMemory(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* progress,
                     bool normalize = true, bool transposed = true, GivenPoints* given = nullptr);
  bool InMemory() const { return m_inMemory; }
  // The in-memory rows, for readers that take them in parallel; null when
  // the rows come from a file.
  const detail::weights::CsrWeights* Memory() const { return m_inMemory ? &m_csr : nullptr; }
  // Opens and checks a weights file for the dataset and reads what the rows
  // need: the index, the normalizers and, for asymmetric weights, the raw weights.
  // With normalize false the rows keep their raw weights; with transposed
  // false the w(j, i) entries are not computed (and nothing extra is held).
  bool Open(ZoDatasetVector* dataset, const LumaUnicodeString& path, bool normalize = true, bool transposed = true);
  void Close();

  // The temporary file made by BuildTemporary, or "".
  const LumaUnicodeString& TemporaryPath() const { return m_temporary.Path(); }
  const LumaUnicodeString& UniqueIdField() const { return m_field; }
  std::int64_t Count() const { return m_inMemory ? m_csr.Count() : static_cast<std::int64_t>(m_index.size()); }
  // Row i (rows are read in order, i = 0, 1, ...). False with "ESa026".
  bool Next(std::int64_t i, ZoSparseRow& row);
  // The messages of every failure so far.
  const LumaUnicodeString& Error() const { return m_error; }

 private:
  void Fail(const char* id);
  // Every row of the file from `position` into m_readColumns/m_readWeights,
  // each handed to `take(row)`; false when a read or `take` fails.
  bool ReadAllRows(std::int64_t position, const std::function<bool(std::int64_t)>& take);
  // Reads an asymmetric file's weights by column (m_offsets, m_columns,
  // m_raw); false when a row cannot be read or a column is out of range.
  bool Transpose(std::int64_t position);
  // Every row of `rows` into the in-memory weights; false when cancelled or
  // over the budget.
  bool FillInMemory(const detail::weights::RowBuilder& rows, ZoProgress* progress);
  double Normalized(double raw, std::int64_t row) const;

  ZoTempFileGuard m_temporary;
  std::FILE* m_file = nullptr;
  LumaUnicodeString m_field;
  LumaArray<ZoSWMFileUniqueIndex> m_index;
  LumaArray<double> m_normalizers;
  bool m_symmetric = true;
  bool m_normalize = true;
  bool m_transposed = true;
  // Raw weights of asymmetric files by column: the rows j holding column i
  // (ascending) and w(j, i) are m_columns/m_raw[m_offsets[i], m_offsets[i+1]).
  std::vector<std::int64_t> m_offsets;
  std::vector<std::int32_t> m_columns;
  std::vector<double> m_raw;
  LumaArray<std::int32_t> m_readColumns;
  LumaArray<double> m_readWeights;
  LumaUnicodeString m_error;
  detail::weights::CsrWeights m_csr;
  bool m_inMemory = false;
};

}  // namespace ZOC
