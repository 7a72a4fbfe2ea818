#pragma once
// ZoSpatialMeasure: the centre, dispersion and orientation of features, for
// the whole dataset or per case group, written as one result feature per
// group into the caller's result dataset.
//
// Every measure validates the record in the same order: input "EEg002",
// result "EEg032", input type (points, lines or regions) "EEe018",
// statistics fields and types of different counts "ESa001", weight field
// missing "ECd001" or not numeric "ESa003", case field missing "ECd001",
// statistics field missing "ECd001" or non-numeric with a type other than
// First/Last "ESa002". The result fields are then created: the measure's own
// fields (standard distance, ellipse: first; linear directional mean: last),
// "<case field>_Group" with the case value, and "<field>_<suffix>" per
// statistics field. Features are grouped by a pass ordered by the case field
// then "QlID"; only neighbours in that order are compared, text without
// regard to case. Weights come from the weight field, or 1; values not above
// 0 weigh 0 but stay counted. Statistics summaries are finished per group
// (Mean divides by the group's feature count); a group of one feature gets
// its raw values instead (Median null). A failed call leaves what it had
// already written in the result; it returns false with the messages.
//
// A feature is named by its QlID when it cannot be measured: no, an empty or
// a non-finite location "EUc002" (then "ESa008", or "EFd037" for the one
// record of a grouped run), a NaN or infinite weight or statistics value
// "EUc001", a line without a direction "EUc004". On geographic data each
// group is measured in metres on an azimuthal equidistant projection about
// its own centre (the mean of its points' unit vectors; none "ESa060"), and
// centres and regions are given back in the input's coordinates, lengths in
// metres; the linear directional mean measures its lines as given. Weights
// are used relative to the largest, and coordinates beyond 2^200 divided by
// a power of two, so that squared spreads stay finite.
#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoMeasuringInformation.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"

namespace ZOC {

namespace detail::centrography {
struct MeasureCall;
}

class SA_API ZoSpatialMeasure : public ZoAnalysisFrame {
 public:
  using ZoMeasuringInformation = ZOC::ZoMeasuringInformation;
  using ZoStatisticsType = ZOC::ZoStatisticsType;
  using ZoEllipseSize = ZOC::ZoEllipseSize;

  ZoSpatialMeasure() = default;
  ZoSpatialMeasure(const ZoSpatialMeasure&) = default;
  ZoSpatialMeasure& operator=(const ZoSpatialMeasure&) = default;
  ~ZoSpatialMeasure() = default;

  // One point per group at the weighted mean centre. Without a case field
  // there is always one point, (0, 0) for an empty input. "ESa0010" when the
  // weights of a group sum to 0.
  unsigned char MeasureMeanCenter(ZoDatasetVector* input, ZoDatasetVector* output, const ZoMeasuringInformation& info,
                                  unsigned char showProgress);
  // One point per group at the weighted spatial median (iteratively
  // re-weighted mean from the unweighted mean centre, relative tolerance
  // info.Tolerance or 1e-6, absolute 1e-8, at most 99 steps). "ESa017".
  unsigned char MeasureMedianCenter(ZoDatasetVector* input, ZoDatasetVector* output, const ZoMeasuringInformation& info,
                                    unsigned char showProgress);
  // Copies of the group's features with the smallest weighted sum of
  // distances to the others (all tied features). The result must be of the
  // input's type ("EEe017"). Costs k² distances for a group of k features.
  // "ESa016" when the weights of a group sum to 0 or the search is cancelled.
  unsigned char MeasureCentralElement(ZoDatasetVector* input, ZoDatasetVector* output,
                                      const ZoMeasuringInformation& info, unsigned char showProgress);
  // One circle (region) per group: "CircleCenterX", "CircleCenterY",
  // "StandardDistance" = sqrt((Σw dx² + Σw dy²) / Σw) × EllipseSize factor.
  // Fewer than 3 records "ESa013"; a group of fewer than 3 "ESa012"; "ESa073",
  // "ESa015" (no circle, e.g. factor 0).
  unsigned char MeasureStandardDistance(ZoDatasetVector* input, ZoDatasetVector* output,
                                        const ZoMeasuringInformation& info, unsigned char showProgress);
  // One standard deviational ellipse (region) per group: "CircleCenterX",
  // "CircleCenterY", "SemiMajorAxis" (spread along the rotated x direction,
  // not necessarily the longer), "SemiMinorAxis", "RotationAngle" (degrees,
  // sign flipped). Messages as the standard distance, "ESa072" for a failed group.
  unsigned char MeasureDirectionalDistribution(ZoDatasetVector* input, ZoDatasetVector* output,
                                               const ZoMeasuringInformation& info, unsigned char showProgress);
  // One line per group through the mean centre of the lines, as long as
  // their mean length, in their mean direction: "AverageX", "AverageY",
  // "AverageLength", "CompassAngle", "DirectionalMean", "CircleVariance".
  // Input and result must be line datasets ("EEe018"); no records "ESa067".
  // With info.OrientationOnly each line is taken on the side of its axis
  // within 90° of the western end of the lines' mean axis (from the doubled
  // angles); "CompassAngle" is then the orientation in [0, 180), else the
  // bearing in [0, 360).
  unsigned char MeasureLinearDirectionalMean(ZoDatasetVector* input, ZoDatasetVector* output,
                                             const ZoMeasuringInformation& info, unsigned char showProgress);

  // The factor of an ellipse size: 1, 2, 3 for the codes 1 to 3, else 0.
  static double GetEllipseSize(const ZoEllipseSize& size);

 private:
  // Runs one measure with a fresh message and keeps the measure's message.
  unsigned char Run(detail::Status (*measure)(detail::centrography::MeasureCall&), ZoDatasetVector* input,
                    ZoDatasetVector* output, const ZoMeasuringInformation& info, unsigned char showProgress);

  // Supplies the weighted mean centre.
  ZoStatisticsUtilities m_utilities;
};

}  // namespace ZOC
