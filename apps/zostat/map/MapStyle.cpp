#include "MapStyle.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <set>

namespace zostat::map {

namespace {

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

const char* const kCategorical[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd", "#8c564b",
                                    "#e377c2", "#bcbd22", "#17becf", "#aec7e8", "#ffbb78", "#98df8a"};

std::vector<MapClass> HotSpotBins() {
  return {{"-3", "Cold spot - 99% confidence", Rgb::Hex("#2166ac")},
          {"-2", "Cold spot - 95% confidence", Rgb::Hex("#67a9cf")},
          {"-1", "Cold spot - 90% confidence", Rgb::Hex("#d1e5f0")},
          {"0", "Not significant", Rgb::Hex("#e0e0e0")},
          {"1", "Hot spot - 90% confidence", Rgb::Hex("#fddbc7")},
          {"2", "Hot spot - 95% confidence", Rgb::Hex("#ef8a62")},
          {"3", "Hot spot - 99% confidence", Rgb::Hex("#b2182b")}};
}

std::vector<MapClass> ClusterTypes() {
  return {{"HH", "High-high cluster", Rgb::Hex("#d7191c")},
          {"LL", "Low-low cluster", Rgb::Hex("#2c7bb6")},
          {"HL", "High-low outlier", Rgb::Hex("#fdae61")},
          {"LH", "Low-high outlier", Rgb::Hex("#abd9e9")},
          {"", "Not significant", Rgb::Hex("#d9d9d9")}};
}

// Distinct values, numbers in numeric order, -1 last as noise.
std::vector<MapClass> Categories(bool numeric, const std::vector<std::string>& texts,
                                 const std::vector<double>& numbers) {
  std::vector<MapClass> classes;
  bool noise = false;
  if (numeric) {
    std::set<double> distinct;
    for (double v : numbers)
      if (!std::isnan(v)) distinct.insert(v);
    for (double v : distinct) {
      char text[32];
      std::snprintf(text, sizeof text, "%.15g", v);
      if (v == -1)
        noise = true;
      else
        classes.push_back({text, text, {}});
    }
  } else {
    for (const auto& t : std::set<std::string>(texts.begin(), texts.end())) classes.push_back({t, t, {}});
  }
  const std::size_t n = std::size(kCategorical);
  for (std::size_t i = 0; i < classes.size(); ++i) classes[i].colour = Rgb::Hex(kCategorical[i % n]);
  if (noise) classes.push_back({"-1", "Noise", Rgb::Hex("#bdbdbd")});
  return classes;
}

}  // namespace

const std::vector<Rgb>& RampStops() {
  static const std::vector<Rgb> stops = {Rgb::Hex("#440154"), Rgb::Hex("#3b528b"), Rgb::Hex("#21918c"),
                                         Rgb::Hex("#5ec962"), Rgb::Hex("#fde725")};
  return stops;
}

MapStyle ChooseStyle(const std::string& field, bool numeric, const std::vector<std::string>& texts,
                     const std::vector<double>& numbers) {
  MapStyle style;
  const std::string name = Lower(field);
  if (EndsWith(name, "_confinvl")) {
    style.classes = HotSpotBins();
  } else if (name == "almi_type") {
    style.classes = ClusterTypes();
  } else if (EndsWith(name, "cluster_id") || !numeric) {
    style.classes = Categories(numeric, texts, numbers);
  } else {
    style.continuous = true;
    bool any = false;
    for (double v : numbers) {
      if (std::isnan(v)) continue;
      style.low = any ? std::min(style.low, v) : v;
      style.high = any ? std::max(style.high, v) : v;
      any = true;
    }
  }
  return style;
}

Rgb MapStyle::Colour(const std::string& text, double number, bool isNull) const {
  if (!continuous) {
    for (const auto& c : classes)
      if (c.value == text) return c.colour;
    return missing;
  }
  if (isNull || std::isnan(number)) return missing;
  const auto& stops = RampStops();
  const double t = high > low ? std::clamp((number - low) / (high - low), 0.0, 1.0) : 0.5;
  const double at = t * double(stops.size() - 1);
  const std::size_t i = std::min(static_cast<std::size_t>(at), stops.size() - 2);
  const double f = at - double(i);
  const Rgb& a = stops[i];
  const Rgb& b = stops[i + 1];
  return {a.r + (b.r - a.r) * f, a.g + (b.g - a.g) * f, a.b + (b.b - a.b) * f};
}

}  // namespace zostat::map
