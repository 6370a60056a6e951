// zu_token: CKAToken, a tokenizer that cuts a text at any of a set of delimiter bytes, one
// token per call, on a private copy of the text (strtok_r rules: runs of delimiters count as
// one, leading and trailing delimiters give nothing, no token is ever empty).
// An object is used by one thread at a time; distinct objects are independent.
#ifndef ZUSTD_ZU_TOKEN_H
#define ZUSTD_ZU_TOKEN_H

#include "zu_export.h"
#include "zu_string.h"

// Owns its text buffer: not copyable (copy operations deleted).
class ZUSTD_API CKAToken {
 public:
  // Bytes of the delimiter set, terminator included.
  static const int kDelimiterCapacity = 64;

  // A 128-byte text buffer, no text yet: GetToken returns false until SetString.
  CKAToken();
  // The 128-byte buffer, then SetString(text, delimiters).
  CKAToken(const char* text, const char* delimiters);
  ~CKAToken();
  CKAToken(const CKAToken&) = delete;
  CKAToken& operator=(const CKAToken&) = delete;

  // Loads a copy of text (null: no tokens) and the delimiter set (null: space, tab, line
  // feed) and restarts the scan. The buffer grows to fit the text and never shrinks. A set
  // longer than 63 bytes keeps its first 63 distinct bytes (a set's order and repeats do
  // not matter), so only sets of more than 63 different bytes lose delimiters.
  void SetString(const char* text, const char* delimiters);
  // Assigns the next token to token and returns true; false when none is left, with token
  // unchanged.
  bool GetToken(CKAString& token);

 private:
  bool m_bFirst;  // true until the first GetToken after SetString
  char* m_pText;  // private copy of the text, m_nSize bytes; strtok_r writes NULs into it
  char* m_pSave;  // strtok_r's position
  int m_nSize;    // bytes allocated for m_pText
  char m_szDelimiter[kDelimiterCapacity];  // NUL-terminated delimiter set
};

#endif  // ZUSTD_ZU_TOKEN_H
