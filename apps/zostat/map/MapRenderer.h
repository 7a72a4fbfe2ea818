#pragma once
// Draws one field of a vector layer as a map: features coloured by the
// field's style, a legend, a title, and for projected data a scale bar and a
// north arrow. Points are circles, lines polylines, regions filled.
#include <functional>
#include <string>

namespace ZOC {
class ZoDatasetVector;
}

namespace zostat::map {

struct MapRequest {
  std::string field;
  std::string output;  // .svg or .png
  std::string title;   // empty: the layer's name and the field
  int width = 1000, height = 720;
  // Polled while features are read and drawn; true stops the map, with
  // "IMb030" in the error. May be empty.
  std::function<bool()> cancelled;
};

// False with a reason in `error`, beginning with its identifier: an
// extension other than .svg or .png "EUa059", no such field "ECd001", a
// layer that cannot be read "EKa013", a file that cannot be written "EUa014",
// a stop "IMb030". Nothing is left at `output` then.
bool RenderMap(ZOC::ZoDatasetVector* dataset, const MapRequest& request, std::string& error);

}  // namespace zostat::map
