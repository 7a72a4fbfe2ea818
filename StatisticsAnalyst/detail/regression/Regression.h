#pragma once
// What ordinary least squares and geographically weighted regression share:
// the model's values read from the records, small symmetric solves, the
// distributions of the tests, and the writing of the result dataset.
#include <cstdint>
#include <functional>
#include <vector>

#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "StatisticsAnalyst/detail/common/CallProgress.h"
#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaFieldInfo.h"
#include "host/LumaPoint.h"
#include "host/LumaUnicodeString.h"
#include "host/LumaVariant.h"

namespace ZOC::detail::regression {

using detail::Status;

// The model's values, one row per feature in the records' order. The
// explanatory values are stored centred on their means (the centring is
// undone for the intercept and in the reported coefficients), which keeps
// the cross-product sums accurate when a field has a large offset.
struct Design {
  std::int64_t n = 0;
  int k = 0;                             // explanatory fields; p = k + 1 coefficients
  std::vector<LumaUnicodeString> names;  // "Intercept", then the field names
  std::vector<double> y;                 // n
  std::vector<double> x;                 // n × k, row-major, centred
  std::vector<double> means;             // k

  int p() const { return k + 1; }
  const double* Row(std::int64_t i) const {
    return x.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(k);
  }
  // The design row z = (1, x_i − mean) into out[0..p).
  void DesignRow(std::int64_t i, double* out) const {
    out[0] = 1.0;
    const double* r = Row(i);
    for (int j = 0; j < k; ++j) out[j + 1] = r[j];
  }
};

// What a caller may ask of every record besides its values, read in the
// same pass: its QlID and, with wantPoints, its representative point (as the
// weights read them). A record without a point leaves its failure ("EUc002")
// in `status`, for the caller to report only if it needs the points.
struct DesignExtras {
  bool wantPoints = false;
  std::vector<std::int64_t> ids;
  LumaArray<LUMA::LumaPoint2D> points;
  Status status;
};

// Reads the dependent and explanatory values of every record, in order, and
// the extras when `extras` is not null. Null values fail with "EUf003",
// non-finite ones with "EUf004", a cancellation with "IMb030".
Status ReadDesign(ZoRecordset* records, const LumaUnicodeString& dependent,
                  const LumaArray<LumaUnicodeString>& explanatory, detail::CallProgress& progress, Design& design,
                  DesignExtras* extras = nullptr);

// Powers of two that bring y and every centred explanatory column to
// magnitudes near 1. Least squares is equivariant under such scalings, so a
// field of values near 1e200, whose squares overflow, is fitted as one near
// 1; and power-of-two factors are exact, so ordinary data fit the same to
// the last bit.
struct DesignScale {
  double y = 1.0;
  std::vector<double> x;  // k
};
// Divides y by scale.y and every column (and its mean) by scale.x; Restore
// multiplies them back.
DesignScale Normalize(Design& design);
void Restore(Design& design, const DesignScale& scale);

// Inverts the symmetric p × p matrix a (row-major) through its unit-diagonal
// scaling D^-½·a·D^-½ and the toolkit's Gauss–Jordan inverse. False when a
// diagonal element is not positive or the scaled matrix's smallest
// eigenvalue is below 1e-12 of its largest (numerically singular).
bool InvertSymmetric(const double* a, int p, double* inverse);
// sqrt(λmax / λmin) of the unit-diagonal scaling of a symmetric positive
// definite matrix: the condition number of the design whose cross products
// a holds, columns scaled to unit length. Infinite when it is singular.
double ScaledConditionNumber(const double* a, int p);
// The cross products of the uncentred design (1, x) from those of the
// centred one: a' = Mᵀ·a·M with M = [[1, meansᵀ], [0, I]].
void Uncentre(const double* a, int p, const std::vector<double>& means, double* out);
// The covariance of the uncentred coefficients from that of the centred
// ones: T·c·Tᵀ with T = [[1, −meansᵀ], [0, I]] (only the intercept changes).
void UncentreCovariance(const double* c, int p, const std::vector<double>& means, double* out);

// Upper tails: two-sided Student t, F and χ².
double TwoSidedT(double t, double df);
double UpperF(double f, double df1, double df2);
double UpperChiSquare(double x, double df);

// The result dataset: a copy of every record (geometry and the copied
// source fields, system fields renamed "Source_<name>") with the fields
// `own`, whose values fill(k, values) gives for the k-th record. Field names
// are made valid for the format first. Fails with "ELc071" (after "IMb030"
// when cancelled).
using FillValues = std::function<void(std::int64_t, std::vector<LUMA::LumaVariant>&)>;
// The final names of the own fields are written back into `own`.
Status WriteResult(ZoRecordset* records, ZoDatasetVector* result, const std::vector<LumaUnicodeString>& copied,
                   LUMA::LumaFieldInfos& own, detail::CallProgress& progress, const FillValues& fill);

}  // namespace ZOC::detail::regression
