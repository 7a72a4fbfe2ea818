#pragma once
// Random numbers for permutation inference that do not depend on how the work
// is split among threads: Philox4x32-10 (Salmon, Moraes, Dror and Shaw,
// "Parallel random numbers: as easy as 1, 2, 3", SC 2011), a counter-based
// generator. Every random stream is keyed by the caller's seed and its own
// stream number (a feature, or a permutation of the whole dataset), so any
// thread can produce any stream, and a run gives the same bits on one thread
// or on sixteen, on any platform (only 32-bit integer arithmetic is used).
#include <array>
#include <cstdint>

namespace ZOC::detail::permutation {

// One Philox4x32-10 block: the 128-bit counter enciphered under the 64-bit key.
inline std::array<std::uint32_t, 4> Philox4x32(std::array<std::uint32_t, 4> counter, std::array<std::uint32_t, 2> key) {
  constexpr std::uint64_t kM0 = 0xD2511F53u, kM1 = 0xCD9E8D57u;
  constexpr std::uint32_t kW0 = 0x9E3779B9u, kW1 = 0xBB67AE85u;
  for (int round = 0; round < 10; ++round) {
    if (round > 0) key[0] += kW0, key[1] += kW1;
    const std::uint64_t p0 = kM0 * counter[0], p1 = kM1 * counter[2];
    counter = {static_cast<std::uint32_t>(p1 >> 32) ^ counter[1] ^ key[0], static_cast<std::uint32_t>(p1),
               static_cast<std::uint32_t>(p0 >> 32) ^ counter[3] ^ key[1], static_cast<std::uint32_t>(p0)};
  }
  return counter;
}

// Blocks `block` .. `block` + kLanes - 1 of stream (s0, s1) at once: the
// rounds of independent blocks interleave, so the multiplier is kept busy
// instead of waiting on one block's chain of rounds. Same words as
// Philox4x32 of each counter.
inline constexpr int kLanes = 4;
inline void Philox4x32Lanes(std::uint64_t block, std::uint32_t s0, std::uint32_t s1, std::array<std::uint32_t, 2> key,
                            std::uint32_t (&out)[4 * kLanes]) {
  constexpr std::uint64_t kM0 = 0xD2511F53u, kM1 = 0xCD9E8D57u;
  constexpr std::uint32_t kW0 = 0x9E3779B9u, kW1 = 0xBB67AE85u;
  std::uint32_t c0[kLanes], c1[kLanes], c2[kLanes], c3[kLanes];
  for (int l = 0; l < kLanes; ++l) {
    const std::uint64_t b = block + static_cast<std::uint64_t>(l);
    c0[l] = static_cast<std::uint32_t>(b), c1[l] = static_cast<std::uint32_t>(b >> 32), c2[l] = s0, c3[l] = s1;
  }
  for (int round = 0; round < 10; ++round) {
    if (round > 0) key[0] += kW0, key[1] += kW1;
    for (int l = 0; l < kLanes; ++l) {
      const std::uint64_t p0 = kM0 * c0[l], p1 = kM1 * c2[l];
      const std::uint32_t n0 = static_cast<std::uint32_t>(p1 >> 32) ^ c1[l] ^ key[0];
      const std::uint32_t n2 = static_cast<std::uint32_t>(p0 >> 32) ^ c3[l] ^ key[1];
      c0[l] = n0, c1[l] = static_cast<std::uint32_t>(p1), c2[l] = n2, c3[l] = static_cast<std::uint32_t>(p0);
    }
  }
  for (int l = 0; l < kLanes; ++l)
    out[4 * l] = c0[l], out[4 * l + 1] = c1[l], out[4 * l + 2] = c2[l], out[4 * l + 3] = c3[l];
}

// The stream numbered `stream` under `seed`: blocks 0, 1, 2, ... of the
// counter (block, stream), four 32-bit words a block, in order.
class CounterStream {
 public:
  CounterStream(std::uint64_t seed, std::uint64_t stream)
      : m_key{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32)},
        m_stream{static_cast<std::uint32_t>(stream), static_cast<std::uint32_t>(stream >> 32)} {}

  std::uint32_t Next() {
    if (m_used == 4 * kLanes) {
      Philox4x32Lanes(m_block, m_stream[0], m_stream[1], m_key, m_words);
      m_block += kLanes;
      m_used = 0;
    }
    return m_words[m_used++];
  }

  // Uniform on [0, bound), 0 < bound ≤ 2^32, without bias: Lemire's
  // multiply-and-shift with rejection of the short interval.
  std::uint32_t Below(std::uint32_t bound) {
    std::uint64_t product = static_cast<std::uint64_t>(Next()) * bound;
    auto low = static_cast<std::uint32_t>(product);
    if (low < bound) {
      const std::uint32_t threshold = (0u - bound) % bound;
      while (low < threshold) {
        product = static_cast<std::uint64_t>(Next()) * bound;
        low = static_cast<std::uint32_t>(product);
      }
    }
    return static_cast<std::uint32_t>(product >> 32);
  }

 private:
  std::array<std::uint32_t, 2> m_key;
  std::array<std::uint32_t, 2> m_stream;
  std::uint64_t m_block = 0;
  std::uint32_t m_words[4 * kLanes] = {};
  int m_used = 4 * kLanes;
};

}  // namespace ZOC::detail::permutation
