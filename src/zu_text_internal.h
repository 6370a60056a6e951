// zu_text_internal: the small text rules several units share: which bytes count as blank
// when trimming, and whether a pointer points into a buffer (so that a text taken from an
// object's own storage is copied aside before that storage changes).
// Thread safety: pure functions.
#ifndef ZUSTD_SRC_ZU_TEXT_INTERNAL_H
#define ZUSTD_SRC_ZU_TEXT_INTERNAL_H

#include <cstddef>
#include <functional>

namespace zu_internal {

// The white space of trimming: space, tab, line feed, carriage return.
constexpr char kBlanks[] = " \t\n\r";

constexpr bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// True when p points into the size bytes starting at buffer. std::less gives a total order
// even for pointers into unrelated objects.
inline bool PointsInto(const char* p, const char* buffer, size_t size) {
  const std::less<const char*> before;
  return buffer != nullptr && !before(p, buffer) && before(p, buffer + size);
}

}  // namespace zu_internal

#endif  // ZUSTD_SRC_ZU_TEXT_INTERNAL_H
