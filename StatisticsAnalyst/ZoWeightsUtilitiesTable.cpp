// Weights files to tables: one table row per stored neighbour record, with
// the unique IDs of the feature and of its neighbour and the weight.
#include <new>
#include <stdexcept>

#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC {

namespace wf = detail::weights;

namespace {

// Appends the rows of an opened weights file to the tabular dataset. The
// file is read twice: first every row is checked, so a damaged or truncated
// file is refused before the table gains fields or rows; then the rows are
// written. Null on success, else the message ID.
const char* AppendRows(wf::WeightsFileReader& reader, ZoDatasetVector* target, ZoProgress* caller, bool show) {
  if (const char* id = wf::CheckAllRows(reader)) return id;
  std::vector<wf::RowRecord> records;

  // The host may rename the fields (clashes, format limits); the final names
  // come back in the list.
  LUMA::LumaFieldInfos fields;
  fields.push_back(LUMA::LumaFieldInfo("UniqueID", LUMA::FieldInt32));
  fields.push_back(LUMA::LumaFieldInfo("NeighborsID", LUMA::FieldInt32));
  fields.push_back(LUMA::LumaFieldInfo("Weight", LUMA::FieldDouble));
  if (!ZoEngineToolkit::CreateValidFields(target, fields) || fields.size() != 3) return msg::EKa013;
  const LumaUnicodeString& idField = fields[0].GetName();
  const LumaUnicodeString& neighbourField = fields[1].GetName();
  const LumaUnicodeString& weightField = fields[2].GetName();
  ZoRecordsetPtr table(target->Query(ZoQueryDef()));
  if (!table) return msg::EKa013;

  detail::CallProgress progress(caller, show);
  LumaUnicodeString format;
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb340));
    format = ZoStringEx::LoadResString(msg::IMb341);
  }
  const std::int64_t n = reader.Count();
  const std::vector<std::int32_t>& ids = reader.Ids();
  for (std::int64_t i = 0; i < n; ++i) {
    if (!progress.Step(format, i, n)) return msg::IMb030;
    if (reader.Next(records) != wf::RowRead::Read) return msg::ESa046;
    const double divisor = reader.Standardized() ? reader.RowSums()[static_cast<std::size_t>(i)] : 1.0;
    // The record's own row index names the feature, whatever row it sits in;
    // the reader has checked both indices against the ID table.
    for (const auto& r : records) {
      if (!table->AddNew(ZoGeometry()) ||
          !table->SetFieldValue(idField, LumaVariant(ids[static_cast<std::size_t>(r.row)])) ||
          !table->SetFieldValue(neighbourField, LumaVariant(ids[static_cast<std::size_t>(r.column)])) ||
          !table->SetFieldValue(weightField, LumaVariant(r.weight / divisor)) || !table->Update()) {
        table->CancelUpdate();
        return msg::EKa013;
      }
    }
  }
  table.reset();
  return target->Commit() ? nullptr : msg::EKa013;
}

}  // namespace

unsigned char ZoWeightsUtilities::BinaryConverToTable(ZoDatasetVector* target, const LumaUnicodeString& path,
                                                      unsigned char showProgress) {
  return Guard([&]() -> unsigned char {
    return RunReader([&]() -> const char* {
      if (!target) return msg::EEg002;
      if (path.IsEmpty() || !wf::HasSwmbExtension(path, true)) return msg::EAf017;
      if (target->GetType() != DatasetTabular) return msg::ELb001;
      const char* failedId = nullptr;
      auto reader = wf::OpenBinaryWeights(path, failedId);
      if (!reader) return failedId;
      return AppendRows(*reader, target, m_progress, showProgress != 0);
    });
  });
}

unsigned char ZoWeightsUtilities::TextConverToTable(ZoDatasetVector* target, const LumaUnicodeString& path,
                                                    unsigned char showProgress) {
  return Guard([&]() -> unsigned char {
    return RunReader([&]() -> const char* {
      if (!target) return msg::EEg002;
      if (path.IsEmpty() || !wf::HasSwmbExtension(path, false)) return msg::EAf017;  // text files: ".swmb" exactly
      if (target->GetType() != DatasetTabular) return msg::ELb001;
      const char* failedId = nullptr;
      auto reader = wf::OpenTextWeights(*this, path, failedId);
      if (!reader) return failedId;
      return AppendRows(*reader, target, m_progress, showProgress != 0);
    });
  });
}

}  // namespace ZOC
