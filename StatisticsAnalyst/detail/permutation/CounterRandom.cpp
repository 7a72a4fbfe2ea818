#include "StatisticsAnalyst/detail/permutation/CounterRandom.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define SA_PHILOX_X86 1
// GCC 12's AVX-512 intrinsics fill the lanes a mask would leave with a
// deliberately undefined vector, which -Wuninitialized reports in the header.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
#endif

namespace ZOC::detail::permutation {

namespace {

void PortableChunk(std::uint64_t first, std::uint64_t stream, std::uint64_t seed, std::uint32_t* out) {
  const std::array<std::uint32_t, 2> key{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32)};
  for (int l = 0; l < kChunkBlocks; ++l) {
    const std::uint64_t block = first + static_cast<std::uint64_t>(l);
    const auto words = Philox4x32({static_cast<std::uint32_t>(block), static_cast<std::uint32_t>(block >> 32),
                                   static_cast<std::uint32_t>(stream), static_cast<std::uint32_t>(stream >> 32)},
                                  key);
    for (int j = 0; j < 4; ++j) out[kChunkBlocks * j + l] = words[j];
  }
}

#ifdef SA_PHILOX_X86
// The vector forms hold one block's counter word per 64-bit lane, so that the
// unsigned 32 × 32 → 64-bit multiply (pmuludq) takes the low half of every
// lane directly. The high halves of the lanes collect garbage from the
// un-masked products, which nothing reads: the multiplies use the low halves
// only, a shift by 32 of a product is clean, and the words are stored
// truncated. Same arithmetic, and so the same words, as Philox4x32.

void FirstCounters(std::uint64_t first, std::uint64_t (&c0)[kChunkBlocks], std::uint64_t (&c1)[kChunkBlocks]) {
  for (int l = 0; l < kChunkBlocks; ++l) {
    const std::uint64_t block = first + static_cast<std::uint64_t>(l);
    c0[l] = static_cast<std::uint32_t>(block), c1[l] = block >> 32;
  }
}

__attribute__((target("avx512f"))) void Avx512Chunk(std::uint64_t first, std::uint64_t stream, std::uint64_t seed,
                                                    std::uint32_t* out) {
  constexpr int kVectors = kChunkBlocks / 8;
  alignas(64) std::uint64_t b0[kChunkBlocks], b1[kChunkBlocks];
  FirstCounters(first, b0, b1);
  __m512i c0[kVectors], c1[kVectors], c2[kVectors], c3[kVectors];
  for (int v = 0; v < kVectors; ++v) {
    c0[v] = _mm512_load_si512(b0 + 8 * v), c1[v] = _mm512_load_si512(b1 + 8 * v);
    c2[v] = _mm512_set1_epi64(static_cast<std::uint32_t>(stream));
    c3[v] = _mm512_set1_epi64(static_cast<std::uint32_t>(stream >> 32));
  }
  const __m512i m0 = _mm512_set1_epi64(kPhiloxM0), m1 = _mm512_set1_epi64(kPhiloxM1);
  auto k0 = static_cast<std::uint32_t>(seed), k1 = static_cast<std::uint32_t>(seed >> 32);
  for (int round = 0; round < 10; ++round) {
    const __m512i key0 = _mm512_set1_epi64(k0), key1 = _mm512_set1_epi64(k1);
    for (int v = 0; v < kVectors; ++v) {
      const __m512i p0 = _mm512_mul_epu32(c0[v], m0), p1 = _mm512_mul_epu32(c2[v], m1);
      // 0x96: the three-way exclusive or.
      c0[v] = _mm512_ternarylogic_epi64(_mm512_srli_epi64(p1, 32), c1[v], key0, 0x96);
      c2[v] = _mm512_ternarylogic_epi64(_mm512_srli_epi64(p0, 32), c3[v], key1, 0x96);
      c1[v] = p1, c3[v] = p0;
    }
    k0 += kPhiloxW0, k1 += kPhiloxW1;
  }
  for (int v = 0; v < kVectors; ++v) {
    const __m512i* words[4] = {&c0[v], &c1[v], &c2[v], &c3[v]};
    for (int j = 0; j < 4; ++j)
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + kChunkBlocks * j + 8 * v), _mm512_cvtepi64_epi32(*words[j]));
  }
}

__attribute__((target("avx2"))) void Avx2Chunk(std::uint64_t first, std::uint64_t stream, std::uint64_t seed,
                                               std::uint32_t* out) {
  constexpr int kVectors = kChunkBlocks / 4;
  alignas(32) std::uint64_t b0[kChunkBlocks], b1[kChunkBlocks];
  FirstCounters(first, b0, b1);
  __m256i c0[kVectors], c1[kVectors], c2[kVectors], c3[kVectors];
  for (int v = 0; v < kVectors; ++v) {
    c0[v] = _mm256_load_si256(reinterpret_cast<const __m256i*>(b0 + 4 * v));
    c1[v] = _mm256_load_si256(reinterpret_cast<const __m256i*>(b1 + 4 * v));
    c2[v] = _mm256_set1_epi64x(static_cast<std::uint32_t>(stream));
    c3[v] = _mm256_set1_epi64x(static_cast<std::uint32_t>(stream >> 32));
  }
  const __m256i m0 = _mm256_set1_epi64x(kPhiloxM0), m1 = _mm256_set1_epi64x(kPhiloxM1);
  auto k0 = static_cast<std::uint32_t>(seed), k1 = static_cast<std::uint32_t>(seed >> 32);
  for (int round = 0; round < 10; ++round) {
    const __m256i key0 = _mm256_set1_epi64x(k0), key1 = _mm256_set1_epi64x(k1);
    for (int v = 0; v < kVectors; ++v) {
      const __m256i p0 = _mm256_mul_epu32(c0[v], m0), p1 = _mm256_mul_epu32(c2[v], m1);
      c0[v] = _mm256_xor_si256(_mm256_xor_si256(_mm256_srli_epi64(p1, 32), c1[v]), key0);
      c2[v] = _mm256_xor_si256(_mm256_xor_si256(_mm256_srli_epi64(p0, 32), c3[v]), key1);
      c1[v] = p1, c3[v] = p0;
    }
    k0 += kPhiloxW0, k1 += kPhiloxW1;
  }
  alignas(32) std::uint64_t lanes[4][kChunkBlocks];
  for (int v = 0; v < kVectors; ++v) {
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[0] + 4 * v), c0[v]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[1] + 4 * v), c1[v]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[2] + 4 * v), c2[v]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes[3] + 4 * v), c3[v]);
  }
  for (int j = 0; j < 4; ++j)
    for (int l = 0; l < kChunkBlocks; ++l) out[kChunkBlocks * j + l] = static_cast<std::uint32_t>(lanes[j][l]);
}

PhiloxChunkFunction Fastest() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f")) return Avx512Chunk;
  if (__builtin_cpu_supports("avx2")) return Avx2Chunk;
  return PortableChunk;
}
#else
PhiloxChunkFunction Fastest() { return PortableChunk; }
#endif

// Chosen once, when the library is loaded.
const PhiloxChunkFunction g_chunk = Fastest();

}  // namespace

void PhiloxChunk(std::uint64_t first, std::uint64_t stream, std::uint64_t seed, std::uint32_t* out) {
  g_chunk(first, stream, seed, out);
}

std::vector<std::pair<std::string, PhiloxChunkFunction>> PhiloxChunkImplementations() {
  std::vector<std::pair<std::string, PhiloxChunkFunction>> all{{"portable", PortableChunk}};
#ifdef SA_PHILOX_X86
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) all.emplace_back("avx2", Avx2Chunk);
  if (__builtin_cpu_supports("avx512f")) all.emplace_back("avx512f", Avx512Chunk);
#endif
  return all;
}

}  // namespace ZOC::detail::permutation
