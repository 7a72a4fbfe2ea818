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
#include <string>
#include <vector>

namespace ZOC::detail::permutation {

// Philox4x32's round multipliers and key increments (Weyl constants).
inline constexpr std::uint32_t kPhiloxM0 = 0xD2511F53u, kPhiloxM1 = 0xCD9E8D57u;
inline constexpr std::uint32_t kPhiloxW0 = 0x9E3779B9u, kPhiloxW1 = 0xBB67AE85u;

// One Philox4x32-10 block: the 128-bit counter enciphered under the 64-bit key.
inline std::array<std::uint32_t, 4> Philox4x32(std::array<std::uint32_t, 4> counter, std::array<std::uint32_t, 2> key) {
  for (int round = 0; round < 10; ++round) {
    if (round > 0) key[0] += kPhiloxW0, key[1] += kPhiloxW1;
    const std::uint64_t p0 = std::uint64_t{kPhiloxM0} * counter[0], p1 = std::uint64_t{kPhiloxM1} * counter[2];
    counter = {static_cast<std::uint32_t>(p1 >> 32) ^ counter[1] ^ key[0], static_cast<std::uint32_t>(p1),
               static_cast<std::uint32_t>(p0 >> 32) ^ counter[3] ^ key[1], static_cast<std::uint32_t>(p0)};
  }
  return counter;
}

// A stream is enciphered a chunk of kChunkBlocks consecutive blocks at a
// time. Within a chunk the words are ordered word-major: word j of block
// `first` + l is word 16 j + l, so that vector units can encipher the blocks
// side by side and store each word of all of them at once.
inline constexpr int kChunkBlocks = 16;
inline constexpr int kChunkWords = 4 * kChunkBlocks;
using PhiloxChunkFunction = void (*)(std::uint64_t first, std::uint64_t stream, std::uint64_t seed, std::uint32_t* out);

// Blocks `first` .. `first` + 15 of counter (block, stream) under key `seed`,
// with the widest vector instructions this processor has. Every
// implementation gives the same words.
void PhiloxChunk(std::uint64_t first, std::uint64_t stream, std::uint64_t seed, std::uint32_t* out);

// The implementations this processor can run, by name ("portable" always),
// for the tests that hold them to the same words.
std::vector<std::pair<std::string, PhiloxChunkFunction>> PhiloxChunkImplementations();

// The stream numbered `stream` under `seed`: chunk 0, 1, 2, ... in order.
class CounterStream {
 public:
  CounterStream(std::uint64_t seed, std::uint64_t stream) : m_seed(seed), m_stream(stream) {}

  std::uint32_t Next() {
    if (m_used == kChunkWords) {
      PhiloxChunk(m_block, m_stream, m_seed, m_words);
      m_block += kChunkBlocks;
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
  std::uint64_t m_seed;
  std::uint64_t m_stream;
  std::uint64_t m_block = 0;
  std::uint32_t m_words[kChunkWords] = {};
  int m_used = kChunkWords;
};

}  // namespace ZOC::detail::permutation
