// zostat weights dump: prints a weights file (the library's diagnostic dump).
#include <cstdio>

#include "Command.h"
#include "StatisticsAnalyst/ZoWeightsUtilities.h"

namespace zostat {

namespace {

int RunWeightsDump(const Options& options) {
  const std::string weights = options.Require("weights");
  ZOC::ZoWeightsUtilities utilities;
  const bool ok =
      options.Has("text") ? utilities.ReadWeightMatrixText(weights) : utilities.ReadWeightMatrixTextEx(weights);
  std::fflush(stdout);
  if (!ok) throw Failure(utilities.GetStrErrorMes().Str());
  return 0;
}

}  // namespace

Command WeightsDumpCommand() {
  return {"weights dump",
          "print a weights file: the unique IDs, the row sums when standardized, then one 'i j weight' line "
          "per neighbour",
          "--weights FILE.swmb [--text]",
          {{"weights", true, "weights file to print (.swmb)"},
           {"text", false, "the weights file is in the text form (its name must end in lower-case .swmb)"},
           {"help", false, "show this command's usage"}},
          RunWeightsDump};
}

}  // namespace zostat
