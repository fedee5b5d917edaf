#include "sha256.h"

#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace {

constexpr uint32_t rounds[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t rotate(uint32_t x, int n)
{
    return (x >> n) | (x << (32 - n));
}

} // namespace

Sha256::Sha256()
    : m_state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
              0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19}
{}

void Sha256::portableBlock(const unsigned char *data)
{
    uint32_t w[64];
    for (int i = 0; i < 16; ++i)
        w[i] = uint32_t(data[4 * i]) << 24 | uint32_t(data[4 * i + 1]) << 16 |
               uint32_t(data[4 * i + 2]) << 8 | uint32_t(data[4 * i + 3]);
    for (int i = 16; i < 64; ++i) {
        const uint32_t s0 = rotate(w[i - 15], 7) ^ rotate(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const uint32_t s1 = rotate(w[i - 2], 17) ^ rotate(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];
    uint32_t e = m_state[4], f = m_state[5], g = m_state[6], h = m_state[7];
    for (int i = 0; i < 64; ++i) {
        const uint32_t t1 = h + (rotate(e, 6) ^ rotate(e, 11) ^ rotate(e, 25)) +
                            ((e & f) ^ (~e & g)) + rounds[i] + w[i];
        const uint32_t t2 =
            (rotate(a, 2) ^ rotate(a, 13) ^ rotate(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    m_state[0] += a;
    m_state[1] += b;
    m_state[2] += c;
    m_state[3] += d;
    m_state[4] += e;
    m_state[5] += f;
    m_state[6] += g;
    m_state[7] += h;
}

#if defined(__x86_64__)
// The SHA extensions' form of the rounds: the state as ABEF and CDGH, four rounds per pair of
// instructions, the message schedule by sha256msg1/msg2.
__attribute__((target("sha,sse4.1"))) void shaBlocks(uint32_t state[8], const unsigned char *data,
                                                     size_t count)
{
    const __m128i byteOrder = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
    __m128i tmp = _mm_loadu_si128(reinterpret_cast<const __m128i *>(&state[0]));
    __m128i state1 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(&state[4]));
    tmp = _mm_shuffle_epi32(tmp, 0xB1);               // CDAB
    state1 = _mm_shuffle_epi32(state1, 0x1B);         // EFGH
    __m128i state0 = _mm_alignr_epi8(tmp, state1, 8); // ABEF
    state1 = _mm_blend_epi16(state1, tmp, 0xF0);      // CDGH

    for (; count > 0; --count, data += 64) {
        const __m128i abefSave = state0;
        const __m128i cdghSave = state1;
        __m128i msg[4];
        for (int i = 0; i < 4; ++i)
            msg[i] = _mm_shuffle_epi8(
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + 16 * i)), byteOrder);
        for (int i = 0; i < 16; ++i) {
            __m128i m = msg[i % 4];
            __m128i k = _mm_add_epi32(
                m, _mm_loadu_si128(reinterpret_cast<const __m128i *>(&rounds[4 * i])));
            state1 = _mm_sha256rnds2_epu32(state1, state0, k);
            k = _mm_shuffle_epi32(k, 0x0E);
            state0 = _mm_sha256rnds2_epu32(state0, state1, k);
            if (i < 12) {
                // The schedule's next four words, from the four before them.
                __m128i next = _mm_sha256msg1_epu32(msg[i % 4], msg[(i + 1) % 4]);
                next = _mm_add_epi32(next, _mm_alignr_epi8(msg[(i + 3) % 4], msg[(i + 2) % 4], 4));
                msg[i % 4] = _mm_sha256msg2_epu32(next, msg[(i + 3) % 4]);
            }
        }
        state0 = _mm_add_epi32(state0, abefSave);
        state1 = _mm_add_epi32(state1, cdghSave);
    }

    tmp = _mm_shuffle_epi32(state0, 0x1B);       // FEBA
    state1 = _mm_shuffle_epi32(state1, 0xB1);    // DCHG
    state0 = _mm_blend_epi16(tmp, state1, 0xF0); // DCBA
    state1 = _mm_alignr_epi8(state1, tmp, 8);    // ABEF
    _mm_storeu_si128(reinterpret_cast<__m128i *>(&state[0]), state0);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(&state[4]), state1);
}
#endif

void Sha256::blocks(const unsigned char *data, size_t count)
{
#if defined(__x86_64__)
    // CPUID: SHA in leaf 7 (EBX bit 29), SSE4.1 in leaf 1 (ECX bit 19).
    static const bool hasSha = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) || !(ebx & (1u << 29)))
            return false;
        return __get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & (1u << 19));
    }();
    if (hasSha) {
        shaBlocks(m_state, data, count);
        return;
    }
#endif
    for (; count > 0; --count, data += 64)
        portableBlock(data);
}

void Sha256::add(const char *data, size_t size)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(data);
    m_bytes += size;
    if (m_buffered > 0) {
        const size_t take = std::min(size, sizeof m_buffer - m_buffered);
        std::memcpy(m_buffer + m_buffered, bytes, take);
        m_buffered += take;
        bytes += take;
        size -= take;
        if (m_buffered < sizeof m_buffer)
            return;
        blocks(m_buffer, 1);
        m_buffered = 0;
    }
    blocks(bytes, size / 64);
    bytes += size / 64 * 64;
    size %= 64;
    std::memcpy(m_buffer, bytes, size);
    m_buffered = size;
}

std::string Sha256::hex()
{
    const uint64_t bits = m_bytes * 8;
    const unsigned char one = 0x80;
    add(reinterpret_cast<const char *>(&one), 1);
    const unsigned char zero = 0;
    while (m_buffered != 56)
        add(reinterpret_cast<const char *>(&zero), 1);
    unsigned char length[8];
    for (int i = 0; i < 8; ++i)
        length[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    add(reinterpret_cast<const char *>(length), 8);
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (uint32_t word : m_state)
        for (int shift = 28; shift >= 0; shift -= 4)
            text += digits[(word >> shift) & 0xf];
    return text;
}
