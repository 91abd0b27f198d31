// Measures the time from a chunk's last sample in the sample callback until a server on loopback has read the
// chunk's frame. The way goes through the sample stream, the pump, the chunker, the session and the network.
// Sound comes in real time, a chunk every 100 ms.
//
//   FrameLatency [CHUNKS]      by default 3,000 chunks (5 minutes)

#include "Quantile.h"
#include "StreamingClient.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace tolvera;
using namespace std::chrono_literals;
using bench::quantile;

namespace {

constexpr std::size_t samplesPerChunk = 1600;

// The chunk's number as its first sample.
float numbered(std::size_t index) { return (static_cast<float>(index % 30000) + 0.5F) / 32767.0F; }
std::size_t numberOf(const std::string& frame) {
  return static_cast<std::size_t>(static_cast<unsigned char>(frame[0])) |
         static_cast<std::size_t>(static_cast<unsigned char>(frame[1])) << 8U;
}

} // namespace

int main(int argc, char** argv) {
  const std::size_t chunks = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 3000;
  if (chunks < 10 || chunks > 30000) {
    std::fputs("between 10 and 30000 chunks\n", stderr);
    return 2;
  }
  std::vector<std::atomic<std::int64_t>> delivered(chunks);
  std::vector<std::atomic<std::int64_t>> arrived(chunks);

  test::LoopbackServer server;
  benchmarks::serveAccount(server);
  server.onFrame([&](test::LoopbackServer::Connection&, const test::LoopbackServer::Frame& frame) {
    if (frame.isText || frame.payload.size() != 2 * samplesPerChunk) return;
    const auto number = numberOf(frame.payload);
    if (number < chunks) arrived[number] = std::chrono::steady_clock::now().time_since_epoch().count();
  });

  {
    benchmarks::StreamingClient client(server.url("http", "/livetranslate"));
    if (!client.start()) {
      std::fputs("the run did not become live\n", stderr);
      return 1;
    }
    std::vector<float> block(samplesPerChunk, 0.1F);
    auto due = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < chunks; ++i) {
      std::this_thread::sleep_until(due += 100ms);
      block[0] = numbered(i);
      delivered[i] = std::chrono::steady_clock::now().time_since_epoch().count();
      client.deliver(block);
    }
    std::this_thread::sleep_for(1s);
  }

  std::vector<double> milliseconds;
  for (std::size_t i = 0; i < chunks; ++i) {
    if (arrived[i] != 0) milliseconds.push_back(static_cast<double>(arrived[i] - delivered[i]) / 1e6);
  }
  if (milliseconds.size() != chunks) {
    std::fprintf(stderr, "%zu of %zu chunks arrived\n", milliseconds.size(), chunks);
    return 1;
  }
  std::printf("%zu chunks: median %.3f ms, p90 %.3f ms, p99 %.3f ms, worst %.3f ms\n", chunks,
              quantile(milliseconds, 0.5), quantile(milliseconds, 0.9), quantile(milliseconds, 0.99),
              quantile(milliseconds, 1));
  return 0;
}
