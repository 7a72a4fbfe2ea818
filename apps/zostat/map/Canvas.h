#pragma once
// A drawing surface for maps in pixel coordinates (origin top left): SVG
// written directly, PNG through cairo. Presentation only.
#include <memory>
#include <string>
#include <vector>

namespace zostat::map {

struct Rgb {
  double r = 0, g = 0, b = 0;       // 0..1
  static Rgb Hex(const char* hex);  // "#rrggbb"
  std::string ToHex() const;
};

struct Pt {
  double x = 0, y = 0;
};

enum class Anchor { Start, Middle, End };

class Canvas {
 public:
  virtual ~Canvas() = default;
  // Rings filled with the even-odd rule, so holes stay open.
  virtual void Polygon(const std::vector<std::vector<Pt>>& rings, Rgb fill, Rgb stroke, double width) = 0;
  virtual void Polyline(const std::vector<Pt>& points, Rgb stroke, double width) = 0;
  virtual void Circle(Pt centre, double radius, Rgb fill, Rgb stroke, double width) = 0;
  virtual void Text(Pt at, const std::string& text, double size, bool bold, Anchor anchor, Rgb colour = {}) = 0;
  // A vertical colour ramp, `stops` from the top to the bottom.
  virtual void Ramp(Pt topLeft, double width, double height, const std::vector<Rgb>& stops) = 0;
  // Writes the file (to a temporary name first, renamed when complete);
  // false with a reason.
  virtual bool Save(const std::string& path, std::string& error) = 0;
};

// The canvas for the file's extension: .svg or .png (any case); null for others.
std::unique_ptr<Canvas> MakeCanvas(const std::string& path, int width, int height);
// Whether MakeCanvas makes one for the file's extension.
bool HasCanvasExtension(const std::string& path);

}  // namespace zostat::map
