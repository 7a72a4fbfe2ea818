#pragma once
// The report of an optimized hot spot analysis as named values
// (common/ReportValues.h).
#include <string>

#include "StatisticsAnalyst/ZoOptimizedInformation.h"
#include "common/ReportValues.h"

namespace ZOC::front {

// "incidents", "aggregation" ("grid", "integrate", "polygons"; null with a
// field), "cell_size", "default_cell_size", "tolerance", "default_tolerance",
// "outlying_incidents", "outlying_features", "features", "distance_band",
// "scale" ("first_peak" or "nearest_neighbours"), "peak_z_score",
// "neighbours", "first_band", "last_band", then "hot_spots_99",
// "hot_spots_95", "hot_spots_90" and "cold_spots_99", ... likewise.
ReportValues OptimizedReportValues(const ZoOptimizedReport& report);

// The aggregation an option value names ("grid", "integrate", "polygons").
ZoIncidentAggregation AggregationNamed(const std::string& name);

}  // namespace ZOC::front
