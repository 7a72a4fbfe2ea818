// zostat weights show: the in-memory weights a conceptualization produces.
#include <cstdio>
#include <vector>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "WeightsOptions.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

int RunWeightsShow(const Options& options) {
  InputLayer input = OpenInput(options);
  const ZOC::ZoPatternsInformation info = ParseWeightsOptions(options);
  if (info.Conceptualization == ZOC::SpatialWeightsFile)
    throw UsageError(ZOC::msg::EUa058, "weights show builds weights in memory; use 'weights dump' for a weights file");

  ZOC::ZoQueryDef query;
  query.m_order = LUMA::LumaUnicodeString(" Order BY ") + ZOC::kSystemIdField;
  ZOC::ZoRecordsetPtr records(input.dataset->Query(query));
  if (!records) throw Failure(MessageText(ZOC::msg::EKa013, "the input layer"));
  // Feature i is the i-th record in QlID order; report QlIDs, not positions.
  std::vector<long long> ids;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext())
    ids.push_back(records->GetID());

  ZOC::ZoStatisticsUtilities utilities;
  LUMA::LumaArray<ZOC::WeightMatrixUnit> units;
  if (!utilities.GetSpatialWeight(records.get(), info, units, ShowProgress(options)))
    throw Failure(utilities.GetStrErrorMes().IsEmpty() ? MessageText(ZOC::msg::EUa019, "the weights could not be built")
                                                       : utilities.GetStrErrorMes().Str());
  const long long n = static_cast<long long>(ids.size());

  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject().Key("features").Integer(n).Key("units").Integer(static_cast<long long>(units.size()));
    json.Key("rows").BeginArray();
    std::size_t u = 0;
    for (long long i = 0; i < n; ++i) {
      json.BeginObject().Key("id").Integer(ids[static_cast<std::size_t>(i)]).Key("neighbors").BeginArray();
      const std::size_t start = u;
      for (; u < units.size() && units[u].Index < (i + 1) * n; ++u)
        json.Integer(ids[static_cast<std::size_t>(units[u].Index - i * n)]);
      json.EndArray().Key("weights").BeginArray();
      for (std::size_t w = start; w < u; ++w) json.Number(units[w].Weight);
      json.EndArray().EndObject();
    }
    json.EndArray().EndObject();
    Print(json.str());
    return 0;
  }
  std::string out = "QlID\tneighbour QlID\tweight\n";
  char line[128];
  for (const auto& unit : units) {
    const long long i = unit.Index / n, j = unit.Index % n;
    std::snprintf(line, sizeof line, "%lld\t%lld\t%.17g\n", ids[static_cast<std::size_t>(i)],
                  ids[static_cast<std::size_t>(j)], unit.Weight);
    out += line;
  }
  Print(out);
  return 0;
}

}  // namespace

Command WeightsShowCommand() {
  auto options = InputOptions();
  options.push_back({"field", true, "numeric analysis field (validated as the analyses do)"});
  for (auto& o : WeightsOptions()) options.push_back(o);
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"weights show", "list the neighbours and weights a conceptualization gives each feature",
          "--input PATH --field F [weights options] [--json]", options, RunWeightsShow};
}

}  // namespace zostat
