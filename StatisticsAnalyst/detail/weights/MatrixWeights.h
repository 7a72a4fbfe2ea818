#pragma once
// The whole weights matrix of a conceptualization as the sorted sparse list
// the public API returns, and lookups in such a list. The analyses read
// compressed rows instead (CsrWeights); only callers of that API build this.
#include <cstdint>

#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

// Keys are i·n + j in 32 bits, so the list holds n·n < 2^31.
inline constexpr std::int64_t kMaxListFeatures = 46340;

// Conceptualizations 1 to 7 only (the caller filters the others). Contiguity
// on a dataset that is not a region dataset "ESa025"; more features than the
// list can key "EUb003".
Status CheckListRequest(ZoRecordset* records, const ZoPatternsInformation& info);
// Every row, sorted by key, no self weights, row-standardized when asked (a
// zero-sum row stays as it is); the row builder's failures, "IMb030" when
// cancelled, "ESa023" when no weight exists. Progress goes to `progress`,
// or to one from the host's factory, when `showProgress` asks for it.
Status BuildWeightList(ZoRecordset* records, const ZoPatternsInformation& info, ZoProgress* progress, bool showProgress,
                       LUMA::LumaArray<WeightMatrixUnit>& units);
// Position of the unit with this key, or -1.
int FindUnit(const LUMA::LumaArray<WeightMatrixUnit>& units, int key);
// Dense row `row` of an n-feature matrix: zeros where no unit exists. May
// throw std::bad_alloc.
void DenseRow(const LUMA::LumaArray<WeightMatrixUnit>& units, int row, int n, LUMA::LumaArray<double>& out);

}  // namespace ZOC::detail::weights
