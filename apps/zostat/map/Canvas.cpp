#include "Canvas.h"

#include <cairo.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace zostat::map {

Rgb Rgb::Hex(const char* hex) {
  unsigned r = 0, g = 0, b = 0;
  std::sscanf(hex, "#%02x%02x%02x", &r, &g, &b);
  return {r / 255.0, g / 255.0, b / 255.0};
}

std::string Rgb::ToHex() const {
  char text[8];
  auto byte = [](double v) { return static_cast<unsigned>(std::clamp(v, 0.0, 1.0) * 255.0 + 0.5); };
  std::snprintf(text, sizeof text, "#%02x%02x%02x", byte(r), byte(g), byte(b));
  return text;
}

namespace {

// Writes through a sibling temporary file so a failed write leaves nothing.
template <class Write>
bool SaveAtomically(const std::string& path, std::string& error, Write&& write) {
  const std::string temporary = path + ".part";
  if (!write(temporary)) {
    std::error_code ec;
    std::filesystem::remove(temporary, ec);
    if (error.empty()) error = "cannot write '" + path + "'";
    return false;
  }
  std::error_code ec;
  std::filesystem::rename(temporary, path, ec);
  if (ec) {
    std::filesystem::remove(temporary, ec);
    error = "cannot write '" + path + "'";
    return false;
  }
  return true;
}

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

class SvgCanvas : public Canvas {
 public:
  SvgCanvas(int width, int height) {
    m_body.precision(6);
    m_head << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
           << "\" viewBox=\"0 0 " << width << " " << height << "\" font-family=\"DejaVu Sans, Arial, sans-serif\">\n"
           << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  }
  void Polygon(const std::vector<std::vector<Pt>>& rings, Rgb fill, Rgb stroke, double width) override {
    m_body << "<path fill-rule=\"evenodd\" fill=\"" << fill.ToHex() << "\" stroke=\"" << stroke.ToHex()
           << "\" stroke-width=\"" << width << "\" d=\"";
    for (const auto& ring : rings) {
      for (std::size_t i = 0; i < ring.size(); ++i) m_body << (i ? 'L' : 'M') << ring[i].x << ' ' << ring[i].y;
      m_body << 'Z';
    }
    m_body << "\"/>\n";
  }
  void Polyline(const std::vector<Pt>& points, Rgb stroke, double width) override {
    m_body << "<polyline fill=\"none\" stroke=\"" << stroke.ToHex() << "\" stroke-width=\"" << width
           << "\" stroke-linejoin=\"round\" points=\"";
    for (const auto& p : points) m_body << p.x << ',' << p.y << ' ';
    m_body << "\"/>\n";
  }
  void Circle(Pt c, double radius, Rgb fill, Rgb stroke, double width) override {
    m_body << "<circle cx=\"" << c.x << "\" cy=\"" << c.y << "\" r=\"" << radius << "\" fill=\"" << fill.ToHex()
           << "\" stroke=\"" << stroke.ToHex() << "\" stroke-width=\"" << width << "\"/>\n";
  }
  void Text(Pt at, const std::string& text, double size, bool bold, Anchor anchor, Rgb colour) override {
    const char* a = anchor == Anchor::Start ? "start" : anchor == Anchor::Middle ? "middle" : "end";
    m_body << "<text x=\"" << at.x << "\" y=\"" << at.y << "\" font-size=\"" << size << "\" text-anchor=\"" << a
           << "\" fill=\"" << colour.ToHex() << "\"" << (bold ? " font-weight=\"bold\"" : "") << ">" << Escape(text)
           << "</text>\n";
  }
  void Ramp(Pt topLeft, double width, double height, const std::vector<Rgb>& stops) override {
    const int id = m_gradients++;
    m_body << "<defs><linearGradient id=\"ramp" << id << "\" x1=\"0\" y1=\"0\" x2=\"0\" y2=\"1\">";
    for (std::size_t i = 0; i < stops.size(); ++i)
      m_body << "<stop offset=\"" << (stops.size() > 1 ? double(i) / double(stops.size() - 1) : 0.0)
             << "\" stop-color=\"" << stops[i].ToHex() << "\"/>";
    m_body << "</linearGradient></defs>\n<rect x=\"" << topLeft.x << "\" y=\"" << topLeft.y << "\" width=\"" << width
           << "\" height=\"" << height << "\" fill=\"url(#ramp" << id
           << ")\" stroke=\"#555555\" stroke-width=\"0.5\"/>\n";
  }
  bool Save(const std::string& path, std::string& error) override {
    return SaveAtomically(path, error, [&](const std::string& temporary) {
      std::ofstream out(temporary, std::ios::binary);
      out << m_head.str() << m_body.str() << "</svg>\n";
      out.close();
      return static_cast<bool>(out);
    });
  }

 private:
  std::ostringstream m_head, m_body;
  int m_gradients = 0;
};

class CairoCanvas : public Canvas {
 public:
  CairoCanvas(int width, int height)
      : m_surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)), m_cr(cairo_create(m_surface)) {
    cairo_set_source_rgb(m_cr, 1, 1, 1);
    cairo_paint(m_cr);
    cairo_set_line_join(m_cr, CAIRO_LINE_JOIN_ROUND);
  }
  ~CairoCanvas() override {
    cairo_destroy(m_cr);
    cairo_surface_destroy(m_surface);
  }
  CairoCanvas(const CairoCanvas&) = delete;
  CairoCanvas& operator=(const CairoCanvas&) = delete;

  void Polygon(const std::vector<std::vector<Pt>>& rings, Rgb fill, Rgb stroke, double width) override {
    cairo_new_path(m_cr);
    for (const auto& ring : rings) {
      for (std::size_t i = 0; i < ring.size(); ++i) (i ? cairo_line_to : cairo_move_to)(m_cr, ring[i].x, ring[i].y);
      cairo_close_path(m_cr);
    }
    cairo_set_fill_rule(m_cr, CAIRO_FILL_RULE_EVEN_ODD);
    FillAndStroke(fill, stroke, width);
  }
  void Polyline(const std::vector<Pt>& points, Rgb stroke, double width) override {
    cairo_new_path(m_cr);
    for (std::size_t i = 0; i < points.size(); ++i) (i ? cairo_line_to : cairo_move_to)(m_cr, points[i].x, points[i].y);
    Source(stroke);
    cairo_set_line_width(m_cr, width);
    cairo_stroke(m_cr);
  }
  void Circle(Pt c, double radius, Rgb fill, Rgb stroke, double width) override {
    cairo_new_path(m_cr);
    cairo_arc(m_cr, c.x, c.y, radius, 0, 6.283185307179586);
    FillAndStroke(fill, stroke, width);
  }
  void Text(Pt at, const std::string& text, double size, bool bold, Anchor anchor, Rgb colour) override {
    cairo_select_font_face(m_cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(m_cr, size);
    cairo_text_extents_t extents;
    cairo_text_extents(m_cr, text.c_str(), &extents);
    const double shift = anchor == Anchor::Start    ? 0
                         : anchor == Anchor::Middle ? extents.x_advance / 2
                                                    : extents.x_advance;
    Source(colour);
    cairo_move_to(m_cr, at.x - shift, at.y);
    cairo_show_text(m_cr, text.c_str());
  }
  void Ramp(Pt topLeft, double width, double height, const std::vector<Rgb>& stops) override {
    cairo_pattern_t* pattern = cairo_pattern_create_linear(0, topLeft.y, 0, topLeft.y + height);
    for (std::size_t i = 0; i < stops.size(); ++i)
      cairo_pattern_add_color_stop_rgb(pattern, stops.size() > 1 ? double(i) / double(stops.size() - 1) : 0.0,
                                       stops[i].r, stops[i].g, stops[i].b);
    cairo_new_path(m_cr);
    cairo_rectangle(m_cr, topLeft.x, topLeft.y, width, height);
    cairo_set_source(m_cr, pattern);
    cairo_fill_preserve(m_cr);
    cairo_pattern_destroy(pattern);
    Source(Rgb::Hex("#555555"));
    cairo_set_line_width(m_cr, 0.5);
    cairo_stroke(m_cr);
  }
  bool Save(const std::string& path, std::string& error) override {
    cairo_surface_flush(m_surface);
    return SaveAtomically(path, error, [&](const std::string& temporary) {
      const cairo_status_t status = cairo_surface_write_to_png(m_surface, temporary.c_str());
      if (status != CAIRO_STATUS_SUCCESS)
        error = std::string("cannot write the PNG: ") + cairo_status_to_string(status);
      return status == CAIRO_STATUS_SUCCESS;
    });
  }

 private:
  void Source(Rgb c) { cairo_set_source_rgb(m_cr, c.r, c.g, c.b); }
  void FillAndStroke(Rgb fill, Rgb stroke, double width) {
    Source(fill);
    cairo_fill_preserve(m_cr);
    Source(stroke);
    cairo_set_line_width(m_cr, width);
    cairo_stroke(m_cr);
  }
  cairo_surface_t* m_surface;
  cairo_t* m_cr;
};

std::string LowerExtension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext;
}

}  // namespace

std::unique_ptr<Canvas> MakeCanvas(const std::string& path, int width, int height) {
  const std::string ext = LowerExtension(path);
  if (ext == ".svg") return std::make_unique<SvgCanvas>(width, height);
  if (ext == ".png") return std::make_unique<CairoCanvas>(width, height);
  return nullptr;
}

bool HasCanvasExtension(const std::string& path) {
  const std::string ext = LowerExtension(path);
  return ext == ".svg" || ext == ".png";
}

}  // namespace zostat::map
