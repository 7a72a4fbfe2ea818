// _core: the thin compiled layer of the statisticsanalyst Python package. It
// opens datasets by path, runs one library call with a progress object that
// reports to Python and polls Python's signals, and hands back plain values.
// Everything Pythonic (result objects, GeoDataFrames, plots) lives in the
// package's Python code.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <unistd.h>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/ZoGeoDetectorInformation.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoSpatialMeasure.h"
#include "StatisticsAnalyst/ZoSpatialRelModeling.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "common/Errors.h"
#include "common/GeoDetectorOptions.h"
#include "common/GeoDetectorReport.h"
#include "common/IncrementalTable.h"
#include "common/Input.h"
#include "common/OptimizedReport.h"
#include "common/OptionDomain.h"
#include "common/Output.h"
#include "common/Progress.h"
#include "common/WeightsOptions.h"
#include "host/ZoDataSource.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace py = pybind11;

// statisticsanalyst.distributed's calls (partitions.cpp).
void BindPartitions(py::module_& m);

namespace {

// A failed run: the library's accumulated messages, "[ID] ..." lines, or a
// front-end failure (an input that cannot be opened, an output refused).
using LibraryError = ZOC::front::Failure;

[[noreturn]] void Fail(const std::string& text) { throw LibraryError(text); }

// A progress text without its leading "[IMb336] ".
std::string WithoutId(const std::string& text) {
  const auto close = text.find("] ");
  return !text.empty() && text[0] == '[' && close != std::string::npos && close <= 8 ? text.substr(close + 2) : text;
}

// How Python shows a run (common/Progress.h): reports to a Python
// callable(percent, title, message) on every new title and every whole
// percent, and polls Python's signals at most every 20 ms, so Ctrl-C cancels
// the run. The analysis runs without the GIL; the callback takes it.
class PythonProgress : public ZOC::front::RunProgress {
 public:
  explicit PythonProgress(py::object callback) : m_callback(std::move(callback)) {}

  // After the call, with the GIL held: re-raises what the callback caught
  // (KeyboardInterrupt, or the callable's own exception).
  void RaisePending() {
    if (m_pending) {
      py::error_already_set error = *m_pending;
      m_pending.reset();
      throw error;
    }
  }
  // The last report at 100%, so a progress bar ends full.
  void Finish() {
    if (!m_callback.is_none()) m_callback(100.0, WithoutId(m_title), "");
  }

 protected:
  void OnChange(const ZOC::ZoProgressState& state) override { Report(state); }
  bool Poll() override { return !Report(State()); }

 private:
  bool Report(const ZOC::ZoProgressState& state) {
    if (m_pending) return false;
    const auto now = std::chrono::steady_clock::now();
    const bool poll = now - m_lastPoll >= std::chrono::milliseconds(20);
    const bool report = !m_reported || state.title != m_title || std::abs(state.percent - m_percent) >= 1.0;
    if (!poll && !report) return true;
    py::gil_scoped_acquire gil;
    try {
      if (poll) {
        m_lastPoll = now;
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      }
      if (report) {
        m_reported = true;
        m_title = state.title;
        m_percent = state.percent;
        if (!m_callback.is_none() && !state.title.empty())
          m_callback(state.percent, WithoutId(state.title), WithoutId(state.message));
      }
      return true;
    } catch (py::error_already_set& error) {
      m_pending = std::make_unique<py::error_already_set>(std::move(error));
      Cancel();
      return false;
    }
  }

  py::object m_callback;
  std::string m_title;
  double m_percent = 0.0;
  bool m_reported = false;
  std::chrono::steady_clock::time_point m_lastPoll{};
  std::unique_ptr<py::error_already_set> m_pending;
};

// Runs one library call without the GIL under a Python progress object.
template <class Call>
bool RunWithProgress(ZOC::ZoAnalysisFrame& analysis, const py::object& callback, Call&& call) {
  PythonProgress progress(callback);
  bool ok;
  {
    ZOC::front::ProgressScope scope(progress, &analysis);
    py::gil_scoped_release release;
    ok = call();
  }
  progress.RaisePending();
  if (ok) progress.Finish();
  return ok;
}

// Inputs are opened as zostat opens --input, with the same messages.
using Input = ZOC::front::InputLayer;
using ZOC::front::OpenInput;

// Runs `call` and commits its result into `out` under one progress object;
// a failure raises the analysis's or the output's messages.
template <class Call>
void RunInto(ZOC::front::Output& out, ZOC::ZoAnalysisFrame& analysis, const py::object& progress, Call&& call) {
  bool committing = false;
  const bool ok = RunWithProgress(analysis, progress, [&] {
    if (!call()) return false;
    committing = true;
    return out.TryCommit(ZOC::front::ProgressScope::Current());
  });
  if (!ok) Fail(committing ? out.error() : analysis.GetStrErrorMes().Str());
}

using Exponent = ZOC::ZoAnalyzingPatterns::ZoAnalyzingExponent;
using ExponentTuple = std::tuple<double, double, double, double, double>;

ExponentTuple AsTuple(const Exponent& r) { return {r.Index, r.ExpectedIndex, r.Variance, r.ZScore, r.PValue}; }

// A global statistic's values, and its permutation test's when it ran.
py::tuple GlobalValues(const Exponent& r) {
  if (r.Permutations == 0) return py::make_tuple(r.Index, r.ExpectedIndex, r.Variance, r.ZScore, r.PValue);
  return py::make_tuple(r.Index, r.ExpectedIndex, r.Variance, r.ZScore, r.PValue, r.Permutations, r.PseudoPValue,
                        r.SimulatedMean, r.SimulatedVariance, r.SimulatedZScore);
}

template <class Method>
py::tuple RunGlobal(const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info,
                    const py::object& progress, Method method) {
  Input input = OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  Exponent r;
  if (!RunWithProgress(patterns, progress,
                       [&] { return (patterns.*method)(input.dataset, info, r, ZOC::front::kReportProgress) != 0; }))
    Fail(patterns.GetStrErrorMes().Str());
  return GlobalValues(r);
}

ExponentTuple Ann(const std::string& path, const std::string& layer, double area, int method,
                  std::optional<double> width, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  Exponent r;
  const ZOC::ZoDistanceMethod m = static_cast<ZOC::ZoDistanceMethod>(method);
  if (!RunWithProgress(patterns, progress, [&] {
        return patterns.AverageNearestNeighbor(input.dataset, area, m, r, !width.has_value(), width.value_or(0.0),
                                               ZOC::front::kReportProgress) != 0;
      }))
    Fail(patterns.GetStrErrorMes().Str());
  return AsTuple(r);
}

using LocalMethod = unsigned char (ZOC::ZoClusteringDistributions::*)(ZOC::ZoDatasetVector*, ZOC::ZoDatasetVector*,
                                                                      const ZOC::ZoPatternsInformation&, unsigned char);

void RunLocal(const std::string& path, const std::string& layer, const std::string& outPath,
              const std::string& outLayer, bool overwrite, const ZOC::ZoPatternsInformation& info,
              const py::object& progress, LocalMethod method) {
  Input input = OpenInput(path, layer);
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {info.WeightsFilePath.Str()});
  out.Create(input.dataset, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
  ZOC::ZoClusteringDistributions clustering;
  RunInto(out, clustering, progress,
          [&] { return (clustering.*method)(input.dataset, out.dataset(), info, ZOC::front::kReportProgress) != 0; });
}

// Density-based clustering (method 1 DBSCAN, 2 HDBSCAN, 3 OPTICS) into a
// layer of the input's geometry type; returns (clusters, noise, distance).
std::tuple<int, long long, double> Density(const std::string& path, const std::string& layer,
                                           const std::string& outPath, const std::string& outLayer, bool overwrite,
                                           int method, int minPoints, double distance, int xi,
                                           const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoClusterInformation info;
  info.Method = method;
  info.MinPoints = minPoints;
  info.SearchDistance = distance;
  info.DistanceUnit = 0;  // the layer's own unit, as zostat takes it
  info.OpticsParameter = xi;
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {});
  out.Create(nullptr, input.dataset->GetType(), input.dataset->GetPrjCoordSys());
  ZOC::ZoClusteringDistributions clustering;
  ZOC::ZoClusterSummary summary;
  RunInto(out, clustering, progress, [&] {
    return clustering.DensityBasedClustering(input.dataset, out.dataset(), info, ZOC::front::kReportProgress,
                                             &summary) != 0;
  });
  return {summary.Clusters, summary.Noise, summary.Distance};
}

// A JSON number as zostat writes it: null when not finite.
py::object Number(double value) { return std::isfinite(value) ? py::object(py::float_(value)) : py::none(); }

// Named values as the front ends share them.
py::dict ToDict(const ZOC::front::ReportValues& values) {
  py::dict d;
  for (const auto& [key, value] : values)
    d[py::str(key)] = std::visit(
        [](const auto& v) -> py::object {
          using T = std::decay_t<decltype(v)>;
          if constexpr (std::is_same_v<T, std::monostate>)
            return py::none();
          else if constexpr (std::is_same_v<T, double>)
            return Number(v);
          else
            return py::cast(v);
        },
        value);
  return d;
}

// The optimized hot spot analysis into a layer of the type its aggregation
// gives (the input's with a field); returns the report, keyed as zostat's
// --json keys it.
py::dict OptimizedHotSpot(const std::string& path, const std::string& layer, const std::string& outPath,
                          const std::string& outLayer, bool overwrite, const std::string& field,
                          const std::string& aggregation, std::optional<double> cellSize,
                          std::optional<double> tolerance, const std::string& polygonsPath,
                          const std::string& polygonsLayer, int distanceMethod, const ZOC::ZoPatternsInformation& test,
                          const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoOptimizedInformation info;
  info.FieldName = field;
  info.Aggregation = ZOC::front::AggregationNamed(aggregation);
  info.CellSize = cellSize;
  info.Tolerance = tolerance;
  info.DistanceMethod = static_cast<ZOC::ZoDistanceMethod>(distanceMethod);
  info.Permutations = test.Permutations;
  info.Seed = test.Seed;
  ZOC::front::CheckDistanceMethod(info.DistanceMethod, input);
  Input polygons;
  if (!polygonsPath.empty()) {
    polygons = OpenInput(polygonsPath, polygonsLayer);
    info.Polygons = polygons.dataset;
  }
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {polygonsPath});
  const int type = ZOC::ZoClusteringDistributions::OptimizedResultType(info, input.dataset->GetType());
  out.Create(field.empty() ? nullptr : input.dataset, type, input.dataset->GetPrjCoordSys());
  ZOC::ZoClusteringDistributions clustering;
  ZOC::ZoOptimizedReport report;
  RunInto(out, clustering, progress, [&] {
    return clustering.OptimizedHotSpotAnalyst(input.dataset, out.dataset(), info, ZOC::front::kReportProgress,
                                              &report) != 0;
  });
  return ToDict(ZOC::front::OptimizedReportValues(report));
}

using MeasureMethod = unsigned char (ZOC::ZoSpatialMeasure::*)(ZOC::ZoDatasetVector*, ZOC::ZoDatasetVector*,
                                                               const ZOC::ZoMeasuringInformation&, unsigned char);

// One geographic-distribution measure; `resultType` 0 keeps the input's type.
void Measure(const std::string& path, const std::string& layer, const std::string& outPath, const std::string& outLayer,
             bool overwrite, const ZOC::ZoMeasuringInformation& info, int resultType, const py::object& progress,
             MeasureMethod method) {
  Input input = OpenInput(path, layer);
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {});
  out.Create(nullptr, resultType ? resultType : input.dataset->GetType(), input.dataset->GetPrjCoordSys());
  ZOC::ZoSpatialMeasure measure;
  RunInto(out, measure, progress,
          [&] { return (measure.*method)(input.dataset, out.dataset(), info, ZOC::front::kReportProgress) != 0; });
}

ZOC::ZoMeasuringInformation MeasuringInformation(const std::string& weightField, const std::string& selfWeightField,
                                                 const std::string& caseField,
                                                 const std::vector<std::pair<std::string, int>>& stats,
                                                 double tolerance, int ellipseSize, int distanceMethod,
                                                 bool orientationOnly) {
  ZOC::ZoMeasuringInformation info;
  info.WeightField = weightField;
  info.SelfWeightField = selfWeightField;
  info.CaseField = caseField;
  for (const auto& [field, type] : stats) {
    info.StatisticsFields.push_back(field);
    info.StatisticsTypes.push_back(static_cast<ZOC::ZoStatisticsType>(type));
  }
  info.Tolerance = tolerance;
  info.EllipseSize = static_cast<ZOC::ZoEllipseSize>(ellipseSize);
  info.DistanceMethod = static_cast<ZOC::ZoDistanceMethod>(distanceMethod);
  info.OrientationOnly = orientationOnly;
  return info;
}

LUMA::LumaArray<LUMA::LumaUnicodeString> Names(const std::vector<std::string>& names) {
  LUMA::LumaArray<LUMA::LumaUnicodeString> out;
  for (const auto& n : names) out.push_back(n);
  return out;
}

// Ordinary least squares; the values under the keys of `zostat ols --json`.
py::dict Ols(const std::string& path, const std::string& layer, const std::string& outPath, const std::string& outLayer,
             bool overwrite, const std::string& dependent, const std::vector<std::string>& explanatory,
             bool residualMoran, const ZOC::ZoPatternsInformation& weights, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoOLSInformation info;
  info.DependentField = dependent;
  info.ExplanatoryFields = Names(explanatory);
  info.ResidualMoran = residualMoran;
  info.MoranWeights = weights;
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {weights.WeightsFilePath.Str()});
  out.Create(nullptr, input.dataset->GetType(), input.dataset->GetPrjCoordSys());
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoOLSResult r;
  RunInto(out, modeling, progress, [&] {
    return modeling.OrdinaryLeastSquares(input.dataset, out.dataset(), info, r, ZOC::front::kReportProgress) != 0;
  });
  py::list coefficients;
  for (const auto& c : r.Coefficients) {
    py::dict d;
    d["name"] = c.Name.Str(), d["estimate"] = Number(c.Estimate), d["std_error"] = Number(c.StdError);
    d["t"] = Number(c.TValue), d["p"] = Number(c.PValue), d["robust_std_error"] = Number(c.RobustStdError);
    d["vif"] = Number(c.VIF);
    coefficients.append(d);
  }
  py::dict d;
  d["coefficients"] = coefficients, d["r2"] = Number(r.R2), d["adjusted_r2"] = Number(r.AdjustedR2);
  d["aicc"] = Number(r.AICc), d["f"] = Number(r.FStatistic), d["wald"] = Number(r.WaldStatistic);
  d["koenker_bp"] = Number(r.KoenkerBP), d["jarque_bera"] = Number(r.JarqueBera);
  d["condition_index"] = Number(r.ConditionIndex);
  if (r.HasResidualMoran) {
    const auto& m = r.ResidualMoran;
    py::dict moran;
    moran["index"] = Number(m.Index), moran["expected_index"] = Number(m.ExpectedIndex);
    moran["variance"] = Number(m.Variance), moran["z_score"] = Number(m.ZScore), moran["p_value"] = Number(m.PValue);
    d["residual_moran"] = moran;
  } else {
    d["residual_moran"] = py::none();
  }
  if (!r.ResidualMoranMessage.IsEmpty()) d["residual_moran_missing"] = r.ResidualMoranMessage.Str();
  return d;
}

// Geographically weighted regression; the values of `zostat gwr --json`.
py::dict Gwr(const std::string& path, const std::string& layer, const std::string& outPath, const std::string& outLayer,
             bool overwrite, const std::string& dependent, const std::vector<std::string>& explanatory, int kernel,
             int bandwidthType, double bandwidth, int distanceMethod, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoGWRInformation info;
  info.DependentField = dependent;
  info.ExplanatoryFields = Names(explanatory);
  info.Kernel = static_cast<ZOC::ZoGWRKernel>(kernel);
  info.BandwidthType = static_cast<ZOC::ZoGWRBandwidthType>(bandwidthType);
  info.Bandwidth = bandwidth;
  info.DistanceMethod = static_cast<ZOC::ZoDistanceMethod>(distanceMethod);
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {});
  out.Create(nullptr, input.dataset->GetType(), input.dataset->GetPrjCoordSys());
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoGWRResult r;
  RunInto(out, modeling, progress, [&] {
    return modeling.GeographicWeightedRegression(input.dataset, out.dataset(), info, r, ZOC::front::kReportProgress) !=
           0;
  });
  py::dict d;
  d["bandwidth"] = Number(r.Bandwidth), d["aicc"] = Number(r.AICc);
  d["effective_parameters"] = Number(r.EffectiveParameters), d["rss"] = Number(r.RSS);
  d["sigma"] = Number(r.Sigma), d["r2"] = Number(r.R2);
  return d;
}

// The incremental spatial autocorrelation, its table of bands written into
// the output as zostat's --output writes it; the values of `zostat
// incremental --json`.
py::dict Incremental(const std::string& path, const std::string& layer, const std::string& outPath,
                     const std::string& outLayer, bool overwrite, const std::string& field, double beginDistance,
                     double increment, int bands, bool rowStandardize, int distanceMethod, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoIncrementalInformation info;
  info.FieldName = field;
  info.BeginDistance = beginDistance;
  info.Increment = increment;
  info.Bands = bands;
  info.Standardization = rowStandardize;
  info.DistanceMethod = static_cast<ZOC::ZoDistanceMethod>(distanceMethod);
  ZOC::front::CheckDistanceMethod(info.DistanceMethod, input);
  ZOC::front::Output out(outPath, outLayer, overwrite, &input, {});
  out.Create(nullptr, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoIncrementalResult r;
  RunInto(out, patterns, progress, [&] {
    if (!patterns.IncrementalSpatialAutocorrelation(input.dataset, info, r, ZOC::front::kReportProgress)) return false;
    ZOC::front::WriteIncrementalTable(out.dataset(), r);
    return true;
  });
  py::list list;
  for (const auto& band : r.Bands) list.append(ToDict(ZOC::front::IncrementalBandValues(band)));
  auto peak = [&](std::int32_t k) {
    return k < 0 ? py::object(py::none()) : py::object(list[static_cast<std::size_t>(k)]);
  };
  py::dict d;
  d["bands"] = list, d["first_peak"] = peak(r.FirstPeak), d["max_peak"] = peak(r.MaxPeak);
  for (const auto& [key, value] : ToDict(ZOC::front::IncrementalSeriesValues(r))) d[key] = value;
  return d;
}

// The geographical detector; the values of `zostat geodetector --json`:
// "count", "mean", "variance" and a list of rows per table of the detectors
// asked. With an output path, every feature with its strata goes there as
// zostat's --output writes it, committed only after the run succeeded.
py::dict GeoDetector(const std::string& path, const std::string& layer, const std::string& outPath,
                     const std::string& outLayer, bool overwrite, const std::string& dependent,
                     const std::vector<std::string>& factors, const std::vector<std::string>& categorical,
                     const std::string& discretize, int classes, double alpha, int detectors,
                     const py::object& progress) {
  ZOC::ZoGeoDetectorInformation info;
  info.DependentField = dependent;
  for (const auto& f : factors) info.FactorFields.push_back(f);
  for (const auto& f : categorical) info.CategoricalFields.push_back(f);
  info.Discretization = ZOC::front::DiscretizationNamed(discretize);
  info.Classes = classes;
  info.Alpha = alpha;
  info.Detectors = detectors;
  Input input = OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoGeoDetectorResult r;
  if (outPath.empty()) {
    if (!RunWithProgress(patterns, progress, [&] {
          return patterns.GeographicalDetector(input.dataset, info, r, ZOC::front::kReportProgress) != 0;
        }))
      Fail(patterns.GetStrErrorMes().Str());
  } else {
    ZOC::front::Output out(outPath, outLayer, overwrite, &input, {});
    out.Create(input.dataset, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
    RunInto(out, patterns, progress, [&] {
      return patterns.GeographicalDetector(input.dataset, info, r, ZOC::front::kReportProgress, out.dataset()) != 0;
    });
  }
  py::dict d = ToDict(ZOC::front::GeoDetectorSummary(r));
  for (const auto& table : ZOC::front::GeoDetectorTables(r, detectors)) {
    py::list rows;
    for (const auto& row : table.rows) rows.append(ToDict(row));
    d[py::str(table.name)] = rows;
  }
  return d;
}

// The columns of every detector table, so a table without rows (the
// interaction of a single factor) still has them.
py::dict GeoDetectorColumns() {
  py::dict columns;
  for (const auto& table : ZOC::front::GeoDetectorTables({}, ZOC::DetectAll))
    columns[py::str(table.name)] = table.columns;
  return columns;
}

void WeightsBuild(const std::string& path, const std::string& layer, const std::string& idField,
                  const std::string& output, const ZOC::ZoPatternsInformation& info, bool text,
                  const std::string& flagMatrix, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoWeightsUtilities weights;
  const bool ok = RunWithProgress(weights, progress, [&] {
    if (text)
      return weights.BuildWeightMatrixText(input.dataset, idField, output, info, ZOC::front::kReportProgress) != 0;
    if (!flagMatrix.empty())
      return weights.BuildWeightMatrixBinaryK(input.dataset, idField, output, flagMatrix, info,
                                              ZOC::front::kReportProgress) != 0;
    return weights.BuildWeightMatrixBinary(input.dataset, idField, output, info, ZOC::front::kReportProgress) != 0;
  });
  if (!ok) Fail(weights.GetStrErrorMes().Str());
}

void WeightsToTable(const std::string& weightsPath, const std::string& outPath, const std::string& outLayer,
                    bool overwrite, bool text, const py::object& progress) {
  ZOC::front::Output out(outPath, outLayer, overwrite, nullptr, {weightsPath});
  out.Create(nullptr, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys());
  ZOC::ZoWeightsUtilities weights;
  RunInto(out, weights, progress, [&] {
    return (text ? weights.TextConverToTable(out.dataset(), weightsPath, ZOC::front::kReportProgress)
                 : weights.BinaryConverToTable(out.dataset(), weightsPath, ZOC::front::kReportProgress)) != 0;
  });
}

// Weights made elsewhere (a PySAL W) written as a binary weights file by
// the library's own writer.
void WeightsFromRows(const std::string& path, const std::string& datasetName, const std::string& uniqueIdField,
                     const std::vector<std::int32_t>& ids, const std::vector<std::int32_t>& uniqueIds,
                     const std::vector<std::int32_t>& neighborIds, const std::vector<double>& weights,
                     bool standardize) {
  ZOC::ZoWeightsUtilities utilities;
  bool ok;
  {
    py::gil_scoped_release release;
    ok = utilities.BuildWeightMatrixFromRows(path, datasetName, uniqueIdField, ids, uniqueIds, neighborIds, weights,
                                             standardize ? 1 : 0) != 0;
  }
  if (!ok) Fail(utilities.GetStrErrorMes().Str());
}

// The library prints its dump on standard output; it is caught in an
// anonymous temporary file (gone when closed) and returned as text.
std::string WeightsDump(const std::string& weightsPath, bool text) {
  std::FILE* capture = std::tmpfile();
  if (!capture) Fail(ZOC::front::MessageText(ZOC::msg::EUp005, ""));
  std::fflush(stdout);
  const int saved = dup(fileno(stdout));
  if (saved < 0 || dup2(fileno(capture), fileno(stdout)) < 0) {
    if (saved >= 0) close(saved);
    std::fclose(capture);
    Fail(ZOC::front::MessageText(ZOC::msg::EUp005, ""));
  }
  ZOC::ZoWeightsUtilities weights;
  const bool ok = text ? weights.ReadWeightMatrixText(weightsPath) : weights.ReadWeightMatrixTextEx(weightsPath);
  std::fflush(stdout);
  dup2(saved, fileno(stdout));
  close(saved);
  std::string out;
  std::rewind(capture);
  char buffer[65536];
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, capture)) > 0;) out.append(buffer, got);
  std::fclose(capture);
  if (!ok) Fail(weights.GetStrErrorMes().Str());
  return out;
}

// The attribute columns of a layer ("QlID" first), for callers without
// GeoPandas: {name: [values]}, numbers as int or float, text as str, nulls None.
py::dict ReadAttributes(const std::string& path, const std::string& layer) {
  Input input = OpenInput(path, layer);
  const auto fields = input.dataset->GetFieldInfos();
  py::dict columns;
  std::vector<py::list> lists(fields.size());
  ZOC::ZoRecordsetPtr records(input.dataset->Query(ZOC::ZoQueryDef()));
  if (!records) Fail(ZOC::front::MessageText(ZOC::msg::EKa013, ""));
  LUMA::LumaVariant value;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    for (std::size_t f = 0; f < fields.size(); ++f) {
      records->GetFieldValue(fields[f].GetName(), value);
      switch (value.GetType()) {
        case LUMA::LumaVariant::Null: lists[f].append(py::none()); break;
        case LUMA::LumaVariant::Boolean: lists[f].append(py::bool_(value.GetBool())); break;
        case LUMA::LumaVariant::Integer: lists[f].append(py::int_(value.ToInt64())); break;
        case LUMA::LumaVariant::Double: lists[f].append(py::float_(value.ToDouble())); break;
        default: lists[f].append(py::str(value.ToString().Str()));
      }
    }
  }
  for (std::size_t f = 0; f < fields.size(); ++f) columns[py::str(fields[f].GetName().Str())] = lists[f];
  return columns;
}

void BindPatternsInformation(py::module_& m) {
  using Info = ZOC::ZoPatternsInformation;
  py::class_<Info>(m, "PatternsInformation")
      .def(py::init<>())
      .def_property(
          "field", [](const Info& i) { return i.FieldName.Str(); },
          [](Info& i, const std::string& v) { i.FieldName = v; })
      .def_property(
          "conceptualization", [](const Info& i) { return static_cast<int>(i.Conceptualization); },
          [](Info& i, int v) { i.Conceptualization = static_cast<ZOC::ZoConceptualizationModel>(v); })
      .def_readwrite("distance_band", &Info::DistanceTolerance)
      .def_readwrite("snap_tolerance", &Info::SnapTolerance)
      .def_readwrite("exponent", &Info::Exponent)
      .def_readwrite("k", &Info::KNeighbors)
      .def_readwrite("row_standardize", &Info::Standardization)
      .def_property(
          "self_weight_field", [](const Info& i) { return i.SecondFieldName.Str(); },
          [](Info& i, const std::string& v) { i.SecondFieldName = v; })
      .def_readwrite("fdr", &Info::FDRCorrection)
      .def_readwrite("memory_budget", &Info::WeightsMemoryBudget)
      .def_property(
          "weights_file", [](const Info& i) { return i.WeightsFilePath.Str(); },
          [](Info& i, const std::string& v) { i.WeightsFilePath = v; })
      .def_property(
          "distance_method", [](const Info& i) { return static_cast<int>(i.DistanceMethod); },
          [](Info& i, int v) { i.DistanceMethod = static_cast<ZOC::ZoDistanceMethod>(v); });
}

}  // namespace

PYBIND11_MODULE(_core, m) {
  m.doc() = "Compiled layer of statisticsanalyst; use the package's functions instead.";
  py::register_exception<ZOC::front::Failure>(m, "LibraryError", PyExc_RuntimeError);
  py::register_exception<ZOC::front::UsageError>(m, "UsageError", PyExc_ValueError);
  // The keyword arguments are checked by zostat's option checks, under the
  // options' names, so both front ends refuse a value with the same message.
  m.def("check_option", &ZOC::front::CheckDomain, py::arg("command"), py::arg("name"), py::arg("value"));
  m.def(
      "message",
      [](const std::string& id, const std::vector<std::string>& args, const std::string& detail) {
        std::string text = ZOC::ZoStringEx::LoadResString(id.c_str()).Str();
        for (std::size_t i = 0; i < args.size(); ++i) {
          const std::string mark = "%" + std::to_string(i + 1);
          for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + args[i].size()))
            text.replace(at, mark.size(), args[i]);
        }
        return detail.empty() ? text : text + " (" + detail + ")";
      },
      py::arg("id"), py::arg("args"), py::arg("detail"));
  // Outside a run, the host's default.
  ZOC::front::InstallProgressFactory([] { return std::make_unique<ZOC::ZoTerminalProgress>(); });
  BindPatternsInformation(m);
  BindPartitions(m);
  // The weights keywords, as zostat's options by their names, become the
  // library's record through the same conversion as zostat's.
  m.def("patterns_information", &ZOC::front::PatternsInformation, py::arg("options"));
  m.def(
      "distance_method",
      [](const std::string& value) { return static_cast<int>(ZOC::front::DistanceMethodNamed(value)); },
      py::arg("value"));
  m.def("check_weights_build", &ZOC::front::CheckWeightsBuild, py::arg("info"), py::arg("text"),
        py::arg("flag_matrix"));
  m.def(
      "moran",
      [](const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info,
         const py::object& progress) {
        return RunGlobal(path, layer, info, progress, &ZOC::ZoAnalyzingPatterns::SpatialAutocorrelation);
      },
      py::arg("path"), py::arg("layer"), py::arg("info"), py::arg("progress"));
  m.def(
      "general_g",
      [](const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info,
         const py::object& progress) {
        return RunGlobal(path, layer, info, progress, &ZOC::ZoAnalyzingPatterns::HighOrLowCluster);
      },
      py::arg("path"), py::arg("layer"), py::arg("info"), py::arg("progress"));
  m.def("ann", &Ann, py::arg("path"), py::arg("layer"), py::arg("area"), py::arg("distance_method"), py::arg("width"),
        py::arg("progress"));
  m.def(
      "hotspot",
      [](const std::string& path, const std::string& layer, const std::string& outPath, const std::string& outLayer,
         bool overwrite, const ZOC::ZoPatternsInformation& info, const py::object& progress) {
        RunLocal(path, layer, outPath, outLayer, overwrite, info, progress,
                 &ZOC::ZoClusteringDistributions::HotSpotAnalyst);
      },
      py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"), py::arg("overwrite"),
      py::arg("info"), py::arg("progress"));
  m.def(
      "cluster_outlier",
      [](const std::string& path, const std::string& layer, const std::string& outPath, const std::string& outLayer,
         bool overwrite, const ZOC::ZoPatternsInformation& info, const py::object& progress) {
        RunLocal(path, layer, outPath, outLayer, overwrite, info, progress,
                 &ZOC::ZoClusteringDistributions::ClusterOutlier);
      },
      py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"), py::arg("overwrite"),
      py::arg("info"), py::arg("progress"));
  m.def("optimized_hotspot", &OptimizedHotSpot, py::arg("path"), py::arg("layer"), py::arg("output"),
        py::arg("output_layer"), py::arg("overwrite"), py::arg("field"), py::arg("aggregation"), py::arg("cell_size"),
        py::arg("tolerance"), py::arg("polygons"), py::arg("polygons_layer"), py::arg("distance_method"),
        py::arg("permutation_test"), py::arg("progress"));
  m.def("density", &Density, py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("method"), py::arg("min_points"), py::arg("distance"), py::arg("xi"),
        py::arg("progress"));
  m.def("measuring_information", &MeasuringInformation, py::arg("weight_field"), py::arg("self_weight_field"),
        py::arg("case_field"), py::arg("stats"), py::arg("tolerance"), py::arg("ellipse_size"),
        py::arg("distance_method"), py::arg("orientation_only"));
  py::class_<ZOC::ZoMeasuringInformation>(m, "MeasuringInformation");
  const std::pair<const char*, std::pair<MeasureMethod, int>> measures[] = {
      {"mean_center", {&ZOC::ZoSpatialMeasure::MeasureMeanCenter, ZOC::DatasetPoint}},
      {"median_center", {&ZOC::ZoSpatialMeasure::MeasureMedianCenter, ZOC::DatasetPoint}},
      {"central_feature", {&ZOC::ZoSpatialMeasure::MeasureCentralElement, 0}},
      {"standard_distance", {&ZOC::ZoSpatialMeasure::MeasureStandardDistance, ZOC::DatasetRegion}},
      {"ellipse", {&ZOC::ZoSpatialMeasure::MeasureDirectionalDistribution, ZOC::DatasetRegion}},
      {"directional_mean", {&ZOC::ZoSpatialMeasure::MeasureLinearDirectionalMean, ZOC::DatasetLine}}};
  for (const auto& [name, spec] : measures) {
    const auto [method, type] = spec;
    m.def(
        name,
        [method, type](const std::string& path, const std::string& layer, const std::string& outPath,
                       const std::string& outLayer, bool overwrite, const ZOC::ZoMeasuringInformation& info,
                       const py::object& progress) {
          Measure(path, layer, outPath, outLayer, overwrite, info, type, progress, method);
        },
        py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"), py::arg("overwrite"),
        py::arg("info"), py::arg("progress"));
  }
  m.def("ols", &Ols, py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("dependent"), py::arg("explanatory"), py::arg("residual_moran"),
        py::arg("weights"), py::arg("progress"));
  m.def("gwr", &Gwr, py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("dependent"), py::arg("explanatory"), py::arg("kernel"),
        py::arg("bandwidth_type"), py::arg("bandwidth"), py::arg("distance_method"), py::arg("progress"));
  m.def("incremental", &Incremental, py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("field"), py::arg("begin_distance"), py::arg("increment"), py::arg("bands"),
        py::arg("row_standardize"), py::arg("distance_method"), py::arg("progress"));
  // The detectors by their names, refused as zostat's --detectors refuses them.
  m.def("detector_set", &ZOC::front::DetectorsNamed, py::arg("names"));
  m.def("geodetector", &GeoDetector, py::arg("path"), py::arg("layer"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("dependent"), py::arg("factors"), py::arg("categorical"), py::arg("discretize"),
        py::arg("classes"), py::arg("alpha"), py::arg("detectors"), py::arg("progress"));
  m.def("geodetector_columns", &GeoDetectorColumns);
  m.def("weights_build", &WeightsBuild, py::arg("path"), py::arg("layer"), py::arg("id_field"), py::arg("output"),
        py::arg("info"), py::arg("text"), py::arg("flag_matrix"), py::arg("progress"));
  m.def("weights_to_table", &WeightsToTable, py::arg("weights"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("text"), py::arg("progress"));
  m.def("weights_from_rows", &WeightsFromRows, py::arg("path"), py::arg("dataset_name"), py::arg("unique_id_field"),
        py::arg("ids"), py::arg("unique_ids"), py::arg("neighbor_ids"), py::arg("weights"), py::arg("standardize"));
  m.def("weights_dump", &WeightsDump, py::arg("weights"), py::arg("text"));
  m.def("read_attributes", &ReadAttributes, py::arg("path"), py::arg("layer"));
  m.def("layer_names", [](const std::string& path) {
    Input input = OpenInput(path, "");
    std::vector<std::string> names;
    for (int i = 0; i < input.source->GetDatasetCount(); ++i)
      names.push_back(input.source->GetDataset(i)->GetName().Str());
    return names;
  });
}
