#pragma once
// Plain point records. Coordinates are in the units of the coordinate system
// they came from: dataset units, or metres after a forward projection.

namespace LUMA {

struct LumaPoint2D {
  double x = 0.0;
  double y = 0.0;
  friend bool operator==(const LumaPoint2D&, const LumaPoint2D&) = default;
};

struct LumaPoint3D {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  friend bool operator==(const LumaPoint3D&, const LumaPoint3D&) = default;
};

}  // namespace LUMA
