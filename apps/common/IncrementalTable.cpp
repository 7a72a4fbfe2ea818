#include "common/IncrementalTable.h"

#include <string>

#include "StatisticsAnalyst/ZoIncrementalInformation.h"
#include "common/ReportTable.h"

namespace ZOC::front {

ReportValues IncrementalBandValues(const ZoIncrementalBand& band) {
  if (!band.Valid) return {{"distance", band.Distance}, {"index", ReportValue()}};
  const ZoAnalyzingExponent& m = band.Moran;
  return {{"distance", band.Distance}, {"index", m.Index},    {"expected_index", m.ExpectedIndex},
          {"variance", m.Variance},    {"z_score", m.ZScore}, {"p_value", m.PValue}};
}

ReportValues IncrementalSeriesValues(const ZoIncrementalResult& r) {
  return {{"begin_distance", r.BeginDistance},
          {"increment", r.Increment},
          {"default_begin_distance", r.DefaultBegin},
          {"default_increment", r.DefaultIncrement}};
}

int IncrementalPeakCode(const ZoIncrementalResult& result, std::size_t band) {
  const auto k = static_cast<std::int32_t>(band);
  return (k == result.FirstPeak ? 1 : 0) | (k == result.MaxPeak ? 2 : 0);
}

void WriteIncrementalTable(ZoDatasetVector* table, const ZoIncrementalResult& result) {
  ReportTable bands{
      "distance bands", {"Distance", "MoransI", "ExpectedI", "Variance", "ZScore", "PValue", "Valid", "Peak"}, {}};
  for (std::size_t k = 0; k < result.Bands.size(); ++k) {
    const ZoIncrementalBand& band = result.Bands[k];
    const ZoAnalyzingExponent& m = band.Moran;
    auto value = [&](double v) { return band.Valid ? ReportValue(v) : ReportValue(); };
    bands.rows.push_back({{"Distance", band.Distance},
                          {"MoransI", value(m.Index)},
                          {"ExpectedI", value(m.ExpectedIndex)},
                          {"Variance", value(m.Variance)},
                          {"ZScore", value(m.ZScore)},
                          {"PValue", value(m.PValue)},
                          {"Valid", band.Valid},
                          {"Peak", static_cast<long long>(IncrementalPeakCode(result, k))}});
  }
  WriteReportTable(table, bands);
}

}  // namespace ZOC::front
