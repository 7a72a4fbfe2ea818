#pragma once
// How a result field is coloured: the confidence bins of hot spots, the
// cluster/outlier types, cluster ids (noise grey), or a continuous ramp for
// any other number. The Python package's plots use the same colours.
#include <string>
#include <vector>

#include "Canvas.h"

namespace zostat::map {

struct MapClass {
  std::string value;  // the field value as text ("-3", "HH", "" ...)
  std::string label;
  Rgb colour;
};

struct MapStyle {
  bool continuous = false;
  std::vector<MapClass> classes;  // classified fields
  double low = 0, high = 0;       // continuous fields
  Rgb missing = Rgb::Hex("#d9d9d9");
  Rgb Colour(const std::string& text, double number, bool isNull) const;
};

// The style of `field` given its values: text for classified fields,
// numbers (when `numeric`) for the ramp.
MapStyle ChooseStyle(const std::string& field, bool numeric, const std::vector<std::string>& texts,
                     const std::vector<double>& numbers);

// The ramp's colour stops, from low to high.
const std::vector<Rgb>& RampStops();

}  // namespace zostat::map
