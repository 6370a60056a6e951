#include "zu_socket_unix.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "test_util.h"

// Every peer here is on 127.0.0.1, or inside a network namespace made by the test itself.
namespace {

using zutest::Clock;
using zutest::MillisSince;

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  sa.sin_port = htons(port);
  return sa;
}

sockaddr* Raw(sockaddr_in* sa) {
  return reinterpret_cast<sockaddr*>(sa);
}

// A port that was free on 127.0.0.1 a moment ago.
unsigned short FreePort(int type) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in sa = Loopback(0);
  socklen_t len = sizeof sa;
  bind(fd, Raw(&sa), sizeof sa);
  getsockname(fd, Raw(&sa), &len);
  close(fd);
  return ntohs(sa.sin_port);
}

std::vector<char> Pattern(int n) {
  std::vector<char> data(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) data[static_cast<size_t>(i)] = static_cast<char>(i * 31 + i / 251);
  return data;
}

// A plain connection to 127.0.0.1:port, retried while the server is not yet listening.
int ConnectWhenListening(unsigned short port) {
  sockaddr_in sa = Loopback(port);
  for (int attempt = 0; attempt < 500; ++attempt) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(fd, Raw(&sa), sizeof sa) == 0) return fd;
    close(fd);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return -1;
}

// A server on a fresh port that is already listening (its first Listen took one throw-away
// connection), so that clients never race the listen call.
class TcpFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    port_ = FreePort(SOCK_STREAM);
    ASSERT_TRUE(server_.Open(port_));
    std::thread first([this] {
      CKATcpClient accepted;
      if (server_.Listen(&accepted, 8)) accepted.Close();
    });
    const int fd = ConnectWhenListening(port_);
    first.join();
    ASSERT_GT(fd, 0);
    close(fd);
  }
  void TearDown() override {
    JoinPeer();
    client_.Close();
    server_.Close();
  }
  // Joins the peer however the test ended: one still waiting in Listen is released by a
  // throw-away connection first.
  void JoinPeer() {
    if (!peer_.joinable()) return;
    if (!connected_) close(ConnectWhenListening(port_));
    peer_.join();
  }

  // Accepts one connection on another thread and runs peer(accepted) there; connects client_
  // (opened afresh, non-blocking when asked) to it.
  void Connect(std::function<void(CKATcpClient&)> peer, bool blocking = true) {
    connected_ = false;
    peer_ = std::thread([this, peer] {
      CKATcpClient accepted;
      if (!server_.Listen(&accepted, 1)) return;  // later backlogs are ignored
      peer(accepted);
      accepted.Close();
    });
    ASSERT_TRUE(client_.Open());
    EXPECT_TRUE(client_.IsValid());
    ASSERT_TRUE(blocking || client_.SetBlockMode(false));
    ASSERT_EQ(0, client_.Connect("127.0.0.1", port_, 5000));
    connected_ = true;
  }

  CKATcpServer server_;
  CKATcpClient client_;
  std::thread peer_;
  bool connected_ = false;
  unsigned short port_ = 0;
};

TEST_F(TcpFixture, EchoesWholeBuffersFromOneByteToOneMegabyte) {
  for (bool blocking : {true, false}) {
    for (int size : {1, 2, 1000, 65536, 1 << 20}) {
      SCOPED_TRACE(std::to_string(size) + (blocking ? " blocking" : " non-blocking"));
      Connect(
          [size](CKATcpClient& c) {
            std::vector<char> got(static_cast<size_t>(size));
            if (c.ReadAll(got.data(), size, 10000) == 0) c.WriteAll(got.data(), size, 10000);
          },
          blocking);
      const std::vector<char> sent = Pattern(size);
      std::vector<char> back(static_cast<size_t>(size), '\0');
      EXPECT_EQ(0, client_.WriteAll(sent.data(), size, 10000));
      EXPECT_EQ(0, client_.ReadAll(back.data(), size, 10000));
      EXPECT_EQ(sent, back);
      JoinPeer();
      client_.Close();
      EXPECT_FALSE(client_.IsValid());
    }
  }
}

TEST_F(TcpFixture, ReadTimesOutOnlyWhenAsked) {
  Connect(
      [](CKATcpClient& c) {
        char byte = 0;
        c.ReadAll(&byte, 1, 10000);  // holds the connection open until the client is done
      },
      false);
  char buf[16];
  EXPECT_EQ(0, client_.ReadAll(buf, 0, 10));
  Clock::time_point start = Clock::now();
  EXPECT_EQ(-3, client_.ReadAll(buf, sizeof buf, 0));
  EXPECT_LT(MillisSince(start), 1000);
  start = Clock::now();
  EXPECT_EQ(-2, client_.ReadAll(buf, sizeof buf, 50));
  EXPECT_GE(MillisSince(start), 45);
  EXPECT_LT(MillisSince(start), 5000);
  // Asking for blocking again changes nothing: the socket still does not wait.
  EXPECT_TRUE(client_.SetBlockMode(true));
  EXPECT_EQ(-3, client_.ReadAll(buf, sizeof buf, 0));
  EXPECT_EQ(0, client_.WriteAll("x", 1, 1000));
}

TEST_F(TcpFixture, PeerClosingMidReadCountsAsNoData) {
  Connect([](CKATcpClient& c) { c.WriteAll("half", 4, 1000); });
  JoinPeer();
  char buf[8];
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(-2, client_.ReadAll(buf, sizeof buf, 200));
  EXPECT_GE(MillisSince(start), 190);
  EXPECT_EQ(0, std::memcmp(buf, "half", 4));
  EXPECT_EQ(-3, client_.ReadAll(buf, sizeof buf, 0));
}

TEST_F(TcpFixture, PeerClosingMidWriteGivesErrorAndProcessSurvives) {
  Connect([](CKATcpClient& c) {
    char some[10];
    c.ReadAll(some, sizeof some, 5000);  // closes with data unread: the client gets a reset
  });
  const std::vector<char> big = Pattern(16 << 20);
  EXPECT_EQ(-1, client_.WriteAll(big.data(), static_cast<int>(big.size()), 20000));
  JoinPeer();
  // Once the peer is gone every further write fails with -1 (EPIPE), without SIGPIPE.
  EXPECT_EQ(-1, client_.WriteAll("x", 1, 100));
}

TEST_F(TcpFixture, ConnectRejectsBadArgumentsWithoutConnecting) {
  CKATcpClient& client = client_;
  ASSERT_TRUE(client.Open());
  const std::pair<const char*, int> cases[] = {
      {"127.0.0.1", 0}, {"127.0.0.1", -5},   {nullptr, 1000},      {"", 1000},
      {"abc", 1000},    {"256.0.0.1", 1000}, {"127.0.0.1x", 1000}, {"1.2.3.4.5", 1000}};
  for (const auto& c : cases) {
    EXPECT_EQ(-1, client.Connect(c.first, port_, c.second)) << (c.first ? c.first : "null");
  }
  client.Close();
  EXPECT_EQ(-1, client.Connect("127.0.0.1", port_, 1000));  // closed object
}

TEST(CKATcpClientConnect, RefusedPortGivesMinusOne) {
  const unsigned short port = FreePort(SOCK_STREAM);
  for (bool blocking : {true, false}) {
    CKATcpClient client;
    ASSERT_TRUE(client.Open());
    ASSERT_TRUE(blocking || client.SetBlockMode(false));
    int result = client.Connect("127.0.0.1", port, 2000);
    // A non-blocking refusal may only be known at the next attempt.
    if (!blocking && result == 0) result = client.Connect("127.0.0.1", port, 2000);
    EXPECT_EQ(-1, result) << (blocking ? "blocking" : "non-blocking");
    client.Close();
  }
}

// A listener whose accept queue is full drops new handshakes, so they stay in progress.
TEST(CKATcpClientConnect, HandshakeInProgressTimesOutOrCountsAsConnected) {
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
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  CKATcpClient late;
  ASSERT_TRUE(late.Open());
  ASSERT_TRUE(late.SetBlockMode(false));
  EXPECT_EQ(-2, late.Connect("127.0.0.1", port, 1));
  // The next attempt finds the handshake under way (EALREADY): success, deliberately.
  EXPECT_EQ(0, late.Connect("127.0.0.1", port, 1000));
  late.Close();
  close(second);
  close(first);
  server.Close();
}

TEST(CKATcpClientTransfer, RejectsBadArgumentsClosedObjectsAndDescriptorZero) {
  int pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
  CKATcpClient client;
  client.SetSocket(SKASocketPrivate{pair[0]});
  EXPECT_TRUE(client.IsValid());
  char buf[4] = {};
  const std::pair<int, int> bad[] = {{-1, 10}, {4, -1}};  // length, time-out
  for (const auto& b : bad) {
    EXPECT_EQ(-1, client.ReadAll(buf, b.first, b.second));
    EXPECT_EQ(-1, client.WriteAll(buf, b.first, b.second));
  }
  EXPECT_EQ(-1, client.ReadAll(nullptr, 4, 10));
  EXPECT_EQ(-1, client.WriteAll(nullptr, 4, 10));
  EXPECT_EQ(0, client.WriteAll(buf, 0, 10));
  // A descriptor handed over works like a connected one.
  ASSERT_EQ(4, write(pair[1], "abcd", 4));
  EXPECT_EQ(0, client.ReadAll(buf, 4, 1000));
  EXPECT_EQ(0, std::memcmp(buf, "abcd", 4));
  close(pair[1]);
  client.Close();
  EXPECT_EQ(0, client.ReadAll(buf, 0, 10));  // nothing asked, nothing done
  for (int fd : {-1, 0}) {                   // closed, and descriptor 0 which counts as invalid
    if (fd == 0) client.SetSocket(SKASocketPrivate{0});
    EXPECT_FALSE(client.IsValid());
    EXPECT_EQ(-1, client.ReadAll(buf, 4, 0));
    EXPECT_EQ(-1, client.WriteAll(buf, 4, 0));
    EXPECT_FALSE(client.SetBlockMode(false));
  }
  client.Close();  // not open: descriptor 0 stays untouched
}

TEST(CKATcpServerTest, OpenCloseAndClosedObjects) {
  CKATcpServer server;
  CKATcpClient client;
  EXPECT_FALSE(server.IsValid());
  EXPECT_FALSE(server.Listen(&client, 4));  // never opened
  ASSERT_TRUE(server.Open(FreePort(SOCK_STREAM)));
  EXPECT_TRUE(server.IsValid());
  EXPECT_FALSE(server.Listen(nullptr, 4));
  server.Close();
  EXPECT_FALSE(server.IsValid());
  server.Close();
  EXPECT_FALSE(server.Listen(&client, 4));
  EXPECT_FALSE(client.IsValid());
}

// ---- UDP ----

class UdpFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    port_ = FreePort(SOCK_DGRAM);
    ASSERT_TRUE(server_.Open(KA_UDP_UNICAST, port_, nullptr));
    ASSERT_TRUE(client_.Open(KA_UDP_UNICAST, nullptr));
    ASSERT_TRUE(client_.SetBlockMode(false));
  }
  void TearDown() override {
    client_.Close();
    server_.Close();
  }
  CKAUdpServer server_;
  CKAUdpClient client_;
  unsigned short port_ = 0;
};

TEST_F(UdpFixture, UnicastRoundTripReportsPortsInNetworkOrder) {
  for (int size : {1, 100, 1400, 60000}) {
    SCOPED_TRACE(size);
    const std::vector<char> sent = Pattern(size);
    std::vector<char> got(65536), back(65536);
    char ip[16], ip2[16];
    unsigned short from = 0, port2 = 0;
    EXPECT_EQ(size, client_.SendTo(sent.data(), size, "127.0.0.1", port_));
    ASSERT_EQ(size, server_.RecvFrom(got.data(), 65536, ip, &from));
    EXPECT_EQ(sent, std::vector<char>(got.begin(), got.begin() + size));
    EXPECT_STREQ("127.0.0.1", ip);
    // The sender's port comes in network order: the caller swaps it itself to answer, so the
    // reply arrives only if it does.
    EXPECT_EQ(size, server_.SendTo(got.data(), size, ip, ntohs(from)));
    EXPECT_EQ(0, client_.RecvFrom(back.data(), 65536, 5000, ip2, &port2));  // not the length
    EXPECT_EQ(sent, std::vector<char>(back.begin(), back.begin() + size));
    EXPECT_STREQ("127.0.0.1", ip2);
    EXPECT_EQ(htons(port_), port2);
  }
}

TEST_F(UdpFixture, EmptyDatagramMissingSenderFieldsAndClientTimeouts) {
  char buf[8] = "zzzzzzz", ip[16] = "unchanged";
  unsigned short port = 7;
  EXPECT_EQ(0, client_.SendTo(buf, 0, "127.0.0.1", port_));
  EXPECT_EQ(0, server_.RecvFrom(buf, sizeof buf, ip, nullptr));  // one of the two: neither set
  EXPECT_STREQ("unchanged", ip);
  EXPECT_EQ(3, client_.SendTo("abc", 3, "127.0.0.1", port_));
  EXPECT_EQ(3, server_.RecvFrom(buf, sizeof buf, nullptr, nullptr));
  EXPECT_EQ(-3, client_.RecvFrom(buf, sizeof buf, 0, ip, &port));
  EXPECT_EQ(-3, client_.RecvFrom(buf, sizeof buf, -20, ip, &port));
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(-2, client_.RecvFrom(buf, sizeof buf, 50, ip, &port));
  EXPECT_GE(MillisSince(start), 45);
  EXPECT_LT(MillisSince(start), 5000);
  EXPECT_STREQ("unchanged", ip);
  EXPECT_EQ(7, port);
}

TEST_F(UdpFixture, BadArgumentsAndClosedObjects) {
  char buf[8] = {};
  for (const char* ip : {"", "abc", "256.0.0.1", "1.2.3.4.5", "127.0.0.1x"}) {
    EXPECT_EQ(-1, client_.SendTo("a", 1, ip, port_)) << ip;
    EXPECT_EQ(-1, server_.SendTo("a", 1, ip, port_)) << ip;
  }
  EXPECT_EQ(-1, client_.SendTo(nullptr, 1, "127.0.0.1", port_));
  EXPECT_EQ(-1, client_.SendTo("a", 1, nullptr, port_));
  EXPECT_EQ(-1, client_.SendTo("a", -1, "127.0.0.1", port_));
  EXPECT_EQ(-1, server_.SendTo(nullptr, 1, "127.0.0.1", port_));
  EXPECT_EQ(-1, server_.RecvFrom(nullptr, 8, nullptr, nullptr));
  EXPECT_EQ(-1, server_.RecvFrom(buf, -1, nullptr, nullptr));
  EXPECT_EQ(-1, client_.RecvFrom(nullptr, 8, 0, nullptr, nullptr));
  EXPECT_EQ(-1, client_.RecvFrom(buf, -1, 0, nullptr, nullptr));
  server_.Close();
  client_.Close();
  EXPECT_FALSE(server_.IsValid() || client_.IsValid());
  EXPECT_EQ(-1, client_.SendTo("a", 1, "127.0.0.1", port_));
  EXPECT_EQ(-1, server_.SendTo("a", 1, "127.0.0.1", port_));
  EXPECT_EQ(-1, client_.RecvFrom(buf, 8, 0, nullptr, nullptr));
  char ip[16] = "unchanged";
  unsigned short port = 7;
  EXPECT_EQ(-1, server_.RecvFrom(buf, sizeof buf, ip, &port));
  EXPECT_STREQ("0.0.0.0", ip);
  EXPECT_EQ(0, port);
  EXPECT_FALSE(client_.SetBlockMode(false));
}

// Whether a plain socket (no SO_REUSEADDR) can bind the port: false when anyone holds it.
bool PortIsFree(unsigned short port) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in sa = Loopback(port);
  sa.sin_addr.s_addr = htonl(INADDR_ANY);
  const bool free = bind(fd, Raw(&sa), sizeof sa) == 0;
  close(fd);
  return free;
}

TEST(CKAUdpOpen, ModesThatBindOpenOrLeaveADescriptor) {
  const unsigned short port = FreePort(SOCK_DGRAM);
  const struct {
    int mode;
    bool binds;
  } servers[] = {{KA_UDP_UNICAST, true}, {KA_UDP_BROADCAST, true}, {7, false}, {-1, false}};
  for (const auto& c : servers) {
    CKAUdpServer server;
    EXPECT_TRUE(server.Open(c.mode, port, nullptr)) << c.mode;
    EXPECT_TRUE(server.IsValid()) << c.mode;
    EXPECT_EQ(c.binds, !PortIsFree(port)) << c.mode;
    server.Close();
    EXPECT_FALSE(server.IsValid()) << c.mode;
    server.Close();
  }
  CKAUdpServer multicast;
  EXPECT_FALSE(multicast.Open(KA_UDP_MULTICAST, port, nullptr));  // descriptor left open, kept
  EXPECT_TRUE(multicast.IsValid());
  const struct {
    int mode;
    const char* iface;
    bool opens, valid;
  } clients[] = {{KA_UDP_UNICAST, nullptr, true, true},
                 {KA_UDP_BROADCAST, nullptr, true, true},
                 {KA_UDP_MULTICAST, nullptr, true, true},
                 {KA_UDP_MULTICAST, "abc", false, false},
                 {3, nullptr, false, true}};  // an unknown mode leaves its descriptor open (kept)
  for (const auto& c : clients) {
    CKAUdpClient client;
    EXPECT_EQ(c.opens, client.Open(c.mode, c.iface)) << c.mode;
    EXPECT_EQ(c.valid, client.IsValid()) << c.mode;
    client.Close();
    EXPECT_EQ(c.opens ? false : c.valid, client.IsValid()) << c.mode;
  }
}

// ---- Broadcast and multicast in a network namespace of the test's own ----

bool LoopbackUpWithMulticast() {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  bool ok = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_MULTICAST);
  ok = ok && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  return ok;
}

// Runs body on a thread that has moved into a fresh network namespace (only a loopback
// interface, so nothing can leave it), then skips with the reason it could not, or body's own.
void InPrivateNetwork(const std::function<std::string()>& body) {
  std::string reason;
  std::thread([&] {
    if (unshare(CLONE_NEWNET) != 0) {
      reason = std::string("cannot make a network namespace: ") + std::strerror(errno);
    } else if (!LoopbackUpWithMulticast()) {
      reason = "cannot bring up the namespace's loopback interface";
    } else {
      reason = body();
    }
  }).join();
  if (!reason.empty()) GTEST_SKIP() << reason;
}

TEST(CKAUdpBroadcast, ReachesABroadcastServer) {
  InPrivateNetwork([] {
    const unsigned short port = 40100;
    CKAUdpServer server;
    CKAUdpClient client, plain;
    EXPECT_TRUE(server.Open(KA_UDP_BROADCAST, port, nullptr));
    EXPECT_TRUE(client.Open(KA_UDP_BROADCAST, nullptr));
    EXPECT_EQ(5, client.SendTo("hello", 5, "127.255.255.255", port));
    char buf[8] = {}, ip[16];
    unsigned short from = 0;
    EXPECT_EQ(5, server.RecvFrom(buf, sizeof buf, ip, &from));
    EXPECT_STREQ("hello", buf);
    EXPECT_STREQ("127.0.0.1", ip);
    EXPECT_TRUE(plain.Open(KA_UDP_UNICAST, nullptr));  // without SO_BROADCAST: refused
    EXPECT_EQ(-1, plain.SendTo("hello", 5, "127.255.255.255", port));
    plain.Close();
    client.Close();
    server.Close();
    return std::string();
  });
}

TEST(CKAUdpMulticast, GroupMembersReceiveAndLeaveOnClose) {
  InPrivateNetwork([]() -> std::string {
    const unsigned short port = 40200;
    CKAUdpServer server, hex, bad;
    if (!server.Open(KA_UDP_MULTICAST, port, "239.255.42.99")) {
      return "the local host name does not resolve to an address of the test namespace";
    }
    CKAUdpClient client;
    if (!client.Open(KA_UDP_MULTICAST, "127.0.0.1")) {
      server.Close();
      return std::string("setting the multicast interface fails here (qemu-user lacks it): ") +
             std::strerror(errno);
    }
    EXPECT_EQ(4, client.SendTo("join", 4, "239.255.42.99", port));
    char buf[8] = {};
    EXPECT_EQ(4, server.RecvFrom(buf, sizeof buf, nullptr, nullptr));
    EXPECT_STREQ("join", buf);
    server.Close();
    EXPECT_FALSE(server.IsValid());
    // A group text of more than 15 characters (hex parts) is joined as parsed.
    EXPECT_TRUE(hex.Open(KA_UDP_MULTICAST, port, "0xef.0xff.0x2a.0x63"));
    EXPECT_EQ(3, client.SendTo("hex", 3, "239.255.42.99", port));
    EXPECT_EQ(3, hex.RecvFrom(buf, sizeof buf, nullptr, nullptr));
    hex.Close();
    // An unparsable one cannot be joined: the socket is closed again.
    EXPECT_FALSE(bad.Open(KA_UDP_MULTICAST, port, "239.255.255.250.1234"));
    EXPECT_FALSE(bad.IsValid());
    client.Close();
    return std::string();
  });
}

// ---- Descriptors: standard ones closed, exec ----

// Connects client (opened afresh on each attempt) to 127.0.0.1:port once it listens.
bool ConnectWhenListening(CKATcpClient* client, unsigned short port) {
  for (int attempt = 0; attempt < 500; ++attempt) {
    if (client->Open() && client->Connect("127.0.0.1", port, 1000) == 0) return true;
    client->Close();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// One socket of each kind, connected or bound on 127.0.0.1; Close() closes them all.
struct SocketSet {
  CKATcpServer server;
  CKATcpClient client, accepted;
  CKAUdpServer udpServer;
  CKAUdpClient udpClient;
  unsigned short udpPort = 0;

  // "" when all five are open, else what failed.
  std::string Open() {
    const unsigned short port = FreePort(SOCK_STREAM);
    if (!server.Open(port)) return "CKATcpServer::Open";
    bool listened = false;
    std::thread peer([&] { listened = server.Listen(&accepted, 1); });
    const bool connected = ConnectWhenListening(&client, port);
    if (!connected) close(::ConnectWhenListening(port));  // releases the Listen
    peer.join();
    if (!connected || !listened) return "TCP connection";
    udpPort = FreePort(SOCK_DGRAM);
    if (!udpServer.Open(KA_UDP_UNICAST, udpPort, nullptr)) return "CKAUdpServer::Open";
    if (!udpClient.Open(KA_UDP_UNICAST, nullptr)) return "CKAUdpClient::Open";
    return udpClient.SetBlockMode(false) ? "" : "CKAUdpClient::SetBlockMode";
  }
  // "" when a few bytes went each way over TCP and over UDP, else what failed.
  std::string Transfer() {
    char buf[8] = {}, ip[16] = {};
    if (client.WriteAll("ping", 4, 2000) != 0 || accepted.ReadAll(buf, 4, 2000) != 0 ||
        std::string(buf) != "ping" || accepted.WriteAll("pong", 4, 2000) != 0 ||
        client.ReadAll(buf, 4, 2000) != 0 || std::string(buf) != "pong") {
      return "TCP transfer";
    }
    unsigned short from = 0;
    std::memset(buf, 0, sizeof buf);
    if (udpClient.SendTo("dgram", 5, "127.0.0.1", udpPort) != 5 ||
        udpServer.RecvFrom(buf, sizeof buf, ip, &from) != 5 || std::string(buf) != "dgram" ||
        udpServer.SendTo("reply", 5, ip, ntohs(from)) != 5 ||
        udpClient.RecvFrom(buf, sizeof buf, 2000, nullptr, nullptr) != 0 ||
        std::string(buf) != "reply") {
      return "UDP transfer";
    }
    return "";
  }
  void Close() {
    udpClient.Close();
    udpServer.Close();
    accepted.Close();
    client.Close();
    server.Close();
  }
};

// Runs body in a forked child whose descriptors `closed` are closed first; body's answer
// ("" when all went well), or why the child gave none.
std::string InChild(std::initializer_list<int> closed, std::string (*body)()) {
  int answer[2];
  if (pipe2(answer, O_CLOEXEC) != 0) return "pipe failed";
  const pid_t pid = fork();
  if (pid == 0) {
    for (int fd : closed) close(fd);
    const std::string text = body();
    const ssize_t written = write(answer[1], text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(answer[1]);
  const std::string text = zutest::ReadToEnd(answer[0]);
  if (zutest::WaitChild(pid) != 0) return text + " (child died)";
  return text;
}

// The first free descriptor among 0, 1 and 2 that is now taken, or "".
std::string StandardDescriptorTaken(std::initializer_list<int> freed) {
  for (int fd : freed) {
    if (fcntl(fd, F_GETFD) != -1) return "descriptor " + std::to_string(fd) + " taken";
  }
  return "";
}

template <typename Socket, typename OpenFn>
std::string OpensThreeTimes(const char* what, OpenFn open) {
  for (int i = 0; i < 3; ++i) {
    Socket socket;
    if (!open(socket) || !socket.IsValid()) return std::string(what) + " #" + std::to_string(i);
    socket.Close();
  }
  return "";
}

std::string OpenEachKindThreeTimes() {
  const unsigned short port = FreePort(SOCK_STREAM);
  const std::string failures[] = {
      OpensThreeTimes<CKATcpClient>("CKATcpClient", [](CKATcpClient& s) { return s.Open(); }),
      OpensThreeTimes<CKATcpServer>("CKATcpServer",
                                    [port](CKATcpServer& s) { return s.Open(port); }),
      OpensThreeTimes<CKAUdpServer>("CKAUdpServer",
                                    [port](CKAUdpServer& s) { return s.Open(0, port, nullptr); }),
      OpensThreeTimes<CKAUdpClient>("CKAUdpClient",
                                    [](CKAUdpClient& s) { return s.Open(0, nullptr); })};
  for (const std::string& failure : failures) {
    if (!failure.empty()) return failure;
  }
  return "";
}

template <int... kClosed>
std::string OpenAndTransferWithClosed() {
  std::string failure = OpenEachKindThreeTimes();
  SocketSet set;
  if (failure.empty()) failure = set.Open();
  if (failure.empty()) failure = set.Transfer();
  if (failure.empty()) failure = StandardDescriptorTaken({kClosed...});
  set.Close();
  return failure;
}

TEST(SocketDescriptors, EveryKindOpensAndTransfersWithStandardDescriptorsClosed) {
  EXPECT_EQ("", InChild({0}, OpenAndTransferWithClosed<0>));
  EXPECT_EQ("", InChild({0, 1, 2}, OpenAndTransferWithClosed<0, 1, 2>));
  EXPECT_EQ("", InChild({1}, OpenAndTransferWithClosed<1>));
}

// Descriptors open in this process below 1024.
std::vector<int> OpenDescriptors() {
  std::vector<int> open;
  for (int fd = 0; fd < 1024; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) open.push_back(fd);
  }
  return open;
}

// Those of fds that a shell started with exec finds open, as "fd fd ... ".
std::string InheritedByExec(const std::vector<int>& fds) {
  std::string list;
  for (int fd : fds) list += std::to_string(fd) + " ";
  const std::string script =
      "for f in " + list + "; do [ -e /proc/self/fd/$f ] && printf '%s ' $f; done; exit 0";
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return "pipe failed";
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(out[1]);
  const std::string text = zutest::ReadToEnd(out[0]);
  return zutest::WaitChild(pid) == 0 ? text : "exec failed";
}

TEST(SocketDescriptors, AreCloseOnExecAndNotInheritedByExecedPrograms) {
  const std::vector<int> before = OpenDescriptors();
  SocketSet set;
  ASSERT_EQ("", set.Open());
  std::vector<int> ours;
  for (int fd : OpenDescriptors()) {
    if (std::find(before.begin(), before.end(), fd) == before.end()) ours.push_back(fd);
  }
  ASSERT_EQ(5u, ours.size());
  for (int fd : ours) EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD) & FD_CLOEXEC) << fd;
  EXPECT_EQ("", InheritedByExec(ours));
  // The check itself sees an inherited socket.
  const int plain = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(std::to_string(plain) + " ", InheritedByExec({plain}));
  close(plain);
  set.Close();
}

}  // namespace
