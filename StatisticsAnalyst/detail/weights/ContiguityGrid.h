#pragma once
// ContiguityGrid: which regions of a region dataset touch which.
//
// Build finds every contiguous pair once and keeps the result as compressed
// neighbour rows; queries afterwards are read-only and cheap.
//
// Candidate pairs come from a uniform grid of square cells over the data
// extent: two regions are tested only when their bounding boxes, enlarged by
// the snapping tolerance, overlap and share a cell. The grid has SizeValue()
// cells along the longer side of the extent, bounded by sqrt(64·n) so that
// the number of cells stays proportional to the number of regions n even when
// a few regions carry very many vertices. It lives only during Build, as
// compressed rows cell → regions built by counting: one offset per cell plus
// one entry per cell a region's box covers.
//
// Each candidate pair goes through the touching test of BoundaryContact.h
// (queen: the boundaries come within the tolerance; rook: they share a
// stretch longer than kRookLengthFactor tolerances). Coordinates written by
// different programs often disagree in the last digits along a shared
// boundary, so the test snaps with a tolerance: 1e-9 times the larger side
// of the data extent (1e-9 times the largest absolute coordinate, or 1e-9,
// when the extent has no size), or the caller's (SetTolerance).
//
// Geometries that are not regions, empty ones and ones with non-finite
// coordinates have no neighbours.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/ZoGeometry.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

class ContiguityGrid {
 public:
  // Tolerance relative to the larger side of the data extent.
  static constexpr double kRelativeTolerance = 1e-9;

  // Builds the grid over the regions (feature order 0..n-1) and finds all
  // contiguous pairs. recordCount is the number of records the caller
  // expected; a mismatch fails with "EFd059"; an allocation failure with
  // "EBa003". A failure leaves the grid empty. Never throws.
  Status Build(const std::vector<ZoGeometry>& regions, std::size_t recordCount);
  // The same over the region geometries of the records, in their order;
  // "EUc002" naming the feature and "ESa008" when a geometry cannot be read.
  Status Build(ZoRecordset* records);

  // The snapping tolerance the next Builds use, in data units; 0 (or any
  // value that is not a positive finite number) restores the relative one.
  void SetTolerance(double tolerance) { m_requestedTolerance = tolerance; }

  // Appends to `out` the feature numbers of all other regions contiguous
  // with region i, in ascending order: sharing at least a boundary stretch
  // of positive length (edgesOnly = true, "rook"), or at least one point
  // (edgesOnly = false, "queen"). Nothing is appended for an i out of range.
  // Safe to call concurrently after Build.
  void GetContiguityIDs(std::size_t i, bool edgesOnly, std::vector<int>& out) const;

  // The grid's size value: s = sqrt(32·n) when n ≥ 100, s = sqrt(4·V) below
  // 100 records, V = total vertex count of all regions. 0 before Build.
  double SizeValue() const { return m_sizeValue; }

  // The snapping tolerance used by the last Build, in data units.
  double Tolerance() const { return m_tolerance; }
  // Number of regions of the last successful Build.
  std::size_t RegionCount() const { return m_rowStart.empty() ? 0 : m_rowStart.size() - 1; }
  // Cells along x and y of the candidate grid of the last Build.
  std::size_t CellColumns() const { return m_columns; }
  std::size_t CellRows() const { return m_rows; }

 private:
  void Clear();

  double m_sizeValue = 0.0;
  double m_tolerance = 0.0;
  double m_requestedTolerance = 0.0;
  std::size_t m_columns = 0;
  std::size_t m_rows = 0;
  // Neighbour rows (queen relation): row i is m_neighbours[m_rowStart[i] ..
  // m_rowStart[i+1]) in ascending order; m_sharesEdge says per entry whether
  // the pair is also a rook pair.
  std::vector<std::size_t> m_rowStart;
  std::vector<int> m_neighbours;
  std::vector<std::uint8_t> m_sharesEdge;
};

}  // namespace ZOC::detail::weights
