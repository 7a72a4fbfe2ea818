#include "StatisticsAnalyst/detail/local/LocalPipeline.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/common/FeatureData.h"
#include "StatisticsAnalyst/detail/common/Limits.h"
#include "StatisticsAnalyst/detail/common/RowsAhead.h"
#include "StatisticsAnalyst/detail/local/Classification.h"
#include "StatisticsAnalyst/detail/partition/Part.h"
#include "StatisticsAnalyst/detail/weights/AnalysisWeightsFile.h"
#include "StatisticsAnalyst/detail/weights/WeightRows.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::local {

void LocalStatistic::StartSimulations(std::size_t n) {
  m_pseudo.assign(m_permutations > 0 ? n : 0, std::numeric_limits<double>::quiet_NaN());
  m_randomization.reset();
  if (m_permutations > 0)
    m_randomization = std::make_unique<permutation::ConditionalRandomization>(
        DrawnValues().data(), static_cast<std::int64_t>(n), m_permutations, m_seed);
}

void LocalStatistic::Simulate(std::int64_t i, const SparseRow& row,
                              permutation::ConditionalRandomization::Scratch& scratch) {
  if (!m_randomization) return;
  permutation::Simulated simulated;
  if (!m_randomization->Simulate(i, row, scratch, simulated)) return;  // no neighbour: no pseudo p-value
  const auto k = static_cast<std::size_t>(i);
  m_pseudo[k] = Unchanging(k) ? 1.0 : permutation::FoldedPseudoP(simulated, m_permutations);
}

const LumaArray<double>& LocalStatistic::Significance(const LumaArray<double>& analytic) {
  if (m_permutations <= 0) return analytic;
  m_significance.resize(m_pseudo.size());
  for (std::size_t i = 0; i < m_pseudo.size(); ++i) m_significance[i] = std::isnan(m_pseudo[i]) ? 1.0 : m_pseudo[i];
  return m_significance;
}

bool LocalStatistic::BinsOf(const LumaArray<double>& statistic, const LumaArray<double>& p, bool falseDiscoveryRate,
                            LumaArray<int>& bins) const {
  if (!falseDiscoveryRate) return Confidence(statistic, p, bins);
  if (m_fdrLevels.empty()) return FdrAdjusted(statistic, p, bins);
  if (m_fdrLevels.size() != statistic.size()) return false;
  bins.assign(statistic.size(), 0);
  for (std::size_t i = 0; i < statistic.size(); ++i) {
    const int level = m_fdrLevels[i];
    bins[i] = !std::isfinite(statistic[i]) ? 0 : m_fdrMean > statistic[i] ? -level : level;
  }
  return true;
}

void LocalStatistic::AddPseudoField(LUMA::LumaFieldInfos& fields, const char* name) const {
  if (m_permutations > 0) fields.push_back(LUMA::LumaFieldInfo(name, LUMA::FieldDouble));
}

void LocalStatistic::PseudoValue(std::size_t i, LUMA::LumaVariant& value) const {
  value = std::isnan(m_pseudo[i]) ? LUMA::LumaVariant() : LUMA::LumaVariant(m_pseudo[i]);
}

namespace {

// A copy of a source field for the result; system fields get a fixed name.
LUMA::LumaFieldInfo CopyOf(ZoDatasetVector* source, const LumaUnicodeString& name, const char* systemName) {
  LUMA::LumaFieldInfo field;
  source->GetFieldInfo(name, field);
  if (field.IsSystemField()) {
    field.SetName(systemName);
    field.SetCaption(systemName);
    field.SetSystemField(false);
  }
  return field;
}

// The result's fields: the copied source fields first, then the statistic's.
struct ResultFields {
  LUMA::LumaFieldInfos fields;
  std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>> copied;  // source name -> result name
  std::vector<LumaUnicodeString> own;

  void Copy(ZoDatasetVector* source, const LumaUnicodeString& name, const char* systemName) {
    if (name.IsEmpty()) return;
    fields.push_back(CopyOf(source, name, systemName));
    copied.push_back({name, fields.back().GetName()});
  }
};

// The weights rows in feature order: compressed sparse rows in memory within
// the budget, else a weights file (the caller's, or one built here).
class Rows {
 public:
  Status Open(ZoRecordset* records, const ZoPatternsInformation& info, bool standardizes, ZoProgress* progress,
              weights::WeightRows::GivenPoints* given) {
    ZoDatasetVector* source = records->GetDataset();
    const bool callers = info.Conceptualization == SpatialWeightsFile;
    // The rows are raw; they are divided by their row sums when the
    // statistic standardizes and the caller asks. Weights built here stay in
    // memory when they fit the caller's budget, else go through a file.
    const bool normalize = standardizes && info.Standardization;
    if (!callers) {
      if (Status s = m_file.BuildInMemory(records, info, progress, normalize, false, given); !s || m_file.InMemory()) {
        // Up to 10000 features, weights without a single neighbour are a failure of their own.
        if (s && m_file.NoWeights() && records->GetRecordCount() <= limits::kInMemoryFeatures)
          return Status::Fail(msg::ESa023);
        return s;
      }
      if (Status s = m_file.BuildTemporary(source, info, progress); !s) return s;
    }
    Status opened = m_file.Open(source, callers ? info.WeightsFilePath : m_file.TemporaryPath(), normalize, false);
    return opened.Then(msg::ESa046);
  }

  Status Next(std::int64_t i, SparseRow& row) { return m_file.Next(i, row); }

  void Close() { m_file.Close(); }
  // The rows when they are held in memory as compressed sparse rows.
  const weights::CsrWeights* Memory() const { return m_file.Memory(); }

 private:
  weights::WeightRows m_file;
};

// A named weights file orders the features by its unique-ID field: the
// records are queried again in that order, and the field is copied too.
Status OrderByWeightsFile(ZoDatasetVector* source, const ZoPatternsInformation& info, LumaUnicodeString& uniqueField,
                          ZoRecordsetPtr& ordered) {
  weights::AnalysisWeightsFile file;
  if (!weights::OpenForAnalysis(source, info.WeightsFilePath, file)) return Status::Fail(msg::ESa046);
  uniqueField = file.uniqueIdField;
  return QueryOrderedBy(source, uniqueField, ordered);
}

Status CreateFields(ZoDatasetVector* source, ZoDatasetVector* result, const ZoPatternsInformation& info,
                    const LumaUnicodeString& uniqueField, const LocalStatistic& statistic, ResultFields& out) {
  out.Copy(source, uniqueField, "UniqueID");
  out.Copy(source, info.FieldName, "Assessment");
  out.Copy(source, statistic.ExtraField(), statistic.ExtraFieldCopyName());
  const std::size_t firstOwn = out.fields.size();
  statistic.AddFields(out.fields);
  for (std::size_t f = firstOwn; f < out.fields.size(); ++f) out.own.push_back(out.fields[f].GetName());
  if (!ZoEngineToolkit::CreateValidFields(result, out.fields)) return Status::Fail(msg::ELc071);
  if (!result->GetPrjCoordSys().IsSame(source->GetPrjCoordSys())) result->SetPrjCoordSys(source->GetPrjCoordSys());
  return Status::Ok();
}

// Values, the extra field and, when the weights are built from points, the
// points: all from one pass. `divisor`: the power of two the values were
// divided by.
Status ReadInputs(ZoRecordset* records, const ZoPatternsInformation& info, const LocalStatistic& statistic,
                  LumaArray<double>& values, LumaArray<double>& extra, weights::WeightRows::GivenPoints* given,
                  double& divisor) {
  Status noPoints;
  Status status = ReadFeatures(records, info.FieldName, false, values, statistic.ExtraField(), extra,
                               given ? &given->points : nullptr, given ? given->status : noPoints);
  if (status) divisor = ScaleToUnitRange(values);
  return status;
}

// In a part of a larger dataset, which features are the part's own: told by
// the points the weights are built from, or read for the purpose.
Status OwnFeatures(ZoRecordset* records, const ZoPatternsInformation& info,
                   const weights::WeightRows::GivenPoints* given, std::vector<char>& own) {
  own.clear();
  if (!info.Partition.Active) return Status::Ok();
  if (given && given->status) {
    own = partition::OwnFlags(info.Partition, given->points);
    return Status::Ok();
  }
  LumaArray<LumaPoint2D> points;
  if (Status status = ReadFeaturePoints(records, points); !status) return status;
  own = partition::OwnFlags(info.Partition, points);
  return Status::Ok();
}

// Features [first, last) on every core, feature i's row from
// `fetch(i, buffer)`: its statistic, then its simulations. A failure
// reports the first failing feature, as a sequential loop would.
template <class Fetch>
Status ComputeRange(std::int64_t first, std::int64_t last, const Fetch& fetch, LocalStatistic& statistic) {
  std::int64_t failedAt = last;
  Status failure;
  bool outOfMemory = false;          // an exception must not leave the parallel region
  constexpr std::int64_t kRun = 64;  // features a thread takes at a time
  const std::int64_t runs = (last - first + kRun - 1) / kRun;
#pragma omp parallel
  {
    RowsAhead rows(statistic.Gathered());
    permutation::ConditionalRandomization::Scratch scratch;
#pragma omp for schedule(dynamic)
    for (std::int64_t r = 0; r < runs; ++r) {
      try {
        rows.Run(first + r * kRun, std::min(last, first + (r + 1) * kRun), fetch,
                 [&](std::int64_t i, const SparseRow& row) {
                   if (!statistic.Own(i)) return;
                   Status status = statistic.Row(i, row);
                   if (status) {
                     statistic.Simulate(i, row, scratch);
                     return;
                   }
#pragma omp critical(local_row_failure)
                   if (i < failedAt) failedAt = i, failure = std::move(status);
                 });
      } catch (...) {
#pragma omp atomic write
        outOfMemory = true;
      }
    }
  }
  if (outOfMemory) throw std::bad_alloc();
  return failedAt < last ? failure : Status::Ok();
}

// Rows in memory are taken a chunk at a time between progress steps; rows of
// a file are read in order, a batch at a time, and each batch computed on
// every core. Simulations make a feature a thousand times dearer, so the
// chunks shrink to keep progress and cancelling prompt.
Status ComputeRows(Rows& rows, std::int64_t n, detail::CallProgress& progress, LocalStatistic& statistic) {
  const LumaUnicodeString format = ZoStringEx::LoadResString(statistic.Format());
  const std::int64_t chunk = statistic.Permutations() > 0 ? 1024 : 1 << 16;
  statistic.StartSimulations(static_cast<std::size_t>(n));
  const weights::CsrWeights* csr = rows.Memory();
  std::vector<SparseRow> batch(csr ? 0 : static_cast<std::size_t>(std::min(n, chunk)));
  for (std::int64_t first = 0; first < n; first += chunk) {
    const std::int64_t last = std::min(n, first + chunk);
    Status status;
    if (csr) {
      if (!progress.Step(format, first, n)) return Status::Fail(msg::IMb030);
      status = ComputeRange(
          first, last,
          [csr](std::int64_t i, SparseRow& buffer) -> const SparseRow& {
            csr->Row(i, buffer);
            return buffer;
          },
          statistic);
    } else {
      auto fromBatch = [&](std::int64_t i, SparseRow&) -> const SparseRow& {
        return batch[static_cast<std::size_t>(i - first)];
      };
      for (std::int64_t i = first; i < last; ++i) {
        if (!progress.Step(format, i, n)) return Status::Fail(msg::IMb030);
        if (Status read = rows.Next(i, batch[static_cast<std::size_t>(i - first)]); !read) {
          // The features before the unreadable row would have failed first.
          if (Status earlier = ComputeRange(first, i, fromBatch, statistic); !earlier) return earlier;
          return read;
        }
      }
      status = ComputeRange(first, last, fromBatch, statistic);
    }
    if (!status) return status;
  }
  // The last row's position, as a sequential loop shows it.
  if (csr && n > 0 && !progress.Step(format, n - 1, n)) return Status::Fail(msg::IMb030);
  rows.Close();
  return Status::Ok();
}

// Every record with its statistics; in a part of a larger dataset only
// the part's own records, each keeping its source QlID.
Status WriteResult(ZoRecordset* records, ZoDatasetVector* result, const ResultFields& fields,
                   detail::CallProgress& progress, const LocalStatistic& statistic, const std::vector<char>& own) {
  if (progress) {
    progress->SetBothPosRange(61, 100);
    progress->SetMessage(ZoStringEx::LoadResString(msg::IMb037));
  }
  const auto n = static_cast<std::int64_t>(records->GetRecordCount());
  std::vector<std::int64_t> written;  // in a part, the feature of the k-th written record
  ZoRecordsetPtr ownRecords;
  if (!own.empty()) {
    ZoQueryDef query;
    for (std::int64_t i = 0; i < n; ++i)
      if (own[static_cast<std::size_t>(i)]) written.push_back(i), query.m_ids.push_back(records->GetIDAt(i));
    // A part may own none of the features it holds: its result is empty.
    if (written.empty()) return result->Commit() ? Status::Ok() : Status::Fail(msg::ELc071);
    ownRecords.reset(records->GetDataset()->Query(query));
    if (!ownRecords) return Status::Fail(msg::ELc071);
    records = ownRecords.get();
    result->KeepSourceIds(true);
  }
  auto feature = [&](std::int64_t k) -> std::int64_t {
    if (written.empty()) return k;
    return k >= 0 && static_cast<std::size_t>(k) < written.size() ? written[static_cast<std::size_t>(k)] : -1;
  };
  const bool appended = result->AppendRecords(records, fields.copied, progress.get(), fields.own,
                                              [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                                                const std::int64_t i = feature(k);
                                                if (i < 0 || i >= n) return false;
                                                statistic.Values(static_cast<std::size_t>(i), values);
                                                return true;
                                              });
  if (appended && result->Commit()) return Status::Ok();
  if (progress && progress->IsCanceled()) return Status::Fail(msg::IMb030).Then(msg::ELc071);
  return Status::Fail(msg::ELc071);
}

}  // namespace

namespace {

// The whole dataset's false discovery rate levels of the part's features.
std::vector<int> GivenLevels(ZoRecordset* records, const ZoPartition& part, std::size_t n) {
  std::vector<int> levels(n, 0);
  for (std::size_t i = 0; i < n; ++i) {
    const std::int64_t id = records->GetIDAt(static_cast<std::int64_t>(i));
    const auto at = std::lower_bound(part.FdrIds.begin(), part.FdrIds.end(), id);
    if (at != part.FdrIds.end() && *at == id)
      levels[i] = part.FdrLevels[static_cast<std::size_t>(at - part.FdrIds.begin())];
  }
  return levels;
}

// A part's candidates for the false discovery rate, from its own features.
void CollectTests(ZoRecordset* records, const std::vector<char>& own, LocalStatistic& statistic,
                  ZoPartitionTests& tests) {
  LumaArray<double> value, p;
  statistic.Tested(value, p);
  ExactSum sum;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (!own.empty() && !own[i]) continue;
    if (std::isfinite(value[i])) sum.Add(value[i]), ++tests.Finite;
    if (!FdrCandidatePvalue(p[i])) continue;
    tests.Ids.push_back(records->GetIDAt(static_cast<std::int64_t>(i)));
    tests.PValues.push_back(p[i]);
  }
  tests.Sum = sum.Partials();
}

// A local run into `result`, or, with `tests`, a part's tests without a result.
Status Run(ZoDatasetVector* source, ZoRecordset* records, ZoDatasetVector* result, const ZoPatternsInformation& info,
           detail::CallProgress& progress, LocalStatistic& statistic, ZoPartitionTests* tests) {
  if (Status status = CheckPermutations(info.Permutations); !status) return status;
  if (Status status = partition::CheckPart(source, info, tests != nullptr); !status) return status;
  statistic.SetPermutations(info.Permutations, info.Seed);
  LumaUnicodeString uniqueField;
  ZoRecordsetPtr ordered;
  if (info.Conceptualization == SpatialWeightsFile) {
    if (Status status = OrderByWeightsFile(source, info, uniqueField, ordered); !status) return status;
    records = ordered.get();
  }
  ResultFields fields;
  if (result)
    if (Status status = CreateFields(source, result, info, uniqueField, statistic, fields); !status) return status;

  if (progress) {
    progress->SetBothPosRange(0, 30);
    progress->SetTitleMessage(ZoStringEx::LoadResString(statistic.Title()));
    progress->SetMessage(ZoStringEx::LoadResString(msg::IMb330));
  }
  LumaArray<double> values, extra;
  weights::WeightRows::GivenPoints given;
  const bool fromPoints = (info.Conceptualization >= InverseDistance && info.Conceptualization <= ZoneOfIndifference) ||
                          info.Conceptualization == KNearestNeighbors;
  weights::WeightRows::GivenPoints* points = fromPoints ? &given : nullptr;
  double divisor = 1.0;
  if (Status status = ReadInputs(records, info, statistic, values, extra, points, divisor); !status) return status;
  std::vector<char> own;
  if (Status status = OwnFeatures(records, info, points, own); !status) return status;
  Rows rows;
  if (Status status = rows.Open(records, info, statistic.Standardizes(), progress.get(), points); !status)
    return status;

  if (progress) {
    progress->SetBothPosRange(31, 60);
    progress->SetTitleMessage(ZoStringEx::LoadResString(statistic.Title()));
  }
  if (Status status = statistic.Prepare(values, extra, partition::MomentsFor(info, values, divisor)); !status)
    return status;
  statistic.SetOwn(own);
  if (Status status = ComputeRows(rows, static_cast<std::int64_t>(values.size()), progress, statistic); !status)
    return status;
  if (tests) {
    CollectTests(records, own, statistic, *tests);
    return Status::Ok();
  }
  if (info.Partition.Active && info.FDRCorrection)
    statistic.SetGivenFdr(GivenLevels(records, info.Partition, values.size()), info.Partition.FdrMean);
  if (Status status = statistic.Classify(info.FDRCorrection != 0); !status) return status;
  return WriteResult(records, result, fields, progress, statistic, own);
}

}  // namespace

Status RunLocal(ZoDatasetVector* source, ZoRecordset* records, ZoDatasetVector* result,
                const ZoPatternsInformation& info, detail::CallProgress& progress, LocalStatistic& statistic) {
  return Run(source, records, result, info, progress, statistic, nullptr);
}

Status RunLocalTests(ZoDatasetVector* source, ZoRecordset* records, const ZoPatternsInformation& info,
                     detail::CallProgress& progress, LocalStatistic& statistic, ZoPartitionTests& tests) {
  tests = ZoPartitionTests{};
  return Run(source, records, nullptr, info, progress, statistic, &tests);
}

}  // namespace ZOC::detail::local
