// zu_string: CKAString, the byte string every unit uses.
#include "zu_string.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "zu_text_internal.h"

namespace {

using zu_internal::IsBlank;

bool PointsInto(const char* p, const char* buf, int size) {
  return zu_internal::PointsInto(p, buf, static_cast<size_t>(size));
}

// A text length as the int the string keeps; lengths the counter cannot hold are treated as
// an allocation failure.
int CheckedLength(long long n) {
  if (n > INT_MAX - 1) throw std::bad_alloc();
  return static_cast<int>(n);
}

// A new buffer of size bytes: the first keep bytes from old, all others zero.
char* NewBuffer(int size, const char* old, int keep) {
  char* p = new char[size];
  if (keep > 0) std::memcpy(p, old, static_cast<size_t>(keep));
  std::memset(p + keep, 0, static_cast<size_t>(size - keep));
  return p;
}

// strcat bounded by the allocation: appends n bytes of s at the text's terminator; the
// bound only bites when the buffer was corrupted through a writable reference.
void CatBounded(char* buf, int size, const char* s, size_t n) {
  const size_t pos = strnlen(buf, static_cast<size_t>(size - 1));
  n = std::min(n, static_cast<size_t>(size - 1) - pos);
  std::memcpy(buf + pos, s, n);
  buf[pos + n] = '\0';
}

// The string holding the n bytes at p (no NUL among them), with an exact-fit buffer.
CKAString FromBytes(const char* p, int n) {
  CKAString result;
  result.AddNum(n);
  std::memcpy(result.GetBuf(), p, static_cast<size_t>(n));
  return result;
}

// Clamps i to 0 .. length - 1, and to 0 on an empty string (where index 0 is the terminator).
int ClampIndex(int i, int length) {
  if (i <= 0 || length <= 0) return 0;
  return i >= length ? length - 1 : i;
}

int CountMatches(const char* text, const char* pattern) {
  const size_t step = std::strlen(pattern);
  int count = 0;
  for (const char* hit = std::strstr(text, pattern); hit != nullptr;
       hit = std::strstr(hit + step, pattern)) {
    ++count;
  }
  return count;
}

void AppendField(std::vector<CKAString>& fields, CKAString field) {
  field.TrimAll();
  if (!field.IsEmpty()) fields.push_back(field);
}

}  // namespace

// ---- Construction and storage ----

CKAString::CKAString() : m_pBuffer(new char[1]), m_nLength(0), m_nSize(1) {
  m_pBuffer[0] = '\0';
}

CKAString::CKAString(char c, int n) {
  const int count = CheckedLength(n < 1 ? 1 : n);
  m_pBuffer = new char[count + 1];
  std::memset(m_pBuffer, c, static_cast<size_t>(count));
  m_pBuffer[count] = '\0';
  m_nLength = count;
  m_nSize = count + 1;
}

CKAString::CKAString(const char* s) {
  const int length = s == nullptr ? 0 : CheckedLength(static_cast<long long>(std::strlen(s)));
  m_pBuffer = new char[length + 1];
  if (length > 0) std::memcpy(m_pBuffer, s, static_cast<size_t>(length));
  m_pBuffer[length] = '\0';
  m_nLength = length;
  m_nSize = length + 1;
}

CKAString::CKAString(int n) : m_pBuffer(nullptr), m_nLength(0), m_nSize(n < 1 ? 1 : n) {
  m_pBuffer = new char[m_nSize]();
}

CKAString::CKAString(const CKAString& o) : m_nLength(o.m_nLength), m_nSize(o.m_nLength + 1) {
  m_pBuffer = new char[m_nSize];
  std::memcpy(m_pBuffer, o.m_pBuffer, static_cast<size_t>(m_nLength));
  m_pBuffer[m_nLength] = '\0';
}

CKAString::~CKAString() {
  delete[] m_pBuffer;
}

char* CKAString::GetBuf() const {
  return m_pBuffer;
}

int CKAString::GetLength() const {
  return m_nLength;
}

bool CKAString::IsEmpty() const {
  return m_nLength < 1;
}

void CKAString::Empty() {
  if (m_pBuffer == nullptr) {
    m_pBuffer = new char[1];
    m_nSize = 1;
  }
  m_nLength = 0;
  m_pBuffer[0] = '\0';
}

bool CKAString::AddNum(int n) {
  if (n == 0) return true;
  const long long target = std::max(0LL, static_cast<long long>(m_nLength) + n);
  if (target < m_nSize) {
    m_nLength = static_cast<int>(target);
    m_pBuffer[m_nLength] = '\0';
    return true;
  }
  const int length = CheckedLength(target);
  char* grown = NewBuffer(length + 1, m_pBuffer, m_nLength);
  delete[] m_pBuffer;
  m_pBuffer = grown;
  m_nSize = length + 1;
  m_nLength = length;
  return true;
}

bool CKAString::AddSize(int n) {
  const long long wanted = std::max(1LL, static_cast<long long>(m_nSize) + n);
  if (wanted > INT_MAX) throw std::bad_alloc();
  const int size = static_cast<int>(wanted);
  const int keep = std::min(m_nLength, size - 1);
  if (size == m_nSize) {
    // Same size: zeroing behind the kept text gives what a fresh buffer would hold.
    std::memset(m_pBuffer + keep, 0, static_cast<size_t>(size - keep));
  } else {
    char* resized = NewBuffer(size, m_pBuffer, keep);
    delete[] m_pBuffer;
    m_pBuffer = resized;
    m_nSize = size;
  }
  m_nLength = size - 1;  // counts the zero bytes behind the text: the raw-buffer contract
  return true;
}

bool CKAString::SetSize(int n) {
  return AddSize((n < 1 ? 1 : n) - m_nSize);
}

bool CKAString::FreeExtra() {
  return AddSize(m_nLength - m_nSize + 1);
}

// ---- Assignment and concatenation ----

CKAString& CKAString::operator=(const CKAString& o) {
  if (&o == this) {
    Empty();  // self-assignment empties the string: kept on purpose
    return *this;
  }
  Empty();
  AddNum(o.m_nLength);
  CatBounded(m_pBuffer, m_nSize, o.m_pBuffer, std::strlen(o.m_pBuffer));
  return *this;
}

CKAString& CKAString::operator=(const char* s) {
  if (s == nullptr) return *this;
  Empty();
  const int length = CheckedLength(static_cast<long long>(std::strlen(s)));
  std::string snapshot;
  if (PointsInto(s, m_pBuffer, m_nSize)) s = snapshot.assign(s, length).c_str();
  AddNum(length);
  std::memcpy(m_pBuffer, s, static_cast<size_t>(length));
  return *this;
}

CKAString& CKAString::operator=(char c) {
  Empty();
  AddNum(1);
  m_pBuffer[0] = c;  // NUL leaves the text empty with length 1
  return *this;
}

CKAString& CKAString::operator+=(const CKAString& o) {
  if (&o == this) {
    const CKAString before(o);
    return *this += before;
  }
  AddNum(o.m_nLength);  // the counter grows by o's counter, the text by o's text
  CatBounded(m_pBuffer, m_nSize, o.m_pBuffer, std::strlen(o.m_pBuffer));
  return *this;
}

CKAString& CKAString::operator+=(const char* s) {
  if (s == nullptr) return *this;
  const size_t length = std::strlen(s);
  std::string snapshot;
  if (PointsInto(s, m_pBuffer, m_nSize)) s = snapshot.assign(s, length).c_str();
  AddNum(CheckedLength(static_cast<long long>(length)));
  CatBounded(m_pBuffer, m_nSize, s, length);
  return *this;
}

CKAString& CKAString::operator+=(char c) {
  AddNum(1);  // even for NUL, which leaves the text as it was
  CatBounded(m_pBuffer, m_nSize, &c, c == '\0' ? 0 : 1);
  return *this;
}

CKAString operator+(const CKAString& a, const CKAString& b) {
  CKAString result(a);
  result += b;
  return result;
}

CKAString operator+(const CKAString& a, const char* b) {
  CKAString result(a);
  result += b;
  return result;
}

CKAString operator+(const char* a, const CKAString& b) {
  if (a == nullptr) return b;
  CKAString result(a);
  result += b;
  return result;
}

CKAString operator+(const CKAString& a, char c) {
  CKAString result(a);
  result += c;
  return result;
}

CKAString operator+(char c, const CKAString& b) {
  CKAString result(static_cast<int>(c));  // c only reserves space: kept on purpose
  result += b;
  return result;
}

// ---- Case ----

void CKAString::ToUpper() {
  for (int i = 0; i < m_nLength; ++i) {
    const auto byte = static_cast<unsigned char>(m_pBuffer[i]);
    if (byte != 0) m_pBuffer[i] = static_cast<char>(std::toupper(byte));
  }
}

void CKAString::ToLower() {
  for (int i = 0; i < m_nLength; ++i) {
    const auto byte = static_cast<unsigned char>(m_pBuffer[i]);
    if (byte != 0) m_pBuffer[i] = static_cast<char>(std::tolower(byte));
  }
}

void CKAString::ToReverse() {
  for (int i = 0; i < m_nLength; ++i) {
    const auto byte = static_cast<unsigned char>(m_pBuffer[i]);
    if (byte == 0) continue;
    m_pBuffer[i] = static_cast<char>(std::isupper(byte) ? std::tolower(byte) : std::toupper(byte));
  }
}

// ---- Editing ----

bool CKAString::AddAt(int pos, const char* s) {
  if (s == nullptr || pos < 0 || pos > m_nLength) return false;
  const int length = CheckedLength(static_cast<long long>(std::strlen(s)));
  std::string snapshot;
  if (PointsInto(s, m_pBuffer, m_nSize)) s = snapshot.assign(s, length).c_str();
  const int oldLength = m_nLength;
  AddNum(length);
  std::memmove(m_pBuffer + pos + length, m_pBuffer + pos, static_cast<size_t>(oldLength - pos + 1));
  std::memcpy(m_pBuffer + pos, s, static_cast<size_t>(length));
  return true;
}

bool CKAString::RemoveAt(int pos, int count) {
  if (count < 1) return true;
  if (pos < 0 || pos >= m_nLength) return false;
  if (count > m_nLength - pos) return false;  // refused, not clamped
  std::memmove(m_pBuffer + pos, m_pBuffer + pos + count,
               static_cast<size_t>(m_nLength - pos - count));
  AddNum(-count);
  return true;
}

bool CKAString::ReplaceAt(int pos, int count, const char* s) {
  if (s == nullptr) return false;
  std::string snapshot;
  if (PointsInto(s, m_pBuffer, m_nSize)) s = snapshot.assign(s).c_str();
  if (!RemoveAt(pos, count)) return false;
  return AddAt(pos, s);
}

// ---- Search ----

int CKAString::Find(const char* s, int nth, int start) const {
  if (s == nullptr || start < 0 || start >= m_nLength || nth < 1) return -1;
  if (*s == '\0') return start;
  const size_t step = std::strlen(s);
  const char* from = m_pBuffer + start;
  for (int count = 1;; ++count) {
    const char* hit = std::strstr(from, s);
    if (hit == nullptr) return -2;
    if (count == nth) return static_cast<int>(hit - m_pBuffer);
    from = hit + step;  // occurrences do not overlap
  }
}

int CKAString::FindNoCase(const char* s, int nth, int start) const {
  if (s == nullptr || start < 0 || start >= m_nLength || nth < 1) return -1;
  CKAString text(*this);
  CKAString pattern(s);
  text.ToUpper();
  pattern.ToUpper();
  return text.Find(pattern.GetBuf(), nth, start);
}

int CKAString::GetStrCount(const char* s, int start) const {
  if (s == nullptr || *s == '\0' || start < 0 || start > m_nLength) return 0;
  return CountMatches(m_pBuffer + start, s);
}

int CKAString::GetStrCountNoCase(const char* s, int start) const {
  if (s == nullptr || *s == '\0' || start < 0 || start > m_nLength) return 0;
  CKAString text(*this);
  CKAString pattern(s);
  text.ToUpper();
  pattern.ToUpper();
  return text.GetStrCount(pattern.GetBuf(), start);
}

// One pass into a new text. Gives what replacing one match at a time with ReplaceAt gives
// (the scan resumes behind each replacement, i.e. behind each match of the old text; the
// bytes behind the text up to the length counter move along; the buffer is reallocated
// exact-fit only when the new length does not fit) without a copy per match.
int CKAString::ReplaceFind(const char* find, const char* repl, int /*ignored*/) {
  if (find == nullptr || repl == nullptr || *find == '\0') return 0;
  const size_t findLength = std::strlen(find);
  const size_t replLength = std::strlen(repl);
  std::string result;
  int count = 0;
  const char* from = m_pBuffer;
  for (const char* hit = std::strstr(from, find); hit != nullptr; hit = std::strstr(from, find)) {
    result.append(from, static_cast<size_t>(hit - from)).append(repl, replLength);
    from = hit + findLength;
    ++count;
  }
  if (count == 0) return 0;
  // The rest of the text, then the bytes up to the length counter and its terminator.
  result.append(from, static_cast<size_t>(m_pBuffer + m_nLength + 1 - from));
  const int length = CheckedLength(static_cast<long long>(result.size()) - 1);
  if (length >= m_nSize) {
    char* grown = new char[length + 1];
    delete[] m_pBuffer;
    m_pBuffer = grown;
    m_nSize = length + 1;
  }
  std::memcpy(m_pBuffer, result.data(), result.size());
  m_nLength = length;
  return count;
}

// ---- Formatting and conversion ----

CKAString& CKAString::Format(const char* fmt, ...) {
  if (fmt == nullptr) return *this;
  char small[2048];
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  const int needed = std::vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  std::unique_ptr<char[]> large;
  const char* text = small;
  if (needed < 0) {
    small[0] = '\0';
  } else if (needed >= static_cast<int>(sizeof small)) {
    large.reset(new char[static_cast<size_t>(needed) + 1]);
    std::vsnprintf(large.get(), static_cast<size_t>(needed) + 1, fmt, again);
    text = large.get();
  }
  va_end(again);
  // Formatted into a separate buffer, so arguments pointing into this string stay valid.
  const int length = CheckedLength(static_cast<long long>(std::strlen(text)));
  char* exact = new char[length + 1];
  std::memcpy(exact, text, static_cast<size_t>(length) + 1);
  delete[] m_pBuffer;
  m_pBuffer = exact;
  m_nSize = length + 1;
  m_nLength = length;
  return *this;
}

int CKAString::ToInt() {
  return static_cast<int>(std::strtol(m_pBuffer, nullptr, 10));
}

double CKAString::ToReal() {
  return std::strtod(m_pBuffer, nullptr);
}

// ---- Substrings and trimming ----

CKAString CKAString::Left(int n) const {
  if (n <= 0 || m_nLength < 1) return CKAString();
  const int k = std::min(n, m_nLength);
  return FromBytes(m_pBuffer, static_cast<int>(strnlen(m_pBuffer, static_cast<size_t>(k))));
}

CKAString CKAString::Right(int n) const {
  if (n <= 0 || m_nLength < 1) return CKAString();
  const int k = std::min(n, m_nLength);
  const char* from = m_pBuffer + m_nLength - k;
  return FromBytes(from, static_cast<int>(strnlen(from, static_cast<size_t>(k))));
}

CKAString CKAString::Mid(int start, int count) const {
  if (start < 0 || m_nLength <= 0 || start >= m_nLength) return CKAString();
  const int rest = m_nLength - start;
  const int k = (count < 0 || count > rest) ? rest : count;
  const char* from = m_pBuffer + start;
  return FromBytes(from, static_cast<int>(strnlen(from, static_cast<size_t>(k))));
}

void CKAString::TrimLeft() {
  if (m_nLength < 1 || !IsBlank(m_pBuffer[0])) return;
  int count = 0;
  while (count < m_nLength && IsBlank(m_pBuffer[count])) ++count;
  RemoveAt(0, count);
}

void CKAString::TrimRight() {
  // Stops at index 1: the first byte is never examined, kept on purpose.
  for (int i = m_nLength - 1; i >= 1 && IsBlank(m_pBuffer[i]); --i) {
    m_pBuffer[i] = '\0';
    --m_nLength;
  }
}

void CKAString::TrimAll() {
  TrimLeft();
  TrimRight();
}

// ---- Character access ----

char CKAString::GetChar(int i) const {
  return m_pBuffer[ClampIndex(i, m_nLength)];
}

char& CKAString::GetChar(int i) {
  return m_pBuffer[ClampIndex(i, m_nLength)];
}

char CKAString::operator[](int i) const {
  return m_pBuffer[ClampIndex(i, m_nLength)];
}

char& CKAString::operator[](int i) {
  return m_pBuffer[ClampIndex(i, m_nLength)];
}

// ---- Splitting ----

std::vector<CKAString> CKAString::split(const CKAString& sep) const {
  std::vector<CKAString> fields;
  const int sepLength = sep.GetLength();
  int pos = 0;
  int skip = 0;  // an empty separator matches everywhere: step one byte further each time
  for (;;) {
    const int match = Find(sep.GetBuf(), 1, pos + skip);
    if (match < 0) break;
    if (match != pos) AppendField(fields, Mid(pos, match - pos));
    pos = match + sepLength;
    skip = sep.IsEmpty() ? 1 : 0;
  }
  if (pos != m_nLength) AppendField(fields, Mid(pos, -1));
  return fields;
}

// ---- Comparison (a null text is lower than every string) ----

bool CKAString::operator==(const char* s) {
  return s != nullptr && std::strcmp(m_pBuffer, s) == 0;
}

bool CKAString::operator==(const CKAString& o) {
  return *this == o.m_pBuffer;
}

bool CKAString::operator!=(const char* s) {
  return s == nullptr || std::strcmp(m_pBuffer, s) != 0;
}

bool CKAString::operator!=(const CKAString& o) {
  return *this != o.m_pBuffer;
}

bool CKAString::operator<(const char* s) {
  return s != nullptr && std::strcmp(m_pBuffer, s) < 0;
}

bool CKAString::operator<(const CKAString& o) {
  return *this < o.m_pBuffer;
}

bool CKAString::operator<=(const char* s) {
  return s != nullptr && std::strcmp(m_pBuffer, s) <= 0;
}

bool CKAString::operator<=(const CKAString& o) {
  return *this <= o.m_pBuffer;
}

bool CKAString::operator>(const char* s) {
  return s == nullptr || std::strcmp(m_pBuffer, s) > 0;
}

bool CKAString::operator>(const CKAString& o) {
  return *this > o.m_pBuffer;
}

bool CKAString::operator>=(const char* s) {
  return s == nullptr || std::strcmp(m_pBuffer, s) >= 0;
}

bool CKAString::operator>=(const CKAString& o) {
  return *this >= o.m_pBuffer;
}
