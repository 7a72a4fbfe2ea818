#include "MapRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "Canvas.h"
#include "MapStyle.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoMessageIds.h"
#include "host/ZoRecordset.h"
#include "host/ZoStringEx.h"

namespace zostat::map {

namespace {

const Rgb kOutline = Rgb::Hex("#555555");
const Rgb kInk = Rgb::Hex("#222222");
constexpr std::size_t kMaxLegendClasses = 12;

struct Feature {
  ZOC::ZoGeometry geometry;
  std::string text;
  double number = std::numeric_limits<double>::quiet_NaN();
  bool isNull = true;
};

// Releases the recordset through its dataset.
struct Records {
  ZOC::ZoDatasetVector* dataset;
  ZOC::ZoRecordset* records;
  ~Records() {
    if (records) dataset->ReleaseRecordset(records);
  }
};

// "[ID] catalogue text (detail)", as every zostat message reads.
std::string Message(const char* id, const std::string& detail) {
  return ZOC::ZoStringEx::LoadResString(id).Str() + " (" + detail + ")";
}

// Whether the run was cancelled, polled every few thousand features.
bool Stopped(const MapRequest& request, std::size_t done, std::string& error) {
  if (done % 4096 != 4095 || !request.cancelled || !request.cancelled()) return false;
  error = ZOC::ZoStringEx::LoadResString(ZOC::msg::IMb030).Str();
  return true;
}

bool ReadFeatures(ZOC::ZoDatasetVector* dataset, const MapRequest& request, bool& numeric,
                  std::vector<Feature>& features, std::string& error) {
  const std::string& field = request.field;
  LUMA::LumaFieldInfo info;
  if (!dataset->GetFieldInfo(field, info)) {
    error = Message(ZOC::msg::ECd001, "the layer '" + dataset->GetName().Str() + "' has no field '" + field + "'");
    return false;
  }
  const int type = info.GetType();
  numeric = type == 2 || type == 3 || type == 4 || type == 6 || type == 7 || type == 16;
  Records guard{dataset, dataset->Query(ZOC::ZoQueryDef())};
  if (!guard.records) {
    error = Message(ZOC::msg::EKa013, "cannot read the layer '" + dataset->GetName().Str() + "'");
    return false;
  }
  LUMA::LumaVariant value;
  std::size_t read = 0;
  for (bool more = guard.records->MoveFirst(); more && !guard.records->IsEOF(); more = guard.records->MoveNext()) {
    if (Stopped(request, read++, error)) return false;
    Feature f;
    guard.records->GetGeometry(f.geometry);
    guard.records->GetFieldValue(field, value);
    f.isNull = value.IsNull();
    f.text = f.isNull ? "" : value.ToString().Str();
    if (numeric && !f.isNull) f.number = value.ToDouble();
    if (!f.geometry.IsEmpty()) features.push_back(std::move(f));
  }
  return true;
}

// Data coordinates to pixels inside a frame, same scale on both axes.
struct Transform {
  double minX = 0, minY = 0, scale = 1, left = 0, bottom = 0, offX = 0, offY = 0;
  Pt operator()(const LUMA::LumaPoint2D& p) const {
    return {left + offX + (p.x - minX) * scale, bottom - offY - (p.y - minY) * scale};
  }
};

Transform Fit(const std::vector<Feature>& features, double left, double top, double width, double height) {
  double minX = std::numeric_limits<double>::max(), minY = minX, maxX = -minX, maxY = -minX;
  for (const auto& f : features) {
    double a, b, c, d;
    if (!f.geometry.GetBounds(a, b, c, d)) continue;
    minX = std::min(minX, a), minY = std::min(minY, b), maxX = std::max(maxX, c), maxY = std::max(maxY, d);
  }
  Transform t;
  if (features.empty()) return t;
  const double dx = maxX - minX, dy = maxY - minY;
  t.scale = dx > 0 || dy > 0 ? std::min(dx > 0 ? width / dx : 1e300, dy > 0 ? height / dy : 1e300) : 1.0;
  t.minX = minX, t.minY = minY, t.left = left, t.bottom = top + height;
  t.offX = (width - dx * t.scale) / 2, t.offY = (height - dy * t.scale) / 2;
  return t;
}

void DrawFeature(Canvas& canvas, const Feature& f, const Transform& t, Rgb colour, double radius) {
  const auto& points = f.geometry.GetPoints();
  const auto& parts = f.geometry.GetPolyCounts();
  const int type = f.geometry.GetType();
  if (type == ZOC::GeoPoint) {
    for (const auto& p : points) canvas.Circle(t(p), radius, colour, kOutline, 0.6);
    return;
  }
  std::vector<std::vector<Pt>> rings;
  std::size_t at = 0;
  for (int count : parts) {
    std::vector<Pt> ring;
    for (int i = 0; i < count && at < points.size(); ++i) ring.push_back(t(points[at++]));
    rings.push_back(std::move(ring));
  }
  if (type == ZOC::GeoLine) {
    for (const auto& line : rings) canvas.Polyline(line, colour, 2.0);
  } else {
    canvas.Polygon(rings, colour, kOutline, 0.6);
  }
}

std::string Number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", v);
  return text;
}

void DrawLegend(Canvas& canvas, const MapStyle& style, const std::string& field, bool points, double x, double y) {
  canvas.Text({x, y}, field, 14, true, Anchor::Start, kInk);
  y += 14;
  if (style.continuous) {
    canvas.Ramp({x, y}, 24, 220, std::vector<Rgb>(RampStops().rbegin(), RampStops().rend()));
    canvas.Text({x + 32, y + 10}, Number(style.high), 12, false, Anchor::Start, kInk);
    canvas.Text({x + 32, y + 115}, Number((style.low + style.high) / 2), 12, false, Anchor::Start, kInk);
    canvas.Text({x + 32, y + 224}, Number(style.low), 12, false, Anchor::Start, kInk);
    return;
  }
  for (std::size_t i = 0; i < style.classes.size() && i < kMaxLegendClasses; ++i) {
    const auto& c = style.classes[i];
    const double cy = y + 14 + 26.0 * double(i);
    if (points)
      canvas.Circle({x + 10, cy}, 8, c.colour, kOutline, 0.8);
    else
      canvas.Polygon({{{x, cy - 9}, {x + 22, cy - 9}, {x + 22, cy + 9}, {x, cy + 9}}}, c.colour, kOutline, 0.8);
    canvas.Text({x + 32, cy + 5}, c.label.empty() ? "(empty)" : c.label, 13, false, Anchor::Start, kInk);
  }
  if (style.classes.size() > kMaxLegendClasses)
    canvas.Text({x, y + 14 + 26.0 * kMaxLegendClasses},
                "... " + std::to_string(style.classes.size() - kMaxLegendClasses) + " more", 12, false, Anchor::Start,
                kInk);
}

// The length unit of a projected system in metres and its name, from the WKT.
double UnitMetres(const ZOC::ZoPrjCoordSys& cs, std::string& name) {
  const std::string wkt = cs.GetWKT().Str();
  const auto at = wkt.rfind("LENGTHUNIT[\"");
  name = "m";
  if (at == std::string::npos) return 1.0;
  const auto start = at + 12, end = wkt.find('"', start);
  const std::string unit = wkt.substr(start, end - start);
  double factor = 1.0;
  if (end != std::string::npos && wkt[end + 1] == ',') factor = std::atof(wkt.c_str() + end + 2);
  if (unit != "metre" && unit != "meter" && unit != "Meter") name = unit;
  return factor > 0 ? factor : 1.0;
}

void DrawScaleBarAndNorth(Canvas& canvas, const ZOC::ZoPrjCoordSys& cs, const Transform& t, double left, double top,
                          double width, double height) {
  std::string unit;
  const double metres = UnitMetres(cs, unit);
  const bool inMetres = unit == "m";
  // A round length near a fifth of the frame's width, in ground units.
  const double target = width / 5.0 / t.scale * (inMetres ? metres : 1.0);
  const double power = std::pow(10.0, std::floor(std::log10(target)));
  double length = power;
  for (double m : {2.0, 5.0})
    if (m * power <= target) length = m * power;
  const double pixels = length / (inMetres ? metres : 1.0) * t.scale;
  const double x = left + 10, y = top + height + 30;
  canvas.Polygon({{{x, y - 4}, {x + pixels / 2, y - 4}, {x + pixels / 2, y + 2}, {x, y + 2}}}, kInk, kInk, 0.5);
  canvas.Polygon({{{x + pixels / 2, y - 4}, {x + pixels, y - 4}, {x + pixels, y + 2}, {x + pixels / 2, y + 2}}},
                 Rgb::Hex("#ffffff"), kInk, 0.8);
  const std::string label = inMetres && length >= 1000 ? Number(length / 1000) + " km" : Number(length) + " " + unit;
  canvas.Text({x + pixels + 8, y + 3}, label, 12, false, Anchor::Start, kInk);
  const double nx = left + width - 20, ny = top + 10;
  canvas.Polygon({{{nx, ny}, {nx + 10, ny + 30}, {nx, ny + 22}, {nx - 10, ny + 30}}}, kInk, kInk, 0.8);
  canvas.Text({nx, ny + 48}, "N", 14, true, Anchor::Middle, kInk);
}

}  // namespace

bool RenderMap(ZOC::ZoDatasetVector* dataset, const MapRequest& request, std::string& error) {
  std::unique_ptr<Canvas> canvas = MakeCanvas(request.output, request.width, request.height);
  if (!canvas) {
    error = Message(ZOC::msg::EUa059, "the map file '" + request.output + "' must end in .svg or .png");
    return false;
  }
  bool numeric = false;
  std::vector<Feature> features;
  if (!ReadFeatures(dataset, request, numeric, features, error)) return false;
  std::vector<std::string> texts;
  std::vector<double> numbers;
  for (const auto& f : features) texts.push_back(f.text), numbers.push_back(f.number);
  const MapStyle style = ChooseStyle(request.field, numeric, texts, numbers);

  const double left = 20, top = 60, legendWidth = 280;
  const double width = request.width - left - legendWidth - 20, height = request.height - top - 60;
  const Transform t = Fit(features, left, top, width, height);
  const bool points = dataset->GetType() == ZOC::DatasetPoint;
  const double radius = features.size() > 2000 ? 2.5 : features.size() > 500 ? 3.5 : 5.0;
  std::size_t drawn = 0;
  for (const auto& f : features) {
    if (Stopped(request, drawn++, error)) return false;
    DrawFeature(*canvas, f, t, style.Colour(f.text, f.number, f.isNull), radius);
  }

  const std::string title = request.title.empty() ? dataset->GetName().Str() + ": " + request.field : request.title;
  canvas->Text({request.width / 2.0, 38}, title, 22, true, Anchor::Middle, kInk);
  DrawLegend(*canvas, style, request.field, points, left + width + 30, top + 10);
  const auto& cs = dataset->GetPrjCoordSys();
  if (cs.GetTypeID() == ZOC::ZoPrjCoordSys::Projected && !features.empty())
    DrawScaleBarAndNorth(*canvas, cs, t, left, top, width, height);
  if (canvas->Save(request.output, error)) return true;
  error = Message(ZOC::msg::EUa014, error);
  return false;
}

}  // namespace zostat::map
