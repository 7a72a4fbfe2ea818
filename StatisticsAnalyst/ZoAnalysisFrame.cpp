#include "StatisticsAnalyst/ZoAnalysisFrame.h"

#include "StatisticsAnalyst/detail/common/Checks.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace ZOC {

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
  return Guard([&] { return Report(detail::CheckInputAndResult(input, result)); });
}

bool ZoAnalysisFrame::CheckFieldValid(ZoDatasetVector* dataset, const LumaUnicodeString& fieldName) {
  return Guard([&] { return Report(detail::CheckNumericField(dataset, fieldName)); });
}

bool ZoAnalysisFrame::CheckParameterValid(ZoRecordset* records, const ZoPatternsInformation& info) {
  return Guard([&] { return Report(detail::CheckWeightParameters(records, info)); });
}

bool ZoAnalysisFrame::CheckAnalysisDataset(ZoDatasetVector* dataset) {
  return Guard([&] { return Report(detail::CheckAnalysisDataset(dataset)); });
}

ZoRecordsetPtr ZoAnalysisFrame::QueryOrderedBy(ZoDatasetVector* dataset, const LumaUnicodeString& field) {
  ZoRecordsetPtr records;
  Report(detail::QueryOrderedBy(dataset, field, records));
  return records;
}

ZoRecordsetPtr ZoAnalysisFrame::OpenAnalysisRecords(ZoDatasetVector* dataset, const ZoPatternsInformation& info) {
  ZoRecordsetPtr records;
  Guard([&] { return Report(detail::OpenAnalysisRecords(dataset, info, records)); });
  return records;
}

}  // namespace ZOC
