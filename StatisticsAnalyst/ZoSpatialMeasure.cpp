#include "StatisticsAnalyst/ZoSpatialMeasure.h"

#include "StatisticsAnalyst/detail/centrography/Measures.h"
#include "StatisticsAnalyst/detail/common/Status.h"

namespace ZOC {

namespace {

using Measure = detail::Status (*)(detail::centrography::MeasureCall&);

}  // namespace

unsigned char ZoSpatialMeasure::Run(Measure measure, ZoDatasetVector* input, ZoDatasetVector* output,
                                    const ZoMeasuringInformation& info, unsigned char showProgress) {
  detail::centrography::MeasureCall call;
  call.input = input;
  call.output = output;
  call.info = &info;
  call.showProgress = showProgress != 0;
  call.callerProgress = m_progress;
  ClearErrorMessage();
  return Guard([&]() -> unsigned char { return Report(measure(call)); });
}

unsigned char ZoSpatialMeasure::MeasureMeanCenter(ZoDatasetVector* input, ZoDatasetVector* output,
                                                  const ZoMeasuringInformation& info, unsigned char showProgress) {
  return Run(detail::centrography::MeanCenter, input, output, info, showProgress);
}

unsigned char ZoSpatialMeasure::MeasureMedianCenter(ZoDatasetVector* input, ZoDatasetVector* output,
                                                    const ZoMeasuringInformation& info, unsigned char showProgress) {
  return Run(detail::centrography::MedianCenter, input, output, info, showProgress);
}

unsigned char ZoSpatialMeasure::MeasureCentralElement(ZoDatasetVector* input, ZoDatasetVector* output,
                                                      const ZoMeasuringInformation& info, unsigned char showProgress) {
  return Run(detail::centrography::CentralElement, input, output, info, showProgress);
}

unsigned char ZoSpatialMeasure::MeasureStandardDistance(ZoDatasetVector* input, ZoDatasetVector* output,
                                                        const ZoMeasuringInformation& info,
                                                        unsigned char showProgress) {
  return Run(detail::centrography::StandardDistance, input, output, info, showProgress);
}

unsigned char ZoSpatialMeasure::MeasureDirectionalDistribution(ZoDatasetVector* input, ZoDatasetVector* output,
                                                               const ZoMeasuringInformation& info,
                                                               unsigned char showProgress) {
  return Run(detail::centrography::DirectionalDistribution, input, output, info, showProgress);
}

unsigned char ZoSpatialMeasure::MeasureLinearDirectionalMean(ZoDatasetVector* input, ZoDatasetVector* output,
                                                             const ZoMeasuringInformation& info,
                                                             unsigned char showProgress) {
  return Run(detail::centrography::LinearDirectionalMean, input, output, info, showProgress);
}

double ZoSpatialMeasure::GetEllipseSize(const ZoEllipseSize& size) { return detail::centrography::EllipseFactor(size); }

}  // namespace ZOC
