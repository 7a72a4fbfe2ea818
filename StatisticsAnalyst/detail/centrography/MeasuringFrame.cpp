#include "StatisticsAnalyst/detail/centrography/MeasuringFrame.h"

#include <cmath>
#include <string>

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail::centrography {

namespace {
// Weight of a feature whose weight value is not above 0 (or null), and of
// every feature when no weight field is named. A zero weight keeps its
// feature in the group: its point still counts where weights do not.
constexpr double kZeroWeight = 0.0;
constexpr double kUnitWeight = 1.0;
}  // namespace

void FeatureGroup::Clear() {
  caseValue = LumaVariant();
  points.clear();
  weights.clear();
  selfWeights.clear();
  ids.clear();
  lines.clear();
  count = 0;
}

MeasuringFrame::MeasuringFrame(ZoDatasetVector* input, ZoDatasetVector* output, const ZoMeasuringInformation& info)
    : m_input(input), m_output(output), m_info(info), m_summaries(info.StatisticsFields, info.StatisticsTypes) {}

Status MeasuringFrame::CheckDatasets() {
  if (!m_input) return Status::Fail(msg::EEg002);
  if (!m_output) return Status::Fail(msg::EEg032);
  if (!m_input->IsOpen()) m_input->Open();
  if (!m_output->IsOpen()) m_output->Open();
  return {};
}

Status MeasuringFrame::CheckInputType() {
  const int type = m_input->GetType();
  if (type != DatasetPoint && type != DatasetLine && type != DatasetRegion) return Status::Fail(msg::EEe018);
  return {};
}

Status MeasuringFrame::CheckStatisticsCount() {
  if (m_info.StatisticsFields.size() != m_info.StatisticsTypes.size()) return Status::Fail(msg::ESa001);
  return {};
}

Status MeasuringFrame::CheckWeightField(const LumaUnicodeString& field) {
  if (field.IsEmpty()) return {};
  LumaFieldInfo fieldInfo;
  if (!m_input->GetFieldInfo(field, fieldInfo)) return Status::Fail(msg::ECd001);
  if (!LUMA::IsNumericFieldType(fieldInfo.GetType())) return Status::Fail(msg::ESa003);
  return {};
}

Status MeasuringFrame::CheckCaseField() {
  LumaFieldInfo fieldInfo;
  if (!m_info.CaseField.IsEmpty() && !m_input->GetFieldInfo(m_info.CaseField, fieldInfo))
    return Status::Fail(msg::ECd001);
  return {};
}

Status MeasuringFrame::CheckStatisticsFields() {
  LumaFieldInfo fieldInfo;
  for (std::size_t i = 0; i < m_info.StatisticsFields.size(); ++i) {
    if (!m_input->GetFieldInfo(m_info.StatisticsFields[i], fieldInfo)) return Status::Fail(msg::ECd001);
    const int type = m_info.StatisticsTypes[i];
    if (!LUMA::IsNumericFieldType(fieldInfo.GetType()) && type != StatisticsFirst && type != StatisticsLast)
      return Status::Fail(msg::ESa002);
  }
  return {};
}

Status MeasuringFrame::Validate() {
  if (Status status = CheckDatasets(); !status) return status;
  if (Status status = CheckInputType(); !status) return status;
  if (Status status = CheckStatisticsCount(); !status) return status;
  if (Status status = CheckWeightField(m_info.WeightField); !status) return status;
  if (Status status = CheckCaseField(); !status) return status;
  return CheckStatisticsFields();
}

Status MeasuringFrame::CreateFields(LumaFieldInfos& ownBefore, LumaFieldInfos& ownAfter) {
  if (!ownBefore.empty() && !ZoEngineToolkit::CreateValidFields(m_output, ownBefore)) return Status::Fail(msg::EUd001);
  // "_Group" first, then one field per statistics entry. An entry of an
  // unknown type ends the list: the fields before it are still created.
  LumaFieldInfos generated;
  LumaFieldInfo fieldInfo;
  if (!m_info.CaseField.IsEmpty()) {
    if (!m_input->GetFieldInfo(m_info.CaseField, fieldInfo)) return Status::Fail(msg::ECd001);
    fieldInfo.SetName(fieldInfo.GetName() + "_Group");
    fieldInfo.SetCaption(fieldInfo.GetCaption() + "_Group");
    fieldInfo.SetSystemField(false);
    generated.push_back(fieldInfo);
  }
  std::size_t statistics = 0;
  for (; statistics < m_info.StatisticsFields.size(); ++statistics) {
    if (!m_input->GetFieldInfo(m_info.StatisticsFields[statistics], fieldInfo)) return Status::Fail(msg::ECd001);
    const int type = m_info.StatisticsTypes[statistics];
    const char* suffix = StatisticsSuffix(type);
    if (!suffix) break;
    fieldInfo.SetName(fieldInfo.GetName() + "_" + suffix);
    fieldInfo.SetCaption(fieldInfo.GetCaption() + "_" + suffix);
    fieldInfo.SetSystemField(false);
    if (type != StatisticsFirst && type != StatisticsLast) {
      fieldInfo.SetType(LUMA::FieldDouble);
      fieldInfo.SetSize(0);
    }
    generated.push_back(fieldInfo);
  }
  if (!generated.empty() && !ZoEngineToolkit::CreateValidFields(m_output, generated)) return Status::Fail(msg::EUd001);
  std::size_t next = 0;
  if (!m_info.CaseField.IsEmpty()) m_groupField = generated[next++].GetName();
  m_statisticsNames.assign(m_info.StatisticsFields.size(), LumaUnicodeString());
  for (std::size_t i = 0; i < statistics; ++i) m_statisticsNames[i] = generated[next++].GetName();
  if (!ownAfter.empty() && !ZoEngineToolkit::CreateValidFields(m_output, ownAfter)) return Status::Fail(msg::EUd001);
  return {};
}

Status MeasuringFrame::Open() {
  m_results.reset(m_output->Query(ZoQueryDef()));
  if (!m_results) return Status::Fail(msg::EKa013);
  ZoQueryDef query;
  if (!m_info.CaseField.IsEmpty())
    query.m_order = LumaUnicodeString(" Order BY ") + m_info.CaseField + ", " + kSystemIdField;
  m_records.reset(m_input->Query(query));
  if (!m_records) return Status::Fail(msg::EKa013);
  return {};
}

std::int64_t MeasuringFrame::RecordCount() const { return m_records ? m_records->GetRecordCount() : 0; }

bool MeasuringFrame::GroupFieldEqual(const LumaVariant& current, const LumaVariant& group) const {
  if (group.IsNull()) return current.IsNull();
  if (current.GetType() == LumaVariant::Text) return current.ToString().EqualsNoCase(group.ToString().Str());
  return current == group;
}

LumaUnicodeString MeasuringFrame::CurrentId() const { return std::to_string(m_records->GetID()).c_str(); }

Status MeasuringFrame::ReadWeight(const LumaUnicodeString& field, double fallback, double& weight) {
  weight = fallback;
  if (field.IsEmpty()) return {};
  LumaVariant value;
  weight = kZeroWeight;
  if (!m_records->GetFieldValue(field, value) || value.IsNull()) return {};
  const double w = value.ToDouble();
  // NaN is not "no weight": it is a broken value, and read as 0 it would
  // silently drop the feature from every sum.
  if (!std::isfinite(w)) return Status::Fail(msg::EUc001, {CurrentId(), field});
  if (w > 0.0) weight = w;
  return {};
}

Status MeasuringFrame::CheckStatisticsValues() {
  LumaVariant value;
  for (const LumaUnicodeString& field : m_info.StatisticsFields) {
    m_records->GetFieldValue(field, value);
    if (value.GetType() == LumaVariant::Double && !std::isfinite(value.GetDouble()))
      return Status::Fail(msg::EUc001, {CurrentId(), field});
  }
  return {};
}

Status MeasuringFrame::AddFeature(FeatureGroup& group, const CollectOptions& collect, bool singleRecord) {
  // A feature without a usable location is named, followed by the measure's
  // own identifier for it.
  ZoGeometry geometry;
  if (!m_records->GetGeometry(geometry) || geometry.IsEmpty())
    return Status::Fail(msg::EUc002, {CurrentId()}).Then(singleRecord ? msg::EFd037 : msg::ESa008);
  LumaPoint2D point;
  if (!geometry.GetBaryCenter(point) || !std::isfinite(point.x) || !std::isfinite(point.y))
    return Status::Fail(msg::EUc002, {CurrentId()}).Then(msg::ESa008);
  double weight = kUnitWeight, selfWeight = kZeroWeight;
  if (Status status = ReadWeight(m_info.WeightField, kUnitWeight, weight); !status) return status;
  // Without a self-weight field a feature's own position adds nothing.
  if (collect.selfWeightsAndIds)
    if (Status status = ReadWeight(m_info.SelfWeightField, kZeroWeight, selfWeight); !status) return status;
  if (collect.lines && !LineHasDirection(geometry)) return Status::Fail(msg::EUc004, {CurrentId()});
  group.points.push_back(point);
  group.weights.push_back(weight);
  if (collect.selfWeightsAndIds) {
    group.selfWeights.push_back(selfWeight);
    group.ids.push_back(m_records->GetID());
  }
  if (collect.lines) group.lines.push_back(std::move(geometry));
  ++group.count;
  return {};
}

void MeasuringFrame::ReadRawValues() {
  m_rawValues.assign(m_info.StatisticsFields.size(), LumaVariant());
  for (std::size_t i = 0; i < m_rawValues.size(); ++i)
    m_records->GetFieldValue(m_info.StatisticsFields[i], m_rawValues[i]);
}

Status MeasuringFrame::Pass(detail::CallProgress& progress, const char* stepId, const CollectOptions& collect,
                            const GroupHandler& handle) {
  const bool grouped = !m_info.CaseField.IsEmpty();
  const std::int64_t n = RecordCount();
  FeatureGroup group;
  if (grouped && n == 1) {
    // The one record of a grouped run is written with its raw values.
    m_records->MoveFirst();
    m_records->GetFieldValue(m_info.CaseField, group.caseValue);
    if (Status status = CheckStatisticsValues(); !status) return status;
    ReadRawValues();
    if (Status status = AddFeature(group, collect, true); !status) return status;
    return handle(group, GroupKind::SingleRecord);
  }
  const LumaUnicodeString step = progress ? ZoStringEx::LoadResString(stepId) : LumaUnicodeString();
  LumaVariant caseValue;
  std::int64_t i = 0;
  for (bool more = m_records->MoveFirst(); more && !m_records->IsEOF(); more = m_records->MoveNext(), ++i) {
    if (!progress.Step(step, i, n)) return Status::Fail(msg::IMb030);
    if (Status status = CheckStatisticsValues(); !status) return status;
    if (grouped) m_records->GetFieldValue(m_info.CaseField, caseValue);
    if (i == 0 || (grouped && !GroupFieldEqual(caseValue, group.caseValue))) {
      if (i > 0) {
        if (Status status = handle(group, group.count == 1 ? GroupKind::Single : GroupKind::Many); !status)
          return status;
        group.Clear();
      }
      group.caseValue = caseValue;
      // A group that cannot start replaces its cause with the group failure.
      if (!m_summaries.Start(m_records.get())) return Status::Fail(msg::ESa011);
    } else if (Status status = m_summaries.Add(m_records.get()); !status) {
      return status;
    }
    if (Status status = AddFeature(group, collect, false); !status) return status;
  }
  if (!grouped) return handle(group, GroupKind::Whole);
  if (group.count == 0) return {};
  return handle(group, group.count == 1 ? GroupKind::Single : GroupKind::Many);
}

LumaArray<LumaVariant> MeasuringFrame::GroupValues(GroupKind kind, std::int64_t count) const {
  switch (kind) {
    case GroupKind::SingleRecord: return m_rawValues;
    case GroupKind::Single: return m_summaries.Gathered();
    default: return m_summaries.Finished(count);
  }
}

Status MeasuringFrame::Write(const ZoGeometry& geometry,
                             const std::vector<std::pair<LumaUnicodeString, LumaVariant>>& own,
                             const LumaVariant& caseValue, const LumaArray<LumaVariant>& statistics) {
  bool ok = m_results->AddNew(geometry);
  for (const auto& [name, value] : own) ok = ok && m_results->SetFieldValue(name, value);
  if (!m_groupField.IsEmpty()) ok = ok && m_results->SetFieldValue(m_groupField, caseValue);
  for (std::size_t i = 0; i < m_statisticsNames.size() && i < statistics.size(); ++i)
    if (!m_statisticsNames[i].IsEmpty()) ok = ok && m_results->SetFieldValue(m_statisticsNames[i], statistics[i]);
  ok = ok && m_results->Update();
  if (ok) return {};
  m_results->CancelUpdate();
  return Status::Fail(msg::EUd002);
}

Status MeasuringFrame::Finish() {
  m_records.reset();
  m_results.reset();
  if (!m_output->Commit()) return Status::Fail(msg::EUd002);
  return {};
}

}  // namespace ZOC::detail::centrography
