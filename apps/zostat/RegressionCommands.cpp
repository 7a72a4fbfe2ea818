// zostat ols and zostat gwr: a field modelled from others, globally or
// around every feature, with per-feature results written to a new layer.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Command.h"
#include "Json.h"
#include "StatisticsAnalyst/ZoSpatialRelModeling.h"
#include "WeightsOptions.h"
#include "host/ZoMessageIds.h"

namespace zostat {

namespace {

// A field of the input by the name given, or by that name without the
// blanks around it ("INC, HOVAL"); names the field when there is neither.
std::string FieldOf(const InputLayer& input, const std::string& given) {
  LUMA::LumaFieldInfo info;
  if (input.dataset->GetFieldInfo(given, info)) return given;
  const std::size_t first = given.find_first_not_of(" \t");
  const std::string trimmed =
      first == std::string::npos ? std::string() : given.substr(first, given.find_last_not_of(" \t") - first + 1);
  if (!trimmed.empty() && input.dataset->GetFieldInfo(trimmed, info)) return trimmed;
  throw Failure(MessageText(ZOC::msg::ECd001,
                            "'" + given + "' is not a field of layer '" + input.dataset->GetName().Str() + "'"));
}

// --explanatory F1,F2,...: a comma-separated list of the input's fields, without empty names.
LUMA::LumaArray<LUMA::LumaUnicodeString> ParseExplanatory(const Options& options, const InputLayer& input) {
  const std::string list = options.Require("explanatory");
  LUMA::LumaArray<LUMA::LumaUnicodeString> names;
  std::size_t start = 0;
  while (true) {
    const std::size_t comma = list.find(',', start);
    const std::string name = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (name.find_first_not_of(" \t") == std::string::npos)
      throw UsageError(ZOC::msg::EUa060, "--explanatory holds an empty field name");
    names.push_back(FieldOf(input, name));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return names;
}

std::string Line(const char* format, double a, double b = 0, double c = 0) {
  char text[256];
  std::snprintf(text, sizeof text, format, a, b, c);
  return text;
}

// What the run wrote, as the summary's last line; nothing without --output.
std::string Written(const OutputLayer* out, const std::string& fields) {
  return out ? "Wrote " + fields + " to layer '" + out->layer() + "' of " + out->path() : std::string();
}

void PrintOls(const Options& options, const ZOC::ZoOLSResult& r, const OutputLayer* out) {
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject().Key("coefficients").BeginArray();
    for (const auto& c : r.Coefficients)
      json.BeginObject()
          .Key("name")
          .String(c.Name.Str())
          .Key("estimate")
          .Number(c.Estimate)
          .Key("std_error")
          .Number(c.StdError)
          .Key("t")
          .Number(c.TValue)
          .Key("p")
          .Number(c.PValue)
          .Key("robust_std_error")
          .Number(c.RobustStdError)
          .Key("vif")
          .Number(c.VIF)
          .EndObject();
    json.EndArray()
        .Key("r2")
        .Number(r.R2)
        .Key("adjusted_r2")
        .Number(r.AdjustedR2)
        .Key("aicc")
        .Number(r.AICc)
        .Key("f")
        .Number(r.FStatistic)
        .Key("wald")
        .Number(r.WaldStatistic)
        .Key("koenker_bp")
        .Number(r.KoenkerBP)
        .Key("jarque_bera")
        .Number(r.JarqueBera)
        .Key("condition_index")
        .Number(r.ConditionIndex)
        .Key("residual_moran");
    if (r.HasResidualMoran) {
      const auto& m = r.ResidualMoran;
      json.BeginObject()
          .Key("index")
          .Number(m.Index)
          .Key("expected_index")
          .Number(m.ExpectedIndex)
          .Key("variance")
          .Number(m.Variance)
          .Key("z_score")
          .Number(m.ZScore)
          .Key("p_value")
          .Number(m.PValue)
          .EndObject();
    } else {
      json.Null();
    }
    if (!r.ResidualMoranMessage.IsEmpty()) json.Key("residual_moran_missing").String(r.ResidualMoranMessage.Str());
    Print(json.EndObject().str());
    return;
  }
  std::string text = "Ordinary least squares of " + options.Get("dependent") + " on " + std::to_string(r.FeatureCount) +
                     " features\n\n";
  char row[256];
  std::snprintf(row, sizeof row, "  %-16s %14s %12s %9s %10s %12s %10s %8s\n", "", "estimate", "std error", "t", "p",
                "robust se", "robust p", "VIF");
  text += row;
  for (const auto& c : r.Coefficients) {
    // The intercept has no variance inflation factor: its column stays empty.
    char vif[32] = "-";
    if (std::isfinite(c.VIF)) std::snprintf(vif, sizeof vif, "%.4g", c.VIF);
    std::snprintf(row, sizeof row, "  %-16s %14.6g %12.6g %9.4g %10.4g %12.6g %10.4g %8s\n", c.Name.c_str(), c.Estimate,
                  c.StdError, c.TValue, c.PValue, c.RobustStdError, c.RobustPValue, vif);
    text += row;
  }
  text += Line("\n  R²: %.6g   adjusted R²: %.6g   AICc: %.10g\n", r.R2, r.AdjustedR2, r.AICc);
  text += Line("  Joint F:            %12.6g  p %.4g\n", r.FStatistic, r.FPValue);
  text += Line("  Joint Wald (robust): %11.6g  p %.4g\n", r.WaldStatistic, r.WaldPValue);
  text += Line("  Koenker (BP):       %12.6g  p %.4g\n", r.KoenkerBP, r.KoenkerBPPValue);
  text += Line("  Jarque-Bera:        %12.6g  p %.4g\n", r.JarqueBera, r.JarqueBeraPValue);
  text += Line("  Condition index:    %12.6g\n", r.ConditionIndex);
  if (r.HasResidualMoran)
    text += Line("  Residual Moran's I: %12.6g  z %.4g  p %.4g\n", r.ResidualMoran.Index, r.ResidualMoran.ZScore,
                 r.ResidualMoran.PValue);
  else if (!r.ResidualMoranMessage.IsEmpty()) {
    text += "  Residual Moran's I: not computed under these weights:\n";
    std::string why = r.ResidualMoranMessage.Str();
    for (std::size_t at = 0; at < why.size();) {
      const std::size_t end = std::min(why.find('\n', at), why.size());
      text += "    " + why.substr(at, end - at) + "\n";
      at = end + 1;
    }
  }
  Print(text + Written(out, "Predicted, Residual and StdResid"));
}

int RunOls(const Options& options) {
  InputLayer input = OpenInput(options);
  ZOC::ZoOLSInformation info;
  info.DependentField = FieldOf(input, options.Require("dependent"));
  info.ExplanatoryFields = ParseExplanatory(options, input);
  info.ResidualMoran = !options.Has("no-moran");
  info.MoranWeights = ParseWeightsOptions(options);
  const auto out = OptionalOutput(options, input.dataset->GetName().Str() + "_ols", input.dataset->GetType(),
                                  input.dataset->GetPrjCoordSys());
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoOLSResult result;
  if (!modeling.OrdinaryLeastSquares(input.dataset, out ? out->dataset() : nullptr, info, result,
                                     ShowProgress(options)))
    throw Failure(modeling.GetStrErrorMes().Str());
  if (out) out->Keep();
  PrintOls(options, result, out.get());
  return 0;
}

void PrintGwr(const Options& options, const ZOC::ZoGWRResult& r, const OutputLayer* out) {
  if (options.Has("json")) {
    JsonWriter json;
    json.BeginObject()
        .Key("bandwidth")
        .Number(r.Bandwidth)
        .Key("aicc")
        .Number(r.AICc)
        .Key("effective_parameters")
        .Number(r.EffectiveParameters)
        .Key("rss")
        .Number(r.RSS)
        .Key("sigma")
        .Number(r.Sigma)
        .Key("r2")
        .Number(r.R2)
        .EndObject();
    Print(json.str());
    return;
  }
  std::string text = "Geographically weighted regression of " + options.Get("dependent") + " on " +
                     std::to_string(r.FeatureCount) + " features\n";
  text +=
      Line(r.BandwidthSearched ? "  Bandwidth:            %.10g (chosen by AICc)\n" : "  Bandwidth:            %.10g\n",
           r.Bandwidth);
  text += Line("  AICc:                 %.10g\n  Effective parameters: %.6g\n", r.AICc, r.EffectiveParameters);
  text += Line("  Residual sum of sq.:  %.10g\n  Sigma:                %.6g\n", r.RSS, r.Sigma);
  text += Line("  R²: %.6g   adjusted R²: %.6g\n", r.R2, r.AdjustedR2);
  Print(text +
        Written(out, "local coefficients, standard errors, LocalR2, Predicted, Residual, StdResid and CondNumber"));
}

int RunGwr(const Options& options) {
  InputLayer input = OpenInput(options);
  ZOC::ZoGWRInformation info;
  info.DependentField = FieldOf(input, options.Require("dependent"));
  info.ExplanatoryFields = ParseExplanatory(options, input);
  // Values were checked as the options were parsed (common/OptionDomain.h).
  const std::string kernel = options.Get("kernel", "bisquare"), type = options.Get("bandwidth-type", "adaptive");
  info.Kernel = kernel == "gaussian" ? ZOC::GWRGaussian : ZOC::GWRBisquare;
  info.BandwidthType = type == "fixed" ? ZOC::GWRFixed : ZOC::GWRAdaptive;
  info.Bandwidth = options.GetDouble("bandwidth", -1.0);  // -1: the search
  info.DistanceMethod = ParseDistanceMethod(options);
  const auto out = OptionalOutput(options, input.dataset->GetName().Str() + "_gwr", input.dataset->GetType(),
                                  input.dataset->GetPrjCoordSys());
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoGWRResult result;
  if (!modeling.GeographicWeightedRegression(input.dataset, out ? out->dataset() : nullptr, info, result,
                                             ShowProgress(options)))
    throw Failure(modeling.GetStrErrorMes().Str());
  if (out) out->Keep();
  PrintGwr(options, result, out.get());
  return 0;
}

std::vector<OptionSpec> ModelOptions(const std::string& layerHelp) {
  auto options = InputOptions();
  options.push_back({"dependent", true, "numeric field to model"});
  options.push_back({"explanatory", true, "comma-separated numeric fields that explain it (an intercept is added)"});
  for (auto& o : OutputOptions(layerHelp)) options.push_back(o);
  options[options.size() - 3].help += "; absent: the summary only";
  return options;
}

}  // namespace

Command OlsCommand() {
  auto options = ModelOptions("name of the result layer (default: the input layer's name + _ols)");
  options.push_back({"no-moran", false, "skip Moran's I of the residuals"});
  for (auto& o : WeightsOptions()) options.push_back(o);
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"ols", "ordinary least squares: coefficients, robust errors, diagnostics, residual Moran's I",
          "--input PATH --dependent F --explanatory F1,F2,... [--output OUT [--output-layer L]] [--no-moran] "
          "[weights options for the residual Moran's I] [--json]",
          options, RunOls};
}

Command GwrCommand() {
  auto options = ModelOptions("name of the result layer (default: the input layer's name + _gwr)");
  options.push_back({"kernel", true, "gaussian or bisquare (default bisquare)"});
  options.push_back({"bandwidth-type", true, "fixed (a distance) or adaptive (a number of neighbours; default)"});
  options.push_back({"bandwidth", true, "the bandwidth; absent = chosen by golden-section search on AICc"});
  options.push_back({"distance-method", true, "euclidean (default) or manhattan"});
  for (auto& o : CommonOptions()) options.push_back(o);
  return {"gwr", "geographically weighted regression: local coefficients, errors and R² per feature",
          "--input PATH --dependent F --explanatory F1,F2,... [--output OUT [--output-layer L]] "
          "[--kernel K] [--bandwidth-type T] [--bandwidth B] [--json]",
          options, RunGwr};
}

}  // namespace zostat
