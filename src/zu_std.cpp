// zu_std: memory and text helpers, base64, the local-time helpers and their mutex, and the
// byte-order, directory-test, socket start-up, path and library-name helpers.
#include "zu_std.h"

#include <strings.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zu_automutex.h"
#include "zu_mutex_unix.h"
#include "zu_text_internal.h"
// ---- Memory and text helpers ----

void ka_memmove(void* dst, const void* src, int n) {
  if (dst == nullptr || src == nullptr || n <= 0 || dst == src) return;
  std::memmove(dst, src, static_cast<size_t>(n));
}

char* ka_strncpy(char* dst, const char* src, int n) {
  if (dst == nullptr) return nullptr;
  if (src == nullptr || n < 0) {
    dst[0] = '\0';
    return dst;
  }
  std::strncpy(dst, src, static_cast<size_t>(n));
  dst[n] = '\0';
  return dst;
}

int ka_strnocasecmp(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return (a == nullptr ? 0 : 1) - (b == nullptr ? 0 : 1);
  return strcasecmp(a, b);
}

// toupper/tolower never turn a byte into NUL, so one pass to the terminator gives the same
// result as re-measuring the text before every byte.
void ka_toupper(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) *s = static_cast<char>(std::toupper(static_cast<unsigned char>(*s)));
}

void ka_tolower(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) *s = static_cast<char>(std::tolower(static_cast<unsigned char>(*s)));
}

// ---- Base64 ----

namespace {

constexpr char kDefaultAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kNotInAlphabet = 255;

using DecodeTable = std::array<unsigned char, 256>;

// Character values; the first occurrence wins, as a linear scan of the alphabet gives.
constexpr DecodeTable MakeDecodeTable(const char* alphabet) {
  DecodeTable table{};
  for (auto& value : table) value = kNotInAlphabet;
  for (int i = 63; i >= 0; --i) {
    table[static_cast<unsigned char>(alphabet[i])] = static_cast<unsigned char>(i);
  }
  return table;
}

constexpr DecodeTable kDefaultTable = MakeDecodeTable(kDefaultAlphabet);

// base64char is a public pointer that a program may point elsewhere (null falls back).
const char* Alphabet() {
  return CZUBase64::base64char != nullptr ? CZUBase64::base64char : kDefaultAlphabet;
}

void EncodeGroup(const char* alphabet, const unsigned char* in, int n, char* out) {
  const unsigned b0 = in[0];
  const unsigned b1 = n > 1 ? in[1] : 0;
  const unsigned b2 = n > 2 ? in[2] : 0;
  out[0] = alphabet[b0 >> 2];
  out[1] = alphabet[((b0 & 3) << 4) | (b1 >> 4)];
  out[2] = n > 1 ? alphabet[((b1 & 15) << 2) | (b2 >> 6)] : '=';
  out[3] = n > 2 ? alphabet[b2 & 63] : '=';
}

}  // namespace

const char* CZUBase64::base64char = kDefaultAlphabet;

char* CZUBase64::base64_encode(const unsigned char* in, char* out, int len) {
  if (out == nullptr) return nullptr;
  char* next = out;
  for (long long i = 0; in != nullptr && i < len; i += 3, next += 4) {
    EncodeGroup(Alphabet(), in + i, static_cast<int>(len - i), next);
  }
  *next = '\0';
  return out;
}

int CZUBase64::base64_decode(const char* in, unsigned char* out) {
  if (in == nullptr || out == nullptr || *in == '\0') return 0;
  DecodeTable custom{};
  const DecodeTable* table = &kDefaultTable;
  if (Alphabet() != kDefaultAlphabet) {
    custom = MakeDecodeTable(Alphabet());
    table = &custom;
  }
  int count = 0;
  for (const char* group = in;; group += 4) {
    // A group cut short by the terminator reads as if padded with '='.
    const bool has2 = group[1] != '\0';
    const bool has3 = has2 && group[2] != '\0';
    const bool has4 = has3 && group[3] != '\0';
    if (!has2) return count;  // a lone character carries no whole byte
    const unsigned c0 = (*table)[static_cast<unsigned char>(group[0])];
    const unsigned c1 = (*table)[static_cast<unsigned char>(group[1])];
    out[count++] = static_cast<unsigned char>((c0 << 2) | ((c1 >> 4) & 3));
    if (!has3 || group[2] == '=') return count;
    const unsigned c2 = (*table)[static_cast<unsigned char>(group[2])];
    out[count++] = static_cast<unsigned char>((c1 << 4) | ((c2 >> 2) & 15));
    if (!has4 || group[3] == '=') return count;
    const unsigned c3 = (*table)[static_cast<unsigned char>(group[3])];
    out[count++] = static_cast<unsigned char>((c2 << 6) | (c3 & 63));
    if (group[4] == '\0') return count;
  }
}

// ---- Local time ----

namespace {

// Guards every call of localtime, whose result lives in storage shared by the process.
CKAMutex s_mutex_time;

// Runs fn on the broken-down local time of *pTime under s_mutex_time. Returns false, without
// calling fn, for a null pointer or an instant localtime cannot convert.
template <typename Fn>
bool WithLocaltime(const time_t* pTime, Fn fn) {
  if (pTime == nullptr) return false;
  CKAAutoMutex lock(&s_mutex_time, true);
  const struct tm* tmLocal = localtime(pTime);
  if (tmLocal == nullptr) return false;
  fn(*tmLocal);
  return true;
}

}  // namespace

STimeInfo ka_localtime(const time_t* pTime) {
  static STimeInfo tmInfo;  // written only under s_mutex_time; its last two fields stay 0
  STimeInfo result = {};
  WithLocaltime(pTime, [&result](const struct tm& t) {
    tmInfo.wYear = static_cast<unsigned short>(t.tm_year + 1900);
    tmInfo.wMonth = static_cast<unsigned short>(t.tm_mon + 1);
    tmInfo.wDay = static_cast<unsigned short>(t.tm_mday);
    tmInfo.wHour = static_cast<unsigned short>(t.tm_hour);
    tmInfo.wMinute = static_cast<unsigned short>(t.tm_min);
    tmInfo.wSecond = static_cast<unsigned short>(t.tm_sec);
    result = tmInfo;
  });
  return result;
}

int ka_localtime_week(const time_t* pTime) {
  int week = -1;
  WithLocaltime(pTime, [&week](const struct tm& t) { week = t.tm_wday; });
  return week;
}

int ka_localtime_dayofyear(const time_t* pTime) {
  int day = -1;
  WithLocaltime(pTime, [&day](const struct tm& t) { day = t.tm_yday; });
  return day;
}

// ---- Byte order, directories, sockets, paths, library names ----

namespace {

constexpr size_t kDllNameBuffer = 80;

std::string TrimBlanks(const std::string& text) {
  const std::string::size_type first = text.find_first_not_of(zu_internal::kBlanks);
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(zu_internal::kBlanks) - first + 1);
}

}  // namespace

void* ka_byteorder(void* pData, int /*nLen*/) {
  return pData;
}

bool ka_is_dir_exist(const char* szPath) {
  return szPath != nullptr && access(szPath, F_OK) != -1;
}

bool ka_startup_socket() {
  return true;
}

void ka_cleanup_socket() {}

std::string ka_get_path_name(const char* szPath) {
  if (szPath == nullptr) return std::string();
  std::string path = TrimBlanks(szPath);
  if (path.empty() || path[0] != '$') return path;
  const std::string::size_type slash = path.find('/');
  // Without a slash the name is the whole text with its '$': kept as it is.
  const std::string name = slash == std::string::npos ? path : path.substr(1, slash - 1);
  const char* value = getenv(name.c_str());
  if (value == nullptr) return std::string();
  // The '$' and the name are replaced; when that span runs past the end (no slash), the text
  // is left as it is.
  if (name.size() + 1 > path.size()) return path;
  return path.replace(0, name.size() + 1, value);
}

CKAString ka_get_dll_name(const char* szName) {
  char buffer[kDllNameBuffer] = {};
  if (szName == nullptr) return CKAString();
  const int written = snprintf(buffer, sizeof buffer, "lib%s.so", szName);
  if (written < 0 || static_cast<size_t>(written) >= sizeof buffer) return CKAString();
  return CKAString(buffer);
}
