#include "StatisticsAnalyst/detail/weights/TableConversion.h"

#include <memory>
#include <vector>

#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileFormat.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileReader.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

namespace {

// Appends the rows of an opened weights file to the tabular dataset. The
// file is read twice: first every row is checked, so a damaged or truncated
// file is refused before the table gains fields or rows; then the rows are
// written.
Status AppendRows(WeightsFileReader& reader, ZoDatasetVector* target, ZoProgress* caller, bool show) {
  if (Status s = CheckAllRows(reader); !s) return s;
  std::vector<RowRecord> records;

  // The host may rename the fields (clashes, format limits); the final names
  // come back in the list.
  LUMA::LumaFieldInfos fields;
  fields.push_back(LUMA::LumaFieldInfo("UniqueID", LUMA::FieldInt32));
  fields.push_back(LUMA::LumaFieldInfo("NeighborsID", LUMA::FieldInt32));
  fields.push_back(LUMA::LumaFieldInfo("Weight", LUMA::FieldDouble));
  if (!ZoEngineToolkit::CreateValidFields(target, fields) || fields.size() != 3) return Status::Fail(msg::EKa013);
  const LumaUnicodeString& idField = fields[0].GetName();
  const LumaUnicodeString& neighbourField = fields[1].GetName();
  const LumaUnicodeString& weightField = fields[2].GetName();
  ZoRecordsetPtr table(target->Query(ZoQueryDef()));
  if (!table) return Status::Fail(msg::EKa013);

  CallProgress progress(caller, show);
  LumaUnicodeString format;
  if (progress) {
    progress->SetBothPosRange(0, 100);
    progress->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb340));
    format = ZoStringEx::LoadResString(msg::IMb341);
  }
  const std::int64_t n = reader.Count();
  const std::vector<std::int32_t>& ids = reader.Ids();
  for (std::int64_t i = 0; i < n; ++i) {
    if (!progress.Step(format, i, n)) return Status::Fail(msg::IMb030);
    if (reader.Next(records) != RowRead::Read) return Status::Fail(msg::ESa046);
    const double divisor = reader.Standardized() ? reader.RowSums()[static_cast<std::size_t>(i)] : 1.0;
    // The record's own row index names the feature, whatever row it sits in;
    // the reader has checked both indices against the ID table.
    for (const auto& r : records) {
      if (!table->AddNew(ZoGeometry()) ||
          !table->SetFieldValue(idField, LumaVariant(ids[static_cast<std::size_t>(r.row)])) ||
          !table->SetFieldValue(neighbourField, LumaVariant(ids[static_cast<std::size_t>(r.column)])) ||
          !table->SetFieldValue(weightField, LumaVariant(r.weight / divisor)) || !table->Update()) {
        table->CancelUpdate();
        return Status::Fail(msg::EKa013);
      }
    }
  }
  table.reset();
  return target->Commit() ? Status::Ok() : Status::Fail(msg::EKa013);
}

}  // namespace

Status BinaryFileToTable(ZoDatasetVector* target, const LumaUnicodeString& path, ZoProgress* progress, bool show) {
  return GuardReading([&]() -> Status {
    if (!target) return Status::Fail(msg::EEg002);
    if (path.IsEmpty() || !HasSwmbExtension(path, true)) return Status::Fail(msg::EAf017);
    if (target->GetType() != DatasetTabular) return Status::Fail(msg::ELb001);
    std::unique_ptr<WeightsFileReader> reader;
    if (Status s = OpenBinaryWeights(path, reader); !s) return s;
    return AppendRows(*reader, target, progress, show);
  });
}

Status TextFileToTable(ZoDatasetVector* target, const LumaUnicodeString& path, ZoProgress* progress, bool show) {
  return GuardReading([&]() -> Status {
    if (!target) return Status::Fail(msg::EEg002);
    // Text files: ".swmb" exactly.
    if (path.IsEmpty() || !HasSwmbExtension(path, false)) return Status::Fail(msg::EAf017);
    if (target->GetType() != DatasetTabular) return Status::Fail(msg::ELb001);
    std::unique_ptr<WeightsFileReader> reader;
    if (Status s = OpenTextWeights(path, reader); !s) return s;
    return AppendRows(*reader, target, progress, show);
  });
}

}  // namespace ZOC::detail::weights
