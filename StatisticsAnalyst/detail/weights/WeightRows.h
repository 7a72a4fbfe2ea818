#pragma once
// WeightRows: the rows of a binary weights file as the global
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

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/SparseRow.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/CsrWeights.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoFile.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;
using LUMA::LumaUnicodeString;

class RowBuilder;

class WeightRows {
 public:
  WeightRows() = default;
  ~WeightRows() { Close(); }
  WeightRows(const WeightRows&) = delete;
  WeightRows& operator=(const WeightRows&) = delete;

  // Builds a temporary weights file ("Quillard…" in the temporary folder),
  // keyed by "QlID", for conceptualizations 1 to 7; the build reports to
  // `progress` when it is not null. "ESa049" when no temporary name can be
  // had, else the binary builder's failures.
  Status BuildTemporary(ZoDatasetVector* dataset, const ZoPatternsInformation& info, ZoProgress* progress);
  // Instead of a temporary file: the weights of conceptualizations 1 to 7
  // over `records` (ordered by "QlID") held in memory as compressed sparse
  // rows, when they take at most info.WeightsMemoryBudget bytes (0: a quarter
  // of physical memory). The rows then read as Open(…, normalize, transposed)
  // would read them from the file. Ok with InMemory() false when they do not
  // fit (nothing is held; build the file instead); a failure when the
  // weights cannot be made: the builders' parameter checks, the row
  // builder's failures, "IMb030" when cancelled.
  // `given`: the features' points already read with their values (and how
  // reading them went), used instead of reading them again; null: read here.
  struct GivenPoints {
    LumaArray<LumaPoint2D> points;
    Status status;
  };
  Status BuildInMemory(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* progress,
                       bool normalize = true, bool transposed = true, GivenPoints* given = nullptr);
  bool InMemory() const { return m_inMemory; }
  // Held in memory without a single weight: no feature has a neighbour.
  bool NoWeights() const { return m_inMemory && m_csr.Stored() == 0; }
  // The in-memory rows, for readers that take them in parallel; null when
  // the rows come from a file.
  const CsrWeights* Memory() const { return m_inMemory ? &m_csr : nullptr; }
  // Opens and checks a weights file for the dataset and reads what the rows
  // need: the index, the normalizers and, for asymmetric weights, the raw weights.
  // With normalize false the rows keep their raw weights; with transposed
  // false the w(j, i) entries are not computed (and nothing extra is held).
  // The checked open's failures; "ESa026" after the reader's when the
  // weights cannot be read by column, "EUc010" when memory runs out.
  Status Open(ZoDatasetVector* dataset, const LumaUnicodeString& path, bool normalize = true, bool transposed = true);
  void Close();

  // The temporary file made by BuildTemporary, or "".
  const LumaUnicodeString& TemporaryPath() const { return m_temporary.Path(); }
  const LumaUnicodeString& UniqueIdField() const { return m_field; }
  std::int64_t Count() const { return m_inMemory ? m_csr.Count() : static_cast<std::int64_t>(m_index.size()); }
  // Row i (rows are read in order, i = 0, 1, ...): "ESa026", after the
  // reader's failure when there is one.
  Status Next(std::int64_t i, SparseRow& row);

 private:
  // Every row of the file from `position` into m_readColumns/m_readWeights,
  // each handed to `take(row)`: "ESa026" (after the reader's failure) when a
  // read or `take` fails.
  Status ReadAllRows(std::int64_t position, const std::function<bool(std::int64_t)>& take);
  // Reads an asymmetric file's weights by column (m_offsets, m_columns,
  // m_raw): "ESa026" when a row cannot be read, a column is out of range or
  // (with counts from the build) a column's count is not what was written.
  Status Transpose(std::int64_t position, const std::vector<std::int64_t>* counts);
  // Every row of `rows` into the in-memory weights: "IMb030" when
  // cancelled; `fits` false (and nothing held) when over the budget.
  Status FillInMemory(const RowBuilder& rows, ZoProgress* progress, bool& fits);
  double Normalized(double raw, std::int64_t row) const;

  ZoTempFileGuard m_temporary;
  // How many rows of the temporary file hold each column, counted as it was
  // written: the transpose then needs one pass over the file, not two.
  std::vector<std::int64_t> m_temporaryColumnCounts;
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
  CsrWeights m_csr;
  bool m_inMemory = false;
};

}  // namespace ZOC::detail::weights
