// The compiled side of statisticsanalyst.distributed: the library's
// partition calls (ZoPartitionInformation.h) for one part of a dataset,
// each opening the part's file as the other analyses open theirs. Python
// cuts the parts, moves the numbers between them and merges the results.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoClusteringDistributions.h"
#include "StatisticsAnalyst/ZoPartitionInformation.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "common/Errors.h"
#include "common/Input.h"
#include "common/Output.h"
#include "host/LumaFieldInfo.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace py = pybind11;

namespace {

using Box = std::array<double, 4>;  // min x, min y, max x, max y

template <class T>
py::array_t<T> ToNumpy(const std::vector<T>& values) {
  return py::array_t<T>(static_cast<py::ssize_t>(values.size()), values.data());
}

template <class T>
std::vector<T> FromNumpy(const py::array_t<T, py::array::c_style | py::array::forcecast>& values) {
  return std::vector<T>(values.data(), values.data() + values.size());
}

using Ids = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>;
using Doubles = py::array_t<double, py::array::c_style | py::array::forcecast>;
using Levels = py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>;

// `info` for the part with own box `box`, cut from `halo`, of a dataset of
// `count` features with these exact sums and extent (and, for the false
// discovery rate, the whole dataset's levels of the part's candidates).
ZOC::ZoPatternsInformation WithPartition(ZOC::ZoPatternsInformation info, const Box& box, const Box& halo,
                                         std::int64_t count, const std::array<double, 4>& sums, const Box& extent,
                                         const std::optional<std::tuple<Ids, Levels, double>>& fdr) {
  ZOC::ZoPartition& p = info.Partition;
  p.Active = true;
  p.MinX = box[0], p.MinY = box[1], p.MaxX = box[2], p.MaxY = box[3];
  p.HaloMinX = halo[0], p.HaloMinY = halo[1], p.HaloMaxX = halo[2], p.HaloMaxY = halo[3];
  p.Count = count;
  p.Sum = sums[0], p.SumSquares = sums[1], p.Deviation2 = sums[2], p.Deviation4 = sums[3];
  p.ExtentMinX = extent[0], p.ExtentMinY = extent[1], p.ExtentMaxX = extent[2], p.ExtentMaxY = extent[3];
  if (fdr) {
    for (auto id : FromNumpy(std::get<0>(*fdr))) p.FdrIds.push_back(id);
    for (auto level : FromNumpy(std::get<1>(*fdr))) p.FdrLevels.push_back(level);
    p.FdrMean = std::get<2>(*fdr);
  }
  return info;
}

// Runs a library call without the GIL; its messages on failure.
template <class Call>
void Run(ZOC::ZoAnalysisFrame& analysis, Call call) {
  bool ok;
  {
    py::gil_scoped_release release;
    ok = call();
  }
  if (!ok) throw ZOC::front::Failure(analysis.GetStrErrorMes().Str());
}

py::dict Scan(const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info, double centre,
              bool reach) {
  ZOC::front::InputLayer input = ZOC::front::OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoPartitionScan scan;
  Run(patterns, [&] { return patterns.PartitionScan(input.dataset, info, centre, reach, scan); });
  py::dict d;
  d["features"] = scan.Features;
  d["sum"] = std::vector<double>(scan.Sum.begin(), scan.Sum.end());
  d["squares"] = std::vector<double>(scan.Squares.begin(), scan.Squares.end());
  d["fourth"] = std::vector<double>(scan.Fourth.begin(), scan.Fourth.end());
  d["reach"] = scan.Reach;
  d["default_band"] = scan.DefaultBand;
  d["uncertain"] = scan.Uncertain;
  d["extent"] = Box{scan.MinX, scan.MinY, scan.MaxX, scan.MaxY};
  return d;
}

py::tuple Edges(const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info,
                bool generalG) {
  ZOC::front::InputLayer input = ZOC::front::OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoPartitionEdges e;
  Run(patterns, [&] { return patterns.PartitionEdges(input.dataset, info, generalG, e); });
  return py::make_tuple(ToNumpy<std::int64_t>(e.From), ToNumpy<std::int64_t>(e.To), ToNumpy<double>(e.Weight),
                        ToNumpy<double>(e.ToX), ToNumpy<double>(e.ToY));
}

// A part's candidates for the false discovery rate: (ids, p-values, the
// expansion of the finite statistics' sum, their count).
py::tuple Tests(const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info,
                bool clusterOutlier) {
  ZOC::front::InputLayer input = ZOC::front::OpenInput(path, layer);
  ZOC::ZoClusteringDistributions local;
  ZOC::ZoPartitionTests tests;
  Run(local, [&] { return local.PartitionTests(input.dataset, info, clusterOutlier, tests); });
  return py::make_tuple(ToNumpy<std::int64_t>(tests.Ids), ToNumpy<double>(tests.PValues),
                        std::vector<double>(tests.Sum.begin(), tests.Sum.end()), tests.Finite);
}

// Every part's candidates into the whole dataset's levels: (ids, levels, mean).
std::tuple<py::array_t<std::int64_t>, py::array_t<std::int32_t>, double> Fdr(const Ids& ids, const Doubles& p,
                                                                             const std::vector<double>& sum,
                                                                             std::int64_t finite, std::int64_t count) {
  ZOC::ZoPartitionTests all;
  for (auto id : FromNumpy(ids)) all.Ids.push_back(id);
  for (auto v : FromNumpy(p)) all.PValues.push_back(v);
  all.Sum.assign(sum.begin(), sum.end());
  all.Finite = finite;
  ZOC::ZoPartition whole;
  if (!ZOC::ZoClusteringDistributions::PartitionFdr(all, count, whole))
    throw ZOC::front::Failure(ZOC::ZoStringEx::LoadResString(ZOC::msg::ESa111).Str());
  return {ToNumpy<std::int64_t>(whole.FdrIds), ToNumpy<std::int32_t>(whole.FdrLevels), whole.FdrMean};
}

// A part's shares, each an expansion (see ZoPartitionSums), in the order
// S0, S1, S2, cross, pairs, M1..M4.
using Sums = std::vector<std::vector<double>>;

std::array<LUMA::LumaArray<double>*, 9> Slots(ZOC::ZoPartitionSums& s) {
  return {&s.S0, &s.S1, &s.S2, &s.Cross, &s.Pairs, &s.M1, &s.M2, &s.M3, &s.M4};
}

Sums PartSums(const std::string& path, const std::string& layer, const ZOC::ZoPatternsInformation& info, bool generalG,
              const py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>& from,
              const py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>& to,
              const py::array_t<double, py::array::c_style | py::array::forcecast>& weight) {
  ZOC::front::InputLayer input = ZOC::front::OpenInput(path, layer);
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoPartitionEdges incoming;
  for (auto v : FromNumpy(from)) incoming.From.push_back(v);
  for (auto v : FromNumpy(to)) incoming.To.push_back(v);
  for (auto v : FromNumpy(weight)) incoming.Weight.push_back(v);
  ZOC::ZoPartitionSums sums;
  Run(patterns, [&] { return patterns.PartitionSums(input.dataset, info, generalG, incoming, sums); });
  Sums out;
  for (const auto* slot : Slots(sums)) out.emplace_back(slot->begin(), slot->end());
  return out;
}

// The statistic from the summed shares: (I or G, expected, variance, z, p),
// or an error naming why it is undefined.
std::array<double, 5> FromSums(const Sums& total, const ZOC::ZoPatternsInformation& info, bool generalG) {
  ZOC::ZoAnalyzingPatterns::ZoAnalyzingExponent r;
  ZOC::ZoPartitionSums sums;
  const auto slots = Slots(sums);
  for (std::size_t k = 0; k < total.size() && k < slots.size(); ++k) slots[k]->assign(total[k].begin(), total[k].end());
  const bool ok = generalG ? ZOC::ZoAnalyzingPatterns::GeneralGFromSums(sums, info.Partition, r)
                           : ZOC::ZoAnalyzingPatterns::MoranFromSums(sums, info.Partition, r);
  if (!ok)
    throw ZOC::front::Failure(ZOC::ZoStringEx::LoadResString(generalG ? ZOC::msg::ESa035 : ZOC::msg::ESa041).Str());
  return {r.Index, r.ExpectedIndex, r.Variance, r.ZScore, r.PValue};
}

// Refuses an output the merge could not write (before any work is done).
void CheckOutput(const std::string& output, const std::string& outLayer, bool overwrite, const std::string& input) {
  ZOC::front::InputLayer source = ZOC::front::OpenInput(input, "");
  ZOC::front::Output out(output, outLayer, overwrite, &source, {});
}

// The parts' result layers into one result layer of `output`, each record
// under its source feature id, through the writer every analysis uses (the
// output replaced only once whole, its spatial index built at the end).
void MergeParts(const std::vector<std::string>& parts, const std::string& layer, const std::string& output,
                const std::string& outLayer, bool overwrite) {
  if (parts.empty()) throw ZOC::front::Failure(ZOC::ZoStringEx::LoadResString(ZOC::msg::ESa111).Str());
  std::vector<ZOC::front::InputLayer> inputs;
  for (const std::string& part : parts) inputs.push_back(ZOC::front::OpenInput(part, layer));
  ZOC::ZoDatasetVector* first = inputs.front().dataset;
  ZOC::front::Output out(output, outLayer, overwrite, nullptr, {});
  ZOC::ZoDatasetVector* result = out.Create(first, first->GetType(), first->GetPrjCoordSys());
  std::vector<std::pair<LUMA::LumaUnicodeString, LUMA::LumaUnicodeString>> fields;
  for (const LUMA::LumaFieldInfo& field : first->GetFieldInfos()) {
    if (field.IsSystemField()) continue;
    if (!result->CreateField(field)) throw ZOC::front::Failure(out.error());
    fields.emplace_back(field.GetName(), field.GetName());
  }
  result->KeepSourceIds(true);
  bool ok = true;
  {
    py::gil_scoped_release release;
    for (ZOC::front::InputLayer& part : inputs) {
      ZOC::ZoRecordsetPtr records(part.dataset->Query({}));
      ok = ok && records && result->AppendRecords(records.get(), fields, nullptr);
    }
    ok = ok && result->Commit() && out.TryCommit(nullptr);
  }
  if (!ok)
    throw ZOC::front::Failure(out.error().empty() ? ZOC::ZoStringEx::LoadResString(ZOC::msg::ELc071).Str()
                                                  : out.error());
}

}  // namespace

void BindPartitions(py::module_& m) {
  m.def("with_partition", &WithPartition, py::arg("info"), py::arg("box"), py::arg("halo"), py::arg("count"),
        py::arg("sums"), py::arg("extent"), py::arg("fdr") = py::none());
  m.def("partition_tests", &Tests, py::arg("path"), py::arg("layer"), py::arg("info"), py::arg("cluster_outlier"));
  m.def("partition_fdr", &Fdr, py::arg("ids"), py::arg("p_values"), py::arg("sum"), py::arg("finite"),
        py::arg("count"));
  m.def("partition_scan", &Scan, py::arg("path"), py::arg("layer"), py::arg("info"), py::arg("centre"),
        py::arg("reach"));
  m.def("partition_edges", &Edges, py::arg("path"), py::arg("layer"), py::arg("info"), py::arg("general_g"));
  m.def("partition_sums", &PartSums, py::arg("path"), py::arg("layer"), py::arg("info"), py::arg("general_g"),
        py::arg("edges_from"), py::arg("edges_to"), py::arg("edges_weight"));
  m.def("from_sums", &FromSums, py::arg("total"), py::arg("info"), py::arg("general_g"));
  m.def("check_output", &CheckOutput, py::arg("output"), py::arg("output_layer"), py::arg("overwrite"),
        py::arg("input"));
  m.def("merge_parts", &MergeParts, py::arg("parts"), py::arg("layer"), py::arg("output"), py::arg("output_layer"),
        py::arg("overwrite"));
}
