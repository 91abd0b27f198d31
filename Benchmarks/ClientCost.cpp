// Measures what the client costs. First the processor time and memory of tolvera-terminal while it streams in
// real time: a microphone, then the system's sound with the dub played. Then the memory of its model over
// half an hour of sound, fed as fast as the network takes it.
//
//   ClientCost TOLVERA-TERMINAL [SECONDS]      streams for 60 s each by default

#include "Harness/PrivateGraph.h"
#include "ProcessUse.h"
#include "StreamingClient.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace tolvera;
using bench::memory;
using bench::processorTime;
using namespace std::chrono_literals;

namespace {

// A capture mode as the preferences name it, and whether the service sends speech all the time.
struct Mode {
  const char* name;
  const char* captureMode;
  bool dub;
};

int streamInRealTime(const std::string& terminal, int seconds, const Mode& mode) {
  test::PrivateGraph graph;
  graph.createSource("microphone");
  graph.setDefaultSource("microphone");
  graph.createSink("speaker");
  graph.setDefaultSink("speaker");
  const auto sound = graph.tone(440, 0.3, seconds + 15);
  const auto spoken = graph.play(sound, "microphone");
  const test::ChildProcess played({"pw-play", sound});

  test::LoopbackServer server;
  benchmarks::serveAccount(server);
  if (mode.dub) {
    // As much speech as sound: 100 ms at 24 kHz for every chunk of 100 ms.
    server.onFrame(
        [](test::LoopbackServer::Connection& connection, const test::LoopbackServer::Frame& frame) {
          if (!frame.isText) connection.sendBinary(std::string(4800, '\x08'));
        });
  }
  ::setenv("XDG_CONFIG_HOME", graph.directory().c_str(), 1);
  ::setenv("XDG_DATA_HOME", graph.directory().c_str(), 1);
  std::system(("mkdir -p " + graph.directory() + "/tolvera").c_str());
  std::ofstream(graph.directory() + "/tolvera/preferences.json")
      << R"({"captureMode":")" << mode.captureMode << R"(","dub":)" << (mode.dub ? "true" : "false")
      << R"(,"target":"es","seenOnboarding":true,"serverURL":")" << server.url("http", "/livetranslate")
      << "\"}";

  test::ChildProcess child({terminal}, graph.directory() + "/terminal.log");
  const auto frames = [&server] { return server.connection(0) ? server.connection(0)->frameCount() : 0; };
  if (!test::eventually([&] { return frames() >= 20; }, 20s)) {
    std::fputs("the terminal does not stream\n", stderr);
    return 1;
  }
  const double before = processorTime(child.pid());
  const auto began = std::chrono::steady_clock::now();
  const auto framesBefore = frames();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double used = processorTime(child.pid()) - before;
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - began;
  std::printf("%s, %.0f s in real time: %.2f %% of a core, %.1f MB resident (peak %.1f MB), %zu chunks\n",
              mode.name, elapsed.count(), 100 * used / elapsed.count(), memory(child.pid(), "VmRSS"),
              memory(child.pid(), "VmHWM"), frames() - framesBefore);
  ::kill(child.pid(), SIGINT);
  return child.wait(15s) == 0 ? 0 : 1;
}

// Runs the server in a process of its own, so that its memory does not count.
int serve() {
  test::LoopbackServer server;
  benchmarks::serveAccount(server);
  std::printf("%u\n", static_cast<unsigned>(server.port()));
  std::fflush(stdout);
  std::this_thread::sleep_for(10min);
  return 0;
}

int fastForward(const std::string& self) {
  const auto log = "/tmp/tolvera-client-cost." + std::to_string(::getpid());
  test::ChildProcess server({self, "--serve"}, log);
  std::string port;
  test::eventually([&] { return static_cast<bool>(std::getline(std::ifstream(log), port)); });
  ::unlink(log.c_str());

  benchmarks::StreamingClient client("http://127.0.0.1:" + port + "/livetranslate");
  if (!client.start()) {
    std::fputs("the run did not become live\n", stderr);
    return 1;
  }
  std::printf("half an hour of sound, fast forward, resident after each 5 minutes:");
  std::vector<float> block(1600, 0.1F);
  for (int chunk = 0; chunk <= 18000; ++chunk) {
    if (chunk % 3000 == 0) std::printf(" %.1f", memory(::getpid(), "VmRSS"));
    client.deliver(block);
    // The sample stream keeps 400 blocks; 20 at a time cannot overflow it.
    if (chunk % 20 == 0) std::this_thread::sleep_for(10ms);
  }
  std::printf(" MB\n");
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string(argv[1]) == "--serve") return serve();
  if (argc < 2) {
    std::fputs("usage: ClientCost TOLVERA-TERMINAL [SECONDS]\n", stderr);
    return 2;
  }
  const int seconds = argc > 2 ? std::atoi(argv[2]) : 60;
  for (const Mode& mode : {Mode{"microphone", "mic", false}, Mode{"system sound with dub", "all", true}}) {
    if (const int status = streamInRealTime(argv[1], seconds, mode); status != 0) return status;
  }
  return fastForward("/proc/self/exe");
}
