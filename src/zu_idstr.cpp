// zu_idstr: CKAIDStr and CKAID2Str, id-to-text tables with an id index.
#include "zu_idstr.h"

#include <climits>

#include "zu_text_internal.h"

namespace {

// Slots reserved up front: nSize, limited to what an int count can hold.
int ReservedSlots(unsigned int nSize) {
  return nSize > static_cast<unsigned int>(INT_MAX) ? INT_MAX : static_cast<int>(nSize);
}

// The by-index rule of both tables: 0 .. count-1 selects that entry, anything else entry 0.
// Only index >= count is tested here; a negative index reaches the array's own clamping to
// slot 0. Copies the entry into item; false (item untouched) when the table is empty.
template <class Record>
bool SelectByIndex(const CKAArray<Record>& items, int nIndex, Record& item) {
  if (items.m_nCount < 1) return false;
  item = items[nIndex >= items.m_nCount ? 0 : nIndex];
  return true;
}

// Looks nID up and copies its entry into item; false when the id is unknown.
template <class Record>
bool SelectById(const CKAArray<Record>& items, const CKAMap<int, int>& index, int nID,
                Record& item) {
  int position = 0;
  if (!index.Find(nID, position)) return false;
  return SelectByIndex(items, position, item);
}

template <class Record>
void EmptyTable(CKAArray<Record>& items, CKAMap<int, int>& index, int& num) {
  items.m_nCount = 0;  // storage kept
  if (index.GetCount() > 0) index.Empty();
  num = 0;
}

const char kNoText[] = "";

// Copies text into target (null: empty text). text may point into target itself (a text
// handed out by an earlier lookup): it is copied aside first, since assignment clears the
// target before reading its source.
void StageText(CKAString& target, const char* text) {
  if (!text) text = kNoText;
  // The terminator counts: a text of its own end is still its own storage.
  if (zu_internal::PointsInto(text, target.GetBuf(), static_cast<size_t>(target.GetLength()) + 1)) {
    const CKAString copy(text);
    target = copy;
  } else {
    target = text;
  }
}

}  // namespace

// ---- CKAIDStr ----

CKAIDStr::CKAIDStr(unsigned int nSize) : m_arItems(), m_mapIndex(nSize), m_nNum(0), m_item() {
  m_arItems.m_nGrowBy = 50;
  m_arItems.AddSize(ReservedSlots(nSize) - m_arItems.m_nSize);
}

CKAIDStr::~CKAIDStr() = default;

bool CKAIDStr::Add(int nID, const char* szText, bool /*bReplace: ignored, duplicates refused*/) {
  if (!m_mapIndex.Add(nID, m_nNum)) return false;
  m_item.nID = nID;
  StageText(m_item.strText, szText);
  // Appends in place; a full array grows by half its size (size * 50 / 100) above 2 slots,
  // else by one slot.
  if (m_arItems.m_nCount >= m_arItems.m_nSize)
    m_arItems.AddSize(m_arItems.m_nSize > 2 ? m_arItems.m_nSize / 2 : 1);
  m_arItems.m_pData[m_arItems.m_nCount] = m_item;
  ++m_arItems.m_nCount;
  ++m_nNum;
  return true;
}

void CKAIDStr::Empty() {
  EmptyTable(m_arItems, m_mapIndex, m_nNum);
}

int CKAIDStr::GetNum() {
  return m_arItems.m_nCount;
}

int CKAIDStr::GetID(int nIndex) {
  return SelectByIndex(m_arItems, nIndex, m_item) ? m_item.nID : 0;
}

const char* CKAIDStr::GetStringByIndex(int nIndex) {
  return SelectByIndex(m_arItems, nIndex, m_item) ? m_item.strText.GetBuf() : kNoText;
}

const char* CKAIDStr::GetStringById(int nID) {
  return SelectById(m_arItems, m_mapIndex, nID, m_item) ? m_item.strText.GetBuf() : nullptr;
}

// ---- CKAID2Str ----

CKAID2Str::CKAID2Str(unsigned int nSize) : m_arItems(), m_mapIndex(nSize), m_nNum(0), m_item() {
  m_arItems.m_nGrowBy = 50;
  m_arItems.AddSize(ReservedSlots(nSize) - m_arItems.m_nSize);
}

CKAID2Str::~CKAID2Str() = default;

bool CKAID2Str::Add(int nID, int nID1, const char* szText,
                    bool /*bReplace: ignored, duplicates refused*/) {
  if (!m_mapIndex.Add(nID, m_nNum)) return false;
  m_item.nID = nID;
  m_item.nID1 = nID1;
  StageText(m_item.strText, szText);
  m_arItems.AddBefore(m_arItems.m_nCount, m_item);
  ++m_nNum;
  return true;
}

void CKAID2Str::Empty() {
  EmptyTable(m_arItems, m_mapIndex, m_nNum);
}

int CKAID2Str::GetNum() {
  return m_arItems.m_nCount;
}

int CKAID2Str::GetID(int nIndex) {
  return SelectByIndex(m_arItems, nIndex, m_item) ? m_item.nID : 0;
}

int CKAID2Str::GetID1(int nIndex) {
  return SelectByIndex(m_arItems, nIndex, m_item) ? m_item.nID1 : 0;
}

const char* CKAID2Str::GetStringByIndex(int nIndex) {
  return SelectByIndex(m_arItems, nIndex, m_item) ? m_item.strText.GetBuf() : kNoText;
}

const char* CKAID2Str::GetStringById(int nID) {
  return SelectById(m_arItems, m_mapIndex, nID, m_item) ? m_item.strText.GetBuf() : nullptr;
}
