// Binary layout of every class and record applications see: its size and each member's offset
// must equal those of a plain struct made of the documented members in the documented order,
// on every target. The thread classes' virtual tables hold the destructor first, Run second.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <vector>

// Members are compared by name, so open them up for this one translation unit.
#define private public
#define protected public
#include "zustd.h"
#undef private
#undef protected

namespace {

// Plain mirrors of the documented layouts.
struct MString {
  char* m_pBuffer;
  int m_nLength;
  int m_nSize;
};
template <typename T>
struct MArray {
  T* m_pData;
  int m_nCount;
  int m_nSize;
  int m_nGrowBy;
};
template <typename T>
struct MStack {
  T* m_pData;
  int m_nMaxSize;
  int m_nCount;
  int m_nTop;
};
struct MList {
  void* m_pHead;
  void* m_pTail;
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
struct MToken {
  char m_szName[8];
  std::int32_t m_nType;
  std::int32_t m_nParam;
  std::int32_t m_nPriority;
};
struct MVarOperand {
  char m_szName[32];
  double m_dValue;
};
struct MExpression {
  std::int32_t m_nVarCount;
  MString m_strExpression;
  std::int32_t m_nPos;
  std::int32_t m_nLength;
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
  int m_nSize;
  int m_nCount;
  int m_nWrite;
  int m_nRead;
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
struct MTcp {  // server: m_bNeedListen, client: m_bBlock
  MSocketPrivate* m_pSocket;
  bool m_bOpen;
  bool m_bSecond;
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
  int nID;
  int nID1;
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

// Compares size and the offsets of the listed members of a real object and a mirror object.
#define EXPECT_SAME_SIZE(T, M) EXPECT_EQ(sizeof(T), sizeof(M)) << #T
#define EXPECT_SAME_OFFSET(t, m, member) \
  EXPECT_EQ(OffsetIn(t, t.member), OffsetIn(m, m.member)) << #member

TEST(Layout, StringAndHelpers) {
  CKAString s;
  MString m{};
  EXPECT_SAME_SIZE(CKAString, MString);
  EXPECT_SAME_OFFSET(s, m, m_pBuffer);
  EXPECT_SAME_OFFSET(s, m, m_nLength);
  EXPECT_SAME_OFFSET(s, m, m_nSize);
  EXPECT_EQ(sizeof(CZUBase64), 1u);
}

TEST(Layout, Token) {
  CKAToken t;
  struct MTok {
    bool m_bFirst;
    char* m_pText;
    char* m_pSave;
    int m_nSize;
    char m_szDelimiter[sizeof(t.m_szDelimiter)];
  } m{};
  EXPECT_SAME_SIZE(CKAToken, MTok);
  EXPECT_SAME_OFFSET(t, m, m_bFirst);
  EXPECT_SAME_OFFSET(t, m, m_pText);
  EXPECT_SAME_OFFSET(t, m, m_pSave);
  EXPECT_SAME_OFFSET(t, m, m_nSize);
  EXPECT_SAME_OFFSET(t, m, m_szDelimiter);
}

TEST(Layout, Containers) {
  CKAArray<CKAString> a;
  MArray<MString> ma{};
  EXPECT_SAME_SIZE(CKAArray<CKAString>, MArray<MString>);
  EXPECT_SAME_OFFSET(a, ma, m_pData);
  EXPECT_SAME_OFFSET(a, ma, m_nCount);
  EXPECT_SAME_OFFSET(a, ma, m_nSize);
  EXPECT_SAME_OFFSET(a, ma, m_nGrowBy);

  CKAStack<double> st(4);
  MStack<double> ms{};
  EXPECT_SAME_SIZE(CKAStack<double>, MStack<double>);
  EXPECT_SAME_OFFSET(st, ms, m_pData);
  EXPECT_SAME_OFFSET(st, ms, m_nMaxSize);
  EXPECT_SAME_OFFSET(st, ms, m_nCount);
  EXPECT_SAME_OFFSET(st, ms, m_nTop);

  CKAList<int> l;
  MList ml{};
  EXPECT_SAME_SIZE(CKAList<int>, MList);
  EXPECT_SAME_OFFSET(l, ml, m_pHead);
  EXPECT_SAME_OFFSET(l, ml, m_pTail);
  EXPECT_SAME_OFFSET(l, ml, m_nCount);

  CKADict<int> d(8);
  using IntMap = CKAMap<int, int>;
  IntMap mp(8);
  MHash mh{};
  EXPECT_SAME_SIZE(CKADict<int>, MHash);
  EXPECT_SAME_SIZE(IntMap, MHash);
  EXPECT_SAME_OFFSET(d, mh, m_nHashSize);
  EXPECT_SAME_OFFSET(d, mh, m_lstNode);
  EXPECT_SAME_OFFSET(d, mh, m_pHashTable);
  EXPECT_SAME_OFFSET(mp, mh, m_nHashSize);
  EXPECT_SAME_OFFSET(mp, mh, m_lstNode);
  EXPECT_SAME_OFFSET(mp, mh, m_pHashTable);
}

TEST(Layout, HashBucketsAndNodes) {
  CKADict<int>::SHashBucket b{};
  MBucket mb{};
  EXPECT_SAME_SIZE(CKADict<int>::SHashBucket, MBucket);
  EXPECT_SAME_OFFSET(b, mb, m_nCount);
  EXPECT_SAME_OFFSET(b, mb, m_pFirst);
  // A list node: previous, next, element.
  struct MNode {
    void* m_pPrev;
    void* m_pNext;
    double m_Data;
  };
  EXPECT_SAME_SIZE(CKAList<double>::SListNode, MNode);
}

TEST(Layout, Expression) {
  CKAExpression e;
  MExpression m{};
  EXPECT_SAME_SIZE(CKAExpression, MExpression);
  EXPECT_SAME_OFFSET(e, m, m_nVarCount);
  EXPECT_SAME_OFFSET(e, m, m_strExpression);
  EXPECT_SAME_OFFSET(e, m, m_nPos);
  EXPECT_SAME_OFFSET(e, m, m_nLength);
  EXPECT_SAME_OFFSET(e, m, m_arPolish);
  EXPECT_SAME_OFFSET(e, m, m_arVarOperand);
  EXPECT_SAME_OFFSET(e, m, m_stackOperator);

  CKAExpression::SToken t{};
  MToken mt{};
  EXPECT_SAME_SIZE(CKAExpression::SToken, MToken);
  EXPECT_SAME_OFFSET(t, mt, m_szName);
  EXPECT_SAME_OFFSET(t, mt, m_nType);
  EXPECT_SAME_OFFSET(t, mt, m_nParam);
  EXPECT_SAME_OFFSET(t, mt, m_nPriority);

  CKAExpression::SVarOperand v{};
  MVarOperand mv{};
  EXPECT_SAME_SIZE(CKAExpression::SVarOperand, MVarOperand);
  EXPECT_SAME_OFFSET(v, mv, m_szName);
  EXPECT_SAME_OFFSET(v, mv, m_dValue);
}

TEST(Layout, FileAndParameterFile) {
  CKAFile f;
  MFile mf{};
  EXPECT_SAME_SIZE(CKAFile, MFile);
  EXPECT_SAME_OFFSET(f, mf, m_pFile);
  EXPECT_SAME_OFFSET(f, mf, m_sFileName);

  CKAPara p;
  MPara mp{};
  EXPECT_SAME_SIZE(CKAPara, MPara);
  EXPECT_SAME_OFFSET(p, mp, m_pFile);
  EXPECT_SAME_OFFSET(p, mp, m_sFileName);
  EXPECT_SAME_OFFSET(p, mp, m_arLine);
  EXPECT_SAME_OFFSET(p, mp, m_bLoaded);
  EXPECT_SAME_OFFSET(p, mp, m_strTemp);
}

TEST(Layout, TimeRecords) {
  CKATime t;
  MTime mt{};
  EXPECT_SAME_SIZE(CKATime, MTime);
  EXPECT_SAME_OFFSET(t, mt, m_tTime);
#if defined(__arm__)
  EXPECT_EQ(sizeof(time_t), 4u);  // the armhf layouts hold a 32-bit time_t
#endif

  STimeInfo i{};
  MTimeInfo mi{};
  EXPECT_SAME_SIZE(STimeInfo, MTimeInfo);
  EXPECT_SAME_OFFSET(i, mi, wYear);
  EXPECT_SAME_OFFSET(i, mi, wMonth);
  EXPECT_SAME_OFFSET(i, mi, wDay);
  EXPECT_SAME_OFFSET(i, mi, wHour);
  EXPECT_SAME_OFFSET(i, mi, wMinute);
  EXPECT_SAME_OFFSET(i, mi, wSecond);
  EXPECT_SAME_OFFSET(i, mi, wMilliseconds);
  EXPECT_SAME_OFFSET(i, mi, wReserved);

  SIntervalMTime s{};
  MIntervalMTime ms{};
  EXPECT_SAME_SIZE(SIntervalMTime, MIntervalMTime);
  EXPECT_SAME_OFFSET(s, ms, tSecond);
  EXPECT_SAME_OFFSET(s, ms, wMillisecond);
}

TEST(Layout, LocksEventsAndLibraries) {
  CKAMutex mutex;
  MMutex mm{};
  EXPECT_SAME_SIZE(CKAMutex, MMutex);
  EXPECT_SAME_OFFSET(mutex, mm, m_pMutex);

  CKAAutoMutex guard(&mutex, false);
  MAutoMutex mg{};
  EXPECT_SAME_SIZE(CKAAutoMutex, MAutoMutex);
  EXPECT_SAME_OFFSET(guard, mg, m_pMutex);
  EXPECT_SAME_OFFSET(guard, mg, m_bLocked);

  CKAEventSend send;
  MEventSend ms{};
  EXPECT_SAME_SIZE(CKAEventSend, MEventSend);
  EXPECT_SAME_OFFSET(send, ms, m_mutex);
  EXPECT_SAME_OFFSET(send, ms, m_pEvents);
  EXPECT_SAME_OFFSET(send, ms, m_nSize);
  EXPECT_SAME_OFFSET(send, ms, m_nCount);
  EXPECT_SAME_OFFSET(send, ms, m_nWrite);
  EXPECT_SAME_OFFSET(send, ms, m_nRead);

  CKAEventWait wait(&send);
  MEventWait mw{};
  EXPECT_SAME_SIZE(CKAEventWait, MEventWait);
  EXPECT_SAME_OFFSET(wait, mw, m_pEventSend);

  CKALib lib;
  MLib ml{};
  EXPECT_SAME_SIZE(CKALib, MLib);
  EXPECT_SAME_OFFSET(lib, ml, m_pHandle);
  EXPECT_SAME_OFFSET(lib, ml, m_sLibName);
}

TEST(Layout, Sockets) {
  SKASocketPrivate p{};
  MSocketPrivate mp{};
  EXPECT_SAME_SIZE(SKASocketPrivate, MSocketPrivate);
  EXPECT_SAME_OFFSET(p, mp, m_nSocket);

  MTcp mt{};
  CKATcpServer server;
  EXPECT_SAME_SIZE(CKATcpServer, MTcp);
  EXPECT_SAME_OFFSET(server, mt, m_pSocket);
  EXPECT_SAME_OFFSET(server, mt, m_bOpen);
  EXPECT_EQ(OffsetIn(server, server.m_bNeedListen), OffsetIn(mt, mt.m_bSecond));
  CKATcpClient client;
  EXPECT_SAME_SIZE(CKATcpClient, MTcp);
  EXPECT_SAME_OFFSET(client, mt, m_pSocket);
  EXPECT_SAME_OFFSET(client, mt, m_bOpen);
  EXPECT_EQ(OffsetIn(client, client.m_bBlock), OffsetIn(mt, mt.m_bSecond));

  CKAUdpServer userver;
  MUdpServer mu{};
  EXPECT_SAME_SIZE(CKAUdpServer, MUdpServer);
  EXPECT_SAME_OFFSET(userver, mu, m_pSocket);
  EXPECT_SAME_OFFSET(userver, mu, m_bOpen);
  EXPECT_SAME_OFFSET(userver, mu, m_szGroup);
  EXPECT_SAME_OFFSET(userver, mu, m_nMode);
  CKAUdpClient uclient;
  EXPECT_SAME_SIZE(CKAUdpClient, MTcp);
  EXPECT_SAME_OFFSET(uclient, mt, m_pSocket);
  EXPECT_SAME_OFFSET(uclient, mt, m_bOpen);
  EXPECT_EQ(OffsetIn(uclient, uclient.m_bBlock), OffsetIn(mt, mt.m_bSecond));
}

TEST(Layout, IdTables) {
  CKAIDStr one(4);
  MIDTable<MIDString> m1{};
  EXPECT_SAME_SIZE(CKAIDStr, MIDTable<MIDString>);
  EXPECT_SAME_OFFSET(one, m1, m_arItems);
  EXPECT_SAME_OFFSET(one, m1, m_mapIndex);
  EXPECT_SAME_OFFSET(one, m1, m_nNum);
  EXPECT_SAME_OFFSET(one, m1, m_item);
  EXPECT_SAME_SIZE(CKAIDStr::SIDSTRING, MIDString);
  EXPECT_SAME_OFFSET(one.m_item, m1.m_item, nID);
  EXPECT_SAME_OFFSET(one.m_item, m1.m_item, strText);

  CKAID2Str two(4);
  MIDTable<MID2String> m2{};
  EXPECT_SAME_SIZE(CKAID2Str, MIDTable<MID2String>);
  EXPECT_SAME_OFFSET(two, m2, m_arItems);
  EXPECT_SAME_OFFSET(two, m2, m_mapIndex);
  EXPECT_SAME_OFFSET(two, m2, m_nNum);
  EXPECT_SAME_OFFSET(two, m2, m_item);
  EXPECT_SAME_SIZE(CKAID2Str::SID2STRING, MID2String);
  EXPECT_SAME_OFFSET(two.m_item, m2.m_item, nID);
  EXPECT_SAME_OFFSET(two.m_item, m2.m_item, nID1);
  EXPECT_SAME_OFFSET(two.m_item, m2.m_item, strText);
}

TEST(Layout, Logs) {
  CKALog log;
  MLog ml{};
  EXPECT_SAME_SIZE(CKALog, MLog);
  EXPECT_SAME_OFFSET(log, ml, m_mutex);
  EXPECT_SAME_OFFSET(log, ml, m_file);
  EXPECT_SAME_OFFSET(log, ml, m_strBase);
}

// A thread class whose slots record which function a virtual-table call reached.
struct Probe : CKAThread {
  static int s_destroyed;
  static int s_ran;
  ~Probe() override { ++s_destroyed; }
  void Run() override { ++s_ran; }
};
int Probe::s_destroyed = 0;
int Probe::s_ran = 0;

// Itanium C++ ABI: [0] complete-object destructor, [1] deleting destructor, [2] the first
// declared virtual function after the destructor.
using Slot = void (*)(void*);
Slot VirtualSlot(const void* object, int index) {
  Slot const* table = *static_cast<Slot const* const*>(object);
  return table[index];
}

// The virtual-table index a pointer to a virtual member function encodes (-1 when the function is
// not virtual). x86: ptr = 1 + byte offset; ARM: ptr = byte offset and adj's low bit set.
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

TEST(Layout, ThreadVirtualTableHoldsDestructorThenRun) {
  EXPECT_EQ(VirtualIndex(&CKAThread::Run), 2);
  EXPECT_EQ(VirtualIndex(&CKALogThread::Run), 2);

  alignas(Probe) unsigned char storage[sizeof(Probe)];
  Probe* probe = new (storage) Probe;
  Probe::s_destroyed = Probe::s_ran = 0;
  VirtualSlot(probe, 2)(probe);
  EXPECT_EQ(Probe::s_ran, 1);
  EXPECT_EQ(Probe::s_destroyed, 0);
  VirtualSlot(probe, 0)(probe);  // destroys the object in place
  EXPECT_EQ(Probe::s_destroyed, 1);
  EXPECT_EQ(Probe::s_ran, 1);

  // CKALogThread: its own layout after the base, and the same two slots.
  CKALogThread* thread = new CKALogThread;
  CKALogThread& lt = *thread;
  EXPECT_EQ(sizeof(CKALogThread), sizeof(MLogThread));
  alignas(MLogThread) unsigned char mstorage[sizeof(MLogThread)] = {};
  MLogThread& mm = *reinterpret_cast<MLogThread*>(mstorage);
  EXPECT_SAME_OFFSET(lt, mm, m_pThread);
  EXPECT_SAME_OFFSET(lt, mm, m_pParam);
  EXPECT_SAME_OFFSET(lt, mm, m_bRun);
  EXPECT_SAME_OFFSET(lt, mm, m_log);
  EXPECT_SAME_OFFSET(lt, mm, m_mutex);
  EXPECT_SAME_OFFSET(lt, mm, m_vecLog);
  delete thread;
}

}  // namespace
