#pragma once
// ZoClusteringDistributions: per-feature statistics written to a result
// dataset: Getis–Ord Gi* hot spots and Anselin's local Moran's I clusters
// and outliers.
//
// The result must be an empty vector dataset of the source's type; it gets
// a copy of every source record (geometry and the analysed fields) with the
// computed fields. Weights are in memory up to 10000 features and stream
// from a binary weights file beyond that (a temporary one, deleted before
// the call returns) or when the conceptualization names a weights file; then
// the file's unique-ID field is copied too and orders the features.
#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"

namespace ZOC {

class SA_API ZoClusteringDistributions : public ZoAnalysisFrame {
 public:
  ZoClusteringDistributions() = default;

  // Fields: [unique-ID field ("UniqueID" for a system field)], the analysis
  // field ("Assessment" for a system field), [the self-weight field,
  // "SelfWeight" for a system field], "Gi_Zscore", "Gi_Pvalue" (doubles) and
  // "Gi_ConfInvl" (int32 bin -3..3, or FDR-corrected bins with
  // FDRCorrection). The self weight on the diagonal is 1, or the
  // SecondFieldName value when positive (0 otherwise). Weights are raw:
  // row standardization does not apply to Gi*.
  // Messages: "EEg002", "EEg032", "EEe018", "EEe017", "EKa013", the
  // parameter checks, "ESa004", "ESa046", "ELc071", the weights' own,
  // "ESa026", "IMb030", "ESa043".
  unsigned char HotSpotAnalyst(ZoDatasetVector* source, ZoDatasetVector* result, const ZoPatternsInformation& info,
                               unsigned char showProgress);
  // Fields: [unique-ID field], the analysis field, "ALMI_MoranI",
  // "ALMI_Zscore", "ALMI_Pvalue" (doubles) and "ALMI_Type" ("HH", "LL",
  // "HL", "LH" or empty). Row standardization applies. A feature without
  // neighbours gets I = 0, z = 0, p = 1 and no type.
  // Messages as above, without "ESa004"; "ESa034" (with "ESa021" for
  // constant values), "ESa036", "ESa037".
  unsigned char ClusterOutlier(ZoDatasetVector* source, ZoDatasetVector* result, const ZoPatternsInformation& info,
                               unsigned char showProgress);

 private:
  enum class Kind { HotSpot, ClusterOutlier };
  unsigned char RunLocal(ZoDatasetVector* source, ZoDatasetVector* result, const ZoPatternsInformation& info,
                         bool showProgress, Kind kind);
};

}  // namespace ZOC
