// ContiguityGrid: the candidate grid over the regions and the neighbour rows
// built from the pairs BoundaryContact finds touching.
#include "StatisticsAnalyst/detail/weights/ContiguityGrid.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "StatisticsAnalyst/detail/weights/BoundaryContact.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

namespace {

constexpr const char* kRecordCountMismatch = msg::EFd059;
constexpr const char* kAllocationFailed = msg::EBa003;

struct Link {
  int i, j;
  bool edge;
};

// The boundaries of all regions, their common extent and the largest
// coordinate magnitude (the tolerance falls back on it for a zero extent).
struct Shapes {
  std::vector<Boundary> boundaries;
  Box extent;
  bool haveExtent = false;
  double largestCoordinate = 0.0;
};

Shapes ReadShapes(const std::vector<ZoGeometry>& regions) {
  Shapes s;
  s.boundaries.resize(regions.size());
  for (std::size_t i = 0; i < regions.size(); ++i) {
    s.boundaries[i] = MakeBoundary(regions[i]);
    if (!s.boundaries[i].usable) continue;
    const Box& b = s.boundaries[i].box;
    if (!s.haveExtent) {
      s.extent = b;
      s.haveExtent = true;
    } else {
      s.extent = {std::min(s.extent.minX, b.minX), std::min(s.extent.minY, b.minY), std::max(s.extent.maxX, b.maxX),
                  std::max(s.extent.maxY, b.maxY)};
    }
    s.largestCoordinate =
        std::max({s.largestCoordinate, std::abs(b.minX), std::abs(b.maxX), std::abs(b.minY), std::abs(b.maxY)});
  }
  return s;
}

// The candidate grid's geometry: square cells over the extent.
struct CellGeometry {
  Box extent;
  double cellSize = 1.0;
  std::size_t columns = 1, rows = 1;

  // Cells along the longer side: the size value, bounded so that the cell
  // count stays proportional to the number of regions even when a few
  // regions carry very many vertices.
  CellGeometry(const Shapes& shapes, double sizeValue, std::size_t n) : extent(shapes.extent) {
    const double width = shapes.haveExtent ? extent.maxX - extent.minX : 0.0;
    const double height = shapes.haveExtent ? extent.maxY - extent.minY : 0.0;
    const double side = std::max(width, height);
    const double cap = std::max(1.0, std::ceil(std::sqrt(64.0 * static_cast<double>(std::max<std::size_t>(n, 1)))));
    const double cellsAlong = std::clamp(std::ceil(sizeValue), 1.0, cap);
    cellSize = side > 0.0 && std::isfinite(side) ? side / cellsAlong : 1.0;
    auto cellsFor = [&](double length) {
      const double c = std::ceil(length / cellSize);
      return static_cast<std::size_t>(std::clamp(std::isfinite(c) ? c : 1.0, 1.0, cellsAlong));
    };
    columns = cellsFor(width);
    rows = cellsFor(height);
  }
  std::size_t CellX(double x) const {
    const double c = std::floor((x - extent.minX) / cellSize);
    return static_cast<std::size_t>(std::clamp(std::isfinite(c) ? c : 0.0, 0.0, static_cast<double>(columns - 1)));
  }
  std::size_t CellY(double y) const {
    const double c = std::floor((y - extent.minY) / cellSize);
    return static_cast<std::size_t>(std::clamp(std::isfinite(c) ? c : 0.0, 0.0, static_cast<double>(rows - 1)));
  }
};

// The grid as compressed rows: cell c lists its regions, ascending, in
// regions[start[c] .. start[c + 1]); built by counting.
struct CellIndex {
  std::vector<std::uint32_t> start;
  std::vector<int> regions;
};

CellIndex IndexCells(const Shapes& shapes, const std::vector<Box>& boxes, const CellGeometry& grid) {
  const std::size_t n = boxes.size(), columns = grid.columns;
  struct Span {
    std::size_t x0, x1, y0, y1;
  };
  std::vector<Span> spans(n);
  CellIndex index;
  index.start.assign(columns * grid.rows + 1, 0);
  for (std::size_t i = 0; i < n; ++i) {
    if (!shapes.boundaries[i].usable) continue;
    spans[i] = {grid.CellX(boxes[i].minX), grid.CellX(boxes[i].maxX), grid.CellY(boxes[i].minY),
                grid.CellY(boxes[i].maxY)};
    for (std::size_t y = spans[i].y0; y <= spans[i].y1; ++y)
      for (std::size_t x = spans[i].x0; x <= spans[i].x1; ++x) {
        if (index.start[y * columns + x + 1] == UINT32_MAX) throw std::bad_alloc();
        ++index.start[y * columns + x + 1];
      }
  }
  std::size_t entryCount = 0;
  for (std::size_t c = 1; c < index.start.size(); ++c) {
    entryCount += index.start[c];
    if (entryCount > UINT32_MAX) throw std::bad_alloc();
    index.start[c] = static_cast<std::uint32_t>(entryCount);
  }
  index.regions.resize(entryCount);
  std::vector<std::uint32_t> fill(index.start.begin(), index.start.end() - 1);
  for (std::size_t i = 0; i < n; ++i) {
    if (!shapes.boundaries[i].usable) continue;
    for (std::size_t y = spans[i].y0; y <= spans[i].y1; ++y)
      for (std::size_t x = spans[i].x0; x <= spans[i].x1; ++x)
        index.regions[fill[y * columns + x]++] = static_cast<int>(i);
  }
  return index;
}

// Each overlapping pair of boxes is tested once, in the cell holding the
// lower-left corner of the overlap.
std::vector<Link> FindLinks(const Shapes& shapes, const std::vector<Box>& boxes, const CellGeometry& grid,
                            const CellIndex& index, double tol) {
  PairTester tester(tol);
  std::vector<Link> links;
  for (std::size_t cell = 0; cell + 1 < index.start.size(); ++cell) {
    const std::size_t begin = index.start[cell], end = index.start[cell + 1];
    for (std::size_t u = begin; u < end; ++u) {
      const int i = index.regions[u];
      for (std::size_t v = u + 1; v < end; ++v) {
        const int j = index.regions[v];
        const Box& bi = boxes[i];
        const Box& bj = boxes[j];
        if (!bi.Overlaps(bj)) continue;
        const std::size_t home =
            grid.CellY(std::max(bi.minY, bj.minY)) * grid.columns + grid.CellX(std::max(bi.minX, bj.minX));
        if (home != cell) continue;
        const PairResult r = tester.Test(shapes.boundaries[i], shapes.boundaries[j]);
        if (r.touches) links.push_back({i, j, r.sharesEdge});
      }
    }
  }
  return links;
}

// Neighbour rows in ascending order, from the links.
void NeighbourRows(std::size_t n, const std::vector<Link>& links, std::vector<std::size_t>& rowStart,
                   std::vector<int>& neighbours, std::vector<std::uint8_t>& sharesEdge) {
  rowStart.assign(n + 1, 0);
  for (const Link& l : links) {
    ++rowStart[l.i + 1];
    ++rowStart[l.j + 1];
  }
  for (std::size_t i = 0; i < n; ++i) rowStart[i + 1] += rowStart[i];
  std::vector<std::pair<int, std::uint8_t>> cells(rowStart[n]);
  std::vector<std::size_t> fill(rowStart.begin(), rowStart.end() - 1);
  for (const Link& l : links) {
    cells[fill[l.i]++] = {l.j, static_cast<std::uint8_t>(l.edge)};
    cells[fill[l.j]++] = {l.i, static_cast<std::uint8_t>(l.edge)};
  }
  for (std::size_t i = 0; i < n; ++i) {
    std::sort(cells.begin() + static_cast<std::ptrdiff_t>(rowStart[i]),
              cells.begin() + static_cast<std::ptrdiff_t>(rowStart[i + 1]));
  }
  neighbours.resize(cells.size());
  sharesEdge.resize(cells.size());
  for (std::size_t k = 0; k < cells.size(); ++k) {
    neighbours[k] = cells[k].first;
    sharesEdge[k] = cells[k].second;
  }
}

}  // namespace

void ContiguityGrid::Clear() {
  m_sizeValue = 0.0;
  m_tolerance = 0.0;
  m_columns = m_rows = 0;
  m_rowStart.clear();
  m_neighbours.clear();
  m_sharesEdge.clear();
}

Status ContiguityGrid::Build(const std::vector<ZoGeometry>& regions, std::size_t recordCount) {
  Clear();
  auto fail = [&](const char* id) {
    Clear();
    return Status::Fail(id);
  };
  if (recordCount != regions.size()) return fail(kRecordCountMismatch);
  if (regions.size() > static_cast<std::size_t>(INT_MAX)) return fail(kAllocationFailed);
  try {
    const std::size_t n = regions.size();
    std::size_t vertexCount = 0;
    for (const auto& g : regions) vertexCount += g.GetPoints().size();
    const double sizeValue =
        n >= 100 ? std::sqrt(32.0 * static_cast<double>(n)) : std::sqrt(4.0 * static_cast<double>(vertexCount));
    const Shapes shapes = ReadShapes(regions);
    const CellGeometry grid(shapes, sizeValue, n);
    const double side = shapes.haveExtent
                            ? std::max(shapes.extent.maxX - shapes.extent.minX, shapes.extent.maxY - shapes.extent.minY)
                            : 0.0;
    double tol = kRelativeTolerance * side;
    if (!(tol > 0.0) || !std::isfinite(tol)) tol = kRelativeTolerance * std::max(1.0, shapes.largestCoordinate);
    if (m_requestedTolerance > 0.0 && std::isfinite(m_requestedTolerance)) tol = m_requestedTolerance;

    std::vector<Box> boxes(n);
    for (std::size_t i = 0; i < n; ++i)
      if (shapes.boundaries[i].usable) boxes[i] = shapes.boundaries[i].box.Enlarged(tol);
    std::vector<Link> links;
    {
      const CellIndex index = IndexCells(shapes, boxes, grid);
      links = FindLinks(shapes, boxes, grid, index, tol);
    }
    NeighbourRows(n, links, m_rowStart, m_neighbours, m_sharesEdge);
    m_sizeValue = sizeValue;
    m_tolerance = tol;
    m_columns = grid.columns;
    m_rows = grid.rows;
    return Status::Ok();
  } catch (...) {
    // Only allocations can throw here.
    return fail(kAllocationFailed);
  }
}

Status ContiguityGrid::Build(ZoRecordset* records) {
  if (!records) return Status::Fail(msg::EEg024);
  try {
    const std::int64_t n = records->GetRecordCount();
    std::vector<ZoGeometry> regions;
    regions.reserve(static_cast<std::size_t>(std::max<std::int64_t>(n, 0)));
    for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
      regions.emplace_back();
      if (!records->GetGeometry(regions.back()) || regions.back().IsEmpty())
        return Status::Fail(msg::EUc002, {LUMA::LumaUnicodeString(std::to_string(records->GetID()).c_str())})
            .Then(msg::ESa008);
    }
    return Build(regions, static_cast<std::size_t>(n));
  } catch (const std::bad_alloc&) {
    return Status::Fail(msg::EBa003);
  }
}

void ContiguityGrid::GetContiguityIDs(std::size_t i, bool edgesOnly, std::vector<int>& out) const {
  if (i + 1 >= m_rowStart.size()) return;
  for (std::size_t k = m_rowStart[i]; k < m_rowStart[i + 1]; ++k) {
    if (!edgesOnly || m_sharesEdge[k]) out.push_back(m_neighbours[k]);
  }
}

}  // namespace ZOC::detail::weights
