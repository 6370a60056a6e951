// zu_para: CKAPara, read and write access to an INI-style parameter file: "[section]"
// headers, "key=value" entries, ";" comment lines and blank lines. The whole file is held
// as an array of trimmed lines; every query scans those lines, and every change edits them
// and then rewrites the whole file at once. Comments, blank lines and order are kept.
// Files are opened and closed within each call; no stream stays open between calls.
// Every rewrite is atomic and durable: the new text goes to a new file in the same
// directory, which is synced and renamed over the name, and the directory is synced. A kill
// or power cut at any moment leaves the old file or the new one, never a mix; once a change
// returns true it survives a power cut. A failed rewrite (full disk, read-only directory,
// I/O error) returns false and leaves the file byte for byte as it was, with no temporary
// file beside it. The new file keeps the old one's permission bits (and owner and group
// where the process may set them); a file created anew gets the mode fopen would give it
// without write permission for others, whatever the umask. A name that is a symbolic link
// is followed only when the link belongs to the effective user or root (then the file it
// leads to is replaced and the link stays); otherwise every rewrite fails. A name with other
// hard links is replaced alone: the other names keep the old text. A name that is not a
// regular file (a device, a pipe) is never rewritten.
// Thread safety: none; an object is used by one thread at a time, and two objects on one
// file overwrite each other's changes.
#ifndef ZUSTD_ZU_PARA_H
#define ZUSTD_ZU_PARA_H

#include <string>

#include "zu_array.h"
#include "zu_export.h"
#include "zu_file.h"
#include "zu_string.h"

// A parameter file and its lines in memory. Section names are matched without regard to
// letter case, keys exactly. Lines of 1023 bytes or more load as several lines of at most
// 1023 bytes each (a deliberate limit). Not copyable.
class ZUSTD_API CKAPara : public CKAFile {
 public:
  // No file name, no lines, not loaded.
  CKAPara();
  ~CKAPara();

  CKAPara(const CKAPara&) = delete;
  CKAPara& operator=(const CKAPara&) = delete;

  // Names the file and loads its lines, trimmed. False for a null name (nothing changes),
  // or when the file cannot be opened or is empty: the name is set all the same and the
  // old lines stay, so the next change writes them to the new name.
  bool SetFileName(const char* name);
  // Rewrites the file from the lines, each followed by one line feed, atomically (see
  // above). False when the file cannot be replaced; the file and the lines are unchanged.
  bool WriteToFile();
  // Empties the file and the lines. False, touching nothing, before any successful load.
  // Kept: true even when the file could not be emptied (it then stays as it was, and the
  // lines are emptied all the same).
  bool DeleteAll();

  // Index (at least 1) of the line of key in section; the complement (-1 - i) of the
  // header's index i when the section has no such key; the complement of the line count
  // when no header names the section (-1 on an empty model). A null section counts as a
  // section never found, a null key as a key never found.
  int SearchLine(const char* section, const char* key);
  // The text after the line's first "=", trimmed. False (value untouched) for an index out
  // of range or a non-empty line without "="; an empty line gives "" and true.
  bool GetValueString(int index, CKAString& value);
  // Replaces the text after the line's first "=" by value, in memory only. Spaces after the
  // "=" are dropped with the old value ("port = 80" set to 81 is "port =81"; kept so).
  // False for an index out of range, a line without "=", a null value or a value holding a
  // line feed or carriage return (the file cannot hold it in one line).
  bool SetValueString(int index, const char* value);
  // The whole entry lines of section (comments skipped, blank lines as empty items) joined
  // by line feeds, without a trailing one; "" for an unknown, empty or null section.
  std::string GetKeyList(const char* section);

  // Typed getters: the value of key in section, or the default when the section or key is
  // missing (null counts as missing). *pFound (pFound may be null) tells which.
  // GetBool: "Y"/"y" true, "N"/"n" false; any other text gives the default, found false.
  bool GetBool(const char* section, const char* key, bool bDefault, bool* pFound);
  // strtol base 10: "12abc" is 12 and "abc" is 0, both found. Clamped to the int range.
  int GetInt(const char* section, const char* key, int nDefault, bool* pFound);
  // strtod: lenient as GetInt.
  double GetReal(const char* section, const char* key, double dDefault, bool* pFound);
  // The value text; a missing key gives szDefault (a null szDefault gives "").
  std::string GetString(const char* section, const char* key, const char* szDefault, bool* pFound);

  // Setters store "Y"/"N", "%d", "%.3f" or the text itself. An existing key keeps its place;
  // a new key becomes the first entry of its section; a new section is appended after one
  // blank line. Then the whole file is rewritten: the result is that of the write. A null
  // section or key, or a section, key or value holding a line feed or carriage return,
  // returns false with nothing changed. When the write fails the model keeps the change and
  // the file stays as it was, so memory and disk differ.
  bool SetBool(const char* section, const char* key, bool value);
  bool SetInt(const char* section, const char* key, int value);
  bool SetReal(const char* section, const char* key, double value);
  // A null value deletes the key: DeleteSubKey(section, key).
  bool SetString(const char* section, const char* key, const char* value);

  // Adds the line key=value to the model only (no write). nPos is 0 for a new section
  // (a blank line, the header and the entry are appended) or the complement of an existing
  // header's index (the entry goes directly after the header; section is then unused).
  // Result of the last insertion; false for a null key or value, a null section with
  // nPos 0, a bad nPos, or a section, key or value holding a line break.
  bool AddValueString(const char* section, const char* key, const char* value, int nPos);
  // Removes the key's line if present, then rewrites the file: the result is that of the
  // write, even when the key did not exist. False for a null section or key.
  bool DeleteSubKey(const char* section, const char* key);
  // Removes a section, its header and every line up to the next header, then rewrites the
  // file. False, file untouched, for a null or unknown section or an empty model. Kept as
  // is: a section that runs to the end of the file is not removed when the last line is a
  // comment or the header itself (the file is rewritten and the write's result returned).
  bool DeleteKey(const char* section);
  // Replaces the lines of section by the line-feed separated items of list (blank items
  // dropped, items inserted unchanged), then rewrites the file. Kept as is: the items end
  // up in reverse order, and a new section goes to the top of the file without a blank
  // line. An empty list (or one of only line feeds) leaves the section empty and the lines
  // after it as they were. False, nothing changed, for a null list or a null section or one
  // holding a line break.
  bool SetKeyList(const char* section, const char* list);

 private:
  CKAArray<CKAString> m_arLine;
  bool m_bLoaded;
  CKAString m_strTemp;
};

#endif  // ZUSTD_ZU_PARA_H
