#include "escapeblock.h"

#include <algorithm>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace escapeblock {

bool needsEscape(char16_t c, Quotes quotes)
{
    return c < 0x20 || c == u'\\' || (c == u'"' && quotes == Quotes::Escaped) ||
           (c >= 0x7f && c <= 0x9f) || c == 0x2028 || c == 0x2029;
}

bool plain(const char16_t *text, Quotes quotes)
{
    return std::any_of(text, text + 8, [quotes](char16_t c) { return needsEscape(c, quotes); });
}

#ifdef __SSE2__
bool sse2(const char16_t *text, Quotes quotes)
{
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text));
    const __m128i zero = _mm_setzero_si128();
    // Unsigned "at most": a saturating subtraction that leaves nothing.
    const auto atMost = [&](__m128i value, short bound) {
        return _mm_cmpeq_epi16(_mm_subs_epu16(value, _mm_set1_epi16(bound)), zero);
    };
    __m128i found = atMost(c, 0x1f);
    found = _mm_or_si128(found, _mm_cmpeq_epi16(c, _mm_set1_epi16(u'\\')));
    if (quotes == Quotes::Escaped)
        found = _mm_or_si128(found, _mm_cmpeq_epi16(c, _mm_set1_epi16(u'"')));
    found = _mm_or_si128(found, atMost(_mm_sub_epi16(c, _mm_set1_epi16(0x7f)), 0x20));
    found = _mm_or_si128(found, atMost(_mm_sub_epi16(c, _mm_set1_epi16(0x2028)), 1));
    return _mm_movemask_epi8(found) != 0;
}
#endif

bool any(const char16_t *text, Quotes quotes)
{
#ifdef __SSE2__
    return sse2(text, quotes);
#else
    return plain(text, quotes);
#endif
}

} // namespace escapeblock
