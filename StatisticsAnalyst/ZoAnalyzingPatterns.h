#pragma once
// ZoAnalyzingPatterns: global statistics of a whole dataset.
#include "StatisticsAnalyst/ZoAnalysisFrame.h"
#include "StatisticsAnalyst/ZoPatternsInformation.h"

namespace ZOC {

class ZoAnalyzingPatterns : public ZoAnalysisFrame {
 public:
  // The result of a global statistic, written only when the analysis succeeds.
  struct ZoAnalyzingExponent {
    double Index = 0.0;          // the observed statistic
    double ExpectedIndex = 0.0;  // its expectation under the null hypothesis
    double Variance = 0.0;       // its variance under the null hypothesis
    double ZScore = 0.0;         // (Index − ExpectedIndex) / sqrt(Variance)
    double PValue = 0.0;         // two-sided p-value of ZScore
  };

  ZoAnalyzingPatterns() = default;
};

}  // namespace ZOC
