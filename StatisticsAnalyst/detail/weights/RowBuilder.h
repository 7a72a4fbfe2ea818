#pragma once
// RowBuilder: the spatial weights of a conceptualization, produced
// one row at a time in feature order. The in-memory weights matrix and the
// weights-file writers both consume these rows, so a row is never held as a
// dense array of n weights and large datasets stream.
//
// A row of feature i holds its neighbours j ≠ i in ascending order with
// their weights:
// - inverse distance (1, 2) and fixed band (3): every feature within the band
//   (boundary included); weight 1 for coincident features and distances
//   below one unit, else 1/d^e, 1/(d²)^e or 1;
// - zone of indifference (4): every other feature; 1 within the band, else
//   1/(d + 1 − band)^e (dense by nature);
// - contiguity (5, 6): the regions sharing an edge (5) or any point (6);
// - K nearest (7): the K nearest by (distance, feature number); when all K
//   lie at the feature's own location and more than K features do, all of
//   those instead, so none is picked arbitrarily.
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/weights/ContiguityGrid.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoKdTree.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

using LUMA::LumaArray;
using LUMA::LumaPoint2D;
using LUMA::LumaPoint3D;

class RowBuilder {
 public:
  // Reads the records' geometries and prepares the neighbour search:
  // "ESa008" after the feature's own message when a geometry cannot be
  // read, "ESa060" when the points cannot be projected, "ESa032" when the
  // search tree cannot be built, "EUc010" when memory runs out, and the
  // contiguity grid's failures.
  Status Prepare(ZoRecordset* records, const ZoPatternsInformation& info);
  // The same from representative points already collected (not projected).
  Status PrepareFromPoints(LumaArray<LumaPoint2D> points, const ZoPrjCoordSys& cs, const ZoPatternsInformation& info);

  std::int64_t Count() const { return m_count; }
  double Band() const { return m_band; }

  // Row i: neighbours ascending and their weights. Safe to call from several
  // threads at once with their own output vectors.
  void Row(std::int64_t i, std::vector<std::int64_t>& columns, std::vector<double>& weights) const;

  // The rows of features first .. first + count - 1, computed in spatial
  // order (neighbouring queries share the tree's cache lines) and held until
  // they are read back in feature order.
  class Block {
   public:
    std::int64_t First() const { return m_first; }
    std::int64_t Count() const { return static_cast<std::int64_t>(m_spans.size()); }
    // The feature of row k: first + k, or for a spatial block the feature at
    // position first + k of the spatial order.
    std::int64_t Feature(std::int64_t k) const { return m_features ? m_features[m_first + k] : m_first + k; }
    // Row first + k.
    std::size_t Size(std::int64_t k) const { return m_spans[static_cast<std::size_t>(k)].size; }
    const std::int64_t* Columns(std::int64_t k) const {
      const Span& s = m_spans[static_cast<std::size_t>(k)];
      return m_columns[s.part].data() + s.offset;
    }
    const double* Weights(std::int64_t k) const {
      const Span& s = m_spans[static_cast<std::size_t>(k)];
      return m_weights[s.part].data() + s.offset;
    }

   private:
    friend class RowBuilder;
    // Each thread appends the rows it computed to its own part.
    struct Span {
      std::size_t part = 0, offset = 0, size = 0;
    };
    std::int64_t m_first = 0;
    const std::int64_t* m_features = nullptr;
    std::vector<Span> m_spans;
    std::vector<std::vector<std::int64_t>> m_columns;
    std::vector<std::vector<double>> m_weights;
  };
  // Rows are filled in blocks of this many features (the last may be short).
  static constexpr std::int64_t kBlockRows = 1 << 15;
  // The block of rows first .. first + min(kBlockRows, Count() - first) - 1;
  // `first` is a multiple of kBlockRows.
  void FillBlock(std::int64_t first, Block& block) const;
  // The rows of the features at positions first .. first + kBlockRows - 1
  // of SpatialOrder() (feature order for contiguity), for a consumer that
  // takes rows in any order: neighbouring features share their searches.
  void FillSpatialBlock(std::int64_t first, Block& block) const;
  // Every feature number in the spatial order of the search tree's leaves;
  // empty for contiguity.
  const std::vector<std::int64_t>& SpatialOrder() const { return m_order; }

 private:
  // A row's working memory, reused from row to row by one thread so that a
  // row allocates nothing once the buffers have grown.
  struct Scratch {
    std::vector<std::size_t> idx, same;
    std::vector<double> dist, sameDist;
    std::vector<std::int64_t> columns;
    std::vector<double> weights;
    std::vector<std::pair<std::int64_t, double>> sorted;
  };
  Status PrepareSearch();
  void RowInto(std::int64_t i, Scratch& s) const;
  void DistanceRow(std::int64_t i, Scratch& s) const;
  void ZoneRow(std::int64_t i, Scratch& s) const;
  void KNearestRow(std::int64_t i, Scratch& s) const;
  // Row i of K nearest from the k + 1 nearest points found for feature i.
  void KNearestColumns(std::int64_t i, const std::size_t* found, const double* distances, std::size_t count,
                       Scratch& s) const;
  // Appends the finished row of feature i to the calling thread's part.
  static void Keep(Block& block, std::size_t part, std::int64_t k, const Scratch& s);
  void StartBlock(std::int64_t first, std::int64_t count, Block& block) const;

  ZoPatternsInformation m_info;
  std::int64_t m_count = 0;
  LumaArray<LumaPoint2D> m_points;
  LumaArray<LumaPoint3D> m_buffer;
  std::unique_ptr<ZoKdTree> m_tree;
  ContiguityGrid m_grid;
  ZoDistanceMethod m_method = Euclidean;
  double m_band = 0.0;
  // The tree's spatial order, and the same order grouped by block: the
  // features of block b, in spatial order, start at b · kBlockRows (made
  // when FillBlock first needs it).
  std::vector<std::int64_t> m_order;
  mutable std::vector<std::int64_t> m_blockOrder;
  mutable std::once_flag m_blockOrderOnce;
};

}  // namespace ZOC::detail::weights
