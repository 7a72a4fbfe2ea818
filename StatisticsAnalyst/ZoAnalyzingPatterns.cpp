// The public calls of ZoAnalyzingPatterns. Each checks its input through the
// frame, chooses the call's progress and hands the work to the global
// statistics under detail/global/.
#include "StatisticsAnalyst/ZoAnalyzingPatterns.h"

#include "StatisticsAnalyst/detail/common/Status.h"
#include "StatisticsAnalyst/detail/geodetector/GeoDetector.h"
#include "StatisticsAnalyst/detail/global/GlobalStatistic.h"
#include "StatisticsAnalyst/detail/global/Incremental.h"
#include "StatisticsAnalyst/detail/global/MinimumAreaRectangle.h"
#include "StatisticsAnalyst/detail/global/NearestNeighbour.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

bool ZoAnalyzingPatterns::SpatialAutocorrelation(ZoDatasetVector* dataset, const ZoPatternsInformation& info,
                                                 ZoAnalyzingExponent& result, bool showProgress) {
  ClearErrorMessage();
  return Guard(
      [&] {
        ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
        if (!records) return false;
        detail::CallProgress progress(m_progress, showProgress);
        return Report(detail::global::Run(records.get(), info, detail::global::Kind::Moran, progress, result));
      },
      msg::ESa041);
}

bool ZoAnalyzingPatterns::IncrementalSpatialAutocorrelation(ZoDatasetVector* dataset,
                                                            const ZoIncrementalInformation& info,
                                                            ZoIncrementalResult& result, bool showProgress) {
  ClearErrorMessage();
  return Guard(
      [&] {
        // The frame's checks of a fixed distance band analysis of the field.
        ZoPatternsInformation weights;
        weights.FieldName = info.FieldName;
        weights.Conceptualization = FixedDistanceBand;
        weights.DistanceMethod = info.DistanceMethod;
        weights.Standardization = info.Standardization;
        ZoRecordsetPtr records = OpenAnalysisRecords(dataset, weights);
        if (!records) return false;
        detail::CallProgress progress(m_progress, showProgress);
        return Report(detail::global::Incremental(records.get(), info, progress, result).Then(msg::ESa085));
      },
      msg::ESa085);
}

bool ZoAnalyzingPatterns::GeographicalDetector(ZoDatasetVector* dataset, const ZoGeoDetectorInformation& info,
                                               ZoGeoDetectorResult& result, bool showProgress,
                                               ZoDatasetVector* strata) {
  ClearErrorMessage();
  return Guard(
      [&] {
        detail::CallProgress progress(m_progress, showProgress);
        return Report(detail::geodetector::Run(dataset, info, progress, result, strata).Then(msg::ESa107));
      },
      msg::ESa107);
}

unsigned char ZoAnalyzingPatterns::HighOrLowCluster(ZoDatasetVector* dataset, const ZoPatternsInformation& info,
                                                    ZoAnalyzingExponent& result, unsigned char showProgress) {
  ClearErrorMessage();
  return Guard(
      [&]() -> unsigned char {
        ZoRecordsetPtr records = OpenAnalysisRecords(dataset, info);
        if (!records) return 0;
        detail::CallProgress progress(m_progress, showProgress != 0);
        return Report(detail::global::Run(records.get(), info, detail::global::Kind::GeneralG, progress, result));
      },
      msg::ESa035);
}

unsigned char ZoAnalyzingPatterns::AverageNearestNeighbor(ZoDatasetVector* dataset, double area,
                                                          const ZoDistanceMethod& method, ZoAnalyzingExponent& result,
                                                          unsigned char useDefaultWidth, double width,
                                                          unsigned char showProgress) {
  ClearErrorMessage();
  return Guard([&]() -> unsigned char {
    if (!CheckAnalysisDataset(dataset)) return 0;
    detail::CallProgress progress(m_progress, showProgress != 0);
    const detail::global::NearestNeighbourInput input{area, method, useDefaultWidth != 0, width};
    return Report(detail::global::AverageNearestNeighbour(dataset, input, progress, result));
  });
}

unsigned char ZoAnalyzingPatterns::GetMinAreaRect1(const LumaArray<LumaPoint2D>& hull, LumaPoint2D& centre,
                                                   LumaPoint2D& u, LumaPoint2D& v, double& length, double& width,
                                                   double& area) {
  return Guard([&]() -> unsigned char {
    detail::global::Rectangle rect;
    if (!Report(detail::global::MinimumAreaRectangle(hull, rect))) return 0;
    centre = rect.centre, u = rect.u, v = rect.v;
    length = rect.length, width = rect.width, area = rect.area;
    return 1;
  });
}

// ---------------------------------------------- copies and the K-nearest flag matrix

ZoAnalyzingPatterns::~ZoAnalyzingPatterns() { CloseWeightsDictionary(); }

ZoAnalyzingPatterns::ZoAnalyzingPatterns(const ZoAnalyzingPatterns& other)
    : ZoAnalysisFrame(other), m_utilities(other.m_utilities) {}

ZoAnalyzingPatterns& ZoAnalyzingPatterns::operator=(const ZoAnalyzingPatterns& other) {
  if (this != &other) {
    CloseWeightsDictionary();
    ZoAnalysisFrame::operator=(other);
    m_utilities = other.m_utilities;
  }
  return *this;
}

bool ZoAnalyzingPatterns::OpenWeightsDictionary(const LumaUnicodeString& path) {
  return Guard([&]() -> bool {
    CloseWeightsDictionary();
    m_flagMatrix = std::fopen(path.c_str(), "rb");
    if (!m_flagMatrix) AddErrorMessage(msg::ESa049);
    return m_flagMatrix != nullptr;
  });
}

void ZoAnalyzingPatterns::CloseWeightsDictionary() {
  if (m_flagMatrix) std::fclose(m_flagMatrix);
  m_flagMatrix = nullptr;
}

unsigned char ZoAnalyzingPatterns::ReadWeightMatrixBinaryK(int n, LumaArray<double>& row) {
  return Guard([&]() -> unsigned char {
    if (!m_flagMatrix) {
      AddErrorMessage(msg::EEg020);
      return 0;
    }
    // n is the caller's feature count; a short file shows in the read.
    if (n < 0) {
      AddErrorMessage(msg::ESa046);
      return 0;
    }
    std::vector<unsigned char> block(static_cast<std::size_t>(n));
    if (n > 0 && std::fread(block.data(), 1, block.size(), m_flagMatrix) != block.size()) {
      AddErrorMessage(msg::ESa046);
      return 0;
    }
    row.resize(block.size());
    for (std::size_t i = 0; i < block.size(); ++i) row[i] = block[i] != 0 ? 1.0 : 0.0;
    return 1;
  });
}

}  // namespace ZOC
