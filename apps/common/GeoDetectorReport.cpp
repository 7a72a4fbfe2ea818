#include "common/GeoDetectorReport.h"

#include <charconv>
#include <cmath>
#include <variant>

#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "common/Errors.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoQueryDef.h"

namespace ZOC::front {

namespace {

std::string NumberText(double x) {
  char buffer[32];
  return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, x).ptr);
}

ReportValue Breaks(const ZoDetectorFactor& factor) {
  if (!factor.Discretized) return {};
  std::string text;
  for (double b : factor.Breaks) text += (text.empty() ? "" : "; ") + NumberText(b);
  return text;
}

void FactorRows(const ZoGeoDetectorResult& r, ReportTable& factors, ReportTable& strata) {
  for (const ZoDetectorFactor& f : r.Factors) {
    const std::string field = f.Field.Str();
    factors.rows.push_back({{"field", field},
                            {"strata", static_cast<long long>(f.Strata.size())},
                            {"q", f.Q},
                            {"f", f.F},
                            {"noncentrality", f.NonCentrality},
                            {"p_value", f.PValue},
                            {"discretized", f.Discretized},
                            {"breaks", Breaks(f)}});
    for (std::size_t h = 0; h < f.Strata.size(); ++h) {
      const ZoDetectorStratum& s = f.Strata[h];
      strata.rows.push_back({{"field", field},
                             {"stratum", static_cast<long long>(h + 1)},
                             {"label", s.Label.Str()},
                             {"count", static_cast<long long>(s.Count)},
                             {"mean", s.Mean},
                             {"variance", s.Variance}});
    }
  }
}

ReportTable RiskRows(const ZoGeoDetectorResult& r) {
  ReportTable risk{"risk", {}};
  for (const ZoDetectorFactor& f : r.Factors) {
    for (const ZoRiskPair& p : f.Risk) {
      risk.rows.push_back({{"field", f.Field.Str()},
                           {"first", f.Strata[static_cast<std::size_t>(p.First)].Label.Str()},
                           {"second", f.Strata[static_cast<std::size_t>(p.Second)].Label.Str()},
                           {"tested", p.Tested},
                           {"t", p.T},
                           {"df", p.DegreesOfFreedom},
                           {"critical", p.Critical},
                           {"p_value", p.PValue},
                           {"significant", p.Significant}});
    }
  }
  return risk;
}

}  // namespace

ReportValues GeoDetectorSummary(const ZoGeoDetectorResult& r) {
  return {{"count", static_cast<long long>(r.Count)}, {"mean", r.Mean}, {"variance", r.Variance}};
}

const char* InteractionName(std::int32_t kind) {
  switch (kind) {
    case InteractionNonlinearWeaken: return "nonlinear-weaken";
    case InteractionUniWeaken: return "uni-weaken";
    case InteractionBiEnhance: return "bi-enhance";
    case InteractionIndependent: return "independent";
    default: return "nonlinear-enhance";
  }
}

std::vector<ReportTable> GeoDetectorTables(const ZoGeoDetectorResult& r, std::int32_t detectors) {
  std::vector<ReportTable> tables;
  if (detectors & (DetectFactor | DetectRisk)) {
    ReportTable factors{"factor", {}}, strata{"strata", {}};
    FactorRows(r, factors, strata);
    tables.push_back(std::move(factors));
    tables.push_back(std::move(strata));
  }
  if (detectors & DetectRisk) tables.push_back(RiskRows(r));
  auto field = [&](std::int32_t f) { return r.Factors[static_cast<std::size_t>(f)].Field.Str(); };
  auto q = [&](std::int32_t f) { return r.Factors[static_cast<std::size_t>(f)].Q; };
  if (detectors & DetectInteraction) {
    ReportTable t{"interaction", {}};
    for (const ZoDetectorInteraction& i : r.Interactions)
      t.rows.push_back({{"first", field(i.First)},
                        {"second", field(i.Second)},
                        {"q_first", q(i.First)},
                        {"q_second", q(i.Second)},
                        {"q", i.Q},
                        {"strata", static_cast<long long>(i.Strata)},
                        {"relationship", std::string(InteractionName(i.Kind))}});
    tables.push_back(std::move(t));
  }
  if (detectors & DetectEcological) {
    ReportTable t{"ecological", {}};
    for (const ZoEcologicalPair& e : r.Ecological)
      t.rows.push_back({{"first", field(e.First)},
                        {"second", field(e.Second)},
                        {"f", e.F},
                        {"critical", e.Critical},
                        {"p_value", e.PValue},
                        {"significant", e.Significant}});
    tables.push_back(std::move(t));
  }
  return tables;
}

namespace {

int FieldTypeOf(const ReportTable& table, std::size_t column) {
  for (const ReportValues& row : table.rows) {
    const ReportValue& v = row[column].second;
    if (std::holds_alternative<std::string>(v)) return LUMA::FieldText;
    if (std::holds_alternative<double>(v)) return LUMA::FieldDouble;
    if (std::holds_alternative<long long>(v) || std::holds_alternative<bool>(v)) return LUMA::FieldInt32;
  }
  return LUMA::FieldDouble;
}

LUMA::LumaVariant VariantOf(const ReportValue& v) {
  if (const auto* b = std::get_if<bool>(&v)) return LUMA::LumaVariant(*b ? 1 : 0);
  if (const auto* n = std::get_if<long long>(&v)) return LUMA::LumaVariant(static_cast<std::int64_t>(*n));
  if (const auto* x = std::get_if<double>(&v)) return std::isfinite(*x) ? LUMA::LumaVariant(*x) : LUMA::LumaVariant();
  if (const auto* s = std::get_if<std::string>(&v)) return LUMA::LumaVariant(LUMA::LumaUnicodeString(*s));
  return {};
}

}  // namespace

void WriteReportTable(ZoDatasetVector* target, const ReportTable& table) {
  auto fail = [&](const std::string& why) {
    throw Failure(MessageText(msg::EUa016, "the " + table.name + " table: " + why));
  };
  if (!target) fail("no table");
  if (table.rows.empty()) return;
  LUMA::LumaFieldInfos fields;
  for (std::size_t c = 0; c < table.rows[0].size(); ++c)
    fields.push_back(LUMA::LumaFieldInfo(table.rows[0][c].first, FieldTypeOf(table, c)));
  const std::size_t columns = fields.size();
  if (!ZoEngineToolkit::CreateValidFields(target, fields) || fields.size() != columns)
    fail("its fields cannot be created");
  const ZoRecordsetPtr records(target->Query(ZoQueryDef()));
  if (!records) fail("it cannot be opened");
  for (std::size_t k = 0; k < table.rows.size(); ++k) {
    bool ok = records->AddNew(ZoGeometry());
    for (std::size_t c = 0; ok && c < columns; ++c)
      ok = records->SetFieldValue(fields[c].GetName(), VariantOf(table.rows[k][c].second));
    if (!ok || !records->Update()) {
      records->CancelUpdate();
      fail("row " + std::to_string(k + 1) + " cannot be written");
    }
  }
}

}  // namespace ZOC::front
