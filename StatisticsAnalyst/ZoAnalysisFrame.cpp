#include "StatisticsAnalyst/ZoAnalysisFrame.h"

#include <cmath>
#include <limits>

#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC {

void ZoRecordsetRelease::operator()(ZoRecordset* records) const {
  if (!records) return;
  if (ZoDatasetVector* dataset = records->GetDataset())
    dataset->ReleaseRecordset(records);
  else
    delete records;
}

void ZoAnalysisFrame::AddErrorMessage(const char* id) {
  if (!m_errorMessage.IsEmpty()) m_errorMessage += "\n";
  m_errorMessage += ZoStringEx::LoadResString(id);
}

void ZoAnalysisFrame::AppendErrorText(const LumaUnicodeString& text) {
  if (text.IsEmpty()) return;
  if (!m_errorMessage.IsEmpty()) m_errorMessage += "\n";
  m_errorMessage += text;
}

bool ZoAnalysisFrame::Report(const detail::Status& status) {
  if (status) return true;
  AppendErrorText(status.Text());
  return false;
}

void ZoAnalysisFrame::ReportException(const char* what, const char* summaryId) {
  try {
    if (what)
      AppendErrorText(ZoStringEx::Format(ZoStringEx::LoadResString(msg::EUc011), {LumaUnicodeString(what)}));
    else
      AddErrorMessage(msg::EUc010);
    if (summaryId) AddErrorMessage(summaryId);
  } catch (...) {
    // Out of memory even for the message: the false return has to do.
  }
}

bool ZoAnalysisFrame::CheckInputAndResult(ZoDatasetVector* input, ZoDatasetVector* result) {
  if (!input) {
    AddErrorMessage(msg::EEg002);
    return false;
  }
  if (!result) {
    AddErrorMessage(msg::EEg032);
    return false;
  }
  if (!result->IsOpen()) result->Open();
  if (!CheckAnalysisDataset(input)) return false;
  if (result->GetType() != input->GetType()) {
    AddErrorMessage(msg::EEe017);
    return false;
  }
  return true;
}

bool ZoAnalysisFrame::CheckFieldValid(ZoDatasetVector* dataset, const LumaUnicodeString& fieldName) {
  return Guard([&]() -> bool {
    if (fieldName.IsEmpty()) return true;
    if (!dataset) {
      AddErrorMessage(msg::EEg002);
      return false;
    }
    LUMA::LumaFieldInfo field;
    if (!dataset->GetFieldInfo(fieldName, field)) {
      AddErrorMessage(msg::ECd001);
      return false;
    }
    if (!LUMA::IsNumericFieldType(field.GetType())) {
      AddErrorMessage(msg::ESa006);
      return false;
    }
    return true;
  });
}

bool ZoAnalysisFrame::CheckParameterValid(ZoRecordset* records, const ZoPatternsInformation& info) {
  return Guard([&] { return CheckParameters(records, info); });
}

bool ZoAnalysisFrame::CheckParameters(ZoRecordset* records, const ZoPatternsInformation& info) {
  if (!records) {
    AddErrorMessage(msg::EEg024);
    return false;
  }
  const std::int64_t count = records->GetRecordCount();
  if (count < 4) {
    AddErrorMessage(msg::ESa014);
    return false;
  }
  if (info.FieldName.IsEmpty()) {
    AddErrorMessage(msg::ESa005);
    return false;
  }
  ZoDatasetVector* dataset = records->GetDataset();
  if (!CheckFieldValid(dataset, info.FieldName)) return false;
  if (info.Conceptualization == SpatialWeightsFile) {
    if (info.WeightsFilePath.IsEmpty()) {
      AddErrorMessage(msg::ESa076);
      return false;
    }
    if (!ZoFile::IsExist(info.WeightsFilePath)) {
      AddErrorMessage(msg::ESa077);
      return false;
    }
  }
  if ((info.Conceptualization == ContiguityEdgesOnly || info.Conceptualization == ContiguityEdgesCorners) &&
      (!dataset || dataset->GetType() != DatasetRegion)) {
    AddErrorMessage(msg::ESa025);
    return false;
  }
  if (info.KNeighbors < 1) {
    AddErrorMessage(msg::ESa050);
    return false;
  }
  if (info.KNeighbors >= count) {
    AddErrorMessage(msg::ESa042);
    return false;
  }
  // -1 asks for the default band; other negative values, values beyond the
  // largest double and NaN are not bands.
  const double band = info.DistanceTolerance;
  const bool defaultBand = std::fabs(band + 1.0) < 1e-10;
  if (std::isnan(band) || band > std::numeric_limits<double>::max() || (band < 0.0 && !defaultBand)) {
    AddErrorMessage(msg::ESa061);
    return false;
  }
  if (!(info.Exponent >= 0.0)) {
    AddErrorMessage(msg::ESa062);
    return false;
  }
  if (!(info.SnapTolerance >= 0.0) || !std::isfinite(info.SnapTolerance)) {
    AddErrorMessage(msg::EUb008);
    return false;
  }
  return true;
}

bool ZoAnalysisFrame::CheckAnalysisDataset(ZoDatasetVector* dataset) {
  if (!dataset) {
    AddErrorMessage(msg::EEg002);
    return false;
  }
  if (!dataset->IsOpen()) dataset->Open();
  const int type = dataset->GetType();
  if (type != DatasetPoint && type != DatasetLine && type != DatasetRegion) {
    AddErrorMessage(msg::EEe018);
    return false;
  }
  return true;
}

ZoRecordsetPtr ZoAnalysisFrame::QueryOrderedBy(ZoDatasetVector* dataset, const LumaUnicodeString& field) {
  ZoQueryDef query;
  query.m_order = LumaUnicodeString(" Order BY ") + field;
  ZoRecordsetPtr records(dataset->Query(query));
  if (!records) AddErrorMessage(msg::EKa013);
  return records;
}

ZoRecordsetPtr ZoAnalysisFrame::OpenAnalysisRecords(ZoDatasetVector* dataset, const ZoPatternsInformation& info) {
  if (!CheckAnalysisDataset(dataset)) return nullptr;
  ZoRecordsetPtr records = QueryOrderedBy(dataset, kSystemIdField);
  if (!records || !CheckParameterValid(records.get(), info)) return nullptr;
  return records;
}

ZoCallProgress::ZoCallProgress(ZoProgress* callerProgress, bool show) {
  if (!show) return;
  if (callerProgress) {
    m_progress = callerProgress;
  } else {
    m_owned = ZoProgress::Create();
    m_progress = m_owned.get();
  }
}

bool ZoCallProgress::Step(const LumaUnicodeString& format, long long i, long long n) {
  if (!m_progress) return true;
  // Formatting the message costs more than a feature's statistic: it is
  // shown when the position moves, at the first and the last step, and
  // cancellation is polled at least every 1024 steps.
  const int pos = n > 0 ? static_cast<int>((100 * (i + 1)) / n) : 100;
  const bool show = pos != m_shownPos || i == 0 || i + 1 >= n;
  if (!show) return (i & 1023) != 0 || !m_progress->IsCanceled();
  m_shownPos = pos;
  m_progress->SetMessage(ZoStringEx::Format(format, i + 1, n));
  m_progress->SetProgressPos(pos);
  return !m_progress->IsCanceled();
}

}  // namespace ZOC
