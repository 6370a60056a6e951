// zu_string: CKAString, the library's byte string, and its concatenation operators.
// A CKAString owns one heap buffer of NUL-terminated bytes, a length counter and the
// allocation size; growth is exact-fit (no headroom). Bytes are classified with the standard
// character functions in the process's locale; nothing knows about encodings.
// An object is used by one thread at a time; distinct objects share nothing.
#ifndef ZUSTD_ZU_STRING_H
#define ZUSTD_ZU_STRING_H

#include <vector>

#include "zu_export.h"

// Byte string with an explicit length counter. The counter normally equals strlen(GetBuf()),
// but after AddSize/SetSize it reads size - 1 and so counts the zero bytes behind the text:
// GetLength, IsEmpty, bounds checks and the case loops use the counter, while copying,
// searching and comparing use the NUL-terminated text. Copyable (deep copy).
class ZUSTD_API CKAString {
 public:
  // The empty string: a 1-byte buffer holding NUL.
  CKAString();
  // n copies of c; an n below 1 counts as 1, so a count of 0 still gives one character.
  CKAString(char c, int n);
  // Copy of s; a null s gives the empty string.
  CKAString(const char* s);  // implicit: converts by design
  // Empty text with n bytes reserved (1 when n < 1). Not explicit: an int or a char
  // converts through it (see operator+(char, const CKAString&)).
  CKAString(int n);
  // Copy of o's bytes up to its length counter, which is taken over as it stands.
  CKAString(const CKAString& o);
  ~CKAString();

  // The buffer itself, never null; valid until the next modifying call. Writing through it
  // is meant for buffers prepared with SetSize; the byte at GetLength() must stay NUL.
  char* GetBuf() const;
  // The length counter (see the class comment).
  int GetLength() const;
  // True when the length counter is below 1.
  bool IsEmpty() const;
  // Length 0, NUL at index 0; the allocation is kept.
  void Empty();
  // Changes the length counter by n and writes NUL at the new length. Grows exact-fit: a new
  // buffer of new length + 1 bytes whose added bytes are zero; without reallocation the bytes
  // between the old and new length are left as they were. Always true. A result below 0
  // counts as 0; a result above INT_MAX - 1 throws std::bad_alloc.
  bool AddNum(int n);
  // Reallocates to size + n bytes (1 when that is below 1), zero-filled, keeping the text
  // cut to size - 1 bytes; the length counter then reads size - 1. Always true.
  bool AddSize(int n);
  // Makes the allocation exactly n bytes (1 when n < 1), zero-filled behind the kept text;
  // GetLength() then reads n - 1. Always true.
  bool SetSize(int n);
  // Shrinks the allocation to GetLength() + 1 bytes. Always true.
  bool FreeExtra();

  // Copies o's text. Assigning a string to itself leaves it empty; this is kept on purpose.
  CKAString& operator=(const CKAString& o);
  // Copies s; a null s changes nothing. A pointer into this string's own buffer is read
  // after the string has been emptied (so its first byte reads as NUL).
  CKAString& operator=(const char* s);
  // The one-character text c; assigning NUL gives length 1 with empty text.
  CKAString& operator=(char c);
  // Appends o's text; the length counter grows by o.GetLength(). Appending a string to
  // itself appends the text as it was before the call.
  CKAString& operator+=(const CKAString& o);
  // Appends s; a null s changes nothing. s may point into this string's own buffer.
  CKAString& operator+=(const char* s);
  // Appends c; appending NUL raises the length counter by 1 and leaves the text unchanged.
  CKAString& operator+=(char c);

  // Case conversion of every non-NUL byte below the length counter.
  void ToUpper();
  void ToLower();
  // Swaps the case of every byte (upper becomes lower, everything else toupper); it does
  // not reverse the order of the characters: the name is kept for compatibility.
  void ToReverse();

  // Inserts s before index pos (0 .. GetLength(); GetLength() appends). False for a null s
  // or a pos outside that range, with the string unchanged. s may point into this string.
  bool AddAt(int pos, const char* s);
  // Removes count bytes from pos. A count below 1 succeeds without change (pos unchecked);
  // a pos outside 0 .. GetLength() - 1 or a count past the end fails and changes nothing.
  bool RemoveAt(int pos, int count);
  // RemoveAt(pos, count) then AddAt(pos, s); false for a null s or a failed step.
  bool ReplaceAt(int pos, int count, const char* s);

  // Index (from the start of the string) of the nth non-overlapping occurrence of s at or
  // after start. -1 for a null s, a start outside 0 .. GetLength() - 1 or an nth below 1;
  // -2 when there is no nth occurrence. An empty s is found at start.
  int Find(const char* s, int nth = 1, int start = 0) const;
  // As Find, ignoring case (both texts upper-cased).
  int FindNoCase(const char* s, int nth = 1, int start = 0) const;
  // Number of non-overlapping occurrences of s from start on. 0 for a null or empty s and
  // for a start outside 0 .. GetLength().
  int GetStrCount(const char* s, int start = 0) const;
  // As GetStrCount, ignoring case.
  int GetStrCountNoCase(const char* s, int start = 0) const;
  // Replaces every occurrence of find by repl, scanning on behind each inserted replacement;
  // returns the number replaced. 0 for a null pointer or an empty find. The int is ignored.
  int ReplaceFind(const char* find, const char* repl, int ignored = 0);
  // printf-style formatting into this string, the allocation fitting the text exactly.
  // Output of any length is produced whole; the arguments may point into this string.
  // A null fmt leaves the string as it was; an output error leaves it empty.
  CKAString& Format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  // strtol(text, nullptr, 10) cut to int; 0 when the text holds no number.
  int ToInt();
  // strtod(text, nullptr); 0 when the text holds no number.
  double ToReal();

  // First n bytes (up to the text's terminator); empty for n <= 0.
  CKAString Left(int n) const;
  // Last n bytes; empty for n <= 0.
  CKAString Right(int n) const;
  // count bytes from start, or up to the end for a negative count; empty for a start
  // outside 0 .. GetLength() - 1.
  CKAString Mid(int start, int count = -1) const;
  // Blanks are exactly space, tab, line feed and carriage return.
  // Removes the leading blanks.
  void TrimLeft();
  // Removes the trailing blanks but never examines index 0, so "   " keeps one blank and a
  // one-byte string is never trimmed: kept on purpose.
  void TrimRight();
  // Leading then trailing pass: a string of only blanks becomes empty.
  void TrimAll();

  // Byte at the index clamped to 0 .. GetLength() - 1; index 0 (the terminator) on an empty
  // string. The reference forms give access to the same byte.
  char GetChar(int i) const;
  char& GetChar(int i);
  char operator[](int i) const;
  char& operator[](int i);

  // The fields between occurrences of sep, each trimmed of blanks, empty ones dropped. An
  // empty sep yields the single non-blank characters.
  std::vector<CKAString> split(const CKAString& sep) const;

  // strcmp of the texts tested against 0. A null right operand compares as lower than every
  // string. Non-const members, as the binary interface has them.
  bool operator==(const char* s);
  bool operator==(const CKAString& o);
  bool operator!=(const char* s);
  bool operator!=(const CKAString& o);
  bool operator<(const char* s);
  bool operator<(const CKAString& o);
  bool operator<=(const char* s);
  bool operator<=(const CKAString& o);
  bool operator>(const char* s);
  bool operator>(const CKAString& o);
  bool operator>=(const char* s);
  bool operator>=(const CKAString& o);

 private:
  char* m_pBuffer;  // new[]-allocated, m_nSize bytes, never null
  int m_nLength;    // length counter, < m_nSize; the byte at this index is NUL
  int m_nSize;      // bytes allocated, terminator included
};

// Concatenations; each returns a new string.
ZUSTD_API CKAString operator+(const CKAString& a, const CKAString& b);
// A null b gives a copy of a.
ZUSTD_API CKAString operator+(const CKAString& a, const char* b);
// A null a gives a copy of b.
ZUSTD_API CKAString operator+(const char* a, const CKAString& b);
ZUSTD_API CKAString operator+(const CKAString& a, char c);
// c only reserves space (through CKAString(int)) and does not appear: the result reads as
// b alone. This asymmetry with operator+(const CKAString&, char) is kept on purpose.
ZUSTD_API CKAString operator+(char c, const CKAString& b);

#endif  // ZUSTD_ZU_STRING_H
