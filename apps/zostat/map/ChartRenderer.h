#pragma once
// Draws one series as a line chart on the map canvas (Canvas.h): axes with
// round tick values and labels, a line through the points with a marker on
// each, and marked points (peaks, say) in their own colours with a legend.
// Presentation only.
#include <string>
#include <vector>

#include "Canvas.h"

namespace zostat::map {

struct ChartMark {
  std::string label;  // the legend's words for points with this mark
  Rgb colour;
};

struct ChartPoint {
  double x = 0, y = 0;
  bool valid = true;  // false: no value here; the line breaks and no marker is drawn
  int mark = -1;      // an index into ChartRequest::marks, or -1 for a plain marker
};

struct ChartRequest {
  std::string output;  // .svg or .png
  std::string title, xLabel, yLabel;
  std::string missingLabel = "no value";  // the legend's words for points without a value
  std::vector<ChartPoint> points;         // in drawing order (ascending x)
  std::vector<ChartMark> marks;
  int width = 900, height = 560;
};

// False with a reason in `error`, beginning with its identifier: an
// extension other than .svg or .png "EUa059", a file that cannot be written
// "EUa014". Nothing is left at `output` then.
bool RenderChart(const ChartRequest& request, std::string& error);

}  // namespace zostat::map
