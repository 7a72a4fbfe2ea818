// zostat mean-center, median-center, central-feature, standard-distance,
// ellipse and directional-mean: one result feature per case group, printed
// (text or a JSON array, in group order) and written to a layer with --output.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoSpatialMeasure.h"
#include "WeightsOptions.h"
#include "host/ZoMessageIds.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoRecordset.h"

namespace zostat {

namespace {

using MeasureMethod = unsigned char (ZOC::ZoSpatialMeasure::*)(ZOC::ZoDatasetVector*, ZOC::ZoDatasetVector*,
                                                               const ZOC::ZoMeasuringInformation&, unsigned char);

struct MeasureSpec {
  const char* name;
  const char* summary;
  const char* layerSuffix;
  MeasureMethod method;
  int resultType;  // 0: the input's own type
  bool weight, selfWeight, tolerance, ellipseSize, orientation;
  // Measured in metres about each group's centre on geographic data (all
  // but the directional mean).
  bool projected = true;
  // An empty input is refused: the library writes a centre at (0, 0) for it.
  bool refuseEmpty = false;
};

ZOC::ZoStatisticsType ParseStatisticsType(std::string type) {
  std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
  const std::pair<const char*, ZOC::ZoStatisticsType> types[] = {
      {"max", ZOC::StatisticsMax},      {"min", ZOC::StatisticsMin},     {"sum", ZOC::StatisticsSum},
      {"mean", ZOC::StatisticsMean},    {"first", ZOC::StatisticsFirst}, {"last", ZOC::StatisticsLast},
      {"median", ZOC::StatisticsMedian}};
  for (const auto& [name, value] : types)
    if (type == name) return value;
  return ZOC::StatisticsMax;  // not reached: --stat was checked as parsed (common/OptionDomain.h)
}

ZOC::ZoMeasuringInformation ParseMeasuringOptions(const Options& options) {
  ZOC::ZoMeasuringInformation info;
  info.WeightField = options.Get("weight-field");
  info.SelfWeightField = options.Get("self-weight-field");
  info.CaseField = options.Get("case-field");
  info.Tolerance = options.GetDouble("tolerance", 0.0);
  info.EllipseSize = static_cast<ZOC::ZoEllipseSize>(options.GetInt("ellipse-size", 1));
  if (options.Has("distance-method")) info.DistanceMethod = ParseDistanceMethod(options);
  info.OrientationOnly = options.Has("orientation-only");
  for (const std::string& stat : options.GetAll("stat")) {
    const auto colon = stat.rfind(':');
    info.StatisticsFields.push_back(stat.substr(0, colon));
    info.StatisticsTypes.push_back(ParseStatisticsType(stat.substr(colon + 1)));
  }
  return info;
}

void AddValue(JsonWriter& json, const LUMA::LumaVariant& value) {
  switch (value.GetType()) {
    case LUMA::LumaVariant::Null: json.Null(); break;
    case LUMA::LumaVariant::Boolean: json.Bool(value.GetBool()); break;
    case LUMA::LumaVariant::Integer: json.Integer(value.GetInteger()); break;
    case LUMA::LumaVariant::Double: json.Number(value.GetDouble()); break;
    default: json.String(value.ToString().Str()); break;
  }
}

// Prints every result feature: its fields by name and the centroid of its geometry.
void PrintResults(const Options& options, ZOC::ZoDatasetVector* result) {
  std::vector<LUMA::LumaUnicodeString> fields;
  for (const auto& f : result->GetFieldInfos())
    if (!f.IsSystemField()) fields.push_back(f.GetName());
  ZOC::ZoRecordsetPtr records(result->Query(ZOC::ZoQueryDef()));
  if (!records) throw Failure(MessageText(ZOC::msg::EKa013, "the results could not be read back"));
  JsonWriter json;
  json.BeginArray();
  std::string text;
  LUMA::LumaVariant value;
  ZOC::ZoGeometry geometry;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    LUMA::LumaPoint2D centre;
    records->GetGeometry(geometry);
    const bool located = geometry.GetBaryCenter(centre);
    json.BeginObject();
    char line[96];
    std::snprintf(line, sizeof line, "centroid (%.10g, %.10g)", centre.x, centre.y);
    text += located ? line : "no geometry";
    for (const auto& name : fields) {
      records->GetFieldValue(name, value);
      json.Key(name.Str());
      AddValue(json, value);
      text += "  " + name.Str() + " " + (value.IsNull() ? std::string("null") : value.ToString().Str());
    }
    json.Key("centroid").BeginArray().Number(centre.x).Number(centre.y).EndArray().EndObject();
    text += "\n";
  }
  json.EndArray();
  Print(options.Has("json") ? json.str() : text);
}

// What the printed figures do not show by themselves: on geographic data,
// where and in what unit they were measured; and how many features a Mean
// or Median summary counted without a value.
std::vector<std::string> Notes(const MeasureSpec& spec, const ZOC::ZoMeasuringInformation& info,
                               ZOC::ZoDatasetVector* input) {
  std::vector<std::string> notes;
  if (spec.projected && input->GetPrjCoordSys().GetTypeID() == ZOC::ZoPrjCoordSys::Geographic) {
    const std::string lengths = spec.ellipseSize ? ", lengths in metres" : "";
    notes.push_back(
        "the input is in longitude/latitude: each group was measured in metres on an azimuthal "
        "equidistant projection about the group's own centre; positions are given in longitude/latitude" +
        lengths + ".");
  }
  std::vector<std::size_t> counted;  // the statistics entries that skip null values
  for (std::size_t i = 0; i < info.StatisticsTypes.size(); ++i)
    if (info.StatisticsTypes[i] == ZOC::StatisticsMean || info.StatisticsTypes[i] == ZOC::StatisticsMedian)
      counted.push_back(i);
  if (counted.empty()) return notes;
  ZOC::ZoRecordsetPtr records(input->Query(ZOC::ZoQueryDef()));
  if (!records) return notes;
  std::vector<long long> nulls(counted.size(), 0);
  long long total = 0;
  LUMA::LumaVariant value;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext(), ++total)
    for (std::size_t k = 0; k < counted.size(); ++k)
      if (!records->GetFieldValue(info.StatisticsFields[counted[k]], value) || value.IsNull()) ++nulls[k];
  for (std::size_t k = 0; k < counted.size(); ++k) {
    if (nulls[k] == 0) continue;
    const std::string field = info.StatisticsFields[counted[k]].Str();
    const bool mean = info.StatisticsTypes[counted[k]] == ZOC::StatisticsMean;
    notes.push_back(std::to_string(nulls[k]) + " of " + std::to_string(total) + " features have no value (NULL) in " +
                    field +
                    (mean ? ": " + field + "_Mean divides each group's sum by all of its features, those included."
                          : ": " + field + "_Median leaves them out."));
  }
  return notes;
}

int RunMeasure(const Options& options, const MeasureSpec& spec) {
  InputLayer input = OpenInput(options);
  const ZOC::ZoMeasuringInformation info = ParseMeasuringOptions(options);
  if (spec.refuseEmpty && input.dataset->GetRecordCount() == 0)
    throw Failure(MessageText(ZOC::msg::ESa067, "layer '" + input.dataset->GetName().Str() + "' has no features"));
  const int type = spec.resultType ? spec.resultType : input.dataset->GetType();
  const std::string layer = input.dataset->GetName().Str() + spec.layerSuffix;
  // Without --output the result lives in memory only, for printing.
  std::unique_ptr<OutputLayer> out;
  std::unique_ptr<ZOC::ZoDataSource> memory;
  ZOC::ZoDatasetVector* result = nullptr;
  if (options.Has("output")) {
    out = std::make_unique<OutputLayer>(options, layer, type, input.dataset->GetPrjCoordSys());
    result = out->dataset();
  } else {
    memory = ZOC::ZoDataSource::CreateMemory();
    result = memory->CreateDatasetVector(layer, type, input.dataset->GetPrjCoordSys());
    if (!result) throw Failure(MessageText(ZOC::msg::EUp003, "no in-memory result layer could be created"));
  }
  ZOC::ZoSpatialMeasure measure;
  if (!(measure.*spec.method)(input.dataset, result, info, ShowProgress(options)))
    throw Failure(measure.GetStrErrorMes().Str());
  if (out) {
    out->Keep();
    if (!options.Has("json"))
      Print("Wrote " + std::to_string(result->GetRecordCount()) + " features to layer '" + out->layer() + "' of " +
            out->path());
  }
  PrintResults(options, result);
  // Under --json stdout holds the results alone, so the notes go to stderr.
  for (const std::string& note : Notes(spec, info, input.dataset)) {
    if (options.Has("json"))
      std::fprintf(stderr, "zostat %s: note: %s\n", spec.name, note.c_str());
    else
      Print("Note: " + note);
  }
  return 0;
}

std::vector<OptionSpec> MeasureOptions(const MeasureSpec& spec) {
  auto options = InputOptions();
  for (auto& o : OutputOptions(std::string("name of the result layer (default: the input layer's name + ") +
                               spec.layerSuffix + ")"))
    options.push_back(o);
  options.push_back({"case-field", true, "field whose equal values form the groups (default: one group)"});
  options.push_back({"stat", true,
                     "FIELD:TYPE summary per group, TYPE max|min|sum|mean|first|last|median "
                     "(repeatable)",
                     true});
  if (spec.weight) options.push_back({"weight-field", true, "numeric field weighting each feature"});
  if (spec.selfWeight) {
    options.push_back({"self-weight-field", true, "numeric field: each feature's own term in its distance sum"});
    options.push_back({"distance-method", true, "euclidean (default) or manhattan"});
  }
  if (spec.tolerance) options.push_back({"tolerance", true, "relative convergence tolerance (default 1e-6)"});
  if (spec.ellipseSize) options.push_back({"ellipse-size", true, "standard deviations spanned: 1 (default), 2 or 3"});
  if (spec.orientation) options.push_back({"orientation-only", false, "opposite directions count as one orientation"});
  for (auto& o : CommonOptions()) options.push_back(o);
  return options;
}

Command MakeCommand(const MeasureSpec& spec) {
  std::string usage = "--input PATH [--layer L] [--case-field F] [--stat FIELD:TYPE ...]";
  if (spec.weight) usage += " [--weight-field W]";
  if (spec.selfWeight) usage += " [--self-weight-field S] [--distance-method euclidean|manhattan]";
  if (spec.tolerance) usage += " [--tolerance T]";
  if (spec.ellipseSize) usage += " [--ellipse-size 1|2|3]";
  if (spec.orientation) usage += " [--orientation-only]";
  usage += " [--output OUT [--output-layer L] [--overwrite]] [--json]";
  return {spec.name, spec.summary, usage, MeasureOptions(spec),
          [spec](const Options& o) { return RunMeasure(o, spec); }};
}

}  // namespace

Command MeanCenterCommand() {
  return MakeCommand({"mean-center", "weighted mean centre of the features, per case group", "_mean_center",
                      &ZOC::ZoSpatialMeasure::MeasureMeanCenter, ZOC::DatasetPoint, true, false, false, false, false,
                      true, true});
}

Command MedianCenterCommand() {
  return MakeCommand({"median-center", "weighted median centre (least total distance), per case group",
                      "_median_center", &ZOC::ZoSpatialMeasure::MeasureMedianCenter, ZOC::DatasetPoint, true, false,
                      true, false, false, true, true});
}

Command CentralFeatureCommand() {
  return MakeCommand({"central-feature", "the feature with the least weighted distance to the others, per case group",
                      "_central_feature", &ZOC::ZoSpatialMeasure::MeasureCentralElement, 0, true, true, false, false,
                      false});
}

Command StandardDistanceCommand() {
  return MakeCommand({"standard-distance", "standard distance circle around the mean centre, per case group",
                      "_standard_distance", &ZOC::ZoSpatialMeasure::MeasureStandardDistance, ZOC::DatasetRegion, true,
                      false, false, true, false});
}

Command EllipseCommand() {
  return MakeCommand({"ellipse", "standard deviational ellipse (directional distribution), per case group", "_ellipse",
                      &ZOC::ZoSpatialMeasure::MeasureDirectionalDistribution, ZOC::DatasetRegion, true, false, false,
                      true, false});
}

Command DirectionalMeanCommand() {
  return MakeCommand({"directional-mean", "linear directional mean of line features, per case group",
                      "_directional_mean", &ZOC::ZoSpatialMeasure::MeasureLinearDirectionalMean, ZOC::DatasetLine,
                      false, false, false, false, true, false});
}

}  // namespace zostat
