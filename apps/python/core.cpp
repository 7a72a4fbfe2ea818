// _core: the thin compiled layer of the statisticsanalyst Python package. It
// opens datasets by path, runs one library call with a progress object that
// reports to Python and polls Python's signals, and hands back plain values.
// Everything Pythonic (result objects, GeoDataFrames, plots) lives in the
// package's Python code.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <unistd.h>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "host/ZoDataSource.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace py = pybind11;

namespace {

// A library failure: the accumulated message text, "[ID] ..." lines.
struct LibraryError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

[[noreturn]] void Fail(const std::string& text) { throw LibraryError(text); }

std::string Text(const char* id, const std::string& detail = "") {
  std::string text = ZOC::ZoStringEx::LoadResString(id).Str();
  return detail.empty() ? text : text + " (" + detail + ")";
}

// A progress text without its leading "[IMb336] ".
std::string WithoutId(const std::string& text) {
  const auto close = text.find("] ");
  return !text.empty() && text[0] == '[' && close != std::string::npos && close <= 8 ? text.substr(close + 2) : text;
}

// Reports to a Python callable(percent, title, message) on every new title
// and every whole percent, and polls Python's signals at most every 20 ms, so
// Ctrl-C cancels the run. The analysis runs without the GIL; the callback
// takes it.
class PythonProgress : public ZOC::ZoProgressBase {
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
  bool PollCancel() override { return !Report(State()); }

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

// The analysis classes make their own progress objects through the host's
// factory; while a call runs on this thread they forward to its Python
// progress. The factory is installed once, when the module loads.
thread_local PythonProgress* t_current = nullptr;

class Forwarder : public ZOC::ZoProgress {
 public:
  explicit Forwarder(ZOC::ZoProgress* target) : m_target(target) {}
  void SetBothPosRange(int low, int high) override { m_target->SetBothPosRange(low, high); }
  void SetTitleMessage(const LUMA::LumaUnicodeString& title) override { m_target->SetTitleMessage(title); }
  void SetMessage(const LUMA::LumaUnicodeString& message) override { m_target->SetMessage(message); }
  void SetProgressPos(int pos) override { m_target->SetProgressPos(pos); }
  bool IsCanceled() override { return m_target->IsCanceled(); }

 private:
  ZOC::ZoProgress* m_target;
};

void InstallProgressFactory() {
  ZOC::ZoProgress::SetFactory([]() -> std::unique_ptr<ZOC::ZoProgress> {
    if (t_current) return std::make_unique<Forwarder>(t_current);
    return std::make_unique<ZOC::ZoTerminalProgress>();
  });
}

// Runs one library call without the GIL under a Python progress object.
template <class Call>
bool RunWithProgress(ZOC::ZoAnalysisFrame& analysis, const py::object& callback, Call&& call) {
  PythonProgress progress(callback);
  struct Attach {  // detached on every exit
    ZOC::ZoAnalysisFrame& analysis;
    Attach(ZOC::ZoAnalysisFrame& a, PythonProgress* p) : analysis(a) { analysis.SetProgress(p), t_current = p; }
    ~Attach() { analysis.SetProgress(nullptr), t_current = nullptr; }
  };
  bool ok;
  {
    Attach attach(analysis, &progress);
    py::gil_scoped_release release;
    ok = call();
  }
  progress.RaisePending();
  if (ok) progress.Finish();
  return ok;
}

// An input layer by path, and by name or the first layer.
struct Input {
  std::unique_ptr<ZOC::ZoDataSource> source;
  ZOC::ZoDatasetVector* dataset = nullptr;
};

Input OpenInput(const std::string& path, const std::string& layer) {
  Input input;
  LUMA::LumaUnicodeString error;
  input.source = ZOC::ZoDataSource::Open(path, false, &error);
  if (!input.source) Fail(Text(ZOC::msg::EUp001, path + ": " + error.Str()));
  input.dataset = layer.empty() ? (input.source->GetDatasetCount() > 0 ? input.source->GetDataset(0) : nullptr)
                                : input.source->GetDataset(layer);
  if (!input.dataset) Fail(Text(ZOC::msg::EUp002, path + (layer.empty() ? "" : ", layer " + layer)));
  return input;
}

// A new result layer; removed again (with its datasource when this object
// created it) unless Keep() is called.
class Output {
 public:
  Output(const std::string& path, const std::string& layer, int type, const ZOC::ZoPrjCoordSys& cs, bool overwrite)
      : m_path(path), m_layer(layer) {
    std::error_code ec;
    m_existed = std::filesystem::exists(path, ec);
    LUMA::LumaUnicodeString error;
    m_source = ZOC::ZoDataSource::OpenOrCreate(path, &error);
    if (!m_source) Fail(Text(ZOC::msg::EUp003, path + ": " + error.Str()));
    if (m_source->GetDataset(layer) && !overwrite) {
      Discard();
      Fail(Text(ZOC::msg::EUp004, path + ", layer " + layer));
    }
    m_dataset = m_source->CreateDatasetVector(layer, type, cs, overwrite, &error);
    if (!m_dataset) {
      Discard();
      Fail(Text(ZOC::msg::EUp003, path + ", layer " + layer + ": " + error.Str()));
    }
  }
  ~Output() {
    if (!m_keep) Discard();
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ZOC::ZoDatasetVector* dataset() const { return m_dataset; }
  void Keep() {
    m_keep = true;
    m_source.reset();  // commits and closes before Python reads the file
  }

 private:
  void Discard() {
    if (!m_source) return;
    if (m_dataset) m_source->DeleteDataset(m_layer);
    m_dataset = nullptr;
    m_source.reset();
    std::error_code ec;
    if (!m_existed) std::filesystem::remove(m_path, ec);
  }
  std::string m_path, m_layer;
  bool m_existed = false, m_keep = false;
  std::unique_ptr<ZOC::ZoDataSource> m_source;
  ZOC::ZoDatasetVector* m_dataset = nullptr;
};

using Exponent = ZOC::ZoAnalyzingPatterns::ZoAnalyzingExponent;
using ExponentTuple = std::tuple<double, double, double, double, double>;

ExponentTuple AsTuple(const Exponent& r) { return {r.Index, r.ExpectedIndex, r.Variance, r.ZScore, r.PValue}; }

template <class Method>
ExponentTuple RunGlobal(const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info,
                        const py::object& progress, Method method) {
  Input input = OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  Exponent r;
  if (!RunWithProgress(patterns, progress, [&] { return (patterns.*method)(input.dataset, info, r, true) != 0; }))
    Fail(patterns.GetStrErrorMes().Str());
  return AsTuple(r);
}

ExponentTuple Ann(const std::string& path, const std::string& layer, double area, int method,
                  std::optional<double> width, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  Exponent r;
  const ZOC::ZoDistanceMethod m = static_cast<ZOC::ZoDistanceMethod>(method);
  if (!RunWithProgress(patterns, progress, [&] {
        return patterns.AverageNearestNeighbor(input.dataset, area, m, r, !width.has_value(), width.value_or(0.0),
                                               true) != 0;
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
  Output out(outPath, outLayer, input.dataset->GetType(), input.dataset->GetPrjCoordSys(), overwrite);
  ZOC::ZoClusteringDistributions clustering;
  if (!RunWithProgress(clustering, progress,
                       [&] { return (clustering.*method)(input.dataset, out.dataset(), info, true) != 0; }))
    Fail(clustering.GetStrErrorMes().Str());
  out.Keep();
}

void WeightsBuild(const std::string& path, const std::string& layer, const std::string& idField,
                  const std::string& output, const ZOC::ZoPatternsInformation& info, bool text,
                  const std::string& flagMatrix, const py::object& progress) {
  Input input = OpenInput(path, layer);
  ZOC::ZoWeightsUtilities weights;
  const bool ok = RunWithProgress(weights, progress, [&] {
    if (text) return weights.BuildWeightMatrixText(input.dataset, idField, output, info, true) != 0;
    if (!flagMatrix.empty())
      return weights.BuildWeightMatrixBinaryK(input.dataset, idField, output, flagMatrix, info, true) != 0;
    return weights.BuildWeightMatrixBinary(input.dataset, idField, output, info, true) != 0;
  });
  if (!ok) Fail(weights.GetStrErrorMes().Str());
}

void WeightsToTable(const std::string& weightsPath, const std::string& outPath, const std::string& outLayer,
                    bool overwrite, bool text, const py::object& progress) {
  Output out(outPath, outLayer, ZOC::DatasetTabular, ZOC::ZoPrjCoordSys(), overwrite);
  ZOC::ZoWeightsUtilities weights;
  if (!RunWithProgress(weights, progress, [&] {
        return (text ? weights.TextConverToTable(out.dataset(), weightsPath, true)
                     : weights.BinaryConverToTable(out.dataset(), weightsPath, true)) != 0;
      }))
    Fail(weights.GetStrErrorMes().Str());
  out.Keep();
}

// The library prints its dump on standard output; it is caught in an
// anonymous temporary file (gone when closed) and returned as text.
std::string WeightsDump(const std::string& weightsPath, bool text) {
  std::FILE* capture = std::tmpfile();
  if (!capture) Fail(Text(ZOC::msg::EUp005));
  std::fflush(stdout);
  const int saved = dup(fileno(stdout));
  if (saved < 0 || dup2(fileno(capture), fileno(stdout)) < 0) {
    if (saved >= 0) close(saved);
    std::fclose(capture);
    Fail(Text(ZOC::msg::EUp005));
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
  if (!records) Fail(Text(ZOC::msg::EKa013));
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
          "field", [](const Info& i) { return i.FieldName.Str(); }, [](Info& i, const std::string& v) { i.FieldName = v; })
      .def_property(
          "conceptualization", [](const Info& i) { return static_cast<int>(i.Conceptualization); },
          [](Info& i, int v) { i.Conceptualization = static_cast<ZOC::ZoConceptualizationModel>(v); })
      .def_readwrite("distance_band", &Info::DistanceTolerance)
      .def_readwrite("exponent", &Info::Exponent)
      .def_readwrite("k", &Info::KNeighbors)
      .def_readwrite("row_standardize", &Info::Standardization)
      .def_property(
          "self_weight_field", [](const Info& i) { return i.SecondFieldName.Str(); },
          [](Info& i, const std::string& v) { i.SecondFieldName = v; })
      .def_readwrite("fdr", &Info::FDRCorrection)
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
  py::register_exception<LibraryError>(m, "LibraryError", PyExc_RuntimeError);
  InstallProgressFactory();
  BindPatternsInformation(m);
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
  m.def("ann", &Ann, py::arg("path"), py::arg("layer"), py::arg("area"), py::arg("distance_method"),
        py::arg("width"), py::arg("progress"));
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
  m.def("weights_build", &WeightsBuild, py::arg("path"), py::arg("layer"), py::arg("id_field"), py::arg("output"),
        py::arg("info"), py::arg("text"), py::arg("flag_matrix"), py::arg("progress"));
  m.def("weights_to_table", &WeightsToTable, py::arg("weights"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"), py::arg("text"), py::arg("progress"));
  m.def("weights_dump", &WeightsDump, py::arg("weights"), py::arg("text"));
  m.def("read_attributes", &ReadAttributes, py::arg("path"), py::arg("layer"));
  m.def("layer_names", [](const std::string& path) {
    Input input = OpenInput(path, "");
    std::vector<std::string> names;
    for (int i = 0; i < input.source->GetDatasetCount(); ++i) names.push_back(input.source->GetDataset(i)->GetName().Str());
    return names;
  });
}
