#include "StatisticsAnalyst/detail/regression/Ols.h"

#include <Eigen/Dense>
#include <cmath>
#include <limits>

#include "StatisticsAnalyst/detail/regression/MatrixToolkit.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail::regression {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// One pass over the features: ZᵀZ and Zᵀy of the centred design.
void CrossProducts(const Design& d, std::vector<double>& zz, std::vector<double>& zy) {
  const int p = d.p();
  zz.assign(static_cast<std::size_t>(p * p), 0.0);
  zy.assign(static_cast<std::size_t>(p), 0.0);
  std::vector<double> z(static_cast<std::size_t>(p));
  for (std::int64_t i = 0; i < d.n; ++i) {
    d.DesignRow(i, z.data());
    const double y = d.y[static_cast<std::size_t>(i)];
    for (int a = 0; a < p; ++a) {
      zy[a] += z[a] * y;
      for (int b = a; b < p; ++b) zz[a * p + b] += z[a] * z[b];
    }
  }
  for (int a = 0; a < p; ++a)
    for (int b = 0; b < a; ++b) zz[a * p + b] = zz[b * p + a];
}

// What the second pass over the residuals collects.
struct ResidualSums {
  double rss = 0, m3 = 0, m4 = 0;  // Σe², Σe³, Σe⁴
  std::vector<double> meat;        // Σ e² z zᵀ (White)
  std::vector<double> zu;          // Σ e² z (Koenker's auxiliary regression)
};

void Residuals(const Design& d, const std::vector<double>& beta, const std::vector<double>& inverse,
               OlsFeatures& features, ResidualSums& sums) {
  const int p = d.p();
  const auto n = static_cast<std::size_t>(d.n);
  features.predicted.resize(n), features.residual.resize(n), features.standardized.resize(n);
  sums.meat.assign(static_cast<std::size_t>(p * p), 0.0);
  sums.zu.assign(static_cast<std::size_t>(p), 0.0);
  std::vector<double> z(static_cast<std::size_t>(p)), az(static_cast<std::size_t>(p));
  for (std::size_t i = 0; i < n; ++i) {
    d.DesignRow(static_cast<std::int64_t>(i), z.data());
    double fit = 0.0, leverage = 0.0;
    for (int a = 0; a < p; ++a) {
      fit += z[a] * beta[a];
      az[a] = 0.0;
      for (int b = 0; b < p; ++b) az[a] += inverse[a * p + b] * z[b];
      leverage += z[a] * az[a];
    }
    const double e = d.y[i] - fit, e2 = e * e;
    features.predicted[i] = fit, features.residual[i] = e;
    features.standardized[i] = leverage;  // turned into the residual once σ is known
    sums.rss += e2, sums.m3 += e2 * e, sums.m4 += e2 * e2;
    for (int a = 0; a < p; ++a) {
      sums.zu[a] += e2 * z[a];
      for (int b = 0; b < p; ++b) sums.meat[a * p + b] += e2 * z[a] * z[b];
    }
  }
}

// Variance inflation factors: the diagonal of the inverse of the
// explanatory fields' correlation matrix.
void VarianceInflation(const Design& d, ZoOLSResult& out) {
  const int k = d.k;
  ZoMatrix x(k, static_cast<int>(d.n)), r;
  for (std::int64_t i = 0; i < d.n; ++i)
    for (int j = 0; j < k; ++j) x.PutElement(d.Row(i)[j], j, static_cast<int>(i));
  corroef(x, r);
  const bool inverted = r.InvsMatrix();
  out.Coefficients[0].VIF = kNaN;
  for (int j = 0; j < k; ++j)
    out.Coefficients[static_cast<std::size_t>(j + 1)].VIF = inverted ? r.GetElement(j, j) : kNaN;
}

// The condition index of the uncentred design X = (1, x), columns scaled
// to unit length, from a p × p factor with X's singular values: with
// ZᵀZ = UᵀU for the centred design Z and X = Z·M, the factor is U·M. The
// centred cross products keep it accurate when a field has a large offset.
double DesignConditionIndex(const Design& d, const std::vector<double>& zz) {
  const int p = d.p();
  Eigen::MatrixXd a(p, p), m = Eigen::MatrixXd::Identity(p, p);
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) a(i, j) = zz[i * p + j];
  for (int j = 1; j < p; ++j) m(0, j) = d.means[static_cast<std::size_t>(j - 1)];
  Eigen::LLT<Eigen::MatrixXd> llt(a);
  if (llt.info() != Eigen::Success) return std::numeric_limits<double>::infinity();
  const Eigen::MatrixXd u = llt.matrixU() * m;
  ZoMatrix factor(p, p);
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) factor.PutElement(u(i, j), i, j);
  double index = 0.0;
  ConditionIndex(LUMA::LumaArray<double>(static_cast<std::size_t>(p), 1.0), factor, index);
  return index;
}

// Joint Wald test of the slopes under the robust covariance.
void JointWald(const Design& d, const std::vector<double>& beta, const std::vector<double>& robust, ZoOLSResult& out) {
  const int k = d.k, p = d.p();
  ZoMatrix v(k, k);
  for (int a = 0; a < k; ++a)
    for (int b = 0; b < k; ++b) v.PutElement(robust[(a + 1) * p + b + 1], a, b);
  if (!InvsMatrix(v)) {
    out.WaldStatistic = out.WaldPValue = kNaN;
    return;
  }
  double w = 0.0;
  for (int a = 0; a < k; ++a)
    for (int b = 0; b < k; ++b) w += beta[a + 1] * v.GetElement(a, b) * beta[b + 1];
  out.WaldStatistic = w;
  out.WaldPValue = UpperChiSquare(w, k);
}

// Coefficients of the uncentred model with classical and robust inference.
void Coefficients(const Design& d, const std::vector<double>& beta, const std::vector<double>& inverse,
                  const std::vector<double>& robust, ZoOLSResult& out) {
  const int p = d.p();
  const double df = static_cast<double>(d.n - p);
  std::vector<double> classical(static_cast<std::size_t>(p * p)), sandwich(classical.size());
  UncentreCovariance(inverse.data(), p, d.means, classical.data());
  UncentreCovariance(robust.data(), p, d.means, sandwich.data());
  out.Coefficients.assign(static_cast<std::size_t>(p), ZoOLSCoefficient());
  for (int j = 0; j < p; ++j) {
    ZoOLSCoefficient& c = out.Coefficients[static_cast<std::size_t>(j)];
    c.Name = d.names[static_cast<std::size_t>(j)];
    c.Estimate = beta[j];
    if (j == 0)
      for (int a = 1; a < p; ++a) c.Estimate -= beta[a] * d.means[static_cast<std::size_t>(a - 1)];
    c.StdError = std::sqrt(out.Sigma2 * classical[j * p + j]);
    c.TValue = c.Estimate / c.StdError;
    c.PValue = TwoSidedT(c.TValue, df);
    c.RobustStdError = std::sqrt(sandwich[j * p + j]);
    c.RobustTValue = c.Estimate / c.RobustStdError;
    c.RobustPValue = TwoSidedT(c.RobustTValue, df);
  }
}

// R², F, AICc, Koenker's Breusch–Pagan and Jarque–Bera.
void Diagnostics(const Design& d, const std::vector<double>& inverse, const ResidualSums& sums, ZoOLSResult& out) {
  const int p = d.p(), k = d.k;
  const double n = static_cast<double>(d.n);
  double mean = 0.0, tss = 0.0;
  for (double y : d.y) mean += y;
  mean /= n;
  for (double y : d.y) tss += (y - mean) * (y - mean);
  out.RSS = sums.rss;
  out.R2 = 1.0 - sums.rss / tss;
  out.AdjustedR2 = 1.0 - (1.0 - out.R2) * (n - 1.0) / (n - p);
  out.AICc = n * std::log(2.0 * M_PI) + n * std::log(sums.rss / n) + n + 2.0 * n * (p + 1) / (n - p - 2);
  out.FStatistic = ((tss - sums.rss) / k) / (sums.rss / (n - p));
  out.FPValue = UpperF(out.FStatistic, k, n - p);
  // Koenker: n·R² of the regression of e² on the design.
  const double ubar = sums.rss / n;
  double explained = 0.0, total = 0.0;
  std::vector<double> gamma(static_cast<std::size_t>(p), 0.0);
  for (int a = 0; a < p; ++a)
    for (int b = 0; b < p; ++b) gamma[a] += inverse[a * p + b] * sums.zu[b];
  for (int a = 0; a < p; ++a) explained += gamma[a] * sums.zu[a];
  explained -= n * ubar * ubar;
  total = sums.m4 - n * ubar * ubar;
  out.KoenkerBP = total > 0.0 ? n * explained / total : kNaN;
  out.KoenkerBPPValue = total > 0.0 ? UpperChiSquare(out.KoenkerBP, k) : kNaN;
  const double m2 = sums.rss / n, m3 = sums.m3 / n, m4 = sums.m4 / n;
  const double skew = m3 / std::pow(m2, 1.5), kurtosis = m4 / (m2 * m2);
  out.JarqueBera = n / 6.0 * (skew * skew + (kurtosis - 3.0) * (kurtosis - 3.0) / 4.0);
  out.JarqueBeraPValue = UpperChiSquare(out.JarqueBera, 2);
}

// Takes a fit of the normalized design back to the field's own units:
// coefficients and their errors scale by y's factor over their field's,
// values and residuals by y's, the residual sums by its square; every ratio
// (t, p, R², F, the tests, VIF, condition index) is unchanged.
void Unscale(const DesignScale& scale, ZoOLSResult& out, OlsFeatures& features) {
  for (std::size_t j = 0; j < out.Coefficients.size(); ++j) {
    ZoOLSCoefficient& c = out.Coefficients[j];
    const double factor = j == 0 ? scale.y : scale.y / scale.x[j - 1];
    c.Estimate *= factor, c.StdError *= factor, c.RobustStdError *= factor;
  }
  const double square = scale.y * scale.y;
  out.Sigma2 *= square, out.RSS *= square;
  out.AICc += 2.0 * static_cast<double>(out.FeatureCount) * std::log(scale.y);
  for (double& v : features.predicted) v *= scale.y;
  for (double& v : features.residual) v *= scale.y;
}

Status FitNormalized(const Design& design, ZoOLSResult& out, OlsFeatures& features) {
  const int p = design.p();
  std::vector<double> zz, zy, inverse(static_cast<std::size_t>(p * p)), beta(static_cast<std::size_t>(p), 0.0);
  CrossProducts(design, zz, zy);
  if (!InvertSymmetric(zz.data(), p, inverse.data())) return Status::Fail(msg::EUf006);
  for (int a = 0; a < p; ++a)
    for (int b = 0; b < p; ++b) beta[a] += inverse[a * p + b] * zy[b];
  ResidualSums sums;
  Residuals(design, beta, inverse, features, sums);
  double tss = 0.0, mean = 0.0;
  for (double y : design.y) mean += y;
  mean /= static_cast<double>(design.n);
  for (double y : design.y) tss += (y - mean) * (y - mean);
  // An exact fit leaves no residual variance to test against.
  if (!(sums.rss > 1e-24 * tss) || !(sums.rss > 0.0)) return Status::Fail(msg::EUf007);
  out.FeatureCount = design.n;
  out.Sigma2 = sums.rss / static_cast<double>(design.n - p);
  // White's sandwich (XᵀX)⁻¹ (Σ e² z zᵀ) (XᵀX)⁻¹ in the centred coordinates.
  Eigen::Map<const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>> a(inverse.data(), p, p),
      m(sums.meat.data(), p, p);
  const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> sandwich = a * m * a;
  const std::vector<double> robust(sandwich.data(), sandwich.data() + p * p);
  Coefficients(design, beta, inverse, robust, out);
  VarianceInflation(design, out);
  JointWald(design, beta, robust, out);
  Diagnostics(design, inverse, sums, out);
  out.ConditionIndex = DesignConditionIndex(design, zz);
  const double sigma = std::sqrt(out.Sigma2);
  for (std::size_t i = 0; i < features.residual.size(); ++i) {
    const double room = 1.0 - features.standardized[i];
    features.standardized[i] = room > 1e-10 ? features.residual[i] / (sigma * std::sqrt(room)) : kNaN;
  }
  return Status::Ok();
}

}  // namespace

bool SingularDesign(const Design& design) {
  std::vector<double> zz, zy, inverse(static_cast<std::size_t>(design.p() * design.p()));
  CrossProducts(design, zz, zy);
  return !InvertSymmetric(zz.data(), design.p(), inverse.data());
}

Status FitOls(Design& design, ZoOLSResult& out, OlsFeatures& features) {
  const DesignScale scale = Normalize(design);
  const Status status = FitNormalized(design, out, features);
  Restore(design, scale);
  if (status) Unscale(scale, out, features);
  return status;
}

}  // namespace ZOC::detail::regression
