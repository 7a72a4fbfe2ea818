#include "common/GeoDetectorReport.h"

#include <charconv>

#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"

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

const std::vector<std::string> kFactorColumns{"field",         "strata",  "q",           "f",
                                              "noncentrality", "p_value", "discretized", "breaks"};
const std::vector<std::string> kStrataColumns{"field", "stratum", "label", "count", "mean", "variance"};
const std::vector<std::string> kRiskColumns{"field", "first",    "second",  "tested",     "t",
                                            "df",    "critical", "p_value", "significant"};
const std::vector<std::string> kInteractionColumns{"first", "second", "q_first",     "q_second",
                                                   "q",     "strata", "relationship"};
const std::vector<std::string> kEcologicalColumns{"first", "second", "f", "critical", "p_value", "significant"};

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
  ReportTable risk{"risk", kRiskColumns, {}};
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
    ReportTable factors{"factor", kFactorColumns, {}}, strata{"strata", kStrataColumns, {}};
    FactorRows(r, factors, strata);
    tables.push_back(std::move(factors));
    tables.push_back(std::move(strata));
  }
  if (detectors & DetectRisk) tables.push_back(RiskRows(r));
  auto field = [&](std::int32_t f) { return r.Factors[static_cast<std::size_t>(f)].Field.Str(); };
  auto q = [&](std::int32_t f) { return r.Factors[static_cast<std::size_t>(f)].Q; };
  if (detectors & DetectInteraction) {
    ReportTable t{"interaction", kInteractionColumns, {}};
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
    ReportTable t{"ecological", kEcologicalColumns, {}};
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

}  // namespace ZOC::front
