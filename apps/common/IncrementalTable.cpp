#include "common/IncrementalTable.h"

#include <string>

#include "StatisticsAnalyst/ZoIncrementalInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "common/Errors.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"

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
  auto fail = [&](const std::string& why) {
    throw Failure(MessageText(msg::EUa016, "the table of distance bands: " + why));
  };
  if (!table) fail("no table");
  LUMA::LumaFieldInfos fields;
  for (const char* name : {"Distance", "MoransI", "ExpectedI", "Variance", "ZScore", "PValue"})
    fields.push_back(LUMA::LumaFieldInfo(name, LUMA::FieldDouble));
  fields.push_back(LUMA::LumaFieldInfo("Valid", LUMA::FieldInt32));
  fields.push_back(LUMA::LumaFieldInfo("Peak", LUMA::FieldInt32));
  // The names fit every format (ten characters at most), but the host makes
  // them valid for the output and reports them back all the same.
  if (!ZoEngineToolkit::CreateValidFields(table, fields) || fields.size() != 8) fail("its fields cannot be created");
  const ZoRecordsetPtr rows(table->Query(ZoQueryDef()));
  if (!rows) fail("it cannot be opened");
  for (std::size_t k = 0; k < result.Bands.size(); ++k) {
    const ZoIncrementalBand& band = result.Bands[k];
    const ZoAnalyzingExponent& m = band.Moran;
    const LUMA::LumaVariant none;
    auto value = [&](double v) { return band.Valid ? LUMA::LumaVariant(v) : none; };
    const LUMA::LumaVariant values[] = {LUMA::LumaVariant(band.Distance),
                                        value(m.Index),
                                        value(m.ExpectedIndex),
                                        value(m.Variance),
                                        value(m.ZScore),
                                        value(m.PValue),
                                        LUMA::LumaVariant(band.Valid ? 1 : 0),
                                        LUMA::LumaVariant(IncrementalPeakCode(result, k))};
    bool ok = rows->AddNew(ZoGeometry());
    for (std::size_t f = 0; ok && f < fields.size(); ++f) ok = rows->SetFieldValue(fields[f].GetName(), values[f]);
    if (!ok || !rows->Update()) {
      rows->CancelUpdate();
      fail("band " + std::to_string(k + 1) + " cannot be written");
    }
  }
}

}  // namespace ZOC::front
