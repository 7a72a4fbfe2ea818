#pragma once
// The checks a weights-file builder makes before it writes anything, and the
// ordered records and unique-ID table they hand to the writers.
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/ZoWeightRecords.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::weights {

// "EAf017" when the path is empty or does not end in ".swmb" (any case);
// otherwise deletes an existing file there and passes. The new file is
// written under a temporary name beside it and renamed at the end.
Status CheckWeightsFilePath(const LUMA::LumaUnicodeString& path);
// The unique-ID field: named ("ECb005"), present ("ECb004"), readable
// ("ECd001") and of an integer type 16, 32 or 64 bits wide ("ECa009").
Status CheckUniqueIdField(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& field);
// The conceptualization's own checks against the records: contiguity on a
// dataset that is not a region dataset "ESa025"; K < 1 "ESa050"; K ≥ record
// count "ESa042"; a relationship no weights file stores "ESa023".
Status CheckBuildParameters(ZoRecordset* records, const ZoPatternsInformation& info);

// Steps shared by every builder: dataset ("EEg002", "EEe018"), output path,
// unique-ID field, ordered query ("EKa013"), at least two features
// ("EUb005"), parameters, unique IDs (unique, "ESa044"). Gives the records
// at their first record and the unique-ID table with zero counts.
// With a flag-matrix path, also checks it ("EUb004" when it is the weights
// file itself, "ESa076" when empty, "ESa048" unless K nearest) and deletes
// an old flag matrix there.
Status PrepareBuild(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& uniqueIdField,
                    const LUMA::LumaUnicodeString& path, const ZoPatternsInformation& info,
                    const LUMA::LumaUnicodeString* flagPath, LUMA::LumaArray<ZoSWMFileUniqueIndex>& uniqueIndex,
                    ZoRecordsetPtr& records);

}  // namespace ZOC::detail::weights
