#include "StatisticsAnalyst/detail/weights/ContiguityGrid.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

namespace {

constexpr const char* kRecordCountMismatch = msg::EFd059;
constexpr const char* kAllocationFailed = msg::EBa003;

struct Box {
  double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;

  Box Enlarged(double d) const { return {minX - d, minY - d, maxX + d, maxY + d}; }
  bool Overlaps(const Box& o) const { return minX <= o.maxX && o.minX <= maxX && minY <= o.maxY && o.minY <= maxY; }
  bool Contains(double x, double y) const { return x >= minX && x <= maxX && y >= minY && y <= maxY; }
};

// One region's boundary: every ring closed, rings concatenated. Segment k
// runs from vertex k to vertex k + 1 and exists for every vertex that is not
// the last of its ring, so segment numbers are vertex numbers.
struct Boundary {
  std::vector<LumaPoint2D> vertices;
  std::vector<std::size_t> ringEnds;  // one past the last vertex of each ring
  Box box;
  bool usable = false;
};

bool IsFinite(const LumaPoint2D& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

Boundary MakeBoundary(const ZoGeometry& g) {
  Boundary b;
  if (g.GetType() != GeoRegion || g.IsEmpty()) return b;
  const auto& pts = g.GetPoints();
  const auto& counts = g.GetPolyCounts();
  b.vertices.reserve(pts.size() + counts.size());
  std::size_t offset = 0;
  for (const int c : counts) {
    if (c <= 0) continue;
    const std::size_t count = static_cast<std::size_t>(c);
    if (offset + count > pts.size()) return Boundary{};  // inconsistent counts
    const std::size_t first = b.vertices.size();
    for (std::size_t k = 0; k < count; ++k) {
      if (!IsFinite(pts[offset + k])) return Boundary{};
      b.vertices.push_back(pts[offset + k]);
    }
    const LumaPoint2D& head = pts[offset];
    const LumaPoint2D& tail = pts[offset + count - 1];
    if (head.x != tail.x || head.y != tail.y) b.vertices.push_back(head);
    if (b.vertices.size() - first < 2) {
      b.vertices.resize(first);  // a lone vertex has no segment
    } else {
      b.ringEnds.push_back(b.vertices.size());
    }
    offset += count;
  }
  if (b.ringEnds.empty()) return Boundary{};
  b.box = {b.vertices[0].x, b.vertices[0].y, b.vertices[0].x, b.vertices[0].y};
  for (const auto& p : b.vertices) {
    b.box.minX = std::min(b.box.minX, p.x);
    b.box.maxX = std::max(b.box.maxX, p.x);
    b.box.minY = std::min(b.box.minY, p.y);
    b.box.maxY = std::max(b.box.maxY, p.y);
  }
  b.usable = true;
  return b;
}

double Length(const LumaPoint2D& p, const LumaPoint2D& q) {
  const double dx = q.x - p.x, dy = q.y - p.y;
  return std::sqrt(dx * dx + dy * dy);
}

double Cross(double ax, double ay, double bx, double by) { return ax * by - ay * bx; }

// Clips the parameter range [lo, hi] by the linear condition a + b·t <= c.
void ClipLinear(double a, double b, double c, double& lo, double& hi) {
  if (b == 0.0) {
    if (a > c) {
      lo = 1.0;
      hi = 0.0;
    }
    return;
  }
  const double t = (c - a) / b;
  if (b > 0.0)
    hi = std::min(hi, t);
  else
    lo = std::max(lo, t);
}

// The parameters t in [0, 1] of the points P0 + t·(P1 − P0) whose distance
// to segment Q0Q1 is at most tol: the segment clipped by the capsule around
// Q0Q1. The capsule is convex, so this is one interval, the hull of the
// pieces cut out by its two end discs and its rectangle. Everything is
// formulated with cross and dot products of short difference vectors so that
// nearly collinear segments far longer than tol keep their precision.
bool NearInterval(const LumaPoint2D& p0, const LumaPoint2D& p1, const LumaPoint2D& q0, const LumaPoint2D& q1,
                  double tol, double& t0, double& t1) {
  const double dx = p1.x - p0.x, dy = p1.y - p0.y;
  const double dd = dx * dx + dy * dy;
  if (dd == 0.0) return false;  // a repeated vertex; its neighbours cover the point
  double lo = std::numeric_limits<double>::infinity();
  double hi = -lo;
  const double tol2 = tol * tol;

  auto disc = [&](const LumaPoint2D& q) {
    const double wx = p0.x - q.x, wy = p0.y - q.y;
    const double cr = Cross(wx, wy, dx, dy);
    const double h2 = cr * cr / dd;  // squared distance from q to the line
    if (h2 > tol2) return;
    const double mid = -(wx * dx + wy * dy) / dd;
    const double half = std::sqrt((tol2 - h2) / dd);
    lo = std::min(lo, mid - half);
    hi = std::max(hi, mid + half);
  };
  disc(q0);
  disc(q1);

  const double ex = q1.x - q0.x, ey = q1.y - q0.y;
  const double lb = std::sqrt(ex * ex + ey * ey);
  if (lb > 0.0) {
    const double ux = ex / lb, uy = ey / lb;
    const double wx = p0.x - q0.x, wy = p0.y - q0.y;
    // Along Q0Q1: u(t) = u0 + t·ud in [0, lb]; across: v(t) = v0 + t·vd in [−tol, tol].
    const double u0 = wx * ux + wy * uy, ud = dx * ux + dy * uy;
    const double v0 = Cross(ux, uy, wx, wy), vd = Cross(ux, uy, dx, dy);
    double rlo = -std::numeric_limits<double>::infinity();
    double rhi = std::numeric_limits<double>::infinity();
    ClipLinear(u0, ud, lb, rlo, rhi);
    ClipLinear(-u0, -ud, 0.0, rlo, rhi);
    ClipLinear(v0, vd, tol, rlo, rhi);
    ClipLinear(-v0, -vd, tol, rlo, rhi);
    if (rlo <= rhi) {
      lo = std::min(lo, rlo);
      hi = std::max(hi, rhi);
    }
  }
  lo = std::max(lo, 0.0);
  hi = std::min(hi, 1.0);
  if (lo > hi) return false;
  t0 = lo;
  t1 = hi;
  return true;
}

// Even-odd point-in-region test over all rings (shells and holes alike).
bool PointInside(const Boundary& b, double px, double py) {
  if (!b.box.Contains(px, py)) return false;
  bool inside = false;
  std::size_t ringBegin = 0;
  for (const std::size_t ringEnd : b.ringEnds) {
    for (std::size_t k = ringBegin; k + 1 < ringEnd; ++k) {
      const LumaPoint2D& a = b.vertices[k];
      const LumaPoint2D& c = b.vertices[k + 1];
      if ((a.y > py) != (c.y > py)) {
        const double x = a.x + (py - a.y) * (c.x - a.x) / (c.y - a.y);
        if (px < x) inside = !inside;
      }
    }
    ringBegin = ringEnd;
  }
  return inside;
}

struct NearPiece {
  std::size_t seg;
  double t0, t1;
  bool operator<(const NearPiece& o) const {
    if (seg != o.seg) return seg < o.seg;
    if (t0 != o.t0) return t0 < o.t0;
    return t1 < o.t1;
  }
};

struct SegBox {
  std::size_t seg;
  double lo, hi;    // along the sweep axis
  double olo, ohi;  // across it
};

struct PairResult {
  bool touches = false;
  bool sharesEdge = false;
};

// Classifies candidate pairs. Its buffers are reused from pair to pair.
class PairTester {
 public:
  explicit PairTester(double tol) : m_tol(tol) {}

  PairResult Test(const Boundary& a, const Boundary& b) {
    PairResult r;
    // Every point of either boundary within tol of the other lies in the
    // overlap of the two boxes, enlarged by tol; so does every point of one
    // boundary inside the other region.
    const Box& ba = a.box;
    const Box& bb = b.box;
    const Box window = Box{std::max(ba.minX, bb.minX), std::max(ba.minY, bb.minY), std::min(ba.maxX, bb.maxX),
                           std::min(ba.maxY, bb.maxY)}
                           .Enlarged(m_tol);
    if (window.minX > window.maxX || window.minY > window.maxY) return r;
    const bool sweepX = window.maxX - window.minX >= window.maxY - window.minY;

    Collect(a, window, sweepX, m_tol, m_relevantA, m_boxesA);
    Collect(b, window, sweepX, 0.0, m_relevantB, m_boxesB);
    if (FindNearPieces(a, b)) {
      r.touches = r.sharesEdge = true;
      return r;
    }

    r.touches = !m_nearA.empty() || !m_nearB.empty();
    if (r.touches) {
      const double shared = std::max(SharedLength(a, m_nearA), SharedLength(b, m_nearB));
      if (shared > ContiguityGrid::kRookLengthFactor * m_tol) {
        r.sharesEdge = true;
        return r;
      }
    }
    // Regions whose interiors overlap are neighbours under both rules.
    if (BoundaryEntersInterior(a, m_relevantA, m_nearA, b) || BoundaryEntersInterior(b, m_relevantB, m_nearB, a)) {
      r.touches = true;
      r.sharesEdge = true;
    }
    return r;
  }

 private:
  // Marks the segments of g whose box meets the window (relevant[k] = 1) and
  // lists their boxes, enlarged by pad, in sweep order.
  static void Collect(const Boundary& g, const Box& window, bool sweepX, double pad,
                      std::vector<std::uint8_t>& relevant, std::vector<SegBox>& boxes) {
    relevant.assign(g.vertices.size(), 0);
    boxes.clear();
    std::size_t ringBegin = 0;
    for (const std::size_t ringEnd : g.ringEnds) {
      for (std::size_t k = ringBegin; k + 1 < ringEnd; ++k) {
        const LumaPoint2D& p = g.vertices[k];
        const LumaPoint2D& q = g.vertices[k + 1];
        const Box sb =
            Box{std::min(p.x, q.x), std::min(p.y, q.y), std::max(p.x, q.x), std::max(p.y, q.y)}.Enlarged(pad);
        if (!sb.Overlaps(window)) continue;
        relevant[k] = 1;
        if (sweepX)
          boxes.push_back({k, sb.minX, sb.maxX, sb.minY, sb.maxY});
        else
          boxes.push_back({k, sb.minY, sb.maxY, sb.minX, sb.maxX});
      }
      ringBegin = ringEnd;
    }
    std::sort(boxes.begin(), boxes.end(),
              [](const SegBox& l, const SegBox& r) { return l.lo != r.lo ? l.lo < r.lo : l.seg < r.seg; });
  }

  // Sweeps the relevant segments of both regions along the longer side of the
  // window and, for each pair whose boxes overlap, records the part of each
  // segment within tol of the other. Returns true as soon as one such part
  // alone is longer than the rook threshold (the near pieces are then
  // incomplete and not needed).
  bool FindNearPieces(const Boundary& a, const Boundary& b) {
    m_nearA.clear();
    m_nearB.clear();
    m_activeA.clear();
    m_activeB.clear();
    const double edge = ContiguityGrid::kRookLengthFactor * m_tol;
    const double edge2 = edge * edge;
    bool shared = false;
    auto longEnough = [&](const LumaPoint2D& p, const LumaPoint2D& q, double t0, double t1) {
      const double dx = q.x - p.x, dy = q.y - p.y;
      return (t1 - t0) * (t1 - t0) * (dx * dx + dy * dy) > edge2;
    };
    auto visit = [&](std::size_t sa, std::size_t sb) {
      const LumaPoint2D& p0 = a.vertices[sa];
      const LumaPoint2D& p1 = a.vertices[sa + 1];
      const LumaPoint2D& q0 = b.vertices[sb];
      const LumaPoint2D& q1 = b.vertices[sb + 1];
      double t0 = 0.0, t1 = 0.0;
      if (NearInterval(p0, p1, q0, q1, m_tol, t0, t1)) {
        m_nearA.push_back({sa, t0, t1});
        if (longEnough(p0, p1, t0, t1)) shared = true;
      }
      if (NearInterval(q0, q1, p0, p1, m_tol, t0, t1)) {
        m_nearB.push_back({sb, t0, t1});
        if (longEnough(q0, q1, t0, t1)) shared = true;
      }
    };
    std::size_t ia = 0, ib = 0;
    // The box entering the sweep meets the other side's active boxes: those
    // that end before it begins leave, the overlapping ones are visited with
    // the first boundary's segment first.
    auto meet = [&](const SegBox& s, std::vector<std::size_t>& active, const std::vector<SegBox>& others, bool sIsA) {
      for (std::size_t k = 0; k < active.size();) {
        const SegBox& o = others[active[k]];
        if (o.hi < s.lo) {
          active[k] = active.back();
          active.pop_back();
          continue;
        }
        if (o.olo <= s.ohi && s.olo <= o.ohi) sIsA ? visit(s.seg, o.seg) : visit(o.seg, s.seg);
        ++k;
      }
    };
    while (!shared && (ia < m_boxesA.size() || ib < m_boxesB.size())) {
      const bool takeA = ib >= m_boxesB.size() || (ia < m_boxesA.size() && m_boxesA[ia].lo <= m_boxesB[ib].lo);
      if (takeA) {
        meet(m_boxesA[ia], m_activeB, m_boxesB, true);
        m_activeA.push_back(ia++);
      } else {
        meet(m_boxesB[ib], m_activeA, m_boxesA, false);
        m_activeB.push_back(ib++);
      }
    }
    if (shared) return true;
    std::sort(m_nearA.begin(), m_nearA.end());
    std::sort(m_nearB.begin(), m_nearB.end());
    return false;
  }

  // Total length of g's boundary covered by the (sorted) near pieces.
  static double SharedLength(const Boundary& g, const std::vector<NearPiece>& near) {
    double total = 0.0;
    for (std::size_t i = 0; i < near.size();) {
      const std::size_t seg = near[i].seg;
      double covered = 0.0, lo = near[i].t0, hi = near[i].t1;
      for (++i; i < near.size() && near[i].seg == seg; ++i) {
        if (near[i].t0 > hi) {
          covered += hi - lo;
          lo = near[i].t0;
        }
        hi = std::max(hi, near[i].t1);
      }
      covered += hi - lo;
      const LumaPoint2D& p = g.vertices[seg];
      const LumaPoint2D& q = g.vertices[seg + 1];
      total += covered * Length(p, q);
    }
    return total;
  }

  // True when some stretch of g's boundary, longer than tol and farther than
  // tol from other's boundary, lies inside other. Walking along a ring, such a
  // stretch stays on one side of the other boundary until the walk comes
  // within tol of it, so one point-in-region test per stretch between
  // contacts suffices; segments outside the window are known to be outside.
  bool BoundaryEntersInterior(const Boundary& g, const std::vector<std::uint8_t>& relevant,
                              const std::vector<NearPiece>& near, const Boundary& other) {
    enum class Side { Unknown, Outside };
    std::size_t ringBegin = 0;
    for (const std::size_t ringEnd : g.ringEnds) {
      const std::size_t first = ringBegin, segCount = ringEnd - 1 - ringBegin;
      ringBegin = ringEnd;
      // Start the walk on a segment outside the window when there is one.
      std::size_t start = first;
      bool anyRelevant = false;
      for (std::size_t k = first; k < first + segCount; ++k) {
        if (relevant[k])
          anyRelevant = true;
        else
          start = k;
      }
      if (!anyRelevant) continue;
      Side side = Side::Unknown;
      for (std::size_t step = 0; step < segCount; ++step) {
        const std::size_t k = first + (start - first + step) % segCount;
        if (!relevant[k]) {
          side = Side::Outside;
          continue;
        }
        const LumaPoint2D& p = g.vertices[k];
        const LumaPoint2D& q = g.vertices[k + 1];
        const double len = Length(p, q);
        if (len == 0.0) continue;
        // Far stretches of this segment: the gaps between its near pieces.
        auto it = std::lower_bound(near.begin(), near.end(), NearPiece{k, -1.0, -1.0});
        double cursor = 0.0;
        auto farStretch = [&](double s0, double s1) {
          if (side != Side::Unknown || (s1 - s0) * len <= m_tol) return false;
          const double tm = 0.5 * (s0 + s1);
          if (PointInside(other, p.x + tm * (q.x - p.x), p.y + tm * (q.y - p.y))) return true;
          side = Side::Outside;
          return false;
        };
        for (; it != near.end() && it->seg == k; ++it) {
          if (it->t0 > cursor && farStretch(cursor, it->t0)) return true;
          side = Side::Unknown;  // passing within tol of the other boundary
          cursor = std::max(cursor, it->t1);
        }
        if (cursor < 1.0 && farStretch(cursor, 1.0)) return true;
      }
    }
    return false;
  }

  double m_tol;
  std::vector<std::uint8_t> m_relevantA, m_relevantB;
  std::vector<SegBox> m_boxesA, m_boxesB;
  std::vector<std::size_t> m_activeA, m_activeB;
  std::vector<NearPiece> m_nearA, m_nearB;
};

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
