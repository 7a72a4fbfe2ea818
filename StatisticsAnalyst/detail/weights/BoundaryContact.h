#pragma once
// BoundaryContact: whether two regions touch, and whether they share an edge.
//
// The test works on the boundary segments of the two regions that lie in the
// overlap of their bounding boxes. Coordinates written by different programs
// often disagree in the last digits along a shared boundary, so the test
// snaps with a tolerance (ContiguityGrid chooses it from the data extent or
// takes the caller's):
//   - queen ("edges or corners"): the two boundaries come within the
//     tolerance of each other;
//   - rook ("edges only"): the part of one boundary lying within the
//     tolerance of the other is longer than kRookLengthFactor tolerances.
//     The factor is large on purpose: where two regions meet at one corner
//     under an angle of a few degrees, their boundaries stay within the
//     tolerance of each other for tolerance / sin(angle), and that must not
//     count as a shared edge.
// Regions whose interiors overlap (one boundary passes through the interior
// of the other, farther than the tolerance from its boundary; or one region
// lies inside the other) are neighbours under both rules. Shared vertices
// are not required: a boundary stretch that only one side splits with an
// extra vertex is found, and so are contacts between any parts and rings of
// multi-part regions and regions with holes (a region filling another's hole
// touches the hole's ring).
//
// Geometries that are not regions, empty ones and ones with non-finite
// coordinates have no usable boundary, hence no neighbours.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/LumaPoint.h"
#include "host/ZoGeometry.h"

namespace ZOC::detail::weights {

// The shared stretch of boundary must exceed this many tolerances to make
// two regions rook neighbours.
inline constexpr double kRookLengthFactor = 1000.0;

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

// The boundary of a region geometry; not usable for anything else, for an
// empty region, or for one with non-finite coordinates.
Boundary MakeBoundary(const ZoGeometry& g);

struct PairResult {
  bool touches = false;
  bool sharesEdge = false;
};

// Classifies candidate pairs. Its buffers are reused from pair to pair.
class PairTester {
 public:
  explicit PairTester(double tol) : m_tol(tol) {}

  // Whether the two boundaries touch (queen) and share an edge (rook).
  PairResult Test(const Boundary& a, const Boundary& b);

 private:
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

  static void Collect(const Boundary& g, const Box& window, bool sweepX, double pad,
                      std::vector<std::uint8_t>& relevant, std::vector<SegBox>& boxes);
  bool FindNearPieces(const Boundary& a, const Boundary& b);
  static double SharedLength(const Boundary& g, const std::vector<NearPiece>& near);
  bool BoundaryEntersInterior(const Boundary& g, const std::vector<std::uint8_t>& relevant,
                              const std::vector<NearPiece>& near, const Boundary& other);

  double m_tol;
  std::vector<std::uint8_t> m_relevantA, m_relevantB;
  std::vector<SegBox> m_boxesA, m_boxesB;
  std::vector<std::size_t> m_activeA, m_activeB;
  std::vector<NearPiece> m_nearA, m_nearB;
};

}  // namespace ZOC::detail::weights
