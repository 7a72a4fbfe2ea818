#pragma once
// Reading what the analyses need from each feature (a value of the analysis
// field, a representative point) with the checks that make the statistics
// meaningful: a failure names the feature by its QlID, so a user can find
// the one bad record among a million.
#include <cstdint>

#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/LumaArray.h"
#include "host/LumaPoint.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {
class ZoGeometry;
class ZoRecordset;
}  // namespace ZOC

namespace ZOC::detail {

// The field's value for every record, in the recordset's order. A value that
// is NaN or infinite fails with "EUc001" naming the record's QlID and the
// field; with nonNegative a negative value fails with "ESa022".
Status ReadFieldValues(ZoRecordset* records, const LUMA::LumaUnicodeString& field, bool nonNegative,
                       LUMA::LumaArray<double>& values);

// The current record's representative point (the point itself, or the
// centroid of a line or region); false when its geometry is missing or empty.
bool RecordPoint(ZoRecordset* records, ZoGeometry& geometry, LUMA::LumaPoint2D& point);

// One representative point per record (the point itself, or the centroid of
// a line or region), in the recordset's order. A missing or empty geometry
// fails with "EUc002" naming the record's QlID.
Status ReadFeaturePoints(ZoRecordset* records, LUMA::LumaArray<LUMA::LumaPoint2D>& points);

// What an analysis reads from every feature, in one pass over the records:
// the values (as ReadFieldValues reads them), optionally a second field's
// values (`extra`, checked alike) and the representative points (as
// ReadFeaturePoints reads them, when `points` is not null). A failure of the
// analysis values is returned at once; a failure of the extra values is
// returned after the pass (a bad analysis value anywhere is reported first,
// as when each is read in its own pass); a point's failure is left in
// `pointsStatus` (and the points emptied) for the caller to report where it
// would have read them.
Status ReadFeatures(ZoRecordset* records, const LUMA::LumaUnicodeString& field, bool nonNegative,
                    LUMA::LumaArray<double>& values, const LUMA::LumaUnicodeString& extraField,
                    LUMA::LumaArray<double>& extra, LUMA::LumaArray<LUMA::LumaPoint2D>* points, Status& pointsStatus);

// Values far from 1 in magnitude overflow (or underflow) the squares and
// fourth powers the statistics sum. Every statistic here is unchanged when
// all values are multiplied by one factor, so values whose largest magnitude
// lies beyond 2^±200 are divided by a power of two that brings it near 1:
// such a division is exact, so nothing else about the numbers changes.
// Returns the divisor used (1 when the values are left alone).
double ScaleToUnitRange(LUMA::LumaArray<double>& values);
// The same for coordinates: both axes divided by one power of two, so that
// distances, squared spreads and their sums stay finite (and exact ratios
// keep ties) for coordinates near 1e300. Returns the divisor used.
double ScaleToUnitRange(LUMA::LumaArray<LUMA::LumaPoint2D>& points);

// A two-sided p-value of z held to [0, 1]; the polynomial approximation of
// the normal tail gives slightly more than 1 for z near 0.
double ClampedPvalue(double z);

}  // namespace ZOC::detail
