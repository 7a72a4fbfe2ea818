#pragma once
// Tolerances and limits shared by the analyses, the weights code and the
// utilities, so that every part of the library counts "zero" and "the same
// place" alike.
#include <cstdint>

namespace ZOC::detail::limits {

// A sum, variance or weight strictly inside (-kZero, kZero) counts as zero.
inline constexpr double kZero = 1e-20;
inline constexpr bool IsZero(double v) { return v > -kZero && v < kZero; }

// Two points whose distance lies within kCoincident are one location.
inline constexpr double kCoincident = 1e-10;

// Weight-based analyses hold their weights in memory up to this many
// features; larger datasets stream their rows from a weights file.
inline constexpr std::int64_t kInMemoryFeatures = 10000;

}  // namespace ZOC::detail::limits
