// zu_socket_unix: IPv4 sockets. CKATcpServer binds a port on all interfaces and accepts
// connections into CKATcpClient objects, which connect with a time-out and move whole buffers
// with ReadAll/WriteAll. CKAUdpServer receives unicast, broadcast or multicast datagrams on a
// bound port; CKAUdpClient sends them and receives replies with a time-out. Addresses are
// dotted-quad texts and are never resolved by name. Every time-out polls every 1 ms.
// Thread safety: no locks; an object is used by one thread at a time, while a server and
// the clients it accepted may live in different threads. Both TCP Opens ignore SIGPIPE for
// the whole process so that writing to a closed peer gives an error instead of ending it.
// Descriptors: every socket the library creates or accepts is close-on-exec (a program started
// with exec does not inherit it) and never takes descriptor 0, 1 or 2. When one of those is
// free (a service started with standard input closed), the new socket is moved to the lowest
// free descriptor from 3 up and the standard one is left free, so such a process opens
// sockets like any other. When no descriptor from 3 up is free, a socket on 0 is given back
// (the Open fails) and one on 1 or 2 stays there.
#ifndef ZUSTD_ZU_SOCKET_UNIX_H
#define ZUSTD_ZU_SOCKET_UNIX_H

#include "zu_export.h"

// One socket descriptor, -1 when none. Passed by value from CKATcpServer::Listen to
// CKATcpClient::SetSocket. Copyable.
struct SKASocketPrivate {
  int m_nSocket;  // the descriptor
};

// Modes of CKAUdpServer::Open and CKAUdpClient::Open.
#define KA_UDP_UNICAST 0
#define KA_UDP_BROADCAST 1
#define KA_UDP_MULTICAST 2

class CKATcpClient;

// Listening TCP socket on all interfaces. Descriptor 0 counts as invalid throughout (the
// library never puts a socket there, see above). A failed Open that closes its
// socket leaves the object holding none (-1). The destructor frees the record only: call
// Close() first. Not copyable.
class ZUSTD_API CKATcpServer {
 public:
  CKATcpServer();
  ~CKATcpServer();
  CKATcpServer(const CKATcpServer&) = delete;
  CKATcpServer& operator=(const CKATcpServer&) = delete;

  // True when a descriptor above 0 is held.
  bool IsValid();
  // Creates a socket with SO_REUSEADDR and binds nPort (host order) on all interfaces.
  // False on failure; when the bind fails the new descriptor stays open and the object
  // stays closed (kept as it is). An object already open is not closed first.
  // listen is called once per object: a server reopened after Close does not listen again.
  bool Open(unsigned short nPort);
  // Calls listen(nBacklog) on the first call only, then blocks in accept and hands the new
  // descriptor to pClient->SetSocket; the peer address is discarded. False when listen or
  // accept fails, the object holds no descriptor, or pClient is null.
  bool Listen(CKATcpClient* pClient, int nBacklog);
  // Closes the descriptor when the object is open; otherwise does nothing.
  void Close();

 private:
  SKASocketPrivate* m_pSocket;
  bool m_bOpen;
  bool m_bNeedListen;
};

// Connected TCP socket. Results of Connect/ReadAll/WriteAll: 0 success, -1 bad argument or
// socket error, -2 time-out elapsed, -3 nothing moved and the time-out was 0. Time-outs bound
// the waiting only of a non-blocking socket: a blocking one waits inside recv/send/connect.
// The destructor frees the record only: call Close() first. Not copyable.
class ZUSTD_API CKATcpClient {
 public:
  CKATcpClient();
  ~CKATcpClient();
  CKATcpClient(const CKATcpClient&) = delete;
  CKATcpClient& operator=(const CKATcpClient&) = delete;

  // True when a descriptor above 0 is held.
  bool IsValid();
  // Creates an unconnected stream socket; false when none could be had.
  bool Open();
  // Closes the descriptor when the object is open; otherwise does nothing.
  void Close();
  // Takes the descriptor (the object is open when it is above 0) as it is: it is neither
  // moved nor made close-on-exec. A descriptor already held is not closed and the blocking
  // mode flag is not changed.
  void SetSocket(SKASocketPrivate sock);
  // false: makes the socket non-blocking (false when fcntl fails). true: returns true and
  // changes nothing; a non-blocking socket never becomes blocking again (deliberate).
  bool SetBlockMode(bool bBlock);
  // Connects to szIP:nPort (host order). nTimeout (ms) must be > 0; it bounds the wait of a
  // non-blocking socket (a blocking one waits as long as connect does), whose call may return 0
  // while the handshake is still under way (EALREADY and EINVAL count as success, deliberately). An
  // unparsable address gives -1.
  int Connect(const char* szIP, unsigned short nPort, int nTimeout);
  // Receives exactly nLen bytes into pBuf. When no data is waiting: -3 if nTimeout is 0,
  // else -2 once nTimeout ms have passed since the call began. A peer that has closed counts
  // as "no data yet". Bytes received before a failure are not reported.
  int ReadAll(char* pBuf, int nLen, int nTimeout);
  // Sends exactly nLen bytes from pBuf, as ReadAll. A closed peer gives -1 (EPIPE).
  int WriteAll(const char* pBuf, int nLen, int nTimeout);

 private:
  SKASocketPrivate* m_pSocket;
  bool m_bOpen;
  bool m_bBlock;
};

// Bound UDP socket for unicast, broadcast or multicast reception. Descriptor 0 counts as
// invalid. The destructor frees the record only: call Close() first. Not copyable.
class ZUSTD_API CKAUdpServer {
 public:
  CKAUdpServer();
  ~CKAUdpServer();
  CKAUdpServer(const CKAUdpServer&) = delete;
  CKAUdpServer& operator=(const CKAUdpServer&) = delete;

  // True when a descriptor above 0 is held.
  bool IsValid();
  // Mode 0 binds nPort on all interfaces; 1 also allows broadcast; 2 binds and joins the
  // group szGroup on the interface of the local host name; any other mode binds nothing and
  // succeeds. Failures that leave the new descriptor open (kept as they are): bind in modes
  // 0 and 1, null szGroup, unresolvable host name. A group text longer than 15 characters
  // is joined as parsed and kept in its dotted form for Close.
  bool Open(int nMode, unsigned short nPort, const char* szGroup);
  // Leaves the group (mode 2) and closes, when the object is open; otherwise does nothing.
  void Close();
  // Sends nLen bytes to szIP:nPort (port in host order). Bytes sent, or -1 for a null
  // buffer or address, nLen < 0, an unparsable address (nothing is sent) or a send error.
  int SendTo(const char* pBuf, int nLen, const char* szIP, unsigned short nPort);
  // Receives one datagram (blocking) into pBuf; its length, or -1 for a null buffer,
  // nLen < 0 or an error. When szIP (16 bytes) and pPort are both given they receive the
  // sender's address and its port in NETWORK byte order (deliberate asymmetry with SendTo);
  // after a failed receive they read "0.0.0.0" and 0.
  int RecvFrom(char* pBuf, int nLen, char* szIP, unsigned short* pPort);

 private:
  SKASocketPrivate* m_pSocket;
  bool m_bOpen;
  char m_szGroup[16];
  int m_nMode;
};

// Unbound UDP sending socket that can also receive replies with a time-out.
// The destructor frees the record only: call Close() first. Not copyable.
class ZUSTD_API CKAUdpClient {
 public:
  CKAUdpClient();
  ~CKAUdpClient();
  CKAUdpClient(const CKAUdpClient&) = delete;
  CKAUdpClient& operator=(const CKAUdpClient&) = delete;

  // True when a descriptor above 0 is held.
  bool IsValid();
  // Mode 0: plain; 1: broadcast allowed; 2: with a non-null szInterface (dotted quad),
  // multicast goes out through that interface and is not looped back to this host's own
  // sockets; with a null one nothing is set. Any other mode gives false and leaves the new
  // descriptor open (kept as it is).
  bool Open(int nMode, const char* szInterface);
  // Closes the descriptor when the object is open; otherwise does nothing.
  void Close();
  // false: makes the socket non-blocking; on failure the object is closed and the result is
  // false. true: returns true and changes nothing (one-way switch, deliberate).
  bool SetBlockMode(bool bBlock);
  // As CKAUdpServer::SendTo.
  int SendTo(const char* pBuf, int nLen, const char* szIP, unsigned short nPort);
  // Receives one datagram into pBuf, waiting up to nTimeout ms on a non-blocking socket.
  // 0 when a datagram came (NOT its length, deliberate), -1 for a null buffer, nLen < 0 or
  // an error, -2 on time-out, -3 when none was waiting and nTimeout < 1. szIP/pPort as in
  // CKAUdpServer::RecvFrom (port in network order).
  int RecvFrom(char* pBuf, int nLen, int nTimeout, char* szIP, unsigned short* pPort);

 private:
  SKASocketPrivate* m_pSocket;
  bool m_bOpen;
  bool m_bBlock;
};

#endif  // ZUSTD_ZU_SOCKET_UNIX_H
