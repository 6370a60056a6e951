// Binary layout of the classes and records applications embed, derive from or pass by value:
// sizes and member offsets on armhf and 64-bit targets, and the thread virtual table.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>

#include "zustd.h"

namespace {

// An explicit instantiation may name a private member; MemberOf(Tag) returns its pointer.
template <typename Tag, auto Member>
struct Expose {
  friend constexpr auto MemberOf(Tag) { return Member; }
};
#define EXPOSE(C, member, ...)                          \
  struct Tag_##C##_##member {                           \
    friend constexpr auto MemberOf(Tag_##C##_##member); \
  };                                                    \
  template struct Expose<Tag_##C##_##member, &C::member>;

using Strings = CKAArray<CKAString>;
using Doubles = CKAStack<double>;
using Ints = CKAList<int>;
using IntDict = CKADict<int>;
using IntMap = CKAMap<int, int>;
using Token = CKAExpression::SToken;
using VarOperand = CKAExpression::SVarOperand;
using Bucket = CKADict<int>::SHashBucket;
using Node = CKAList<double>::SListNode;
using IDString = CKAIDStr::SIDSTRING;
using ID2String = CKAID2Str::SID2STRING;

constexpr bool kArm32 = sizeof(void*) == 4;  // armhf; the other targets are 64-bit

// Class, member, offset on armhf, offset on 64-bit targets (members at offset 0 omitted: the
// sizes and the later offsets catch a member moved in front).
// clang-format off
#define MEMBERS(X) \
  X(CKAString, m_nLength, 4, 8) X(CKAString, m_nSize, 8, 12) X(Strings, m_nCount, 4, 8) \
  X(Strings, m_nSize, 8, 12) X(Strings, m_nGrowBy, 12, 16) X(Doubles, m_nMaxSize, 4, 8) \
  X(Doubles, m_nCount, 8, 12) X(Doubles, m_nTop, 12, 16) X(Ints, m_pTail, 4, 8) \
  X(Ints, m_nCount, 8, 16) X(IntDict, m_lstNode, 4, 8) X(IntDict, m_pHashTable, 16, 32) \
  X(IntMap, m_lstNode, 4, 8) X(IntMap, m_pHashTable, 16, 32) X(Bucket, m_pFirst, 4, 8) \
  X(Node, m_pNext, 4, 8) X(Node, m_Data, 8, 16) X(CKAToken, m_pText, 4, 8) \
  X(CKAToken, m_pSave, 8, 16) X(CKAToken, m_nSize, 12, 24) X(CKAToken, m_szDelimiter, 16, 28) \
  X(CKAExpression, m_strExpression, 4, 8) X(CKAExpression, m_nPos, 16, 24) \
  X(CKAExpression, m_nLength, 20, 28) X(CKAExpression, m_arPolish, 24, 32) \
  X(CKAExpression, m_arVarOperand, 40, 56) X(CKAExpression, m_stackOperator, 56, 80) \
  X(Token, m_nType, 8, 8) X(Token, m_nParam, 12, 12) X(Token, m_nPriority, 16, 16) \
  X(VarOperand, m_dValue, 32, 32) X(CKAFile, m_sFileName, 4, 8) X(CKAPara, m_arLine, 16, 24) \
  X(CKAPara, m_bLoaded, 32, 48) X(CKAPara, m_strTemp, 36, 56) X(CKALog, m_file, 4, 8) \
  X(CKALog, m_strBase, 20, 32) X(STimeInfo, wMonth, 2, 2) X(STimeInfo, wDay, 4, 4) \
  X(STimeInfo, wHour, 6, 6) X(STimeInfo, wMinute, 8, 8) X(STimeInfo, wSecond, 10, 10) \
  X(STimeInfo, wMilliseconds, 12, 12) X(STimeInfo, wReserved, 14, 14) \
  X(SIntervalMTime, wMillisecond, 4, 8) X(CKAAutoMutex, m_bLocked, 4, 8) \
  X(CKAEventSend, m_pEvents, 4, 8) X(CKAEventSend, m_nSize, 8, 16) \
  X(CKAEventSend, m_nCount, 12, 20) X(CKAEventSend, m_nWrite, 16, 24) \
  X(CKAEventSend, m_nRead, 20, 28) X(CKALib, m_sLibName, 4, 8) X(CKATcpServer, m_bOpen, 4, 8) \
  X(CKATcpServer, m_bNeedListen, 5, 9) X(CKATcpClient, m_bOpen, 4, 8) \
  X(CKATcpClient, m_bBlock, 5, 9) X(CKAUdpServer, m_bOpen, 4, 8) \
  X(CKAUdpServer, m_szGroup, 5, 9) X(CKAUdpServer, m_nMode, 24, 28) \
  X(CKAUdpClient, m_bOpen, 4, 8) X(CKAUdpClient, m_bBlock, 5, 9) X(CKAIDStr, m_mapIndex, 16, 24) \
  X(CKAIDStr, m_nNum, 36, 64) X(CKAIDStr, m_item, 40, 72) X(CKAID2Str, m_mapIndex, 16, 24) \
  X(CKAID2Str, m_nNum, 36, 64) X(CKAID2Str, m_item, 40, 72) X(IDString, strText, 4, 8) \
  X(ID2String, nID1, 4, 4) X(ID2String, strText, 8, 8) X(CKALogThread, m_pThread, 4, 8) \
  X(CKALogThread, m_pParam, 8, 16) X(CKALogThread, m_bRun, 12, 24) \
  X(CKALogThread, m_log, 16, 32) X(CKALogThread, m_mutex, 60, 96) \
  X(CKALogThread, m_vecLog, 64, 104)

// Class, size on armhf, size on 64-bit targets.
#define SIZES(X) \
  X(CKAString, 12, 16) X(Strings, 16, 24) X(Doubles, 16, 24) X(Ints, 12, 24) X(IntDict, 20, 40) \
  X(IntMap, 20, 40) X(Bucket, 8, 16) X(Node, 16, 24) X(CKAToken, 80, 96) \
  X(CKAExpression, 72, 104) X(Token, 20, 20) X(VarOperand, 40, 40) X(CKAFile, 16, 24) \
  X(CKAPara, 48, 72) X(CKALog, 44, 64) X(CKATime, 4, 8) X(STimeInfo, 16, 16) \
  X(SIntervalMTime, 8, 16) X(CKAMutex, 4, 8) X(CKAAutoMutex, 8, 16) X(CKAEventSend, 24, 32) \
  X(CKAEventWait, 4, 8) X(CKALib, 16, 24) X(SKASocketPrivate, 4, 4) X(CKATcpServer, 8, 16) \
  X(CKATcpClient, 8, 16) X(CKAUdpServer, 28, 32) X(CKAUdpClient, 8, 16) X(CKAIDStr, 56, 96) \
  X(CKAID2Str, 60, 96) X(IDString, 16, 24) X(ID2String, 20, 24) X(CKALogThread, 76, 128) \
  X(CZUBase64, 1, 1)
// clang-format on

MEMBERS(EXPOSE)

template <typename M, typename C>
std::ptrdiff_t Offset(M C::*member) {
  std::ptrdiff_t offset;
  static_assert(sizeof member == sizeof offset, "Itanium data member pointer");
  std::memcpy(&offset, &member, sizeof offset);
  return offset;
}

TEST(Layout, SizesAndOffsetsOfEveryPublicClass) {
#define CHECK_OFFSET(C, member, arm, wide) \
  EXPECT_EQ(Offset(MemberOf(Tag_##C##_##member{})), kArm32 ? arm : wide) << #C "::" #member;
#define CHECK_SIZE(C, arm, wide) EXPECT_EQ(sizeof(C), kArm32 ? arm##u : wide##u) << #C;
  EXPECT_EQ(sizeof(time_t), kArm32 ? 4u : 8u);  // armhf layouts hold a 32-bit time_t
  MEMBERS(CHECK_OFFSET)
  SIZES(CHECK_SIZE)
}

// A thread class whose functions count the calls that reach them through the virtual table.
struct Probe : CKAThread {
  static int destroyed, ran;
  ~Probe() override { ++destroyed; }
  void Run() override { ++ran; }
};
int Probe::destroyed = 0;
int Probe::ran = 0;

TEST(Layout, ThreadVirtualTablesHoldDestructorThenRun) {
  using Slot = void (*)(void*);
  alignas(Probe) unsigned char storage[sizeof(Probe)];
  Probe* probe = new (storage) Probe;
  Slot const* table = *reinterpret_cast<Slot const* const*>(probe);
  table[2](probe);
  EXPECT_EQ(Probe::ran, 1);
  EXPECT_EQ(Probe::destroyed, 0);
  table[0](probe);  // destroys the object in place
  EXPECT_EQ(Probe::destroyed, 1);
  EXPECT_EQ(Probe::ran, 1);
}

}  // namespace
