#include "HeatmapRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "MapStyle.h"
#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace zostat::map {

namespace {

const Rgb kInk = Rgb::Hex("#222222");
const Rgb kWhite = Rgb::Hex("#ffffff");

constexpr double kMargin = 24, kTitleBand = 56, kBarWidth = 18, kBarGap = 36, kMinBarHeight = 160;
constexpr double kTitleSize = 20, kCaptionSize = 13, kTickSize = 12;

// "[ID] catalogue text (detail)", as every zostat message reads.
std::string Message(const char* id, const std::string& detail) {
  return ZOC::ZoStringEx::LoadResString(id).Str() + " (" + detail + ")";
}

// The canvas cannot measure text before drawing it, so widths are estimated:
// DejaVu Sans averages about 0.64 em for Latin, Greek and Cyrillic letters
// (one or two UTF-8 bytes), while the ideographs of three- and four-byte
// sequences take a full em. Overestimating only costs some white space.
double TextWidth(const std::string& text, double size) {
  double ems = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if ((c & 0xC0) == 0x80) continue;  // a continuation byte
    ems += c >= 0xE0 ? 1.0 : 0.64;
  }
  return ems * size;
}

std::string Fixed3(double v) {
  char text[48];
  std::snprintf(text, sizeof text, "%.3f", v);
  return text;
}

std::string Number(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", v);
  return text;
}

// Black or white, whichever contrasts more with the cell (WCAG relative
// luminance; black wins above about 0.18), so numbers stay readable on both
// the dark and the light end of the ramp.
Rgb TextOn(Rgb fill) {
  auto linear = [](double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
  const double luminance = 0.2126 * linear(fill.r) + 0.7152 * linear(fill.g) + 0.0722 * linear(fill.b);
  return (luminance + 0.05) / 0.05 > 1.05 / (luminance + 0.05) ? Rgb{} : kWhite;
}

// Where everything goes. The canvas draws no rotated text, so the column
// names are written across the top only while each fits its cell; longer
// ones are replaced there by their numbers, which the row names then carry
// ("3  Soil type"): the matrix is square, so one list of names serves both.
struct Layout {
  bool numbered = false;
  double labelSize = 12, cell = 0, left = 0, top = 0, barX = 0, barHeight = 0;
  int width = 0, height = 0;
};

std::string RowLabel(const HeatmapRequest& request, std::size_t i, bool numbered) {
  return numbered ? std::to_string(i + 1) + "  " + request.labels[i] : request.labels[i];
}

Layout Arrange(const HeatmapRequest& request, bool numbered) {
  const double n = static_cast<double>(request.labels.size());
  // About 880 pixels of grid: 72-pixel cells up to a dozen names, 44 at
  // twenty (room for "0.250" in 11-pixel type), never below the height of
  // a line of small type.
  const double natural = std::clamp(880.0 / n, 16.0, 72.0);
  Layout at;
  at.numbered = numbered;
  at.labelSize = std::clamp(natural * 0.6, 8.0, 12.0);
  double rowLabels = 0;
  for (std::size_t i = 0; i < request.labels.size(); ++i)
    rowLabels = std::max(rowLabels, TextWidth(RowLabel(request, i, numbered), at.labelSize));
  at.left = kMargin + rowLabels + 10;
  at.top = kTitleBand + at.labelSize + 16;
  // Beside the grid: the gap, the bar with its ticks and their numbers, or
  // the caption above it when that is wider.
  double ticks = 0;
  for (double v : {request.low, request.high, (request.low + request.high) / 2})
    ticks = std::max(ticks, TextWidth(Number(v), kTickSize));
  const double beside =
      kBarGap + std::max(kBarWidth + 10 + ticks, TextWidth(request.valueLabel, kCaptionSize)) + kMargin;

  at.cell = natural;
  if (request.width > 0 || request.height > 0) {
    double fit = 1e9;
    if (request.width > 0) fit = std::min(fit, (request.width - at.left - beside) / n);
    if (request.height > 0) fit = std::min(fit, (request.height - at.top - kMargin) / n);
    at.cell = std::max(fit, 4.0);
  }
  const double grid = at.cell * n;
  at.barX = at.left + grid + kBarGap;
  at.barHeight = std::max(grid, kMinBarHeight);
  at.width = request.width > 0 ? request.width
                               : static_cast<int>(std::ceil(std::max(
                                     at.left + grid + beside, TextWidth(request.title, kTitleSize) + 2 * kMargin)));
  at.height = request.height > 0 ? request.height : static_cast<int>(std::ceil(at.top + at.barHeight + kMargin));
  return at;
}

bool NamesFit(const HeatmapRequest& request, const Layout& at) {
  return std::all_of(request.labels.begin(), request.labels.end(),
                     [&](const std::string& label) { return TextWidth(label, at.labelSize) <= at.cell - 6; });
}

}  // namespace

bool RenderHeatmap(const HeatmapRequest& request, std::string& error) {
  if (!HasCanvasExtension(request.output)) {
    error = Message(ZOC::msg::EUa059, "the heat map file '" + request.output + "' must end in .svg or .png");
    return false;
  }
  // The command fills the request from its own results, so a matrix that is
  // empty or not n × n is its failure rather than a bad option or input of
  // the user's: the catalogue's general "the command failed" says so, where
  // the option identifiers (EUa05x) would send the user to their command line.
  const std::size_t n = request.labels.size();
  if (n == 0 || request.values.size() != n * n) {
    error = Message(ZOC::msg::EUa019, "the heat map of " + std::to_string(n) + " names needs " + std::to_string(n * n) +
                                          " values, not " + std::to_string(request.values.size()));
    return false;
  }
  Layout at = Arrange(request, false);
  if (!NamesFit(request, at)) at = Arrange(request, true);
  std::unique_ptr<Canvas> canvas = MakeCanvas(request.output, at.width, at.height);

  canvas->Text({at.width / 2.0, 38}, request.title, kTitleSize, true, Anchor::Middle, kInk);
  MapStyle style;
  style.continuous = true;
  style.low = request.low;
  style.high = request.high;
  // Type for the numbers a quarter of the cell high; where even 7-pixel
  // type does not fit, the colours alone carry the values.
  const double valueSize = std::clamp(at.cell / 4, 7.0, 12.0);
  for (std::size_t i = 0; i < n; ++i) {
    const double y = at.top + at.cell * static_cast<double>(i);
    const double middle = y + at.cell / 2;
    canvas->Text({at.left - 10, middle + at.labelSize * 0.35}, RowLabel(request, i, at.numbered), at.labelSize, false,
                 Anchor::End, kInk);
    for (std::size_t j = 0; j < n; ++j) {
      const double x = at.left + at.cell * static_cast<double>(j);
      const double v = request.values[i * n + j];
      const Rgb fill = style.Colour({}, v, std::isnan(v));
      // A white outline keeps neighbouring cells of one colour apart.
      canvas->Polygon({{{x, y}, {x + at.cell, y}, {x + at.cell, y + at.cell}, {x, y + at.cell}}}, fill, kWhite, 1.0);
      if (std::isnan(v)) continue;
      const std::string text = Fixed3(v);
      if (TextWidth(text, valueSize) <= at.cell - 4)
        canvas->Text({x + at.cell / 2, middle + valueSize * 0.35}, text, valueSize, false, Anchor::Middle,
                     TextOn(fill));
    }
  }
  for (std::size_t j = 0; j < n; ++j)
    canvas->Text({at.left + at.cell * (static_cast<double>(j) + 0.5), at.top - 8},
                 at.numbered ? std::to_string(j + 1) : request.labels[j], at.labelSize, false, Anchor::Middle, kInk);

  // The colour bar, high at the top as on the maps, with its caption and
  // ticks at both ends and the middle.
  const double barRight = at.barX + kBarWidth;
  canvas->Text({at.barX, at.top - 8}, request.valueLabel, kCaptionSize, true, Anchor::Start, kInk);
  canvas->Ramp({at.barX, at.top}, kBarWidth, at.barHeight, std::vector<Rgb>(RampStops().rbegin(), RampStops().rend()));
  const double mid = (request.low + request.high) / 2;
  for (auto [v, y] : {std::pair{request.high, at.top}, std::pair{mid, at.top + at.barHeight / 2},
                      std::pair{request.low, at.top + at.barHeight}}) {
    canvas->Polyline({{barRight, y}, {barRight + 5, y}}, kInk, 1.0);
    canvas->Text({barRight + 9, y + kTickSize * 0.35}, Number(v), kTickSize, false, Anchor::Start, kInk);
  }
  if (canvas->Save(request.output, error)) return true;
  error = Message(ZOC::msg::EUa014, error);
  return false;
}

}  // namespace zostat::map
