// zu_socket_unix: IPv4 TCP server and client, UDP server and client.
#include "zu_socket_unix.h"

#include "zu_global_unix.h"
#include "zu_std.h"
#include "zu_string.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <vector>

namespace {

constexpr int kPollStepMs = 1;
// WaitOrGiveUp's "try again" answer; every other answer is a final result.
constexpr int kTryAgain = 1;

// Elapsed milliseconds by the library's rule, compared unsigned with the time-out.
bool TimedOut(const SIntervalMTime& start, int nTimeout) {
  return ka_elapsed_mtime(start, ka_get_current_interval_mtime()) >=
         static_cast<unsigned int>(nTimeout);
}

// After a pass that moved nothing (errno as the call left it): -1 on a socket error, -3 when
// the caller does not wait, -2 once nTimeout ms have passed since start, else kTryAgain.
int WaitOrGiveUp(const SIntervalMTime& start, int nTimeout) {
  if (errno != EAGAIN && errno != 0) return -1;
  if (nTimeout < 1) return -3;
  ka_sleep(kPollStepMs);
  return TimedOut(start, nTimeout) ? -2 : kTryAgain;
}

// Sockets never sit on a standard descriptor: in a process started with 0, 1 or 2 closed, a
// socket there would be read as input or receive the program's output and diagnostics.
constexpr int kFirstPrivateDescriptor = 3;

// fd moved to the lowest free descriptor >= 3 (close-on-exec), the standard one freed again.
// Descriptor 0 counts as invalid, so when it cannot be moved the result is -1; 1 and 2 stay
// where they are in that case.
int MoveOffStandardDescriptor(int fd) {
  if (fd < 0 || fd >= kFirstPrivateDescriptor) return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstPrivateDescriptor);
  if (moved < 0) {
    if (fd > 0) return fd;
    close(fd);
    return -1;
  }
  close(fd);
  return moved;
}

// A new close-on-exec socket on a descriptor >= 3 (see above), or -1.
int NewSocket(int type) {
  return MoveOffStandardDescriptor(socket(AF_INET, type | SOCK_CLOEXEC, 0));
}

bool SetIntOption(int fd, int level, int name, int value) {
  return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

// inet_addr of szIP; false for a text it cannot parse. Only a text that really spells
// 255.255.255.255 may yield INADDR_NONE, so garbage is never sent to the broadcast address.
bool ParseAddress(const char* szIP, in_addr_t* pAddr) {
  *pAddr = inet_addr(szIP);
  if (*pAddr != INADDR_NONE) return true;
  in_addr check;
  return inet_aton(szIP, &check) != 0 && check.s_addr == INADDR_NONE;
}

sockaddr_in MakeAddress(in_addr_t addr, unsigned short nPort) {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = addr;
  sa.sin_port = htons(nPort);
  return sa;
}

bool BindAny(int fd, unsigned short nPort) {
  const sockaddr_in sa = MakeAddress(htonl(INADDR_ANY), nPort);
  return bind(fd, reinterpret_cast<const sockaddr*>(&sa), sizeof sa) == 0;
}

bool AddNonBlocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return fcntl(fd, F_SETFL, flags | O_NONBLOCK) != -1;
}

void Release(SKASocketPrivate* pSocket, bool* pOpen) {
  close(pSocket->m_nSocket);
  pSocket->m_nSocket = -1;
  *pOpen = false;
}

// A failed Open that closes its new descriptor: the object holds none afterwards.
bool DropNewSocket(SKASocketPrivate* pSocket) {
  close(pSocket->m_nSocket);
  pSocket->m_nSocket = -1;
  return false;
}

// The sender's address text into szIP (16 bytes, strncpy) and its raw port, in network
// order, into *pPort; only when both are given.
void ReportSender(const sockaddr_in& from, char* szIP, unsigned short* pPort) {
  if (szIP == nullptr || pPort == nullptr) return;
  char text[INET_ADDRSTRLEN] = "0.0.0.0";
  inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
  std::strncpy(szIP, text, 16);
  *pPort = from.sin_port;  // network byte order, deliberate
}

// One recvfrom; `from` is zeroed first so that a failed call reports 0.0.0.0 and port 0.
int ReceiveDatagram(int fd, char* pBuf, int nLen, sockaddr_in* pFrom) {
  std::memset(pFrom, 0, sizeof *pFrom);
  if (fd < 1) {
    errno = EBADF;
    return -1;
  }
  socklen_t len = sizeof *pFrom;
  return static_cast<int>(
      recvfrom(fd, pBuf, static_cast<size_t>(nLen), 0, reinterpret_cast<sockaddr*>(pFrom), &len));
}

int SendDatagram(int fd, const char* pBuf, int nLen, const char* szIP, unsigned short nPort) {
  in_addr_t addr;
  if (pBuf == nullptr || szIP == nullptr || nLen < 0) return -1;
  if (!ParseAddress(szIP, &addr) || fd < 1) return -1;
  const sockaddr_in to = MakeAddress(addr, nPort);
  return static_cast<int>(sendto(fd, pBuf, static_cast<size_t>(nLen), 0,
                                 reinterpret_cast<const sockaddr*>(&to), sizeof to));
}

// First IPv4 address of the local host name, as gethostbyname gives it.
bool HostInterfaceAddress(in_addr* pAddr) {
  const CKAString name = ka_get_computer_name();
  hostent entry;
  hostent* result = nullptr;
  int error = 0;
  std::vector<char> work(1024);
  while (gethostbyname_r(name.GetBuf(), &entry, work.data(), work.size(), &result, &error) ==
             ERANGE &&
         work.size() < 65536) {
    work.resize(work.size() * 2);
  }
  if (result == nullptr || result->h_addrtype != AF_INET || result->h_addr_list[0] == nullptr) {
    return false;
  }
  std::memcpy(pAddr, result->h_addr_list[0], sizeof *pAddr);
  return true;
}

enum class Join { kJoined, kFailKeepOpen, kFailClose };

Join BindAndJoin(int fd, unsigned short nPort, const char* szGroup) {
  if (szGroup == nullptr) return Join::kFailKeepOpen;  // descriptor left open (kept)
  if (!BindAny(fd, nPort)) return Join::kFailClose;
  ip_mreq request;
  request.imr_multiaddr.s_addr = inet_addr(szGroup);
  if (!HostInterfaceAddress(&request.imr_interface)) return Join::kFailKeepOpen;  // kept
  if (setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) != 0) {
    return Join::kFailClose;
  }
  return Join::kJoined;
}

// The group text kept for leaving the group: the text itself when it fits 15 characters,
// else the dotted form of what it parsed to.
void KeepGroup(char* szDest, const char* szGroup) {
  if (std::strlen(szGroup) <= 15) {
    ka_strncpy(szDest, szGroup, 15);
    return;
  }
  in_addr group;
  group.s_addr = inet_addr(szGroup);
  inet_ntop(AF_INET, &group, szDest, 16);
}

bool SetMulticastOut(int fd, const char* szInterface) {
  in_addr out;
  out.s_addr = inet_addr(szInterface);
  const unsigned char loop = 0;  // own datagrams are not looped back
  return setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &out, sizeof out) == 0 &&
         setsockopt(fd, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) == 0;
}

}  // namespace

// ---- CKATcpServer ----

CKATcpServer::CKATcpServer()
    : m_pSocket(new SKASocketPrivate{-1}), m_bOpen(false), m_bNeedListen(true) {}

CKATcpServer::~CKATcpServer() {
  delete m_pSocket;
}

bool CKATcpServer::IsValid() {
  return m_pSocket->m_nSocket > 0;
}

bool CKATcpServer::Open(unsigned short nPort) {
  const int fd = NewSocket(SOCK_STREAM);
  m_pSocket->m_nSocket = fd;
  if (fd < 1) return false;
  if (!SetIntOption(fd, SOL_SOCKET, SO_REUSEADDR, 1)) return DropNewSocket(m_pSocket);
  if (!BindAny(fd, nPort)) return false;  // descriptor left open, object closed (kept)
  signal(SIGPIPE, SIG_IGN);
  m_bOpen = true;
  return true;
}

bool CKATcpServer::Listen(CKATcpClient* pClient, int nBacklog) {
  if (pClient == nullptr || !IsValid()) return false;
  if (m_bNeedListen) {
    if (listen(m_pSocket->m_nSocket, nBacklog) < 0) return false;
    m_bNeedListen = false;  // later backlogs are ignored
  }
  sockaddr_in peer;
  socklen_t len = sizeof peer;
  const int fd = MoveOffStandardDescriptor(
      accept4(m_pSocket->m_nSocket, reinterpret_cast<sockaddr*>(&peer), &len, SOCK_CLOEXEC));
  if (fd == -1) return false;
  pClient->SetSocket(SKASocketPrivate{fd});
  return true;
}

void CKATcpServer::Close() {
  if (m_bOpen) Release(m_pSocket, &m_bOpen);
}

// ---- CKATcpClient ----

CKATcpClient::CKATcpClient()
    : m_pSocket(new SKASocketPrivate{-1}), m_bOpen(false), m_bBlock(true) {}

CKATcpClient::~CKATcpClient() {
  delete m_pSocket;
}

bool CKATcpClient::IsValid() {
  return m_pSocket->m_nSocket > 0;
}

bool CKATcpClient::Open() {
  m_pSocket->m_nSocket = NewSocket(SOCK_STREAM);
  if (m_pSocket->m_nSocket < 1) return false;
  signal(SIGPIPE, SIG_IGN);
  m_bOpen = true;
  return true;
}

void CKATcpClient::Close() {
  if (m_bOpen) Release(m_pSocket, &m_bOpen);
}

void CKATcpClient::SetSocket(SKASocketPrivate sock) {
  m_pSocket->m_nSocket = sock.m_nSocket;  // a descriptor held before is not closed (kept)
  if (sock.m_nSocket > 0) m_bOpen = true;
}

bool CKATcpClient::SetBlockMode(bool bBlock) {
  if (bBlock) return true;  // one-way switch: never back to blocking (deliberate)
  if (!IsValid() || !AddNonBlocking(m_pSocket->m_nSocket)) return false;
  m_bBlock = false;
  return true;
}

int CKATcpClient::Connect(const char* szIP, unsigned short nPort, int nTimeout) {
  in_addr_t addr;
  if (szIP == nullptr || nTimeout <= 0 || !ParseAddress(szIP, &addr) || !IsValid()) return -1;
  const sockaddr_in to = MakeAddress(addr, nPort);
  const SIntervalMTime start = ka_get_current_interval_mtime();
  for (;;) {
    if (connect(m_pSocket->m_nSocket, reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0) {
      return 0;
    }
    switch (errno) {
      case EINPROGRESS:
        ka_sleep(kPollStepMs);
        if (TimedOut(start, nTimeout)) return -2;
        break;
      case EISCONN:
      case EALREADY:  // still under way: success, deliberate
      case EINVAL:    // success, deliberate
        return 0;
      default:
        return -1;
    }
  }
}

int CKATcpClient::ReadAll(char* pBuf, int nLen, int nTimeout) {
  if (pBuf == nullptr || nLen < 0 || nTimeout < 0) return -1;
  const SIntervalMTime start = ka_get_current_interval_mtime();
  if (nLen == 0) return 0;
  if (!IsValid()) return -1;
  int remaining = nLen;
  for (;;) {
    errno = 0;  // a closed peer (result 0) must read as "no data yet", not as a stale error
    const ssize_t n = recv(m_pSocket->m_nSocket, pBuf, static_cast<size_t>(remaining), 0);
    if (n >= 1) {
      remaining -= static_cast<int>(n);
      pBuf += n;
      if (remaining < 1) return 0;
      continue;
    }
    const int result = WaitOrGiveUp(start, nTimeout);
    if (result != kTryAgain) return result;
  }
}

int CKATcpClient::WriteAll(const char* pBuf, int nLen, int nTimeout) {
  if (pBuf == nullptr || nLen < 0 || nTimeout < 0) return -1;
  const SIntervalMTime start = ka_get_current_interval_mtime();
  if (nLen == 0) return 0;
  if (!IsValid()) return -1;
  int remaining = nLen;
  for (;;) {
    errno = 0;
    const ssize_t n = send(m_pSocket->m_nSocket, pBuf, static_cast<size_t>(remaining), 0);
    if (n >= 0) {  // a result of 0 simply tries again
      remaining -= static_cast<int>(n);
      pBuf += n;
      if (remaining < 1) return 0;
      continue;
    }
    const int result = WaitOrGiveUp(start, nTimeout);
    if (result != kTryAgain) return result;
  }
}

// ---- CKAUdpServer ----

CKAUdpServer::CKAUdpServer()
    : m_pSocket(new SKASocketPrivate{-1}), m_bOpen(false), m_szGroup(), m_nMode(0) {}

CKAUdpServer::~CKAUdpServer() {
  delete m_pSocket;
}

bool CKAUdpServer::IsValid() {
  return m_pSocket->m_nSocket > 0;
}

bool CKAUdpServer::Open(int nMode, unsigned short nPort, const char* szGroup) {
  const int fd = NewSocket(SOCK_DGRAM);
  m_pSocket->m_nSocket = fd;
  if (fd < 1) return false;
  if (!SetIntOption(fd, SOL_SOCKET, SO_REUSEADDR, 1)) return DropNewSocket(m_pSocket);
  switch (nMode) {
    case KA_UDP_UNICAST:
      if (!BindAny(fd, nPort)) return false;  // descriptor left open (kept)
      break;
    case KA_UDP_BROADCAST:
      if (!SetIntOption(fd, SOL_SOCKET, SO_BROADCAST, 1)) return DropNewSocket(m_pSocket);
      if (!BindAny(fd, nPort)) return false;  // descriptor left open (kept)
      break;
    case KA_UDP_MULTICAST: {
      const Join join = BindAndJoin(fd, nPort, szGroup);
      if (join == Join::kFailClose) return DropNewSocket(m_pSocket);
      if (join == Join::kFailKeepOpen) return false;
      KeepGroup(m_szGroup, szGroup);
      break;
    }
    default:  // binds nothing and succeeds
      break;
  }
  m_nMode = nMode;
  m_bOpen = true;
  return true;
}

void CKAUdpServer::Close() {
  if (!m_bOpen) return;
  if (m_nMode == KA_UDP_MULTICAST) {
    ip_mreq request;
    request.imr_multiaddr.s_addr = inet_addr(m_szGroup);
    request.imr_interface.s_addr = htonl(INADDR_ANY);
    setsockopt(m_pSocket->m_nSocket, IPPROTO_IP, IP_DROP_MEMBERSHIP, &request, sizeof request);
  }
  Release(m_pSocket, &m_bOpen);
}

int CKAUdpServer::SendTo(const char* pBuf, int nLen, const char* szIP, unsigned short nPort) {
  return SendDatagram(m_pSocket->m_nSocket, pBuf, nLen, szIP, nPort);
}

int CKAUdpServer::RecvFrom(char* pBuf, int nLen, char* szIP, unsigned short* pPort) {
  if (pBuf == nullptr || nLen < 0) return -1;
  sockaddr_in from;
  const int n = ReceiveDatagram(m_pSocket->m_nSocket, pBuf, nLen, &from);
  ReportSender(from, szIP, pPort);  // also after a failure
  return n;
}

// ---- CKAUdpClient ----

CKAUdpClient::CKAUdpClient()
    : m_pSocket(new SKASocketPrivate{-1}), m_bOpen(false), m_bBlock(true) {}

CKAUdpClient::~CKAUdpClient() {
  delete m_pSocket;
}

bool CKAUdpClient::IsValid() {
  return m_pSocket->m_nSocket > 0;
}

bool CKAUdpClient::Open(int nMode, const char* szInterface) {
  const int fd = NewSocket(SOCK_DGRAM);
  m_pSocket->m_nSocket = fd;
  if (fd < 1) return false;
  switch (nMode) {
    case KA_UDP_UNICAST:
      break;
    case KA_UDP_BROADCAST:
      if (!SetIntOption(fd, SOL_SOCKET, SO_BROADCAST, 1)) return DropNewSocket(m_pSocket);
      break;
    case KA_UDP_MULTICAST:
      if (szInterface != nullptr && !SetMulticastOut(fd, szInterface)) {
        return DropNewSocket(m_pSocket);
      }
      break;
    default:
      return false;  // descriptor left open, object closed (kept)
  }
  m_bOpen = true;
  return true;
}

void CKAUdpClient::Close() {
  if (m_bOpen) Release(m_pSocket, &m_bOpen);
}

bool CKAUdpClient::SetBlockMode(bool bBlock) {
  if (bBlock) return true;  // one-way switch: never back to blocking (deliberate)
  if (!IsValid() || !AddNonBlocking(m_pSocket->m_nSocket)) {
    Close();
    return false;
  }
  m_bBlock = false;
  return true;
}

int CKAUdpClient::SendTo(const char* pBuf, int nLen, const char* szIP, unsigned short nPort) {
  return SendDatagram(m_pSocket->m_nSocket, pBuf, nLen, szIP, nPort);
}

int CKAUdpClient::RecvFrom(char* pBuf, int nLen, int nTimeout, char* szIP, unsigned short* pPort) {
  if (pBuf == nullptr || nLen < 0) return -1;
  const SIntervalMTime start = ka_get_current_interval_mtime();
  for (;;) {
    sockaddr_in from;
    errno = 0;
    if (ReceiveDatagram(m_pSocket->m_nSocket, pBuf, nLen, &from) >= 0) {
      ReportSender(from, szIP, pPort);
      return 0;  // not the datagram's length (deliberate)
    }
    const int result = WaitOrGiveUp(start, nTimeout);
    if (result != kTryAgain) return result;
  }
}
