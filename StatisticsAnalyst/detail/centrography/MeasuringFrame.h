#pragma once
// The frame every geographic-distribution measure runs in: validation of the
// parameter record, the result fields, the pass that splits the features
// into case groups, per-group weights and statistics summaries, and the
// writing of result features. The measures themselves (Measures.h) only say
// what a group turns into.
#include <cstdint>
#include <functional>
#include <vector>

#include "StatisticsAnalyst/ZoMeasuringInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/centrography/StatisticsSummaries.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/spatial/Centre.h"
#include "StatisticsAnalyst/detail/spatial/Distance.h"
#include "host/LumaFieldInfo.h"
#include "host/LumaVariant.h"
#include "host/ZoGeometry.h"

namespace ZOC::detail::centrography {

using detail::Status;
using LUMA::LumaFieldInfos;
using LUMA::LumaVariant;

// The features of one group, in the pass's order.
struct FeatureGroup {
  LumaVariant caseValue;
  LumaArray<LumaPoint2D> points;  // representative points
  LumaArray<double> weights;      // weight field, or the unit weight
  LumaArray<double> selfWeights;  // central feature only
  LumaArray<std::int64_t> ids;    // "QlID", central feature only
  LumaArray<ZoGeometry> lines;    // linear directional mean only
  std::int64_t count = 0;
  void Clear();
};

// How a group's statistics are written.
enum class GroupKind {
  Whole,         // no case field: one group of every record, summaries finished
  SingleRecord,  // a case field and exactly one record: its raw field values
  Single,        // a group of one feature: the values as gathered, unfinished
  Many,          // a group of two or more: summaries finished
};

// What a measure collects per feature beyond point and weight.
struct CollectOptions {
  bool selfWeightsAndIds = false;
  bool lines = false;
};

class MeasuringFrame {
 public:
  MeasuringFrame(ZoDatasetVector* input, ZoDatasetVector* output, const ZoMeasuringInformation& info);

  // Null datasets "EEg002" / "EEg032"; opens them when needed.
  Status CheckDatasets();
  // The input is a point, line or region dataset ("EEe018").
  Status CheckInputType();
  // Field and type counts ("ESa001").
  Status CheckStatisticsCount();
  // A weight field must exist ("ECd001") and be numeric ("ESa003").
  Status CheckWeightField(const LumaUnicodeString& field);
  Status CheckCaseField();
  // Each statistics field exists ("ECd001"); non-numeric ones only First/Last ("ESa002").
  Status CheckStatisticsFields();
  // The validation every measure but the central feature and the linear
  // directional mean runs: the checks above in order, weight field included.
  Status Validate();

  // Creates the result fields: `ownBefore` first (one call), then "_Group"
  // and the statistics fields, then `ownAfter`. Own fields keep the names
  // the result dataset accepted in ownBefore / ownAfter.
  Status CreateFields(LumaFieldInfos& ownBefore, LumaFieldInfos& ownAfter);

  // Queries the input: natural order, or by case field then "QlID"
  // ("EKa013"). Opens the result recordset ("EKa013").
  Status Open();
  std::int64_t RecordCount() const;

  // The pass over the records. `handle` gets each finished group in order;
  // it writes it through Write. Progress: one step per record with the
  // per-record message; cancellation "IMb030".
  using GroupHandler = std::function<Status(FeatureGroup&, GroupKind)>;
  Status Pass(detail::CallProgress& progress, const char* stepId, const CollectOptions& collect,
              const GroupHandler& handle);

  // The statistics values to write for the current group.
  LumaArray<LumaVariant> GroupValues(GroupKind kind, std::int64_t count) const;
  // Appends one result feature: the geometry, own field values (names from
  // CreateFields), the case value and the statistics values.
  Status Write(const ZoGeometry& geometry, const std::vector<std::pair<LumaUnicodeString, LumaVariant>>& own,
               const LumaVariant& caseValue, const LumaArray<LumaVariant>& statistics);
  // Makes the result durable and releases the recordsets.
  Status Finish();

  ZoDatasetVector* Input() const { return m_input; }
  ZoDatasetVector* Output() const { return m_output; }
  const ZoMeasuringInformation& Info() const { return m_info; }

 private:
  bool GroupFieldEqual(const LumaVariant& current, const LumaVariant& group) const;
  // The current record's point, weights (and line), or the failure naming
  // it: "EUc002" for no usable location (followed by "ESa008", or "EFd037"
  // for the one record of a grouped run), "EUc001" for a weight that is NaN
  // or infinite, "EUc004" for a line without a direction.
  Status AddFeature(FeatureGroup& group, const CollectOptions& collect, bool singleRecord);
  // The weight in `field` when it is above 0, else 0; `fallback` without a field.
  Status ReadWeight(const LumaUnicodeString& field, double fallback, double& weight);
  // "EUc001" when a statistics field holds NaN or an infinite value: summed
  // or compared it would spoil the group's summary without saying where.
  Status CheckStatisticsValues();
  LumaUnicodeString CurrentId() const;
  void ReadRawValues();

  ZoDatasetVector* m_input;
  ZoDatasetVector* m_output;
  const ZoMeasuringInformation& m_info;
  StatisticsSummaries m_summaries;
  LumaUnicodeString m_groupField;                  // result name of "_Group", empty without a case field
  LumaArray<LumaUnicodeString> m_statisticsNames;  // result names, empty where not created
  LumaArray<LumaVariant> m_rawValues;              // the single record of a grouped run
  ZoRecordsetPtr m_records;
  ZoRecordsetPtr m_results;
};

// Sets the whole range and the title of a measure's progress, when shown.
void StartProgress(detail::CallProgress& progress, const char* titleId);

struct MeasureCall;
// The flow of the mean and median centres: one point per group, computed
// by `centre` for a group of two or more features (or the whole dataset),
// from the group's points in the measuring plane (MeasuringPlane.h) and its
// weights relative to the largest.
using CentreFunction =
    std::function<Status(const LumaArray<LumaPoint2D>& points, const LumaArray<double>& weights, LumaPoint2D&)>;
Status RunCentrePoints(MeasureCall& call, const char* titleId, const char* stepId, const CentreFunction& centre);

// The flow of the standard distance and the ellipse: at least 3 records
// ("ESa013") and 3 features per group ("ESa012"); `region` makes a group's
// region and the values of the own fields, which come first in the result.
using RegionFunction = std::function<Status(const FeatureGroup&, ZoGeometry&, std::vector<LumaVariant>&)>;
Status RunRegions(MeasureCall& call, const char* titleId, const char* stepId, const std::vector<const char*>& ownFields,
                  const RegionFunction& region);

}  // namespace ZOC::detail::centrography
