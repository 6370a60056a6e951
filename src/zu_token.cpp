// zu_token: CKAToken, a re-entrant delimiter tokenizer.
#include "zu_token.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace {

constexpr int kInitialSize = 128;
constexpr char kDefaultDelimiters[] = " \t\n";

// Copies the delimiter set into dst (capacity bytes). A set that does not fit is reduced to
// its distinct bytes, cut to capacity - 1 of them.
void StoreDelimiters(char* dst, int capacity, const char* set) {
  if (set == nullptr) set = kDefaultDelimiters;
  if (std::strlen(set) < static_cast<size_t>(capacity)) {
    std::strcpy(dst, set);
    return;
  }
  int n = 0;
  for (const char* p = set; *p != '\0' && n < capacity - 1; ++p) {
    if (std::memchr(dst, *p, static_cast<size_t>(n)) == nullptr) dst[n++] = *p;
  }
  dst[n] = '\0';
}

}  // namespace

CKAToken::CKAToken()
    : m_bFirst(true), m_pText(new char[kInitialSize]()), m_pSave(nullptr), m_nSize(kInitialSize) {
  std::strcpy(m_szDelimiter, kDefaultDelimiters);
}

CKAToken::CKAToken(const char* text, const char* delimiters) : CKAToken() {
  SetString(text, delimiters);
}

CKAToken::~CKAToken() {
  delete[] m_pText;
}

void CKAToken::SetString(const char* text, const char* delimiters) {
  const size_t length = text == nullptr ? 0 : std::strlen(text);
  if (length >= static_cast<size_t>(INT_MAX)) throw std::bad_alloc();  // m_nSize is an int
  if (text == nullptr) {
    std::fill(m_pText, m_pText + m_nSize, '\0');
  } else if (length >= static_cast<size_t>(m_nSize)) {
    char* grown = new char[length + 1];
    std::memcpy(grown, text, length + 1);
    delete[] m_pText;
    m_pText = grown;
    m_nSize = static_cast<int>(length + 1);
  } else {
    std::memmove(m_pText, text, length + 1);
  }
  StoreDelimiters(m_szDelimiter, kDelimiterCapacity, delimiters);
  m_pSave = nullptr;
  m_bFirst = true;
}

bool CKAToken::GetToken(CKAString& token) {
  char* start = nullptr;
  if (m_bFirst) {
    m_bFirst = false;
    start = m_pText;
  }
  const char* next = strtok_r(start, m_szDelimiter, &m_pSave);
  if (next == nullptr) return false;
  token = next;
  return true;
}
