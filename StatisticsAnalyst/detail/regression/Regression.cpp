#include "StatisticsAnalyst/detail/regression/Regression.h"

#include "StatisticsAnalyst/detail/common/FeatureData.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "StatisticsAnalyst/detail/regression/MatrixToolkit.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoGeometry.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace ZOC::detail::regression {

namespace {

// The unit-diagonal scaling of a symmetric matrix; false when a diagonal
// element is not positive.
bool Scaled(const double* a, int p, Eigen::MatrixXd& s, Eigen::VectorXd& d) {
  d.resize(p);
  for (int i = 0; i < p; ++i) {
    const double v = a[i * p + i];
    if (!(v > 0.0) || !std::isfinite(v)) return false;
    d(i) = 1.0 / std::sqrt(v);
  }
  s.resize(p, p);
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) s(i, j) = a[i * p + j] * d(i) * d(j);
  return true;
}

// λmin / λmax of a symmetric matrix; 0 when not positive definite.
double EigenRatio(const Eigen::MatrixXd& s) {
  Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(s, Eigen::EigenvaluesOnly);
  if (solver.info() != Eigen::Success) return 0.0;
  const auto& values = solver.eigenvalues();  // increasing
  if (!(values(0) > 0.0)) return 0.0;
  return values(0) / values(values.size() - 1);
}

constexpr double kSingularRatio = 1e-12;

// Centres the explanatory values on their means.
void Centre(Design& design) {
  const std::int64_t n = design.n;
  const int k = design.k;
  for (int j = 0; j < k; ++j) {
    double sum = 0.0;
    for (std::int64_t r = 0; r < n; ++r) sum += design.Row(r)[j];
    const double mean = sum / static_cast<double>(n);
    design.means[static_cast<std::size_t>(j)] = mean;
    for (std::int64_t r = 0; r < n; ++r) design.x[static_cast<std::size_t>(r) * k + j] -= mean;
  }
}

// The record's representative point, or the failure naming it.
void ReadPoint(ZoRecordset* records, ZoGeometry& geometry, DesignExtras& out) {
  LUMA::LumaPoint2D p;
  if (detail::RecordPoint(records, geometry, p)) {
    out.points.push_back(p);
    return;
  }
  out.status = Status::Fail(msg::EUc002, {std::to_string(records->GetID()).c_str()});
  out.points.clear();
}

}  // namespace

Status ReadDesign(ZoRecordset* records, const LumaUnicodeString& dependent,
                  const LumaArray<LumaUnicodeString>& explanatory, detail::CallProgress& progress, Design& design,
                  DesignExtras* extras) {
  const std::int64_t n = records->GetRecordCount();
  const int k = static_cast<int>(explanatory.size());
  design.n = n;
  design.k = k;
  design.names.assign(1, LumaUnicodeString("Intercept"));
  for (const auto& name : explanatory) design.names.push_back(name);
  design.y.assign(static_cast<std::size_t>(n), 0.0);
  design.x.assign(static_cast<std::size_t>(n) * static_cast<std::size_t>(k), 0.0);
  design.means.assign(static_cast<std::size_t>(k), 0.0);
  if (extras) {
    extras->ids.clear(), extras->points.clear(), extras->status = {};
    extras->ids.reserve(static_cast<std::size_t>(n));
    if (extras->wantPoints) extras->points.reserve(static_cast<std::size_t>(n));
  }
  const LumaUnicodeString format = ZoStringEx::LoadResString(msg::IMf002);
  LUMA::LumaVariant value;
  ZoGeometry geometry;
  std::int64_t i = 0;
  auto read = [&](const LumaUnicodeString& field, double& out) -> const char* {
    if (!records->GetFieldValue(field, value) || value.IsNull()) return msg::EUf003;
    out = value.ToDouble();
    return std::isfinite(out) ? nullptr : msg::EUf004;
  };
  for (bool more = records->MoveFirst(); more && !records->IsEOF() && i < n; more = records->MoveNext(), ++i) {
    if ((i & 1023) == 0 && !progress.Step(format, i, n)) return Status::Fail(msg::IMb030);
    if (const char* id = read(dependent, design.y[static_cast<std::size_t>(i)])) return Status::Fail(id);
    double* row = design.x.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(k);
    for (int j = 0; j < k; ++j)
      if (const char* id = read(explanatory[static_cast<std::size_t>(j)], row[j])) return Status::Fail(id);
    if (extras) extras->ids.push_back(records->GetID());
    if (extras && extras->wantPoints && extras->status) ReadPoint(records, geometry, *extras);
  }
  if (i != n) return Status::Fail(msg::EKa013);
  Centre(design);
  return Status::Ok();
}

namespace {

// The power of two nearest above the largest magnitude; 1 for none.
double PowerOfTwoScale(double largest) {
  if (!(largest > 0.0) || !std::isfinite(largest)) return 1.0;
  return std::ldexp(1.0, std::ilogb(largest) + 1);
}

void Multiply(Design& d, double yFactor, const std::vector<double>& xFactor) {
  for (double& y : d.y) y *= yFactor;
  const auto k = static_cast<std::size_t>(d.k);
  for (std::size_t i = 0; i < d.x.size(); ++i) d.x[i] *= xFactor[i % k];
  for (std::size_t j = 0; j < k; ++j) d.means[j] *= xFactor[j];
}

}  // namespace

DesignScale Normalize(Design& d) {
  DesignScale scale;
  const auto k = static_cast<std::size_t>(d.k);
  double y = 0.0;
  for (double v : d.y) y = std::max(y, std::abs(v));
  std::vector<double> x(k, 0.0);
  for (std::size_t i = 0; i < d.x.size(); ++i) x[i % k] = std::max(x[i % k], std::abs(d.x[i]));
  scale.y = PowerOfTwoScale(y);
  scale.x.resize(k);
  std::vector<double> inverse(k);
  for (std::size_t j = 0; j < k; ++j) scale.x[j] = PowerOfTwoScale(x[j]), inverse[j] = 1.0 / scale.x[j];
  Multiply(d, 1.0 / scale.y, inverse);
  return scale;
}

void Restore(Design& d, const DesignScale& scale) { Multiply(d, scale.y, scale.x); }

bool InvertSymmetric(const double* a, int p, double* inverse) {
  Eigen::MatrixXd s;
  Eigen::VectorXd d;
  if (!Scaled(a, p, s, d) || EigenRatio(s) < kSingularRatio) return false;
  ZoMatrix m(p, p);
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) m.PutElement(s(i, j), i, j);
  if (!InvsMatrix(m)) return false;
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) inverse[i * p + j] = m.GetElement(i, j) * d(i) * d(j);
  return true;
}

double ScaledConditionNumber(const double* a, int p) {
  Eigen::MatrixXd s;
  Eigen::VectorXd d;
  const double ratio = Scaled(a, p, s, d) ? EigenRatio(s) : 0.0;
  return ratio > 0.0 ? std::sqrt(1.0 / ratio) : std::numeric_limits<double>::infinity();
}

void Uncentre(const double* a, int p, const std::vector<double>& means, double* out) {
  Eigen::MatrixXd m = Eigen::MatrixXd::Identity(p, p), c(p, p);
  for (int j = 1; j < p; ++j) m(0, j) = means[static_cast<std::size_t>(j - 1)];
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) c(i, j) = a[i * p + j];
  const Eigen::MatrixXd r = m.transpose() * c * m;
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) out[i * p + j] = r(i, j);
}

void UncentreCovariance(const double* c, int p, const std::vector<double>& means, double* out) {
  Eigen::MatrixXd t = Eigen::MatrixXd::Identity(p, p), m(p, p);
  for (int j = 1; j < p; ++j) t(0, j) = -means[static_cast<std::size_t>(j - 1)];
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) m(i, j) = c[i * p + j];
  const Eigen::MatrixXd r = t * m * t.transpose();
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) out[i * p + j] = r(i, j);
}

Status WriteResult(ZoRecordset* records, ZoDatasetVector* result, const std::vector<LumaUnicodeString>& copied,
                   LUMA::LumaFieldInfos& own, detail::CallProgress& progress, const FillValues& fill) {
  ZoDatasetVector* source = records->GetDataset();
  LUMA::LumaFieldInfos fields;
  for (const auto& name : copied) {
    LUMA::LumaFieldInfo field;
    source->GetFieldInfo(name, field);
    if (field.IsSystemField()) {
      const LumaUnicodeString renamed = "Source_" + field.GetName();
      field.SetName(renamed);
      field.SetCaption(renamed);
      field.SetSystemField(false);
    }
    fields.push_back(field);
  }
  const std::size_t firstOwn = fields.size();
  for (auto& field : own) fields.push_back(field);
  if (!ZoEngineToolkit::CreateValidFields(result, fields)) return Status::Fail(msg::ELc071);
  if (!result->GetPrjCoordSys().IsSame(source->GetPrjCoordSys())) result->SetPrjCoordSys(source->GetPrjCoordSys());
  std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>> fieldMap;
  for (std::size_t f = 0; f < firstOwn; ++f) fieldMap.push_back({copied[f], fields[f].GetName()});
  std::vector<LumaUnicodeString> ownNames;
  for (std::size_t f = firstOwn; f < fields.size(); ++f) ownNames.push_back(fields[f].GetName());
  own.assign(fields.begin() + static_cast<long>(firstOwn), fields.end());
  if (progress) progress->SetMessage(ZoStringEx::LoadResString(msg::IMb037));
  const bool appended = result->AppendRecords(records, fieldMap, progress.get(), ownNames,
                                              [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
                                                fill(k, values);
                                                return true;
                                              });
  if (!appended || !result->Commit())
    return progress && progress->IsCanceled() ? Status::Fail(msg::IMb030).Then(msg::ELc071) : Status::Fail(msg::ELc071);
  return Status::Ok();
}

}  // namespace ZOC::detail::regression
