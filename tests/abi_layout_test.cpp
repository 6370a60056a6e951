// Binary layout of every class and record applications see: its size and each member's offset
// equal those of a plain struct made of the documented members in the documented order, on
// every target. The thread classes' virtual tables hold the destructor first and Run second.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "zustd.h"

namespace {

// Members are compared by name, private ones too. An explicit instantiation may name a
// private member, so Expose<Tag, &Class::member> defines MemberOf(Tag), found through the
// tag, returning the member pointer. No header changes, no undefined behaviour.
template <typename Tag, auto Member>
struct Expose {
  friend constexpr auto MemberOf(Tag) { return Member; }
};
#define EXPOSE(C, member)                               \
  struct Tag_##C##_##member {                           \
    friend constexpr auto MemberOf(Tag_##C##_##member); \
  };                                                    \
  template struct Expose<Tag_##C##_##member, &C::member>;
#define MEMBER(C, member) MemberOf(Tag_##C##_##member{})

using ArrayOfString = CKAArray<CKAString>;
using StackOfDouble = CKAStack<double>;
using ListOfInt = CKAList<int>;
using DictOfInt = CKADict<int>;
using IntMap = CKAMap<int, int>;
using Token = CKAExpression::SToken;
using VarOperand = CKAExpression::SVarOperand;
using Bucket = CKADict<int>::SHashBucket;
using Node = CKAList<double>::SListNode;
using IDString = CKAIDStr::SIDSTRING;
using ID2String = CKAID2Str::SID2STRING;

// The documented members of each class, in order.
#define STRING(X, C) X(C, m_pBuffer) X(C, m_nLength) X(C, m_nSize)
#define ARRAY(X, C) X(C, m_pData) X(C, m_nCount) X(C, m_nSize) X(C, m_nGrowBy)
#define STACK(X, C) X(C, m_pData) X(C, m_nMaxSize) X(C, m_nCount) X(C, m_nTop)
#define LIST(X, C) X(C, m_pHead) X(C, m_pTail) X(C, m_nCount)
#define HASH(X, C) X(C, m_nHashSize) X(C, m_lstNode) X(C, m_pHashTable)
#define BUCKET(X, C) X(C, m_nCount) X(C, m_pFirst)
#define NODE(X, C) X(C, m_pPrev) X(C, m_pNext) X(C, m_Data)
#define TOKENIZER(X, C) X(C, m_bFirst) X(C, m_pText) X(C, m_pSave) X(C, m_nSize) X(C, m_szDelimiter)
#define TOKEN(X, C) X(C, m_szName) X(C, m_nType) X(C, m_nParam) X(C, m_nPriority)
#define VAR_OPERAND(X, C) X(C, m_szName) X(C, m_dValue)
#define EXPRESSION(X, C) \
  X(C, m_nVarCount)      \
  X(C, m_strExpression)  \
  X(C, m_nPos) X(C, m_nLength) X(C, m_arPolish) X(C, m_arVarOperand) X(C, m_stackOperator)
#define FILE_MEMBERS(X, C) X(C, m_pFile) X(C, m_sFileName)
#define PARA(X, C) FILE_MEMBERS(X, C) X(C, m_arLine) X(C, m_bLoaded) X(C, m_strTemp)
#define MUTEX(X, C) X(C, m_pMutex)
#define AUTO_MUTEX(X, C) X(C, m_pMutex) X(C, m_bLocked)
#define TIME(X, C) X(C, m_tTime)
#define TIME_INFO(X, C) \
  X(C, wYear)           \
  X(C, wMonth)          \
  X(C, wDay) X(C, wHour) X(C, wMinute) X(C, wSecond) X(C, wMilliseconds) X(C, wReserved)
#define INTERVAL(X, C) X(C, tSecond) X(C, wMillisecond)
#define EVENT_SEND(X, C) \
  X(C, m_mutex) X(C, m_pEvents) X(C, m_nSize) X(C, m_nCount) X(C, m_nWrite) X(C, m_nRead)
#define EVENT_WAIT(X, C) X(C, m_pEventSend)
#define LIB(X, C) X(C, m_pHandle) X(C, m_sLibName)
#define SOCKET(X, C) X(C, m_nSocket)
#define TCP_SERVER(X, C) X(C, m_pSocket) X(C, m_bOpen) X(C, m_bNeedListen)
#define TCP_CLIENT(X, C) X(C, m_pSocket) X(C, m_bOpen) X(C, m_bBlock)
#define UDP_SERVER(X, C) X(C, m_pSocket) X(C, m_bOpen) X(C, m_szGroup) X(C, m_nMode)
#define ID_TABLE(X, C) X(C, m_arItems) X(C, m_mapIndex) X(C, m_nNum) X(C, m_item)
#define ID_STRING(X, C) X(C, nID) X(C, strText)
#define ID2_STRING(X, C) X(C, nID) X(C, nID1) X(C, strText)
#define LOG(X, C) X(C, m_mutex) X(C, m_file) X(C, m_strBase)
#define LOG_THREAD(X, C) \
  X(C, m_pThread) X(C, m_pParam) X(C, m_bRun) X(C, m_log) X(C, m_mutex) X(C, m_vecLog)

STRING(EXPOSE, CKAString)
TOKENIZER(EXPOSE, CKAToken)
ARRAY(EXPOSE, ArrayOfString)
STACK(EXPOSE, StackOfDouble)
LIST(EXPOSE, ListOfInt)
HASH(EXPOSE, DictOfInt)
HASH(EXPOSE, IntMap)
BUCKET(EXPOSE, Bucket)
NODE(EXPOSE, Node)
EXPRESSION(EXPOSE, CKAExpression)
TOKEN(EXPOSE, Token)
VAR_OPERAND(EXPOSE, VarOperand)
FILE_MEMBERS(EXPOSE, CKAFile)
PARA(EXPOSE, CKAPara)
LOG(EXPOSE, CKALog)
TIME(EXPOSE, CKATime)
TIME_INFO(EXPOSE, STimeInfo)
INTERVAL(EXPOSE, SIntervalMTime)
MUTEX(EXPOSE, CKAMutex)
AUTO_MUTEX(EXPOSE, CKAAutoMutex)
EVENT_SEND(EXPOSE, CKAEventSend)
EVENT_WAIT(EXPOSE, CKAEventWait)
LIB(EXPOSE, CKALib)
SOCKET(EXPOSE, SKASocketPrivate)
TCP_SERVER(EXPOSE, CKATcpServer)
TCP_CLIENT(EXPOSE, CKATcpClient)
UDP_SERVER(EXPOSE, CKAUdpServer)
TCP_CLIENT(EXPOSE, CKAUdpClient)
ID_TABLE(EXPOSE, CKAIDStr)
ID_TABLE(EXPOSE, CKAID2Str)
ID_STRING(EXPOSE, IDString)
ID2_STRING(EXPOSE, ID2String)
LOG_THREAD(EXPOSE, CKALogThread)

// Plain mirrors of the documented layouts.
struct MString {
  char* m_pBuffer;
  int m_nLength, m_nSize;
};
template <typename T>
struct MArray {
  T* m_pData;
  int m_nCount, m_nSize, m_nGrowBy;
};
template <typename T>
struct MStack {
  T* m_pData;
  int m_nMaxSize, m_nCount, m_nTop;
};
struct MList {
  void *m_pHead, *m_pTail;
  int m_nCount;
};
struct MHash {  // CKADict and CKAMap
  unsigned int m_nHashSize;
  MList m_lstNode;
  void* m_pHashTable;
};
struct MBucket {
  int m_nCount;
  void* m_pFirst;
};
struct MNode {
  void *m_pPrev, *m_pNext;
  double m_Data;
};
struct MTok {
  bool m_bFirst;
  char *m_pText, *m_pSave;
  int m_nSize;
  char m_szDelimiter[sizeof(std::declval<CKAToken&>().*MEMBER(CKAToken, m_szDelimiter))];
};
struct MToken {
  char m_szName[8];
  std::int32_t m_nType, m_nParam, m_nPriority;
};
struct MVarOperand {
  char m_szName[32];
  double m_dValue;
};
struct MExpression {
  std::int32_t m_nVarCount;
  MString m_strExpression;
  std::int32_t m_nPos, m_nLength;
  MArray<MToken> m_arPolish;
  MArray<MVarOperand> m_arVarOperand;
  MStack<MToken> m_stackOperator;
};
struct MFile {
  FILE* m_pFile;
  MString m_sFileName;
};
struct MPara : MFile {
  MArray<MString> m_arLine;
  bool m_bLoaded;
  MString m_strTemp;
};
struct MMutex {
  pthread_mutex_t* m_pMutex;
};
struct MAutoMutex {
  MMutex* m_pMutex;
  bool m_bLocked;
};
struct MTime {
  time_t m_tTime;
};
struct MTimeInfo {
  std::uint16_t wYear, wMonth, wDay, wHour, wMinute, wSecond, wMilliseconds, wReserved;
};
struct MIntervalMTime {
  time_t tSecond;
  std::uint16_t wMillisecond;
};
struct MThread {
  virtual ~MThread() {}
  virtual void Run() = 0;
  pthread_t* m_pThread;
  void* m_pParam;
};
struct MLog {
  MMutex m_mutex;
  MFile m_file;
  std::string m_strBase;
};
struct MLogThread : MThread {
  void Run() override {}
  bool m_bRun;
  MLog m_log;
  MMutex m_mutex;
  std::vector<std::string> m_vecLog;
};
struct MEventSend {
  MMutex m_mutex;
  int* m_pEvents;
  int m_nSize, m_nCount, m_nWrite, m_nRead;
};
struct MEventWait {
  MEventSend* m_pEventSend;
};
struct MLib {
  void** m_pHandle;
  MString m_sLibName;
};
struct MSocketPrivate {
  int m_nSocket;
};
struct MTcpServer {
  MSocketPrivate* m_pSocket;
  bool m_bOpen, m_bNeedListen;
};
struct MTcpClient {  // also the UDP client
  MSocketPrivate* m_pSocket;
  bool m_bOpen, m_bBlock;
};
struct MUdpServer {
  MSocketPrivate* m_pSocket;
  bool m_bOpen;
  char m_szGroup[16];
  int m_nMode;
};
struct MIDString {
  int nID;
  MString strText;
};
struct MID2String {
  int nID, nID1;
  MString strText;
};
template <typename Item>
struct MIDTable {
  MArray<Item> m_arItems;
  MHash m_mapIndex;
  int m_nNum;
  Item m_item;
};

template <typename A, typename B>
std::ptrdiff_t OffsetIn(const A& object, const B& member) {
  return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&object);
}

#define CHECK_OFFSET(C, member) \
  EXPECT_EQ(OffsetIn(t, t.*MEMBER(C, member)), OffsetIn(m, m.member)) << #C "::" #member;
// Compares the size of T with M's and the offset of every listed member in a T object built
// with the given constructor arguments (if any) and in a mirror object.
#define EXPECT_LAYOUT(T, M, MEMBERS, ...)  \
  do {                                     \
    T t __VA_ARGS__;                       \
    const M& m = *new (mirror) M{};        \
    EXPECT_EQ(sizeof(T), sizeof(M)) << #T; \
    MEMBERS(CHECK_OFFSET, T)               \
  } while (0)

// Room for any mirror (they are trivially destructible or never destroyed: only addresses are
// read).
alignas(std::max_align_t) unsigned char mirror[1024];

TEST(Layout, TextAndContainers) {
  EXPECT_LAYOUT(CKAString, MString, STRING);
  EXPECT_LAYOUT(CKAToken, MTok, TOKENIZER);
  EXPECT_LAYOUT(ArrayOfString, MArray<MString>, ARRAY);
  EXPECT_LAYOUT(StackOfDouble, MStack<double>, STACK, (4));
  EXPECT_LAYOUT(ListOfInt, MList, LIST);
  EXPECT_LAYOUT(DictOfInt, MHash, HASH, (8));
  EXPECT_LAYOUT(IntMap, MHash, HASH, (8));
  EXPECT_LAYOUT(Bucket, MBucket, BUCKET, {});
  EXPECT_LAYOUT(Node, MNode, NODE, {});
  EXPECT_EQ(sizeof(CZUBase64), 1u);
}

TEST(Layout, Expression) {
  EXPECT_LAYOUT(CKAExpression, MExpression, EXPRESSION);
  EXPECT_LAYOUT(Token, MToken, TOKEN, {});
  EXPECT_LAYOUT(VarOperand, MVarOperand, VAR_OPERAND, {});
}

TEST(Layout, FilesAndLogs) {
  EXPECT_LAYOUT(CKAFile, MFile, FILE_MEMBERS);
  EXPECT_LAYOUT(CKAPara, MPara, PARA);
  EXPECT_LAYOUT(CKALog, MLog, LOG);
}

TEST(Layout, TimeLocksEventsLibraries) {
#if defined(__arm__)
  EXPECT_EQ(sizeof(time_t), 4u);  // the armhf layouts hold a 32-bit time_t
#elif defined(__aarch64__) || defined(__x86_64__)
  EXPECT_EQ(sizeof(time_t), 8u);  // 64-bit targets: time_t and long are 8 bytes
  EXPECT_EQ(sizeof(long), 8u);
#endif
  EXPECT_LAYOUT(CKATime, MTime, TIME);
  EXPECT_LAYOUT(STimeInfo, MTimeInfo, TIME_INFO, {});
  EXPECT_LAYOUT(SIntervalMTime, MIntervalMTime, INTERVAL, {});
  EXPECT_LAYOUT(CKAMutex, MMutex, MUTEX);
  CKAMutex mutex;
  EXPECT_LAYOUT(CKAAutoMutex, MAutoMutex, AUTO_MUTEX, (&mutex, false));
  EXPECT_LAYOUT(CKAEventSend, MEventSend, EVENT_SEND);
  EXPECT_LAYOUT(CKAEventWait, MEventWait, EVENT_WAIT, (nullptr));
  EXPECT_LAYOUT(CKALib, MLib, LIB);
}

TEST(Layout, SocketsAndIdTables) {
  EXPECT_LAYOUT(SKASocketPrivate, MSocketPrivate, SOCKET, {});
  EXPECT_LAYOUT(CKATcpServer, MTcpServer, TCP_SERVER);
  EXPECT_LAYOUT(CKATcpClient, MTcpClient, TCP_CLIENT);
  EXPECT_LAYOUT(CKAUdpServer, MUdpServer, UDP_SERVER);
  EXPECT_LAYOUT(CKAUdpClient, MTcpClient, TCP_CLIENT);
  EXPECT_LAYOUT(CKAIDStr, MIDTable<MIDString>, ID_TABLE, (4));
  EXPECT_LAYOUT(CKAID2Str, MIDTable<MID2String>, ID_TABLE, (4));
  EXPECT_LAYOUT(IDString, MIDString, ID_STRING, {});
  EXPECT_LAYOUT(ID2String, MID2String, ID2_STRING, {});
}

// The virtual-table index a pointer to a virtual member function encodes (-1 when the function
// is not virtual). x86: ptr = 1 + byte offset; ARM: ptr = byte offset and adj's low bit set.
// Slots 0 and 1 are the complete-object and deleting destructors.
template <typename F>
std::ptrdiff_t VirtualIndex(F function) {
  struct {
    std::uintptr_t ptr;
    std::ptrdiff_t adj;
  } raw;
  static_assert(sizeof(function) == sizeof(raw), "Itanium member function pointer");
  std::memcpy(&raw, &function, sizeof(raw));
#if defined(__arm__) || defined(__aarch64__)
  if ((raw.adj & 1) == 0) return -1;
  return static_cast<std::ptrdiff_t>(raw.ptr / sizeof(void*));
#else
  if ((raw.ptr & 1) == 0) return -1;
  return static_cast<std::ptrdiff_t>((raw.ptr - 1) / sizeof(void*));
#endif
}

// A thread class whose functions count the calls that reach them through the virtual table.
struct Probe : CKAThread {
  static int destroyed, ran;
  ~Probe() override { ++destroyed; }
  void Run() override { ++ran; }
};
int Probe::destroyed = 0;
int Probe::ran = 0;

using Slot = void (*)(void*);
Slot VirtualSlot(const void* object, int index) {
  return (*static_cast<Slot const* const*>(object))[index];
}

TEST(Layout, ThreadVirtualTablesHoldDestructorThenRun) {
  EXPECT_EQ(VirtualIndex(&CKAThread::Run), 2);
  EXPECT_EQ(VirtualIndex(&CKALogThread::Run), 2);

  alignas(Probe) unsigned char storage[sizeof(Probe)];
  Probe* probe = new (storage) Probe;
  VirtualSlot(probe, 2)(probe);
  EXPECT_EQ(Probe::ran, 1);
  EXPECT_EQ(Probe::destroyed, 0);
  VirtualSlot(probe, 0)(probe);  // destroys the object in place
  EXPECT_EQ(Probe::destroyed, 1);
  EXPECT_EQ(Probe::ran, 1);

  EXPECT_LAYOUT(CKALogThread, MLogThread, LOG_THREAD);
}

}  // namespace
