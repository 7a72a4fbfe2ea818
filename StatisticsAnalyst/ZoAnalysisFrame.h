#pragma once
// ZoAnalysisFrame: what every analysis class shares. It carries the message
// text of failed calls and the progress object, and it holds the common
// checks of the weight parameters and analysis fields.
//
// Messages: a failing step appends the catalogue text of one message
// identifier; texts accumulate over a call (one per line), so the caller sees
// every failure of the call in order. Public analysis calls start with an
// empty message.
#include <exception>
#include <memory>
#include <new>

#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"
#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoProgress.h"
#include "host/ZoRecordset.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

namespace detail {
class Status;
}

class SA_API ZoAnalysisFrame {
 public:
  // The messages accumulated by the last failing call.
  const LumaUnicodeString& GetStrErrorMes() const { return m_errorMessage; }
  // The progress object that calls asking to show progress drive instead of
  // one from the host's factory; not owned, and it must outlive the calls.
  // Null (the default) goes back to the factory.
  void SetProgress(ZoProgress* progress) { m_progress = progress; }

  // Checks the weight parameters against the analysis records, in this order:
  // null recordset "EEg024"; fewer than 4 records "ESa014"; empty field name
  // "ESa005"; the field check below; a weights file that is not named
  // "ESa076" or does not exist "ESa077"; contiguity on a dataset that is not a
  // region dataset "ESa025"; K < 1 "ESa050"; K ≥ record count "ESa042"; a
  // distance band above the largest double, negative other than -1, or NaN
  // "ESa061"; a negative or NaN exponent "ESa062".
  bool CheckParameterValid(ZoRecordset* records, const ZoPatternsInformation& info);
  // An empty name passes. Otherwise the field must exist ("ECd001") and be
  // of a numeric type: byte, int16, int32, single, double or int64 ("ESa006").
  // A null dataset fails with "EEg002".
  bool CheckFieldValid(ZoDatasetVector* dataset, const LumaUnicodeString& fieldName);

 protected:
  ZoAnalysisFrame() = default;
  ~ZoAnalysisFrame() = default;

  // Replaces the message, e.g. with a subordinate object's message.
  void SetStrErrorMes(const LumaUnicodeString& message) { m_errorMessage = message; }
  // Appends the text of a message identifier.
  void AddErrorMessage(const char* id);
  // Appends a subordinate object's accumulated messages.
  void AppendErrorText(const LumaUnicodeString& text);
  void ClearErrorMessage() { m_errorMessage.Empty(); }
  // Appends a failed status' text; true when the status is ok.
  bool Report(const detail::Status& status);

  // Runs the body of a public entry point: any exception it lets escape is
  // turned into a message ("EUc010" for memory, "EUc011" with the
  // exception's text otherwise), followed by `summaryId` when given, and
  // the call returns false.
  template <class Body>
  auto Guard(Body&& body, const char* summaryId = nullptr) -> decltype(body()) {
    try {
      return body();
    } catch (const std::bad_alloc&) {
      ReportException(nullptr, summaryId);
    } catch (const std::exception& e) {
      ReportException(e.what(), summaryId);
    } catch (...) {
      ReportException("", summaryId);
    }
    return decltype(body())();
  }

  // The dataset must be given ("EEg002"; it is opened when needed) and be a
  // point, line or region dataset ("EEe018").
  bool CheckAnalysisDataset(ZoDatasetVector* dataset);
  // The input and result datasets of an analysis that writes features: both
  // given ("EEg002", "EEg032"; opened when needed), the input a point, line
  // or region dataset ("EEe018"), the result of the same type ("EEe017").
  bool CheckInputAndResult(ZoDatasetVector* input, ZoDatasetVector* result);
  // The dataset's records ordered by a field, ascending (ties by "QlID");
  // null after "EKa013".
  ZoRecordsetPtr QueryOrderedBy(ZoDatasetVector* dataset, const LumaUnicodeString& field);

  // The opening steps of an analysis call: the dataset must be given
  // ("EEg002") and be a point, line or region dataset ("EEe018"); its records
  // are queried in ascending "QlID" order ("EKa013"); then the parameters are
  // checked. Returns the recordset, or null after appending the messages.
  ZoRecordsetPtr OpenAnalysisRecords(ZoDatasetVector* dataset, const ZoPatternsInformation& info);

  // Appends the message for an exception that escaped a call: "EUc010" when
  // `what` is null (memory), else "EUc011" with `what`; then `summaryId`.
  void ReportException(const char* what, const char* summaryId);

  ZoProgress* m_progress = nullptr;

 private:
  LumaUnicodeString m_errorMessage;
};

}  // namespace ZOC
