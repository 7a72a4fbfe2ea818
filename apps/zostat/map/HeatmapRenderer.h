#pragma once
// Draws a square matrix as a heat map on the map canvas (Canvas.h): one cell
// per pair coloured on the maps' continuous ramp with its value written in
// it, the names along the rows and columns, and a colour bar. Presentation
// only.
#include <string>
#include <vector>

#include "Canvas.h"

namespace zostat::map {

struct HeatmapRequest {
  std::string output;  // .svg or .png
  std::string title;
  std::string valueLabel;           // the colour bar's caption, e.g. "q"
  std::vector<std::string> labels;  // the row and column names, in order (n)
  std::vector<double> values;       // n × n, row-major; NaN: no value (a grey cell without a number)
  double low = 0.0, high = 1.0;     // the colour bar's range; values outside it take its end colours
  int width = 0, height = 0;        // 0: sized from n and the label lengths
};

// False with a reason in `error`, beginning with its identifier: an
// extension other than .svg or .png "EUa059", a file that cannot be written
// "EUa014", no labels or a number of values other than n × n "EUa019".
// Nothing is left at `output` then.
bool RenderHeatmap(const HeatmapRequest& request, std::string& error);

}  // namespace zostat::map
