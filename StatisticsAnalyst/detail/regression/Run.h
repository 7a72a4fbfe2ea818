#pragma once
// The two regressions from their records to the result dataset.
#include "StatisticsAnalyst/ZoGWRInformation.h"
#include "StatisticsAnalyst/ZoOLSInformation.h"
#include "StatisticsAnalyst/detail/regression/Regression.h"

namespace ZOC::regression {

// Reads the model's values: "EUf005" when there are fewer features than the
// coefficients plus 3 (so that every statistic stays finite), then the
// values' own checks.
bool ReadModel(ZoRecordset* records, const LumaUnicodeString& dependent,
               const LumaArray<LumaUnicodeString>& explanatory, ZoCallProgress& progress, Design& design,
               Messages& messages);

// records: the source's records in "QlID" order, fields already checked.
bool RunOls(ZoRecordset* records, ZoDatasetVector* result, const ZoOLSInformation& info, ZoOLSResult& out,
            ZoCallProgress& progress, Messages& messages);
bool RunGwr(ZoRecordset* records, ZoDatasetVector* result, const ZoGWRInformation& info, ZoGWRResult& out,
            ZoCallProgress& progress, Messages& messages);

}  // namespace ZOC::regression
