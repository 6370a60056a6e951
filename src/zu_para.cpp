// zu_para: CKAPara, INI-style parameter files held as trimmed lines.
#include "zu_para.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zu_file_internal.h"
#include "zu_text_internal.h"
#include "zu_token.h"

namespace {

// Loading reads at most 1023 bytes of a line at a time; longer lines become several lines.
constexpr int kLineBuffer = 1024;

using zu_internal::IsBlank;

// A line feed or carriage return would split the text into lines of its own in the file.
bool HasLineBreak(const char* text) {
  return text != nullptr && std::strpbrk(text, "\r\n") != nullptr;
}

// Builds the header text "[" section "]".
void MakeHeader(CKAString& header, const char* section) {
  header = "[";
  header += section;
  header += "]";
}

// True when text begins with the header text "[" name "]", letter case folded with toupper.
// "[" is no letter, so only lines that begin with it need the case-folding comparison.
bool BeginsWithNoCase(const char* text, const CKAString& header) {
  if (text[0] != '[') return false;
  const char* p = header.GetBuf();
  for (; *p != '\0'; ++p, ++text) {
    if (*text == '\0') return false;
    if (*text != *p && std::toupper(static_cast<unsigned char>(*text)) !=
                           std::toupper(static_cast<unsigned char>(*p))) {
      return false;
    }
  }
  return true;
}

// True when the key of an entry line (text before its first "=", trailing white space
// removed; a line without "=" has an empty key) equals key byte for byte. As with
// CKAString::TrimRight, the key's first byte is never trimmed. nKey is strlen(key).
bool KeyEquals(const char* text, const char* key, size_t nKey) {
  if (nKey > 0 && text[0] != key[0]) return false;  // cheap test for most lines
  const char* eq = std::strchr(text, '=');
  size_t nEnd = eq == nullptr ? 0 : static_cast<size_t>(eq - text);
  while (nEnd >= 2 && IsBlank(text[nEnd - 1])) --nEnd;
  return nKey == nEnd && std::memcmp(text, key, nEnd) == 0;
}

// The lines of a section: the index of the first header that names it (-1 when none) and
// the index of the next line that begins with "[" (the line count when none). Comment lines
// begin with ";", so they are never taken for a header.
struct SectionRange {
  int nHeader;
  int nEnd;
};

SectionRange FindSection(const CKAArray<CKAString>& lines, const CKAString& header) {
  SectionRange range = {-1, lines.m_nCount};
  for (int i = 0; i < lines.m_nCount; ++i) {
    const char* text = lines[i].GetBuf();
    if (range.nHeader < 0) {
      if (BeginsWithNoCase(text, header)) range.nHeader = i;
    } else if (text[0] == '[') {
      range.nEnd = i;
      break;
    }
  }
  return range;
}

// Removes count lines at index in one pass; the slots behind the new end keep stale copies.
void RemoveLines(CKAArray<CKAString>& lines, int index, int count) {
  if (count < 1) return;
  for (int i = index; i + count < lines.m_nCount; ++i) lines[i] = lines[i + count];
  lines.m_nCount -= count;
}

// Inserts items before index in one pass, in the order given.
void InsertLines(CKAArray<CKAString>& lines, int index, const std::vector<CKAString>& items) {
  const int nOld = lines.m_nCount;
  const int nAdd = static_cast<int>(items.size());
  if (nAdd == 0) return;  // the shift below would assign each line to itself, emptying it
  for (const CKAString& item : items) lines.AddBefore(lines.m_nCount, item);
  for (int i = nOld - 1; i >= index; --i) lines[i + nAdd] = lines[i];
  for (int i = 0; i < nAdd; ++i) lines[index + i] = items[static_cast<size_t>(i)];
}

// Reads the value of key in section; *pFound (when given) tells whether it was there.
bool ReadValue(CKAPara& para, const char* section, const char* key, CKAString& value,
               bool* pFound) {
  const bool bFound = para.GetValueString(para.SearchLine(section, key), value);
  if (pFound != nullptr) *pFound = bFound;
  return bFound;
}

}  // namespace

CKAPara::CKAPara() : m_bLoaded(false) {}

CKAPara::~CKAPara() = default;

bool CKAPara::SetFileName(const char* name) {
  if (name == nullptr) return false;
  CKAFile::SetFileName(name);
  if (!Open("r") || GetLength() < 1) {
    Close();
    return false;
  }
  m_bLoaded = true;
  m_arLine.m_nCount = 0;  // the storage is kept for the new lines
  char buf[kLineBuffer];
  while (ReadLine(buf, kLineBuffer)) {
    CKAString line(buf);
    line.TrimAll();
    m_arLine.AddBefore(m_arLine.m_nCount, line);
  }
  Close();
  return true;
}

bool CKAPara::WriteToFile() {
  std::string text;
  for (int i = 0; i < m_arLine.m_nCount; ++i) {
    text += m_arLine[i].GetBuf();
    text += '\n';
  }
  return zu_internal::ReplaceFileContents(GetFileName().GetBuf(), text);
}

bool CKAPara::DeleteAll() {
  if (!m_bLoaded) return false;
  // Kept: true even when the file could not be emptied (it then stays as it was).
  zu_internal::ReplaceFileContents(GetFileName().GetBuf(), std::string());
  m_arLine.m_nCount = 0;
  return true;
}

int CKAPara::SearchLine(const char* section, const char* key) {
  if (section == nullptr) return ~m_arLine.m_nCount;
  MakeHeader(m_strTemp, section);
  const SectionRange range = FindSection(m_arLine, m_strTemp);
  if (range.nHeader < 0) return ~m_arLine.m_nCount;
  if (key == nullptr) return ~range.nHeader;
  const size_t nKey = std::strlen(key);
  // The line that ends the section is looked at too: a header has an empty key, so an
  // empty key finds it.
  const int nLast = range.nEnd < m_arLine.m_nCount ? range.nEnd : m_arLine.m_nCount - 1;
  for (int i = range.nHeader + 1; i <= nLast; ++i) {
    const char* text = m_arLine[i].GetBuf();
    if (text[0] != ';' && KeyEquals(text, key, nKey)) return i;
  }
  return ~range.nHeader;
}

bool CKAPara::GetValueString(int index, CKAString& value) {
  if (index < 0 || index >= m_arLine.m_nCount) return false;
  const char* text = m_arLine[index].GetBuf();
  if (text[0] == '\0') {  // an empty line reads as an empty value
    value = "";
    return true;
  }
  const char* eq = std::strchr(text, '=');
  if (eq == nullptr) return false;
  CKAString found(eq + 1);
  found.TrimAll();
  value = found;
  return true;
}

bool CKAPara::SetValueString(int index, const char* value) {
  if (value == nullptr || HasLineBreak(value) || index < 0 || index >= m_arLine.m_nCount)
    return false;
  CKAString& line = m_arLine[index];
  const char* eq = std::strchr(line.GetBuf(), '=');
  if (eq == nullptr) return false;
  // Everything after the "=" goes, the spaces that followed it included: "k = v" becomes
  // "k =w". Deliberate and kept.
  CKAString updated = line.Left(static_cast<int>(eq - line.GetBuf()) + 1);
  updated += value;
  line = updated;
  return true;
}

std::string CKAPara::GetKeyList(const char* section) {
  std::string result;
  if (section == nullptr) return result;
  MakeHeader(m_strTemp, section);
  const SectionRange range = FindSection(m_arLine, m_strTemp);
  bool bFirst = true;
  for (int i = range.nHeader + 1; range.nHeader >= 0 && i < range.nEnd; ++i) {
    const char* text = m_arLine[i].GetBuf();
    if (text[0] == ';') continue;
    if (!bFirst) result += '\n';
    result += text;
    bFirst = false;
  }
  return result;
}

bool CKAPara::GetBool(const char* section, const char* key, bool bDefault, bool* pFound) {
  CKAString value;
  if (!ReadValue(*this, section, key, value, pFound)) return bDefault;
  const char* text = value.GetBuf();
  if (std::strcmp(text, "Y") == 0 || std::strcmp(text, "y") == 0) return true;
  if (std::strcmp(text, "N") == 0 || std::strcmp(text, "n") == 0) return false;
  if (pFound != nullptr) *pFound = false;  // "yes", "1", "" ... are not booleans
  return bDefault;
}

int CKAPara::GetInt(const char* section, const char* key, int nDefault, bool* pFound) {
  CKAString value;
  if (!ReadValue(*this, section, key, value, pFound)) return nDefault;
  // Clamped so that 64-bit longs give what strtol gives where long is 32 bits.
  const long nValue = std::strtol(value.GetBuf(), nullptr, 10);
  if (nValue > INT_MAX) return INT_MAX;
  if (nValue < INT_MIN) return INT_MIN;
  return static_cast<int>(nValue);
}

double CKAPara::GetReal(const char* section, const char* key, double dDefault, bool* pFound) {
  CKAString value;
  if (!ReadValue(*this, section, key, value, pFound)) return dDefault;
  return std::strtod(value.GetBuf(), nullptr);
}

std::string CKAPara::GetString(const char* section, const char* key, const char* szDefault,
                               bool* pFound) {
  CKAString value;
  if (!ReadValue(*this, section, key, value, pFound)) {
    return szDefault == nullptr ? std::string() : std::string(szDefault);
  }
  return std::string(value.GetBuf());
}

bool CKAPara::SetBool(const char* section, const char* key, bool value) {
  return SetString(section, key, value ? "Y" : "N");
}

bool CKAPara::SetInt(const char* section, const char* key, int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%d", value);
  return SetString(section, key, text);
}

bool CKAPara::SetReal(const char* section, const char* key, double value) {
  char text[400];  // "%.3f" of the largest double needs 314 bytes
  std::snprintf(text, sizeof text, "%.3f", value);
  return SetString(section, key, text);
}

bool CKAPara::SetString(const char* section, const char* key, const char* value) {
  if (section == nullptr || key == nullptr) return false;
  if (HasLineBreak(section) || HasLineBreak(key) || HasLineBreak(value)) return false;
  if (value == nullptr) return DeleteSubKey(section, key);
  const int nLine = SearchLine(section, key);
  if (nLine < 1) {
    // The complement of the line count means no header: a new section at the end.
    const int nPos = nLine == ~m_arLine.m_nCount ? 0 : nLine;
    AddValueString(section, key, value, nPos);
  } else if (!SetValueString(nLine, value)) {
    return false;
  }
  return WriteToFile();
}

bool CKAPara::AddValueString(const char* section, const char* key, const char* value, int nPos) {
  if (key == nullptr || value == nullptr || nPos == INT_MIN) return false;
  if (nPos == 0 && (section == nullptr || HasLineBreak(section))) return false;
  if (HasLineBreak(key) || HasLineBreak(value)) return false;
  if (nPos == 0) {
    m_arLine.AddBefore(m_arLine.m_nCount, CKAString(""));
    MakeHeader(m_strTemp, section);
    m_arLine.AddBefore(m_arLine.m_nCount, m_strTemp);
  }
  m_strTemp = key;
  m_strTemp += "=";
  m_strTemp += value;
  // -nPos is the index just behind the header: a new key goes first in its section.
  return m_arLine.AddBefore(nPos == 0 ? m_arLine.m_nCount : -nPos, m_strTemp);
}

bool CKAPara::DeleteSubKey(const char* section, const char* key) {
  if (section == nullptr || key == nullptr) return false;
  const int nLine = SearchLine(section, key);
  if (nLine > 0) m_arLine.RemoveAt(nLine);
  return WriteToFile();  // also when the key was not there
}

bool CKAPara::DeleteKey(const char* section) {
  if (section == nullptr) return false;
  MakeHeader(m_strTemp, section);
  const int nCount = m_arLine.m_nCount;
  const SectionRange range = FindSection(m_arLine, m_strTemp);
  if (range.nHeader < 0) return false;
  int nEnd = range.nEnd;
  if (nEnd == nCount) {
    // Only a last line that is an entry reaches the end of the file: a section ending in a
    // comment, or a bare header at the end, is not removed. Deliberate and kept.
    const bool bEntryLast = nCount - 1 > range.nHeader && m_arLine[nCount - 1].GetBuf()[0] != ';';
    if (!bEntryLast) nEnd = range.nHeader;
  }
  RemoveLines(m_arLine, range.nHeader, nEnd - range.nHeader);
  return WriteToFile();
}

bool CKAPara::SetKeyList(const char* section, const char* list) {
  if (section == nullptr || list == nullptr || HasLineBreak(section)) return false;
  MakeHeader(m_strTemp, section);
  const CKAString items(list);
  const SectionRange range = FindSection(m_arLine, m_strTemp);
  int nInsert = 1;
  if (range.nHeader >= 0) {
    // Unlike the searches, this removes the section's comment lines too.
    RemoveLines(m_arLine, range.nHeader + 1, range.nEnd - range.nHeader - 1);
    nInsert = range.nHeader + 1;
  } else {
    // A new section goes to the top, with no blank line. Deliberate and kept.
    m_arLine.AddBefore(0, m_strTemp);
  }
  // Every item is inserted at the same index, so they end up in reverse order. Deliberate
  // and kept.
  std::vector<CKAString> reversed;
  CKAToken token(items.GetBuf(), "\n");  // runs of line feeds count as one
  for (CKAString item; token.GetToken(item);) reversed.push_back(item);
  std::reverse(reversed.begin(), reversed.end());
  InsertLines(m_arLine, nInsert, reversed);
  return WriteToFile();
}
