// BoundaryContact: the touching test of two region boundaries.
#include "StatisticsAnalyst/detail/weights/BoundaryContact.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ZOC::detail::weights {

namespace {

bool IsFinite(const LumaPoint2D& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

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

}  // namespace

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

PairResult PairTester::Test(const Boundary& a, const Boundary& b) {
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
    if (shared > kRookLengthFactor * m_tol) {
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

// Marks the segments of g whose box meets the window (relevant[k] = 1) and
// lists their boxes, enlarged by pad, in sweep order.
void PairTester::Collect(const Boundary& g, const Box& window, bool sweepX, double pad,
                         std::vector<std::uint8_t>& relevant, std::vector<SegBox>& boxes) {
  relevant.assign(g.vertices.size(), 0);
  boxes.clear();
  std::size_t ringBegin = 0;
  for (const std::size_t ringEnd : g.ringEnds) {
    for (std::size_t k = ringBegin; k + 1 < ringEnd; ++k) {
      const LumaPoint2D& p = g.vertices[k];
      const LumaPoint2D& q = g.vertices[k + 1];
      const Box sb = Box{std::min(p.x, q.x), std::min(p.y, q.y), std::max(p.x, q.x), std::max(p.y, q.y)}.Enlarged(pad);
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
bool PairTester::FindNearPieces(const Boundary& a, const Boundary& b) {
  m_nearA.clear();
  m_nearB.clear();
  m_activeA.clear();
  m_activeB.clear();
  const double edge = kRookLengthFactor * m_tol;
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
double PairTester::SharedLength(const Boundary& g, const std::vector<NearPiece>& near) {
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
bool PairTester::BoundaryEntersInterior(const Boundary& g, const std::vector<std::uint8_t>& relevant,
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

}  // namespace ZOC::detail::weights
