// Ordinary least squares and geographically weighted regression against
// independent computations with Eigen (QR solves, a plain loop of weighted
// least squares per feature), and their failures.
#include <gtest/gtest.h>
#include <omp.h>

#include <Eigen/Dense>
#include <cmath>
#include <map>
#include <random>

#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"
#include "StatisticsAnalyst/ZoSpatialRelModeling.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"
#include "StatisticsAnalyst/detail/regression/Gwr.h"
#include "TestSupport.h"
#include "host/ZoMessageIds.h"
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
  EXPECT_LE(std::fabs(ours - theirs), tolerance * std::max(std::fabs(theirs), 1e-300))
      << what << ": " << ours << " vs " << theirs;
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

// Y on X1 and X2, the residual Moran's I under k nearest neighbours.
ZOC::ZoOLSInformation YOnX1X2(int k) {
  ZOC::ZoOLSInformation info;
  info.DependentField = "Y";
  info.ExplanatoryFields = {"X1", "X2"};
  info.MoranWeights.Conceptualization = ZOC::KNearestNeighbors;
  info.MoranWeights.KNeighbors = k;
  return info;
}

ZOC::ZoOLSResult Ols(ZOC::ZoDatasetVector* input, ZOC::ZoDatasetVector* result, const ZOC::ZoOLSInformation& info) {
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoOLSResult r;
  EXPECT_TRUE(modeling.OrdinaryLeastSquares(input, result, info, r, false)) << modeling.GetStrErrorMes().Str();
  return r;
}

// The diagnostics that involve the explanatory fields, on a field far from 0;
// all of them against lm on real data in tests/crosscheck/crosscheck.R.
TEST(OrdinaryLeastSquares, MatchesAQrSolutionAndTheTextbookDiagnostics) {
  const Sample s = MakeSample(60, 11);
  auto layer = MakeLayer(s.points, s.columns);
  const ZOC::ZoOLSResult r = Ols(layer->dataset, layer->result, YOnX1X2(5));
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
  const double aic = n * std::log(2 * M_PI) + n * std::log(rss / n) + n + 2 * (p + 1);
  ExpectRelative(r.AICc, aic + 2 * (p + 1) * (p + 2) / (n - p - 2), 1e-10, "AICc");
  const Eigen::Vector2d slopes = beta.tail(2);
  ExpectRelative(r.WaldStatistic, slopes.dot(white.bottomRightCorner(2, 2).inverse() * slopes), 1e-8, "Wald");
  ExpectRelative(r.KoenkerBP, n * RSquared(s.X, e.array().square().matrix()), 1e-8, "Koenker BP");
  Eigen::MatrixXd unit = s.X;
  for (int j = 0; j < 3; ++j) unit.col(j) /= unit.col(j).norm();
  const Eigen::VectorXd sv = Eigen::JacobiSVD<Eigen::MatrixXd>(unit).singularValues();
  ExpectRelative(r.ConditionIndex, sv(0) / sv(2), 1e-6, "condition index");
  EXPECT_TRUE(r.HasResidualMoran);
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
  EXPECT_NE(modeling.GetStrErrorMes().Str().find(ZOC::msg::EUf012), std::string::npos);
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
  ExpectFailure(layer->dataset, layer->result, "Y", {"X1", "TWICE"}, ZOC::msg::EUf006);
  ExpectFailure(layer->dataset, layer->result, "Y", {"X1", "X1"}, ZOC::msg::EUf006);
  ExpectFailure(layer->dataset, layer->result, "Y", {"Y"}, ZOC::msg::EUf007);
  ExpectFailure(layer->dataset, layer->result, "Y", {"GAPPY"}, ZOC::msg::EUf003);
  ExpectFailure(layer->dataset, layer->result, "Y", {"LABEL"}, ZOC::msg::ESa006);
  ExpectFailure(layer->dataset, layer->result, "Y", {"NOPE"}, ZOC::msg::ECd001);
  ExpectFailure(layer->dataset, layer->result, "Y", {}, ZOC::msg::EUf001);
  // 12 features carry at most 8 explanatory fields (9 coefficients + 3).
  ExpectFailure(layer->dataset, layer->result, "Y", {"X1", "X2", "X1", "X2", "X1", "X2", "X1", "X2", "X1"},
                ZOC::msg::EUf005);
}

// The residual Moran's I is computed from the residuals in memory; under a
// weights file whose rows follow a unique-ID field in another order than
// QlID it must be the global Moran's I of the "Residual" field written. A
// result dataset or none gives the same summary.
TEST(OrdinaryLeastSquares, ResidualMoranIsTheGlobalMoranOfTheWrittenResiduals) {
  const Sample s = MakeSample(90, 23);
  auto layer = MakeLayer(s.points, s.columns);
  std::vector<double> keys;
  for (int k = 0; k < 90; ++k) keys.push_back(1000 - 7 * k);
  satest::AddField(layer->dataset, "KEY", LUMA::FieldInt32, keys);
  satest::TempDir dir;
  ZOC::ZoOLSInformation info = YOnX1X2(6);
  ZOC::ZoWeightsUtilities builder;
  ASSERT_TRUE(builder.BuildWeightMatrixBinary(layer->dataset, "KEY", dir.File("w.swmb"), info.MoranWeights, false));
  info.MoranWeights.Conceptualization = ZOC::SpatialWeightsFile;
  info.MoranWeights.WeightsFilePath = dir.File("w.swmb");
  const ZOC::ZoOLSResult r = Ols(layer->dataset, layer->result, info), alone = Ols(layer->dataset, nullptr, info);
  ASSERT_TRUE(r.HasResidualMoran);
  EXPECT_EQ(alone.AICc, r.AICc);
  EXPECT_EQ(alone.ResidualMoran.Index, r.ResidualMoran.Index);
  ZOC::ZoPatternsInformation global = info.MoranWeights;
  global.FieldName = "Residual";
  ZOC::ZoAnalyzingPatterns patterns;
  ZOC::ZoAnalyzingPatterns::ZoAnalyzingExponent reference;
  ASSERT_TRUE(patterns.SpatialAutocorrelation(layer->result, global, reference, false))
      << patterns.GetStrErrorMes().Str();
  ExpectRelative(r.ResidualMoran.Index, reference.Index, 1e-10, "I");
  ExpectRelative(r.ResidualMoran.ZScore, reference.ZScore, 1e-9, "z");
  ExpectRelative(r.ResidualMoran.Variance, reference.Variance, 1e-9, "variance");
}

// Least squares is equivariant under scaling: fields of 1e200, whose
// squares overflow, fit as the same fields near 1 would, and a dependent
// field of 1e250 is no exact fit.
TEST(OrdinaryLeastSquares, HugeFieldsFitAsTheirScaledDownSelves) {
  Sample s = MakeSample(50, 8);
  auto plain = MakeLayer(s.points, s.columns);
  for (double& v : s.columns["X1"]) v *= 1e200;
  for (double& v : s.columns["Y"]) v *= 1e250;
  auto huge = MakeLayer(s.points, s.columns);
  ZOC::ZoOLSInformation info;
  info.DependentField = "Y";
  info.ExplanatoryFields = {"X1", "X2"};
  info.ResidualMoran = false;
  const ZOC::ZoOLSResult a = Ols(plain->dataset, nullptr, info), b = Ols(huge->dataset, nullptr, info);
  ASSERT_TRUE(a.Coefficients.size() == 3 && b.Coefficients.size() == 3);
  const double factor[] = {1e250, 1e50, 1e250};
  for (std::size_t j = 0; j < 3; ++j) {
    ExpectRelative(b.Coefficients[j].Estimate, a.Coefficients[j].Estimate * factor[j], 1e-12, "estimate");
    ExpectRelative(b.Coefficients[j].RobustStdError, a.Coefficients[j].RobustStdError * factor[j], 1e-12, "robust");
    ExpectRelative(b.Coefficients[j].TValue, a.Coefficients[j].TValue, 1e-12, "t");
  }
  ExpectRelative(b.R2, a.R2, 1e-12, "R2");
  ExpectRelative(b.KoenkerBP, a.KoenkerBP, 1e-10, "Koenker");
  EXPECT_TRUE(std::isinf(b.RSS));  // 1e500 is beyond a double
}

// ---- Geographically weighted regression.

// A plain loop of weighted least squares per feature, the textbook way.
struct Reference {
  Eigen::MatrixXd beta, se;
  Eigen::VectorXd predicted, leverage, localR2, condition;
  double trace = 0, rss = 0, sigma = 0, aicc = 0;
};

Reference ReferenceGwr(const Sample& s, ZOC::ZoGWRKernel kernel, bool adaptive, double b) {
  const long n = s.X.rows(), p = s.X.cols();
  Reference r;
  r.beta.resize(n, p), r.se.resize(n, p), r.predicted.resize(n), r.leverage.resize(n), r.localR2.resize(n);
  r.condition.resize(n);
  Eigen::MatrixXd cct(n, p);
  for (long i = 0; i < n; ++i) {
    Eigen::VectorXd d(n), w(n);
    for (long j = 0; j < n; ++j)
      d(j) = std::hypot(s.points[static_cast<std::size_t>(i)].x - s.points[static_cast<std::size_t>(j)].x,
                        s.points[static_cast<std::size_t>(i)].y - s.points[static_cast<std::size_t>(j)].y);
    std::vector<double> sorted(d.data(), d.data() + n);
    std::sort(sorted.begin(), sorted.end());
    const double bw = adaptive ? sorted[static_cast<std::size_t>(b) - 1] : b;
    for (long j = 0; j < n; ++j)
      w(j) = kernel == ZOC::GWRGaussian ? std::exp(-0.5 * (d(j) / bw) * (d(j) / bw))
                                        : (d(j) < bw ? std::pow(1 - (d(j) / bw) * (d(j) / bw), 2) : 0.0);
    const Eigen::MatrixXd xtw = s.X.transpose() * w.asDiagonal();
    const Eigen::MatrixXd c = (xtw * s.X).ldlt().solve(xtw);  // p × n
    r.beta.row(i) = (c * s.y).transpose();
    r.predicted(i) = s.X.row(i).dot(r.beta.row(i));
    r.leverage(i) = s.X.row(i).dot(c.col(i));
    cct.row(i) = (c * c.transpose()).diagonal().transpose();
    const double mean = w.dot(s.y) / w.sum();
    const Eigen::VectorXd fit = s.X * r.beta.row(i).transpose();
    r.localR2(i) = 1 - w.dot((s.y - fit).array().square().matrix()) / w.dot((s.y.array() - mean).square().matrix());
    Eigen::MatrixXd z = w.cwiseSqrt().asDiagonal() * s.X;
    for (long j = 0; j < p; ++j) z.col(j) /= z.col(j).norm();
    const Eigen::VectorXd sv = Eigen::JacobiSVD<Eigen::MatrixXd>(z).singularValues();
    r.condition(i) = sv(0) / sv(p - 1);
  }
  r.rss = (s.y - r.predicted).squaredNorm(), r.trace = r.leverage.sum();
  const double nn = static_cast<double>(n), sigma2 = r.rss / (nn - r.trace);
  r.sigma = std::sqrt(sigma2);
  r.se = (cct * sigma2).cwiseSqrt();
  r.aicc = nn * std::log(r.rss / nn) + nn * std::log(2 * M_PI) + nn * (nn + r.trace) / (nn - 2 - r.trace);
  return r;
}

Sample GwrSample(std::size_t n, unsigned seed) {
  Sample s = MakeSample(n, seed);
  for (long i = 0; i < s.X.rows(); ++i) s.X(i, 2) -= 1e6 - 50;  // a modest offset: the reference has no centring
  for (auto& v : s.columns["X2"]) v -= 1e6 - 50;
  return s;
}

ZOC::ZoGWRInformation GwrInfo(ZOC::ZoGWRKernel kernel, ZOC::ZoGWRBandwidthType type, double b) {
  ZOC::ZoGWRInformation info;
  info.DependentField = "Y";
  info.ExplanatoryFields = {"X1", "X2"};
  info.Kernel = kernel, info.BandwidthType = type, info.Bandwidth = b;
  return info;
}

// Fits into a new result layer of the source; the fit must succeed.
ZOC::ZoGWRResult Gwr(Layer& layer, const std::string& name, const ZOC::ZoGWRInformation& info,
                     ZOC::ZoDatasetVector*& out) {
  out = layer.source->CreateDatasetVector(name, ZOC::DatasetPoint, ZOC::ZoPrjCoordSys());
  ZOC::ZoSpatialRelModeling modeling;
  ZOC::ZoGWRResult r;
  EXPECT_TRUE(modeling.GeographicWeightedRegression(layer.dataset, out, info, r, false))
      << modeling.GetStrErrorMes().Str();
  return r;
}

TEST(GeographicallyWeightedRegression, EveryKernelAndBandwidthMatchesAPlainWeightedLeastSquaresLoop) {
  const Sample s = GwrSample(300, 21);
  auto layer = MakeLayer(s.points, s.columns);
  struct Case {
    ZOC::ZoGWRKernel kernel;
    ZOC::ZoGWRBandwidthType type;
    double b;
  };
  // The last adaptive case has more neighbours than the tree is asked for;
  // the very wide Gaussian kernel is ordinary least squares.
  const Case cases[] = {{ZOC::GWRGaussian, ZOC::GWRFixed, 2.0},    {ZOC::GWRBisquare, ZOC::GWRFixed, 3.5},
                        {ZOC::GWRGaussian, ZOC::GWRAdaptive, 12},  {ZOC::GWRBisquare, ZOC::GWRAdaptive, 15},
                        {ZOC::GWRBisquare, ZOC::GWRAdaptive, 270}, {ZOC::GWRGaussian, ZOC::GWRFixed, 1e9}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.b);
    ZOC::ZoDatasetVector* out = nullptr;
    const ZOC::ZoGWRResult r = Gwr(*layer, "gwr" + std::to_string(&c - cases), GwrInfo(c.kernel, c.type, c.b), out);
    const Reference ref = ReferenceGwr(s, c.kernel, c.type == ZOC::GWRAdaptive, c.b);
    ExpectRelative(r.EffectiveParameters, ref.trace, 1e-9, "trace");
    ExpectRelative(r.RSS, ref.rss, 1e-9, "RSS");
    ExpectRelative(r.Sigma, ref.sigma, 1e-9, "sigma");
    ExpectRelative(r.AICc, ref.aicc, 1e-9, "AICc");
    EXPECT_EQ(r.Bandwidth, c.b);
    const char* names[] = {"Intercept", "X1", "X2"};
    for (int j = 0; j < 3; ++j) {
      const auto coef = satest::Column(out, (std::string("Coef_") + names[j]).c_str());
      const auto se = satest::Column(out, (std::string("SE_") + names[j]).c_str());
      for (long i = 0; i < 300; ++i) {
        EXPECT_NEAR(coef[static_cast<std::size_t>(i)], ref.beta(i, j), 1e-7 * (1 + std::fabs(ref.beta(i, j))));
        EXPECT_NEAR(se[static_cast<std::size_t>(i)], ref.se(i, j), 1e-7 * (1 + ref.se(i, j)));
      }
    }
    const auto r2 = satest::Column(out, "LocalR2"), predicted = satest::Column(out, "Predicted"),
               standardized = satest::Column(out, "StdResid"), condition = satest::Column(out, "CondNumber");
    for (long i = 0; i < 300; ++i) {
      const auto u = static_cast<std::size_t>(i);
      EXPECT_NEAR(r2[u], ref.localR2(i), 1e-8);
      EXPECT_NEAR(predicted[u], ref.predicted(i), 1e-8 * (1 + std::fabs(ref.predicted(i))));
      const double e = s.y(i) - ref.predicted(i);
      EXPECT_NEAR(standardized[u], e / (ref.sigma * std::sqrt(1 - ref.leverage(i))), 1e-7);
      EXPECT_NEAR(condition[u], ref.condition(i), 1e-6 * ref.condition(i));
    }
  }
}

// A given bandwidth and a searched one; the search itself is checked against
// a scan of every bandwidth in tests/crosscheck/crosscheck.R.
TEST(GeographicallyWeightedRegression, ResultsDoNotDependOnTheThreadCount) {
  const Sample s = GwrSample(600, 8);
  auto layer = MakeLayer(s.points, s.columns);
  std::vector<std::vector<double>> runs;
  for (int threads : {1, 2, 1, 2}) {
    const bool search = runs.size() >= 2;
    omp_set_num_threads(threads);
    ZOC::ZoDatasetVector* out = nullptr;
    const auto info =
        search ? GwrInfo(ZOC::GWRGaussian, ZOC::GWRFixed, -1) : GwrInfo(ZOC::GWRBisquare, ZOC::GWRAdaptive, 40);
    const ZOC::ZoGWRResult r = Gwr(*layer, "t" + std::to_string(runs.size()), info, out);
    EXPECT_EQ(r.BandwidthSearched, search);
    runs.push_back(satest::Column(out, "Coef_X2"));
    runs.back().push_back(r.Bandwidth), runs.back().push_back(r.AICc);
  }
  omp_set_num_threads(omp_get_num_procs());
  EXPECT_EQ(runs[0], runs[1]);
  EXPECT_EQ(runs[2], runs[3]);
}

// A search trial reaches AICc by other paths than the full fit (weighted
// sums of precomputed products; dense kernel rows by matrix product;
// neighbours selected, or sorted once for the whole search): every path
// must give the full fit's AICc.
TEST(GeographicallyWeightedRegression, SearchTrialsGiveTheFullFitsAiccOnEveryPath) {
  const Sample s = GwrSample(1100, 17);
  auto layer = MakeLayer(s.points, s.columns);
  ZOC::ZoRecordsetPtr records(layer->dataset->Query(ZOC::ZoQueryDef()));
  ZOC::detail::CallProgress progress(nullptr, false);
  ZOC::detail::regression::Design design;
  ASSERT_TRUE(ZOC::detail::regression::ReadDesign(records.get(), "Y", {"X1", "X2"}, progress, design));
  std::vector<LUMA::LumaPoint3D> points;
  for (const auto& q : s.points) points.push_back({q.x, q.y, 0.0});
  struct Case {
    ZOC::ZoGWRKernel kernel;
    ZOC::ZoGWRBandwidthType type;
    std::vector<double> bandwidths;
  };
  // Adaptive bisquare: the tree (100), selection (270), a dense product
  // (500, 900); each again from the sorted neighbours.
  const Case cases[] = {{ZOC::GWRBisquare, ZOC::GWRAdaptive, {100, 270, 500, 900}},
                        {ZOC::GWRGaussian, ZOC::GWRAdaptive, {40, 700}},
                        {ZOC::GWRGaussian, ZOC::GWRFixed, {0.4, 3.0}},
                        {ZOC::GWRBisquare, ZOC::GWRFixed, {2.5}}};
  for (const Case& c : cases) {
    ZOC::detail::regression::GwrModel model(design, points, c.kernel, c.type, 1);
    ASSERT_TRUE(model.Build(true));
    ZOC::detail::regression::NeighbourOrder order;
    ASSERT_TRUE(model.SortNeighbours(900, order, {}));
    for (double b : c.bandwidths) {
      SCOPED_TRACE(b);
      ZOC::detail::regression::GwrFeatures features;
      ZOC::detail::regression::GwrSummary summary;
      ASSERT_TRUE(model.Fit(b, features, summary, {}));
      bool cancelled = false;
      ExpectRelative(model.Aicc(b, {}, cancelled), summary.aicc, 1e-10, "trial");
      if (c.type == ZOC::GWRAdaptive)
        ExpectRelative(model.Aicc(b, {}, cancelled, &order), summary.aicc, 1e-10, "sorted");
      EXPECT_FALSE(cancelled);
    }
  }
}

TEST(GeographicallyWeightedRegression, BandwidthsThatCannotFitFailCleanly) {
  const Sample s = GwrSample(30, 4);
  auto layer = MakeLayer(s.points, s.columns);
  struct Case {
    ZOC::ZoGWRBandwidthType type;
    double b;
    const char* id;
  };
  // Bisquare, p = 3: 3 neighbours leave 2 with weight, 4 leave 3 (an exact local fit).
  const Case cases[] = {{ZOC::GWRAdaptive, 3, ZOC::msg::EUf009},   {ZOC::GWRAdaptive, 4, ZOC::msg::EUf010},
                        {ZOC::GWRAdaptive, 4.5, ZOC::msg::EUf008}, {ZOC::GWRAdaptive, 31, ZOC::msg::EUf008},
                        {ZOC::GWRFixed, -2, ZOC::msg::EUf008},     {ZOC::GWRFixed, 1e-3, ZOC::msg::EUf009}};
  for (const Case& c : cases) {
    ZOC::ZoSpatialRelModeling modeling;
    ZOC::ZoGWRResult r;
    EXPECT_FALSE(modeling.GeographicWeightedRegression(layer->dataset, layer->result,
                                                       GwrInfo(ZOC::GWRBisquare, c.type, c.b), r, false));
    EXPECT_NE(modeling.GetStrErrorMes().Str().find(c.id), std::string::npos) << c.b << modeling.GetStrErrorMes().Str();
    EXPECT_NE(modeling.GetStrErrorMes().Str().find(ZOC::msg::EUf013), std::string::npos);
    EXPECT_EQ(layer->result->GetRecordCount(), 0);
    EXPECT_EQ(layer->result->GetFieldInfos().size(), 1u);
  }
}

}  // namespace
