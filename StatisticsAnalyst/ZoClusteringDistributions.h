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
//
// Analysis values that are NaN or infinite fail with "EUc001" naming the
// first such feature (QlID); values of any finite magnitude are exact. A
// z-score that is not finite (constant values) is never significant: its bin
// is 0 and it gets no type. P-values lie in [0, 1].
#include "StatisticsAnalyst/Export.h"
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoClusterInformation.h"
#include "StatisticsAnalyst/ZoOptimizedInformation.h"
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

  // One part of a dataset split over processes (ZoPartitionInformation.h):
  // the part's candidates for the false discovery rate of Gi*
  // (clusterOutlier false) or local Moran's I, computed as HotSpotAnalyst or
  // ClusterOutlier would before binning, nothing written. Messages as those.
  bool PartitionTests(ZoDatasetVector* source, const ZoPatternsInformation& info, bool clusterOutlier,
                      ZoPartitionTests& tests);
  // Every part's tests put together (arrays concatenated) into the whole
  // dataset's levels, for `whole` (FdrIds, FdrLevels, FdrMean) of `count`
  // features: each part then bins as one run over all features does.
  // False for arrays of unequal lengths.
  static bool PartitionFdr(const ZoPartitionTests& all, std::int64_t count, ZoPartition& whole);

  // Density-based clustering of a point dataset into an empty result
  // dataset of the same type: every source point, in "QlID" order, with
  // "Source_ID" (its QlID) and "Cluster_ID" (1, 2, ...; -1 for noise).
  // HDBSCAN adds "Prob" (membership probability), "Outlier" (GLOSH score),
  // "Exemplar" (1 or 0) and "Stability" (of the point's cluster); OPTICS
  // writes "Source_ID", "Cluster_ID", "Reachability" (-1 for none) and
  // "Order" (the 1-based position in the OPTICS ordering).
  // Messages: "EEg002", "EEg032", "EEe018", "EEe017", "ESa074" (replacing
  // the message), "EKa013", "EEg024", "ESa008", "ESa032", "ESa024",
  // "ELc071", "IMb030", "EUc010" and the EUe... identifiers of this
  // analysis. An unknown method fails with an empty message. `summary`,
  // when given, receives what a successful call found.
  unsigned char DensityBasedClustering(ZoDatasetVector* source, ZoDatasetVector* result,
                                       const ZoClusterInformation& info, unsigned char showProgress,
                                       ZoClusterSummary* summary = nullptr);

  // Optimized hot spot analysis: Gi* (FDR-corrected bins) over a distance
  // band chosen from the data. Without an analysis field the source's points
  // are incidents, aggregated first into "Count" per grid cell, integrated
  // point or polygon (see ZoOptimizedInformation); with one, the features
  // are analysed as they are. The band is the first peak of the incremental
  // spatial autocorrelation of the counts or values (row-standardized, 10
  // bands from the default distances); without a peak, the mean distance to
  // the K-th nearest neighbour. The result, an empty dataset of
  // OptimizedResultType, gets what HotSpotAnalyst writes for the aggregated
  // layer (or the source) with that band. `report`, when given, receives
  // every choice made. Messages: "EEg002", "EEg032", "EEe018" (incidents
  // must be points), "EEe017", "ESa090", "ESa091", "ESa092", "ESa093",
  // "ESa094", "ESa086" to "ESa089" (aggregation), the incremental
  // autocorrelation's and the hot spot analysis' own, "IMb030", then
  // "ESa095".
  unsigned char OptimizedHotSpotAnalyst(ZoDatasetVector* source, ZoDatasetVector* result,
                                        const ZoOptimizedInformation& info, unsigned char showProgress,
                                        ZoOptimizedReport* report = nullptr);
  // The dataset type OptimizedHotSpotAnalyst writes: the source's with an
  // analysis field, regions for grid cells and polygons, points for
  // integration.
  static int OptimizedResultType(const ZoOptimizedInformation& info, int sourceType);

 private:
  // The checks every local analysis starts with, in their fixed order, and
  // the source's records in QlID order; null after the messages.
  ZoRecordsetPtr OpenLocalRecords(ZoDatasetVector* source, ZoDatasetVector* result, const ZoPatternsInformation& info,
                                  const LumaUnicodeString& selfWeightField);
};

}  // namespace ZOC
