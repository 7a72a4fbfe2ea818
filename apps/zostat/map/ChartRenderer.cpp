#include "ChartRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

#include "host/ZoMessageIds.h"
#include "host/ZoStringEx.h"

namespace zostat::map {

namespace {

const Rgb kInk = Rgb::Hex("#222222");
const Rgb kGrid = Rgb::Hex("#e3e3e3");
const Rgb kZeroLine = Rgb::Hex("#9a9a9a");
const Rgb kSeries = Rgb::Hex("#1f77b4");
const Rgb kWhite = Rgb::Hex("#ffffff");
const Rgb kNoValue = Rgb::Hex("#8c8c8c");

// "[ID] catalogue text (detail)", as every zostat message reads.
std::string Message(const char* id, const std::string& detail) {
  return ZOC::ZoStringEx::LoadResString(id).Str() + " (" + detail + ")";
}

// An axis from `lo` to `hi` widened to whole steps of a round size (1, 2 or
// 5 times a power of ten), about six of them.
struct Axis {
  double lo = 0, hi = 1, step = 0.2;
};

Axis RoundAxis(double lo, double hi) {
  if (!std::isfinite(lo) || !std::isfinite(hi)) lo = -1, hi = 1;
  if (!(hi > lo)) {
    // One value, or all alike: a span around it.
    const double pad = lo == 0 ? 1.0 : std::fabs(lo) * 0.1;
    lo -= pad, hi += pad;
  }
  const double raw = (hi - lo) / 6.0;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  const double fraction = raw / power;
  const double step = (fraction <= 1 ? 1 : fraction <= 2 ? 2 : fraction <= 5 ? 5 : 10) * power;
  return {std::floor(lo / step) * step, std::ceil(hi / step) * step, step};
}

// The ticks of an axis, each k·step (so a tick at zero is exactly 0).
std::vector<double> Ticks(const Axis& axis) {
  std::vector<double> ticks;
  const long long first = std::llround(axis.lo / axis.step), last = std::llround(axis.hi / axis.step);
  for (long long k = first; k <= last; ++k) ticks.push_back(static_cast<double>(k) * axis.step);
  return ticks;
}

// A tick value with as many decimals as its step needs.
std::string TickLabel(double value, double step) {
  char text[32];
  if (std::fabs(value) >= 1e6 || step < 1e-6) {
    std::snprintf(text, sizeof text, "%.4g", value);
  } else {
    const int decimals = step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
  }
  return text;
}

// A marked point's x: four significant digits, but never in exponent form
// for the distances a chart shows (below 1e9), and no trailing zeros.
std::string Short(double value) {
  char text[48];
  if (value == 0 || !(std::fabs(value) < 1e9)) {
    std::snprintf(text, sizeof text, "%.4g", value);
    return text;
  }
  const int decimals = std::clamp(3 - static_cast<int>(std::floor(std::log10(std::fabs(value)))), 0, 8);
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  std::string out = text;
  if (out.find('.') != std::string::npos) {
    out.erase(out.find_last_not_of('0') + 1);
    if (out.back() == '.') out.pop_back();
  }
  return out;
}

bool Drawn(const ChartPoint& p) { return p.valid && std::isfinite(p.x) && std::isfinite(p.y); }

}  // namespace

bool RenderChart(const ChartRequest& request, std::string& error) {
  std::unique_ptr<Canvas> canvas = MakeCanvas(request.output, request.width, request.height);
  if (!canvas) {
    error = Message(ZOC::msg::EUa059, "the chart file '" + request.output + "' must end in .svg or .png");
    return false;
  }
  constexpr double inf = std::numeric_limits<double>::infinity();
  double minX = inf, maxX = -inf, minY = inf, maxY = -inf;
  bool anyMissing = false;
  for (const auto& p : request.points) {
    if (std::isfinite(p.x)) minX = std::min(minX, p.x), maxX = std::max(maxX, p.x);
    if (Drawn(p))
      minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
    else
      anyMissing = true;
  }
  const Axis ax = RoundAxis(minX, maxX), ay = RoundAxis(minY, maxY);

  const double left = 80, top = 64, legendWidth = 210;
  const double width = request.width - left - legendWidth, height = request.height - top - 76;
  const double bottom = top + height, right = left + width;
  auto at = [&](double x, double y) -> Pt {
    return {left + (x - ax.lo) / (ax.hi - ax.lo) * width, bottom - (y - ay.lo) / (ay.hi - ay.lo) * height};
  };

  canvas->Text({request.width / 2.0, 38}, request.title, 20, true, Anchor::Middle, kInk);
  // Grid and ticks first, so the series lies on top.
  for (double x : Ticks(ax)) {
    const double px = at(x, ay.lo).x;
    canvas->Polyline({{px, top}, {px, bottom}}, kGrid, 1.0);
    canvas->Polyline({{px, bottom}, {px, bottom + 5}}, kInk, 1.0);
    canvas->Text({px, bottom + 20}, TickLabel(x, ax.step), 12, false, Anchor::Middle, kInk);
  }
  for (double y : Ticks(ay)) {
    const double py = at(ax.lo, y).y;
    canvas->Polyline({{left, py}, {right, py}}, y == 0 ? kZeroLine : kGrid, 1.0);
    canvas->Polyline({{left - 5, py}, {left, py}}, kInk, 1.0);
    canvas->Text({left - 9, py + 4}, TickLabel(y, ay.step), 12, false, Anchor::End, kInk);
  }
  canvas->Polyline({{left, top}, {left, bottom}, {right, bottom}}, kInk, 1.2);
  canvas->Text({(left + right) / 2, bottom + 48}, request.xLabel, 14, false, Anchor::Middle, kInk);
  canvas->Text({left - 8, top - 12}, request.yLabel, 14, false, Anchor::Start, kInk);

  // The line, broken where a point has no value.
  std::vector<Pt> run;
  auto flush = [&] {
    if (run.size() > 1) canvas->Polyline(run, kSeries, 2.0);
    run.clear();
  };
  for (const auto& p : request.points) {
    if (Drawn(p))
      run.push_back(at(p.x, p.y));
    else
      flush();
  }
  flush();
  // Markers: plain ones, then marked ones (larger, labelled with their x)
  // on top; a point without a value is a hollow marker on the x axis.
  std::vector<bool> used(request.marks.size(), false);
  for (const auto& p : request.points) {
    if (!Drawn(p)) {
      if (std::isfinite(p.x)) canvas->Circle(at(p.x, ay.lo), 4.5, kWhite, kNoValue, 1.5);
      continue;
    }
    if (p.mark < 0 || static_cast<std::size_t>(p.mark) >= request.marks.size())
      canvas->Circle(at(p.x, p.y), 4.5, kSeries, kWhite, 1.0);
  }
  for (const auto& p : request.points) {
    if (!Drawn(p) || p.mark < 0 || static_cast<std::size_t>(p.mark) >= request.marks.size()) continue;
    used[static_cast<std::size_t>(p.mark)] = true;
    const Pt c = at(p.x, p.y);
    canvas->Circle(c, 7.5, request.marks[static_cast<std::size_t>(p.mark)].colour, kInk, 1.2);
    canvas->Text({c.x, c.y - 13}, Short(p.x), 12, true, Anchor::Middle, kInk);
  }

  // The legend: the series, each mark that occurs, and missing values.
  const double lx = right + 28;
  double ly = top + 12;
  canvas->Polyline({{lx, ly}, {lx + 24, ly}}, kSeries, 2.0);
  canvas->Circle({lx + 12, ly}, 4.5, kSeries, kWhite, 1.0);
  canvas->Text({lx + 34, ly + 4}, request.yLabel, 13, false, Anchor::Start, kInk);
  for (std::size_t i = 0; i < request.marks.size(); ++i) {
    if (!used[i]) continue;
    ly += 26;
    canvas->Circle({lx + 12, ly}, 7.5, request.marks[i].colour, kInk, 1.2);
    canvas->Text({lx + 34, ly + 4}, request.marks[i].label, 13, false, Anchor::Start, kInk);
  }
  if (anyMissing) {
    ly += 26;
    canvas->Circle({lx + 12, ly}, 4.5, kWhite, kNoValue, 1.5);
    canvas->Text({lx + 34, ly + 4}, request.missingLabel, 13, false, Anchor::Start, kInk);
  }
  if (canvas->Save(request.output, error)) return true;
  error = Message(ZOC::msg::EUa014, error);
  return false;
}

}  // namespace zostat::map
