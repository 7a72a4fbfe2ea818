#include "StatisticsAnalyst/detail/weights/WeightRows.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <new>

#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"
#include "StatisticsAnalyst/detail/weights/BinaryFileWriter.h"
#include "StatisticsAnalyst/detail/weights/BuildChecks.h"
#include "StatisticsAnalyst/detail/weights/RowBuilder.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

namespace {
using limits::IsZero;
}  // namespace

Status WeightRows::BuildTemporary(ZoDatasetVector* dataset, const ZoPatternsInformation& info, ZoProgress* progress) {
  const LumaUnicodeString path = ZoFile::GetTemporaryFileName("Quillard", ".swmb");
  if (path.IsEmpty()) return Status::Fail(msg::ESa049);
  m_temporary.Reset(path);
  return BuildBinaryFile(dataset, kSystemIdField, path, nullptr, info, progress, progress != nullptr,
                         &m_temporaryColumnCounts);
}

Status WeightRows::BuildInMemory(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* progress,
                                 bool normalize, bool transposed, GivenPoints* given) {
  Close();
  const std::uint64_t budget = ResolveBudget(info.WeightsMemoryBudget);
  const std::int64_t n = records->GetRecordCount();
  // K nearest stores about K weights a row: when those alone exceed the
  // budget, the neighbour search is not run twice.
  if (info.Conceptualization == KNearestNeighbors && info.KNeighbors > 0 &&
      CsrWeights::Bytes(n, n * info.KNeighbors) > budget)
    return Status::Ok();
  if (Status s = CheckBuildParameters(records, info); !s) return s;
  ZoPatternsInformation rowsInfo = info;
  rowsInfo.DistanceMethod = spatial::EffectiveMethod(info.DistanceMethod, records->GetDataset()->GetPrjCoordSys());
  auto rows = std::make_unique<RowBuilder>();
  const bool contiguity =
      info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners;
  if (given && !contiguity && !given->status) return Status(given->status).Then(msg::ESa008);
  const Status prepared =
      given && !contiguity
          ? rows->PrepareFromPoints(std::move(given->points), records->GetDataset()->GetPrjCoordSys(), rowsInfo)
          : rows->Prepare(records, rowsInfo);
  if (!prepared) return prepared;
  if (!m_csr.Start(rows->Count(), budget)) return Status::Ok();
  bool fits = true;
  if (Status s = FillInMemory(*rows, progress, fits); !s || !fits) return s;
  // The temporary file would hold row sums when standardizing, and its
  // relationship decides whether w(j, i) is read from row j.
  const bool symmetric = info.Conceptualization >= InverseDistance && info.Conceptualization <= ContiguityEdgesCorners;
  std::vector<std::int64_t> order;
  if (transposed && !symmetric) order = rows->SpatialOrder();
  rows.reset();  // the tree and the points go before the rows are laid out for reading
  m_csr.SetReading(info.Standardization, normalize, transposed, symmetric, &order);
  m_field = kSystemIdField;
  m_inMemory = true;
  return Status::Ok();
}

Status WeightRows::FillInMemory(const RowBuilder& rows, ZoProgress* progress, bool& fits) {
  fits = true;
  CallProgress call(progress, progress != nullptr);
  LumaUnicodeString format;
  if (call) {
    call->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb330));
    format = ZoStringEx::LoadResString(msg::IMb331);
  }
  // Rows are computed a block at a time along the spatial order and kept
  // where they fall; progress and cancellation are polled once a block.
  RowBuilder::Block block;
  std::vector<CsrWeights::RowView> views;
  for (std::int64_t first = 0; first < rows.Count(); first += RowBuilder::kBlockRows) {
    if (call && !call.Step(format, first, rows.Count())) {
      m_csr.Release();
      return Status::Fail(msg::IMb030);
    }
    rows.FillSpatialBlock(first, block);
    views.clear();
    for (std::int64_t k = 0; k < block.Count(); ++k)
      views.push_back({block.Feature(k), block.Columns(k), block.Weights(k), block.Size(k)});
    if (!m_csr.AppendRows(views)) {
      fits = false;
      return Status::Ok();
    }
  }
  return Status::Ok();
}

Status WeightRows::Open(ZoDatasetVector* dataset, const LumaUnicodeString& path, bool normalize, bool transposed) {
  Close();
  m_normalize = normalize;
  m_transposed = transposed;
  AnalysisWeightsFile opened;
  if (Status s = OpenForAnalysis(dataset, path, opened); !s) return s;
  m_field = opened.uniqueIdField;
  m_index = std::move(opened.index);
  m_normalizers = std::move(opened.rowSums);
  const ZoConceptualizationModel model = opened.model;
  const std::int64_t position = opened.position;
  m_file = opened.file.release();
  // Relationships built from distances or shared boundaries are symmetric;
  // K nearest and anything unknown are not assumed to be.
  m_symmetric = model >= InverseDistance && model <= ContiguityEdgesCorners;
  if (m_symmetric || !m_transposed) return Status::Ok();
  try {
    const bool counted =
        !m_temporary.Path().IsEmpty() && path == m_temporary.Path() && m_temporaryColumnCounts.size() == m_index.size();
    const Status transposed = Transpose(position, counted ? &m_temporaryColumnCounts : nullptr);
    m_temporaryColumnCounts = {};
    if (!transposed) return transposed;
  } catch (const std::bad_alloc&) {
    return Status::Fail(msg::EUc010);
  }
  // Back to the first row for the pass that computes the statistic.
  if (fseeko(m_file, static_cast<off_t>(position), SEEK_SET) != 0) return Status::Fail(msg::ESa026);
  return Status::Ok();
}

Status WeightRows::ReadAllRows(std::int64_t position, const std::function<bool(std::int64_t)>& take) {
  if (fseeko(m_file, static_cast<off_t>(position), SEEK_SET) != 0) return Status::Fail(msg::ESa026);
  const std::int64_t n = Count();
  for (std::int64_t r = 0; r < n; ++r)
    if (Status s = ReadSparseRow(m_file, m_index[static_cast<std::size_t>(r)].Count, static_cast<int>(n), m_readColumns,
                                 m_readWeights);
        !s) {
      return s.Then(msg::ESa026);
    } else if (!take(r)) {
      return Status::Fail(msg::ESa026);
    }
  return Status::Ok();
}

Status WeightRows::Transpose(std::int64_t position, const std::vector<std::int64_t>* counts) {
  // Row i of the transpose lists, in ascending j, the rows j that hold
  // column i, so that w(j, i) for row i is found in memory read in the same
  // order as the file's rows. Two passes over the file (count, then fill)
  // hold no more than the transpose itself; a file built here comes with its
  // counts.
  const std::int64_t n = Count();
  m_offsets.assign(static_cast<std::size_t>(n) + 1, 0);
  if (counts) {
    std::copy(counts->begin(), counts->end(), m_offsets.begin() + 1);
  } else {
    const Status counted = ReadAllRows(position, [&](std::int64_t) {
      for (const std::int32_t c : m_readColumns) {
        if (c < 0 || c >= n) return false;
        ++m_offsets[static_cast<std::size_t>(c) + 1];
      }
      return true;
    });
    if (!counted) return counted;
  }
  for (std::size_t c = 1; c < m_offsets.size(); ++c) m_offsets[c] += m_offsets[c - 1];
  std::vector<std::int64_t> next(m_offsets.begin(), m_offsets.end() - 1);
  m_columns.resize(static_cast<std::size_t>(m_offsets.back()));
  m_raw.resize(m_columns.size());
  // Rows arrive in ascending order, so each column's rows do too (a column
  // repeated in a row keeps the row's own order). A file that changed
  // since it was counted stops the fill before it leaves a column's place,
  // or leaves a place short.
  const Status filled = ReadAllRows(position, [&](std::int64_t r) {
    for (std::size_t k = 0; k < m_readColumns.size(); ++k) {
      const std::int32_t c = m_readColumns[k];
      if (c < 0 || c >= n || next[static_cast<std::size_t>(c)] >= m_offsets[static_cast<std::size_t>(c) + 1])
        return false;
      const auto at = static_cast<std::size_t>(next[static_cast<std::size_t>(c)]++);
      m_columns[at] = static_cast<std::int32_t>(r);
      m_raw[at] = m_readWeights[k];
    }
    return true;
  });
  if (!filled) return filled;
  for (std::size_t c = 0; c < next.size(); ++c)
    if (next[c] != m_offsets[c + 1]) return Status::Fail(msg::ESa026);
  return Status::Ok();
}

void WeightRows::Close() {
  m_csr.Release();
  m_inMemory = false;
  if (m_file) std::fclose(m_file);
  m_file = nullptr;
  m_offsets.clear();
  m_columns.clear();
  m_raw.clear();
}

double WeightRows::Normalized(double raw, std::int64_t row) const {
  if (!m_normalize) return raw;
  const double s = m_normalizers[static_cast<std::size_t>(row)];
  return IsZero(s) ? 0.0 : raw / s;
}

Status WeightRows::Next(std::int64_t i, SparseRow& row) {
  const std::int64_t n = Count();
  if (m_inMemory) {
    if (i < 0 || i >= n) return Status::Fail(msg::ESa026);
    m_csr.Row(i, row);
    return Status::Ok();
  }
  Status read = !m_file || i < 0 || i >= n ? Status::Fail(msg::ESa026)
                                           : ReadSparseRow(m_file, m_index[static_cast<std::size_t>(i)].Count,
                                                           static_cast<int>(n), m_readColumns, m_readWeights);
  if (!read) {
    if (read.id() != msg::ESa026) read.Then(msg::ESa026);
    return read;
  }
  row.columns.assign(m_readColumns.begin(), m_readColumns.end());
  row.weights.resize(m_readColumns.size());
  row.transposed.resize(m_transposed ? m_readColumns.size() : 0);
  for (std::size_t k = 0; k < m_readColumns.size(); ++k) {
    const std::int32_t j = m_readColumns[k];
    row.weights[k] = Normalized(m_readWeights[k], i);
    if (!m_transposed) continue;
    double rawTransposed = m_readWeights[k];
    if (!m_symmetric) {
      const auto first = m_columns.begin() + m_offsets[static_cast<std::size_t>(i)];
      const auto last = m_columns.begin() + m_offsets[static_cast<std::size_t>(i) + 1];
      const auto it = std::lower_bound(first, last, j);
      rawTransposed = (it != last && *it == j) ? m_raw[static_cast<std::size_t>(it - m_columns.begin())] : 0.0;
    }
    row.transposed[k] = Normalized(rawTransposed, j);
  }
  return Status::Ok();
}

}  // namespace ZOC::detail::weights
