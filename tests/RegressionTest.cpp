// Ordinary least squares and geographically weighted regression against
// independent computations with Eigen (QR solves, a plain loop of weighted
// least squares per feature), and their failures.
#include <gtest/gtest.h>
#include <omp.h>

#include <Eigen/Dense>
#include <cmath>
#include <map>
#include <random>

#include "StatisticsAnalyst/ZoSpatialRelModeling.h"
#include "TestSupport.h"
#include "host/ZoRecordset.h"

namespace {

using Columns = std::map<std::string, std::vector<double>>;

// A memory point layer with one double field per column; NaN leaves the value null.
struct Layer {
  std::unique_ptr<ZOC::ZoDataSource> source = ZOC::ZoDataSource::CreateMemory();
  ZOC::ZoDatasetVector* dataset = nullptr;
  ZOC::ZoDatasetVector* result = nullptr;
};

std::unique_ptr<Layer> MakeLayer(const std::vector<LUMA::LumaPoint2D>& points, const Columns& columns) {
  auto layer = std::make_unique<Layer>();
  layer->dataset = layer->source->CreateDatasetVector("in", ZOC::DatasetPoint, ZOC::ZoPrjCoordSys());
  layer->result = layer->source->CreateDatasetVector("out", ZOC::DatasetPoint, ZOC::ZoPrjCoordSys());
  for (const auto& [name, values] : columns) layer->dataset->CreateField(LUMA::LumaFieldInfo(name, LUMA::FieldDouble));
  layer->dataset->CreateField(LUMA::LumaFieldInfo("LABEL", LUMA::FieldText));
  ZOC::ZoRecordset* writer = layer->dataset->Query(ZOC::ZoQueryDef());
  for (std::size_t i = 0; i < points.size(); ++i) {
    writer->AddNew(ZOC::ZoGeometry::MakePoint(points[i]));
    for (const auto& [name, values] : columns)
      if (!std::isnan(values[i])) writer->SetFieldValue(name, LUMA::LumaVariant(values[i]));
    writer->SetFieldValue("LABEL", LUMA::LumaVariant("a"));
    writer->Update();
  }
  layer->dataset->ReleaseRecordset(writer);
  layer->dataset->Commit();
  return layer;
}

std::vector<double> ReadField(ZOC::ZoDatasetVector* dataset, const char* field) {
  std::vector<double> values;
  ZOC::ZoRecordsetPtr records(dataset->Query(ZOC::ZoQueryDef()));
  LUMA::LumaVariant v;
  for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
    records->GetFieldValue(field, v);
    values.push_back(v.IsNull() ? NAN : v.ToDouble());
  }
  return values;
}

// y = 3 + 2·x1 − 0.5·(x2 − 1e6) + noise growing with x1; x2 sits far from 0.
struct Sample {
  std::vector<LUMA::LumaPoint2D> points;
  Columns columns;
  Eigen::MatrixXd X;
  Eigen::VectorXd y;
};

Sample MakeSample(std::size_t n, unsigned seed) {
  Sample s;
  s.points = satest::RandomPoints(n, 10.0, seed);
  std::mt19937 rng(seed);
  std::normal_distribution<double> noise(0.0, 1.0);
  s.X.resize(static_cast<long>(n), 3), s.y.resize(static_cast<long>(n));
  for (std::size_t i = 0; i < n; ++i) {
    const double x1 = s.points[i].x + noise(rng), x2 = 1e6 + s.points[i].y * s.points[i].x / 5 + noise(rng);
    const double y = 3 + 2 * x1 - 0.5 * (x2 - 1e6) + 0.3 * s.points[i].y * x1 / 10 + (0.5 + x1 / 5) * noise(rng);
    s.columns["X1"].push_back(x1), s.columns["X2"].push_back(x2), s.columns["Y"].push_back(y);
    const auto r = static_cast<long>(i);
    s.X(r, 0) = 1, s.X(r, 1) = x1, s.X(r, 2) = x2, s.y(r) = y;
  }
  return s;
}

void ExpectRelative(double ours, double theirs, double tolerance, const char* what) {
  EXPECT_LE(std::fabs(ours - theirs), tolerance * std::max(std::fabs(theirs), 1e-300)) << what << ": " << ours
                                                                                        << " vs " << theirs;
}

// Solves with a QR factorisation; (XᵀX)⁻¹ = R⁻¹R⁻ᵀ stays accurate for the offset field.
Eigen::MatrixXd InverseCross(const Eigen::MatrixXd& X) {
  const Eigen::HouseholderQR<Eigen::MatrixXd> qr(X);
  const Eigen::MatrixXd r = qr.matrixQR().topRows(X.cols()).triangularView<Eigen::Upper>();
  const Eigen::MatrixXd ri = r.triangularView<Eigen::Upper>().solve(Eigen::MatrixXd::Identity(X.cols(), X.cols()));
  return ri * ri.transpose();
}

double RSquared(const Eigen::MatrixXd& X, const Eigen::VectorXd& y) {
  const Eigen::VectorXd e = y - X * X.householderQr().solve(y);
  return 1.0 - e.squaredNorm() / (y.array() - y.mean()).square().sum();
}

TEST(OrdinaryLeastSquares, MatchesAQrSolutionAndTheTextbookDiagnostics) {
  const Sample s = MakeSample(60, 11);
  auto layer = MakeLayer(s.points, s.columns);
  ZOC::ZoOLSInformation info;
  info.DependentField = "Y";
  info.ExplanatoryFields = {"X1", "X2"};
  info.MoranWeights.Conceptualization = ZOC::KNearestNeighbors;
  info.MoranWeights.KNeighbors = 5;
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoOLSResult r;
  ASSERT_TRUE(modeling.OrdinaryLeastSquares(layer->dataset, layer->result, info, r, false))
      << modeling.GetStrErrorMes().Str();

  const double n = 60, p = 3;
  const Eigen::MatrixXd inv = InverseCross(s.X);
  const Eigen::VectorXd beta = s.X.householderQr().solve(s.y), e = s.y - s.X * beta;
  const double rss = e.squaredNorm(), sigma2 = rss / (n - p);
  const Eigen::MatrixXd white = inv * s.X.transpose() * e.array().square().matrix().asDiagonal() * s.X * inv;
  ASSERT_EQ(r.Coefficients.size(), 3u);
  EXPECT_EQ(r.Coefficients[0].Name.Str(), "Intercept");
  for (int j = 0; j < 3; ++j) {
    const auto& c = r.Coefficients[static_cast<std::size_t>(j)];
    ExpectRelative(c.Estimate, beta(j), 1e-8, "estimate");
    ExpectRelative(c.StdError, std::sqrt(sigma2 * inv(j, j)), 1e-8, "std error");
    ExpectRelative(c.RobustStdError, std::sqrt(white(j, j)), 1e-8, "robust std error");
  }
  // VIF = 1 / (1 − R²) of each explanatory field on the others.
  for (int j = 1; j < 3; ++j) {
    Eigen::MatrixXd others(60, 2);
    others << Eigen::VectorXd::Ones(60), s.X.col(3 - j);
    ExpectRelative(r.Coefficients[static_cast<std::size_t>(j)].VIF, 1.0 / (1.0 - RSquared(others, s.X.col(j))), 1e-8,
                   "VIF");
  }
  EXPECT_TRUE(std::isnan(r.Coefficients[0].VIF));
  const double tss = (s.y.array() - s.y.mean()).square().sum(), r2 = 1 - rss / tss;
  ExpectRelative(r.R2, r2, 1e-10, "R2");
  ExpectRelative(r.AdjustedR2, 1 - (1 - r2) * (n - 1) / (n - p), 1e-10, "adjusted R2");
  ExpectRelative(r.FStatistic, (tss - rss) / 2 / sigma2, 1e-9, "F");
  const double aic = n * std::log(2 * M_PI) + n * std::log(rss / n) + n + 2 * (p + 1);
  ExpectRelative(r.AICc, aic + 2 * (p + 1) * (p + 2) / (n - p - 2), 1e-10, "AICc");
  const Eigen::Vector2d slopes = beta.tail(2);
  ExpectRelative(r.WaldStatistic, slopes.dot(white.bottomRightCorner(2, 2).inverse() * slopes), 1e-8, "Wald");
  ExpectRelative(r.KoenkerBP, n * RSquared(s.X, e.array().square().matrix()), 1e-8, "Koenker BP");
  const double m2 = e.array().square().mean(), m3 = e.array().cube().mean(), m4 = e.array().pow(4).mean();
  const double skew = m3 / std::pow(m2, 1.5), kurt = m4 / (m2 * m2);
  ExpectRelative(r.JarqueBera, n / 6 * (skew * skew + (kurt - 3) * (kurt - 3) / 4), 1e-8, "Jarque-Bera");
  Eigen::MatrixXd unit = s.X;
  for (int j = 0; j < 3; ++j) unit.col(j) /= unit.col(j).norm();
  const Eigen::VectorXd sv = Eigen::JacobiSVD<Eigen::MatrixXd>(unit).singularValues();
  ExpectRelative(r.ConditionIndex, sv(0) / sv(2), 1e-6, "condition index");
  EXPECT_TRUE(r.HasResidualMoran);

  // The result layer: fitted values, residuals and internally studentized residuals.
  const auto predicted = ReadField(layer->result, "Predicted"), residual = ReadField(layer->result, "Residual"),
             standardized = ReadField(layer->result, "StdResid"), y = ReadField(layer->result, "Y");
  ASSERT_EQ(residual.size(), 60u);
  const Eigen::MatrixXd q = s.X.householderQr().householderQ() * Eigen::MatrixXd::Identity(60, 3);
  for (long i = 0; i < 60; ++i) {
    const auto k = static_cast<std::size_t>(i);
    EXPECT_NEAR(residual[k], e(i), 1e-8);
    EXPECT_NEAR(predicted[k] + residual[k], y[k], 1e-8);
    const double h = q.row(i).squaredNorm();  // the leverage
    EXPECT_NEAR(standardized[k], e(i) / std::sqrt(sigma2 * (1 - h)), 1e-8);
  }
}

// A failing call appends these messages and leaves the result layer empty.
void ExpectFailure(ZOC::ZoDatasetVector* source, ZOC::ZoDatasetVector* result, const char* dependent,
                   std::vector<LUMA::LumaUnicodeString> explanatory, const char* id) {
  ZOC::ZoOLSInformation info;
  info.DependentField = dependent;
  info.ExplanatoryFields.assign(explanatory.begin(), explanatory.end());
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoOLSResult r;
  EXPECT_FALSE(modeling.OrdinaryLeastSquares(source, result, info, r, false)) << id;
  EXPECT_NE(modeling.GetStrErrorMes().Str().find(id), std::string::npos) << modeling.GetStrErrorMes().Str();
  EXPECT_NE(modeling.GetStrErrorMes().Str().find("EUf012"), std::string::npos);
  EXPECT_EQ(result->GetRecordCount(), 0);
  EXPECT_EQ(result->GetFieldInfos().size(), 1u);  // "QlID" only: no field was created
}

TEST(OrdinaryLeastSquares, RefusesModelsItCannotEstimate) {
  Sample s = MakeSample(12, 3);
  s.columns["TWICE"] = s.columns["X1"];
  for (auto& v : s.columns["TWICE"]) v = 2 * v + 1;
  s.columns["GAPPY"] = s.columns["X1"];
  s.columns["GAPPY"][7] = NAN;
  auto layer = MakeLayer(s.points, s.columns);
  ExpectFailure(layer->dataset, layer->result, "Y", {"X1", "TWICE"}, "EUf006");
  ExpectFailure(layer->dataset, layer->result, "Y", {"X1", "X1"}, "EUf006");
  ExpectFailure(layer->dataset, layer->result, "Y", {"Y"}, "EUf007");
  ExpectFailure(layer->dataset, layer->result, "Y", {"GAPPY"}, "EUf003");
  ExpectFailure(layer->dataset, layer->result, "Y", {"LABEL"}, "ESa006");
  ExpectFailure(layer->dataset, layer->result, "Y", {"NOPE"}, "ECd001");
  ExpectFailure(layer->dataset, layer->result, "Y", {}, "EUf001");
  // 12 features carry at most 8 explanatory fields (9 coefficients + 3).
  ExpectFailure(layer->dataset, layer->result, "Y", {"X1", "X2", "X1", "X2", "X1", "X2", "X1", "X2", "X1"},
                "EUf005");
}

}  // namespace
