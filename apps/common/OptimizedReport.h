#pragma once
// The report of an optimized hot spot analysis as named values, in one
// order, for every front end: zostat prints them as JSON, the Python module
// returns them as a dict, under the same keys.
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "StatisticsAnalyst/ZoOptimizedInformation.h"

namespace ZOC::front {

// null, a flag, a count, a distance or a name.
using ReportValue = std::variant<std::monostate, bool, long long, double, std::string>;

// "incidents", "aggregation" ("grid", "integrate", "polygons"; null with a
// field), "cell_size", "default_cell_size", "tolerance", "default_tolerance",
// "outlying_incidents", "outlying_features", "features", "distance_band",
// "scale" ("first_peak" or "nearest_neighbours"), "peak_z_score",
// "neighbours", "first_band", "last_band", then "hot_spots_99",
// "hot_spots_95", "hot_spots_90" and "cold_spots_99", ... likewise.
std::vector<std::pair<std::string, ReportValue>> OptimizedReportValues(const ZoOptimizedReport& report);

// The aggregation an option value names ("grid", "integrate", "polygons").
ZoIncidentAggregation AggregationNamed(const std::string& name);

}  // namespace ZOC::front
