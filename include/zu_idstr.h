// zu_idstr: tables that map integer ids to texts, for example message or error codes to their
// wording. CKAIDStr keys records of (id, text); CKAID2Str keys records of (id, second id, text)
// by the first id only. Entries stay in the order added, so a table can be walked by index;
// a CKAMap from id to index serves lookups by id. Lookups copy the entry into a member record
// and return a pointer into it.
// Thread safety: none. Even lookups write the member record, so an object is used by one
// thread at a time; callers serialise access, readers included.
#ifndef ZUSTD_ZU_IDSTR_H
#define ZUSTD_ZU_IDSTR_H

#include "zu_array.h"
#include "zu_export.h"
#include "zu_map.h"
#include "zu_string.h"

// Id-to-text table. Every id occurs once; the first text added for an id stays.
// Copyable: a copy has its own entries, index and staging record.
class ZUSTD_API CKAIDStr {
 public:
  // One record: the id and its text.
  struct SIDSTRING {
    int nID;            // id
    CKAString strText;  // text
  };

  // An empty table with nSize slots reserved and nSize index buckets (a bucket count of 0
  // acts as 1). Growth step of the entries: 50 %.
  explicit CKAIDStr(unsigned int nSize);
  ~CKAIDStr();

  // Appends (nID, szText) and returns true. Returns false, table unchanged, when nID is
  // already present: the first text stays. bReplace is accepted and ignored (duplicates are
  // always refused). A null szText stores an empty text.
  bool Add(int nID, const char* szText, bool bReplace);
  // Removes every entry; the storage of the entries and the bucket table are kept.
  void Empty();
  // Number of entries.
  int GetNum();
  // Id of the entry at nIndex. An index from 0 to GetNum()-1 selects that entry; any other
  // index, negative or too large, selects entry 0 (kept: there is no failure result).
  // The entry is copied into m_item. An empty table gives 0.
  int GetID(int nIndex);
  // Text of the entry at nIndex, with the index rule of GetID. The pointer stays valid until
  // the next lookup or Add on this object. An empty table gives "" (a static empty text).
  const char* GetStringByIndex(int nIndex);
  // Text of the entry with nID, or null when the id is unknown. Valid until the next lookup
  // or Add on this object.
  const char* GetStringById(int nID);

  // Data members in their fixed order.
  CKAArray<SIDSTRING> m_arItems;  // entries in the order added
  CKAMap<int, int> m_mapIndex;    // id -> index in m_arItems
  int m_nNum;                     // entries added (the index the next entry gets)
  SIDSTRING m_item;               // staging record of Add and target of every lookup
};

// Table of (id, second id, text) records, keyed by the first id only; the second id need not
// be unique. Otherwise as CKAIDStr.
// Copyable: a copy has its own entries, index and staging record.
class ZUSTD_API CKAID2Str {
 public:
  // One record: the key id, the second id and the text.
  struct SID2STRING {
    int nID;            // key id
    int nID1;           // second id
    CKAString strText;  // text
  };

  // An empty table with nSize slots reserved and nSize index buckets (a bucket count of 0
  // acts as 1). Growth step of the entries: 50 %.
  explicit CKAID2Str(unsigned int nSize);
  ~CKAID2Str();

  // Appends (nID, nID1, szText) and returns true. Returns false, table unchanged, when nID
  // is already present: the first entry stays. bReplace is accepted and ignored (duplicates
  // are always refused). A null szText stores an empty text.
  bool Add(int nID, int nID1, const char* szText, bool bReplace);
  // Removes every entry; the storage of the entries and the bucket table are kept.
  void Empty();
  // Number of entries.
  int GetNum();
  // First id of the entry at nIndex (index rule of CKAIDStr::GetID); 0 on an empty table.
  int GetID(int nIndex);
  // Second id of the entry at nIndex (same index rule); 0 on an empty table.
  int GetID1(int nIndex);
  // Text of the entry at nIndex (same index rule), valid until the next lookup or Add;
  // "" (a static empty text) on an empty table.
  const char* GetStringByIndex(int nIndex);
  // Text of the entry with nID, or null when the id is unknown. Valid until the next lookup
  // or Add on this object.
  const char* GetStringById(int nID);

  // Data members in their fixed order.
  CKAArray<SID2STRING> m_arItems;  // entries in the order added
  CKAMap<int, int> m_mapIndex;     // first id -> index in m_arItems
  int m_nNum;                      // entries added (the index the next entry gets)
  SID2STRING m_item;               // staging record of Add and target of every lookup
};

#endif  // ZUSTD_ZU_IDSTR_H
