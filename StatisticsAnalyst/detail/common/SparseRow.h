#pragma once
// One feature's row of a sparse weights matrix, as the statistics consume it.
#include <cstdint>
#include <vector>

namespace ZOC::detail {

struct SparseRow {
  std::vector<std::int32_t> columns;
  std::vector<double> weights;     // w(i, j)
  std::vector<double> transposed;  // w(j, i), when the consumer asked for it
};

}  // namespace ZOC::detail
