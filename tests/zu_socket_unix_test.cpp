#include "zu_socket_unix.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "test_util.h"

namespace {

// A port that was free on 127.0.0.1 a moment ago.
unsigned short FreePort(int type) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in sa{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t len = sizeof sa;
  bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
  getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len);
  close(fd);
  return ntohs(sa.sin_port);
}

// A plain connection to 127.0.0.1:port once something listens there, or -1.
int ConnectWhenListening(unsigned short port) {
  sockaddr_in sa{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  for (int attempt = 0; attempt < 500; ++attempt) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0) return fd;
    close(fd);
    usleep(10000);
  }
  return -1;
}

std::vector<char> Pattern(int n) {
  std::vector<char> data(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) data[static_cast<size_t>(i)] = static_cast<char>(i * 31 + i / 251);
  return data;
}

// One of each kind, every peer on 127.0.0.1, all closed on destruction: client connected to
// accepted, udpClient (non-blocking) ready to reach udpServer on udpPort. Open(): all went well.
struct Sockets {
  CKATcpServer server;
  CKATcpClient client, accepted;
  CKAUdpServer udpServer;
  CKAUdpClient udpClient;
  unsigned short udpPort = FreePort(SOCK_DGRAM);

  bool Open() {
    const unsigned short port = FreePort(SOCK_STREAM);
    bool listened = false, connected = false;
    if (!server.Open(port)) return false;
    std::thread peer([&] { listened = server.Listen(&accepted, 1); });
    for (int i = 0; i < 500 && !connected; ++i) {  // until the peer listens
      connected = client.Open() && client.Connect("127.0.0.1", port, 1000) == 0;
      if (!connected) client.Close();
      if (!connected) usleep(10000);
    }
    peer.join();
    return connected && listened && udpServer.Open(KA_UDP_UNICAST, udpPort, nullptr) &&
           udpClient.Open(KA_UDP_UNICAST, nullptr) && udpClient.SetBlockMode(false);
  }
  ~Sockets() {
    for (CKATcpClient* c : {&client, &accepted}) c->Close();
    udpClient.Close();
    udpServer.Close();
    server.Close();
  }
};

TEST(TcpSocket, EchoesExactBytesTimesOutOnSilenceAndSurvivesADeadPeer) {
  const int kSize = 1 << 20;
  for (bool blocking : {true, false}) {
    Sockets s;
    ASSERT_TRUE(s.Open() && (blocking || s.client.SetBlockMode(false)));
    const std::vector<char> sent = Pattern(kSize);
    std::vector<char> got(kSize), back(kSize);
    std::thread echo([&] {
      if (s.accepted.ReadAll(got.data(), kSize, 10000) == 0)
        s.accepted.WriteAll(got.data(), kSize, 10000);
    });
    EXPECT_EQ(0, s.client.WriteAll(sent.data(), kSize, 10000));
    EXPECT_EQ(0, s.client.ReadAll(back.data(), kSize, 10000));
    echo.join();
    EXPECT_EQ(sent, back) << blocking;
  }
  Sockets s;
  ASSERT_TRUE(s.Open());
  char buf[8] = {};
  EXPECT_TRUE(s.client.SetBlockMode(false) && s.client.SetBlockMode(true));
  EXPECT_EQ(-3, s.client.ReadAll(buf, 4, 0));  // the switch is one-way (deliberate)
  ASSERT_EQ(0, s.accepted.WriteAll("half", 4, 1000));
  s.accepted.Close();
  EXPECT_EQ(-2, s.client.ReadAll(buf, sizeof buf, 100));  // a closed peer is "no data yet"
  EXPECT_EQ("half", std::string(buf));
  int result = 0;
  for (int i = 0; i < 1000 && result == 0; ++i) result = s.client.WriteAll("x", 1, 100);
  EXPECT_EQ(-1, result);  // EPIPE once the reset came back; SIGPIPE would have ended us
}

// A listener whose accept queue is full leaves new handshakes in progress: the first attempt
// times out, the next finds the handshake under way (EALREADY) and succeeds, deliberately.
TEST(TcpSocket, HandshakeInProgressTimesOutThenCountsAsConnected) {
  const unsigned short port = FreePort(SOCK_STREAM);
  CKATcpServer server;
  ASSERT_TRUE(server.Open(port));
  std::thread accept_once([&] {
    CKATcpClient unused;
    if (server.Listen(&unused, 0)) unused.Close();
  });
  const int first = ConnectWhenListening(port);
  accept_once.join();
  const int second = ConnectWhenListening(port);  // fills the queue of one
  ASSERT_TRUE(first > 0 && second > 0);
  usleep(50000);
  CKATcpClient late;
  ASSERT_TRUE(late.Open() && late.SetBlockMode(false));
  EXPECT_EQ(-2, late.Connect("127.0.0.1", port, 1));
  EXPECT_EQ(0, late.Connect("127.0.0.1", port, 1000));
  late.Close();
  close(second);
  close(first);
  server.Close();
}

TEST(SocketArguments, RefusedUnparsableOrBadGiveMinusOne) {
  Sockets s;
  ASSERT_TRUE(s.Open());
  const unsigned short port = FreePort(SOCK_STREAM);  // nobody listens there
  for (const char* ip : {static_cast<const char*>(nullptr), "", "256.0.0.1", "127.0.0.1x"}) {
    EXPECT_EQ(-1, s.client.Connect(ip, port, 1000)) << (ip ? ip : "null");
    EXPECT_EQ(-1, s.udpClient.SendTo("a", 1, ip, port)) << (ip ? ip : "null");
  }
  CKATcpClient blocking, other, zero;
  ASSERT_TRUE(blocking.Open() && other.Open() && other.SetBlockMode(false));
  const int first = other.Connect("127.0.0.1", port, 2000);  // may show at the next attempt
  zero.SetSocket(SKASocketPrivate{0});                       // descriptor 0 counts as no socket
  char buf[4];
  const int results[] = {blocking.Connect("127.0.0.1", port, 2000),
                         first == 0 ? other.Connect("127.0.0.1", port, 2000) : first,
                         s.client.Connect("127.0.0.1", port, 0),
                         s.client.ReadAll(buf, -1, 10),
                         s.client.WriteAll(nullptr, 4, 10),
                         zero.ReadAll(buf, 4, 0),
                         s.udpServer.RecvFrom(buf, -1, nullptr, nullptr),
                         s.udpClient.SendTo("a", -1, "127.0.0.1", port),
                         s.udpClient.RecvFrom(nullptr, 4, 0, nullptr, nullptr)};
  for (int r : results) EXPECT_EQ(-1, r);
  blocking.Close();
  other.Close();
  CKAUdpClient odd;
  EXPECT_TRUE(!odd.Open(3, nullptr) && odd.IsValid());  // unknown mode: descriptor left open
  odd.Close();
}

TEST(UdpSocket, RoundTripGivesExactBytesAndTheSenderPortInNetworkOrder) {
  Sockets s;
  ASSERT_TRUE(s.Open());
  const std::vector<char> sent = Pattern(60000);
  std::vector<char> got(65536), back(65536);
  char ip[16] = "", ip2[16] = "";
  unsigned short from = 0, port2 = 0;
  EXPECT_EQ(-3, s.udpClient.RecvFrom(back.data(), 65536, 0, ip2, &port2));
  EXPECT_EQ(-2, s.udpClient.RecvFrom(back.data(), 65536, 50, ip2, &port2));
  EXPECT_EQ(60000, s.udpClient.SendTo(sent.data(), 60000, "127.0.0.1", s.udpPort));
  ASSERT_EQ(60000, s.udpServer.RecvFrom(got.data(), 65536, ip, &from));
  // The reply arrives only because the caller swaps the network-order port itself.
  EXPECT_EQ(60000, s.udpServer.SendTo(got.data(), 60000, ip, ntohs(from)));
  EXPECT_EQ(0, s.udpClient.RecvFrom(back.data(), 65536, 5000, ip2, &port2));  // not the length
  back.resize(60000);
  EXPECT_EQ(sent, back);
  EXPECT_EQ("127.0.0.1 127.0.0.1", ip + (" " + std::string(ip2)));
  s.udpServer.Close();
  EXPECT_EQ(-1, s.udpServer.RecvFrom(got.data(), 8, ip, &from));
  EXPECT_EQ("0.0.0.0 0", ip + (" " + std::to_string(from)));
}

TEST(SocketDescriptors, StayOffStandardOnesAndAreCloseOnExec) {
  const int status = zutest::InChild([] {  // 1: a socket failed; 10 + n: descriptor n is wrong
    for (int from : {3, 1, 0}) {           // 0-2 open, then 1-2 closed, then 0-2
      for (int fd = from; fd < 3; ++fd) close(fd);
      std::vector<int> was(1024);
      for (int fd = 0; fd < 1024; ++fd) was[fd] = fcntl(fd, F_GETFD);
      Sockets s;
      if (!s.Open()) return 1;
      for (int fd = 0; fd < 1024; ++fd) {  // new: below 3, or inherited by a program exec'd
        const int flags = fcntl(fd, F_GETFD);
        if (was[fd] == -1 && flags != -1 && (fd < 3 || (flags & FD_CLOEXEC) == 0)) return 10 + fd;
      }
    }
    return 0;
  });
  EXPECT_EQ(0, status);
}

}  // namespace
