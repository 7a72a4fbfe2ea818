#include "StatisticsAnalyst/ZoSpatialRelModeling.h"

#include <functional>
#include <new>
#include <utility>

#include "StatisticsAnalyst/detail/regression/MatrixToolkit.h"
#include "StatisticsAnalyst/detail/regression/Run.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace {

// Routes the regression's failures into an analysis object's messages.
struct Sink final : regression::Messages {
  Sink(std::function<void(const char*)> a, std::function<void(const LumaUnicodeString&)> t)
      : add(std::move(a)), addText(std::move(t)) {}
  void Add(const char* id) override { add(id); }
  void AddText(const LumaUnicodeString& text) override { addText(text); }
  std::function<void(const char*)> add;
  std::function<void(const LumaUnicodeString&)> addText;
};

}  // namespace

ZoRecordsetPtr ZoSpatialRelModeling::OpenRegression(ZoDatasetVector* source, ZoDatasetVector* result,
                                                    const LumaUnicodeString& dependent,
                                                    const LumaArray<LumaUnicodeString>& explanatory) {
  if (!source) {
    AddErrorMessage(msg::EEg002);
    return nullptr;
  }
  if (!result) {
    AddErrorMessage(msg::EEg032);
    return nullptr;
  }
  if (!result->IsOpen()) result->Open();
  if (!CheckAnalysisDataset(source)) return nullptr;
  if (result->GetType() != source->GetType()) {
    AddErrorMessage(msg::EEe017);
    return nullptr;
  }
  if (dependent.IsEmpty()) {
    AddErrorMessage(msg::ESa005);
    return nullptr;
  }
  if (explanatory.empty()) {
    AddErrorMessage(msg::EUf001);
    return nullptr;
  }
  if (!CheckFieldValid(source, dependent)) return nullptr;
  for (const auto& name : explanatory) {
    if (name.IsEmpty()) {
      AddErrorMessage(msg::ESa005);
      return nullptr;
    }
    if (!CheckFieldValid(source, name)) return nullptr;
  }
  return QueryOrderedBy(source, kSystemIdField);
}

unsigned char ZoSpatialRelModeling::OrdinaryLeastSquares(ZoDatasetVector* source, ZoDatasetVector* result,
                                                         const ZoOLSInformation& info, ZoOLSResult& out,
                                                         unsigned char showProgress) {
  ClearErrorMessage();
  Sink sink([this](const char* id) { AddErrorMessage(id); },
            [this](const LumaUnicodeString& text) { AppendErrorText(text); });
  // Anything that escapes the run (memory included) becomes a message.
  const bool ok = Guard([&] {
    ZoRecordsetPtr records = OpenRegression(source, result, info.DependentField, info.ExplanatoryFields);
    ZoCallProgress progress(m_progress, showProgress != 0);
    return records && regression::RunOls(records.get(), result, info, out, progress, sink);
  });
  if (ok) return 1;
  AddErrorMessage(msg::EUf012);
  return 0;
}

unsigned char ZoSpatialRelModeling::GeographicWeightedRegression(ZoDatasetVector* source, ZoDatasetVector* result,
                                                                 const ZoGWRInformation& info, ZoGWRResult& out,
                                                                 unsigned char showProgress) {
  ClearErrorMessage();
  Sink sink([this](const char* id) { AddErrorMessage(id); },
            [this](const LumaUnicodeString& text) { AppendErrorText(text); });
  // Anything that escapes the run (memory included) becomes a message.
  const bool ok = Guard([&] {
    ZoRecordsetPtr records = OpenRegression(source, result, info.DependentField, info.ExplanatoryFields);
    ZoCallProgress progress(m_progress, showProgress != 0);
    return records && regression::RunGwr(records.get(), result, info, out, progress, sink);
  });
  if (ok) return 1;
  AddErrorMessage(msg::EUf013);
  return 0;
}

unsigned char ZoSpatialRelModeling::InvsMatrix(ZoMatrix& a) { return regression::InvsMatrix(a); }

void ZoSpatialRelModeling::cov(ZoMatrix& x, ZoMatrix& c) { regression::cov(x, c); }

void ZoSpatialRelModeling::corroef(ZoMatrix& x, ZoMatrix& r) { regression::corroef(x, r); }

unsigned char ZoSpatialRelModeling::Eigen(ZoMatrix& a, const double& eps, const int& limit, ZoMatrix& vectors,
                                          LumaArray<double>& values) {
  return regression::JacobiEigen(a, eps, limit, vectors, values);
}

unsigned char ZoSpatialRelModeling::GetConditionIndex(const LumaArray<double>& weights, const ZoMatrix& x,
                                                      double& index) {
  if (regression::ConditionIndex(weights, x, index)) return 1;
  AddErrorMessage(msg::ESa047);
  return 0;
}

}  // namespace ZOC
