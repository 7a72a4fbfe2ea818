#pragma once
// The checks every analysis makes before it computes: the datasets, the
// analysis field and the weight parameters, and the ordered query of the
// records. Each returns the identifier of the first thing wrong.
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail {

// Given ("EEg002"; opened when needed) and a point, line or region dataset
// ("EEe018").
Status CheckAnalysisDataset(ZoDatasetVector* dataset);
// Both given ("EEg002", "EEg032"; opened when needed), the input an analysis
// dataset, the result of the same type ("EEe017").
Status CheckInputAndResult(ZoDatasetVector* input, ZoDatasetVector* result);
// An empty name passes. Otherwise the field must exist ("ECd001") and be
// numeric ("ESa006"); a null dataset fails with "EEg002".
Status CheckNumericField(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& fieldName);
// The weight parameters against the analysis records, in this order: null
// recordset "EEg024"; fewer than 4 records "ESa014"; empty field name
// "ESa005"; the field check; a weights file that is not named "ESa076" or
// does not exist "ESa077"; contiguity on a dataset that is not a region
// dataset "ESa025"; K < 1 "ESa050"; K ≥ record count "ESa042"; a distance
// band above the largest double, negative other than -1, or NaN "ESa061";
// a negative or NaN exponent "ESa062"; a negative or non-finite snap
// tolerance "EUb008".
Status CheckWeightParameters(ZoRecordset* records, const ZoPatternsInformation& info);
// A number of permutations from 0 to 1000000 ("ESa109").
Status CheckPermutations(std::int32_t permutations);

// The dataset's records ordered by a field, ascending (ties by "QlID");
// "EKa013" when the query fails.
Status QueryOrderedBy(ZoDatasetVector* dataset, const LUMA::LumaUnicodeString& field, ZoRecordsetPtr& records);
// The opening steps of an analysis: the dataset check, its records in
// ascending "QlID" order, the parameter checks.
Status OpenAnalysisRecords(ZoDatasetVector* dataset, const ZoPatternsInformation& info, ZoRecordsetPtr& records);

}  // namespace ZOC::detail
