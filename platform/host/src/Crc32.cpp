#include "Crc32.h"

#include <zlib.h>

#include <algorithm>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace host {

namespace {

uint32_t tableCrc(uint32_t crc, const unsigned char* data, size_t size) {
  uLong sum = crc;
  while (size > 0) {
    const uInt step = static_cast<uInt>(std::min<size_t>(size, 1u << 30));
    sum = crc32(sum, data, step);
    data += step;
    size -= step;
  }
  return static_cast<uint32_t>(sum);
}

#if defined(__x86_64__)

bool canFold() {
  static const bool can = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
  return can;
}

#define MORVIK_FOLD_TARGET __attribute__((target("pclmul,sse4.1")))

MORVIK_FOLD_TARGET __m128i load(const unsigned char* at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

// `lane` times the constants, plus `next`: the lane carried 128 * n bits on.
MORVIK_FOLD_TARGET __m128i fold(__m128i lane, __m128i constants, __m128i next) {
  const __m128i low = _mm_clmulepi64_si128(lane, constants, 0x00);
  const __m128i high = _mm_clmulepi64_si128(lane, constants, 0x11);
  return _mm_xor_si128(_mm_xor_si128(high, low), next);
}

// Intel's "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction" (2009) in
// the bit-reflected domain, with its constants for the CRC-32 polynomial: four 128-bit lanes
// folded 64 bytes at a time, then into one lane, then to 64 bits, then Barrett reduction.
// `crc` and the result are the bare register (zlib inverts both); `size` is a multiple of 16 and
// at least 64.
MORVIK_FOLD_TARGET uint32_t foldedCrc(uint32_t crc, const unsigned char* data, size_t size) {
  const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596, 0x0154442bd4);
  const __m128i k3k4 = _mm_set_epi64x(0x00ccaa009e, 0x01751997d0);
  const __m128i k5 = _mm_set_epi64x(0, 0x0163cd6124);
  const __m128i barrett = _mm_set_epi64x(0x01f7011641, 0x01db710641);
  const __m128i low32 = _mm_setr_epi32(~0, 0, ~0, 0);

  __m128i x1 = _mm_xor_si128(load(data), _mm_cvtsi32_si128(static_cast<int>(crc)));
  __m128i x2 = load(data + 16);
  __m128i x3 = load(data + 32);
  __m128i x4 = load(data + 48);
  data += 64;
  size -= 64;
  for (; size >= 64; data += 64, size -= 64) {
    x1 = fold(x1, k1k2, load(data));
    x2 = fold(x2, k1k2, load(data + 16));
    x3 = fold(x3, k1k2, load(data + 32));
    x4 = fold(x4, k1k2, load(data + 48));
  }
  x1 = fold(x1, k3k4, x2);
  x1 = fold(x1, k3k4, x3);
  x1 = fold(x1, k3k4, x4);
  for (; size >= 16; data += 16, size -= 16)
    x1 = fold(x1, k3k4, load(data));

  // 128 bits to 64.
  __m128i part = _mm_clmulepi64_si128(x1, k3k4, 0x10);
  x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), part);
  part = _mm_srli_si128(x1, 4);
  x1 = _mm_and_si128(x1, low32);
  x1 = _mm_xor_si128(_mm_clmulepi64_si128(x1, k5, 0x00), part);

  // Barrett reduction to 32 bits.
  part = _mm_and_si128(x1, low32);
  part = _mm_clmulepi64_si128(part, barrett, 0x10);
  part = _mm_and_si128(part, low32);
  part = _mm_clmulepi64_si128(part, barrett, 0x00);
  x1 = _mm_xor_si128(x1, part);
  return static_cast<uint32_t>(_mm_extract_epi32(x1, 1));
}

#undef MORVIK_FOLD_TARGET

#endif

}  // namespace

uint32_t crc32Update(uint32_t crc, const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
#if defined(__x86_64__)
  if (size >= 64 && canFold()) {
    const size_t folded = size & ~static_cast<size_t>(15);
    crc = ~foldedCrc(~crc, bytes, folded);
    bytes += folded;
    size -= folded;
  }
#endif
  return tableCrc(crc, bytes, size);
}

}  // namespace host
