#pragma once

// Which characters Escape writes as escapes, one at a time and eight at a time. The eight at a
// time has a vector form where the CPU has SSE2 and a plain one; both are always compiled, so
// that tests hold one against the other on every machine.
namespace escapeblock {

enum class Quotes { Kept, Escaped };

// Control characters (C0, DEL and C1), the line and paragraph separators, the backslash, and
// with Quotes::Escaped the double quote.
bool needsEscape(char16_t c, Quotes quotes);

// Whether any of the eight characters from text needs an escape.
bool plain(const char16_t *text, Quotes quotes);
#ifdef __SSE2__
bool sse2(const char16_t *text, Quotes quotes);
#endif
// The form in use: sse2() where there is one.
bool any(const char16_t *text, Quotes quotes);

} // namespace escapeblock
