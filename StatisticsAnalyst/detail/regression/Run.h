#pragma once
// The two regressions from their records to the result dataset.
#include "StatisticsAnalyst/ZoGWRInformation.h"
#include "StatisticsAnalyst/ZoOLSInformation.h"
#include "StatisticsAnalyst/detail/regression/Regression.h"

namespace ZOC::detail::regression {

// Reads the model's values: "EUf005" when there are fewer features than the
// coefficients plus 3 (so that every statistic stays finite), then the
// values' own checks.
Status ReadModel(ZoRecordset* records, const LumaUnicodeString& dependent,
                 const LumaArray<LumaUnicodeString>& explanatory, detail::CallProgress& progress, Design& design,
                 DesignExtras* extras = nullptr);

// records: the source's records in "QlID" order, fields already checked.
Status RunOls(ZoRecordset* records, ZoDatasetVector* result, const ZoOLSInformation& info, ZoOLSResult& out,
              detail::CallProgress& progress);
Status RunGwr(ZoRecordset* records, ZoDatasetVector* result, const ZoGWRInformation& info, ZoGWRResult& out,
              detail::CallProgress& progress);

// Moran's I of the residuals (in the records' order) under `weights`, with
// the weights held in memory as the global Moran's I holds them (a temporary
// weights file only when they exceed the memory budget) and the residuals
// taken as they are, not read back from the result. `extras` are the ids
// and points read with the model's values; its points are used up.
Status ResidualMoran(ZoRecordset* records, const ZoPatternsInformation& weights, const std::vector<double>& residual,
                     DesignExtras& extras, detail::CallProgress& progress, ZoAnalyzingExponent& out);

}  // namespace ZOC::detail::regression
