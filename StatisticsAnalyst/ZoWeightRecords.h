#pragma once
// The plain records of spatial weights that the public classes hand out and
// the private code fills: one in-memory weight, one entry of a weights file's
// unique-ID table.
#include <cstdint>

namespace ZOC {

// One non-zero weight: key i·n + j and its value.
struct WeightMatrixUnit {
  std::int32_t Index = 0;
  double Weight = 0.0;
};

// One feature of a binary weights file: its unique ID and its neighbour count.
struct ZoSWMFileUniqueIndex {
  std::int32_t UniqueID = 0;
  std::int32_t Count = 0;
};

}  // namespace ZOC
