#include <benchmark/benchmark.h>
#include "zu_socket_unix.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

// Loopback throughput of the socket classes: TCP WriteAll/ReadAll with a peer thread on the
// other end of one connection, and UDP datagrams per second through CKAUdpClient/Server.
namespace {

unsigned short FreePort(int type) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof sa;
  bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
  getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len);
  close(fd);
  return ntohs(sa.sin_port);
}

// One connected pair over 127.0.0.1: `near` for the benchmark loop, `far` for the peer.
struct TcpPair {
  CKATcpServer server;
  CKATcpClient near;
  CKATcpClient far;

  bool Connect() {
    const unsigned short port = FreePort(SOCK_STREAM);
    if (!server.Open(port) || !near.Open()) return false;
    std::thread accept([this] { server.Listen(&far, 4); });
    int result = -1;
    for (int attempt = 0; attempt < 200 && result != 0; ++attempt) {
      result = near.Connect("127.0.0.1", port, 1000);
      if (result != 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    accept.join();
    return result == 0 && far.IsValid() && far.SetBlockMode(false);
  }
  ~TcpPair() {
    near.Close();
    far.Close();
    server.Close();
  }
};

void BM_TcpWriteAll(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  TcpPair pair;
  if (!pair.Connect()) return state.SkipWithError("no loopback connection");
  std::atomic<bool> stop{false};
  std::thread drain([&] {
    std::vector<char> sink(static_cast<size_t>(size));
    while (!stop.load(std::memory_order_relaxed)) pair.far.ReadAll(sink.data(), size, 50);
  });
  const std::vector<char> data(static_cast<size_t>(size), 'w');
  for (auto _ : state) {
    if (pair.near.WriteAll(data.data(), size, 5000) != 0) {
      state.SkipWithError("WriteAll failed");
      break;
    }
  }
  stop = true;
  drain.join();
  state.SetBytesProcessed(state.iterations() * size);
}

void BM_TcpReadAll(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  TcpPair pair;
  if (!pair.Connect()) return state.SkipWithError("no loopback connection");
  std::atomic<bool> stop{false};
  std::thread feed([&] {
    const std::vector<char> data(static_cast<size_t>(size), 'r');
    while (!stop.load(std::memory_order_relaxed)) pair.far.WriteAll(data.data(), size, 50);
  });
  std::vector<char> buf(static_cast<size_t>(size));
  for (auto _ : state) {
    if (pair.near.ReadAll(buf.data(), size, 5000) != 0) {
      state.SkipWithError("ReadAll failed");
      break;
    }
  }
  stop = true;
  feed.join();
  state.SetBytesProcessed(state.iterations() * size);
}

// One datagram sent by the client and received by the server per iteration.
void BM_UdpDatagram(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  const unsigned short port = FreePort(SOCK_DGRAM);
  CKAUdpServer server;
  CKAUdpClient client;
  if (!server.Open(KA_UDP_UNICAST, port, nullptr) || !client.Open(KA_UDP_UNICAST, nullptr)) {
    return state.SkipWithError("no UDP sockets");
  }
  std::vector<char> data(static_cast<size_t>(size), 'u');
  std::vector<char> buf(65536);
  for (auto _ : state) {
    if (client.SendTo(data.data(), size, "127.0.0.1", port) != size ||
        server.RecvFrom(buf.data(), 65536, nullptr, nullptr) != size) {
      state.SkipWithError("datagram lost");
      break;
    }
  }
  client.Close();
  server.Close();
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * size);
}

}  // namespace

BENCHMARK(BM_TcpWriteAll)->Arg(64)->Arg(4096)->Arg(1 << 20)->UseRealTime();
BENCHMARK(BM_TcpReadAll)->Arg(64)->Arg(4096)->Arg(1 << 20)->UseRealTime();
BENCHMARK(BM_UdpDatagram)->Arg(64)->Arg(1400)->UseRealTime();

BENCHMARK_MAIN();
