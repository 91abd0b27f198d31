// The program itself, as a person or a unit starts it.

#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"
#include "ServiceTests/Clients.h"
#include "TolveraService/Server.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

namespace tolvera::test {
namespace {

using namespace std::chrono_literals;

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

double secondsLeft(const boost::json::object& json) { return json.at("secondsLeft").to_number<double>(); }

struct Program {
  std::filesystem::path log;
  ChildProcess process;

  explicit Program(const std::filesystem::path& directory, std::uint16_t port = 0)
      : log(directory / "log"), process({TOLVERA_SERVICE_PROGRAM, "--port", std::to_string(port), "--state",
                                         (directory / "state").string(), "--engine", "pocketsphinx"},
                                        log.string()) {
    for (int look = 0; look < 3000 && !output().ends_with('\n'); ++look) std::this_thread::sleep_for(20ms);
  }
  [[nodiscard]] std::string output() const { return contentsOf(log); }
  [[nodiscard]] std::uint16_t port() const {
    return static_cast<std::uint16_t>(std::stoi(output().substr(output().rfind(':') + 1)));
  }
  [[nodiscard]] StreamClient run(const std::string& token) const {
    return StreamClient(port(), "token=" + token + "&target=es&source=en&dub=1&src=1");
  }
};

TEST(Program, EndsPolitelyAtASignal) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const TemporaryDirectory directory;
    Program program(directory.path());
    const std::string ready = program.output();
    auto run = program.run(HTTPClient(program.port()).signUp());
    run.sendAudio(spoken("we need more time"));
    ASSERT_TRUE(run.waitForType("tr"));
    const auto limits = contentsOf("/proc/" + std::to_string(program.process.pid()) + "/limits");
    EXPECT_NE(limits.find("Max core file size        1 "), std::string::npos) << "its memory may be dumped";
    ::kill(program.process.pid(), signal);
    EXPECT_EQ(program.process.wait(10s), 0);
    EXPECT_TRUE(run.waitUntilClosed());
    EXPECT_TRUE(ready.starts_with("tolvera-service: listening on 127.0.0.1:")) << ready;
    EXPECT_EQ(program.output(), ready) << "neither token nor speech";
  }
}

TEST(Program, ChargesSurviveAKill) {
  const TemporaryDirectory directory;
  Program program(directory.path());
  const std::string token = HTTPClient(program.port()).signUp();
  auto run = program.run(token);
  run.sendAudio(spoken("many people in this country do not have clean water"));
  ASSERT_TRUE(run.waitForType("tr"));
  ASSERT_TRUE(run.waitForType("balance"));
  const auto children = childrenOf(program.process.pid());
  EXPECT_FALSE(children.empty());
  ::kill(program.process.pid(), SIGKILL); // not its group
  program.process.wait(10s);
  EXPECT_TRUE(run.waitUntilClosed());
  double told = 0;
  for (const auto& frame : run.frames())
    if (frame["type"] == "balance") told = secondsLeft(frame.json);
  for (const pid_t child : children) {
    for (int look = 0; look < 250 && ::kill(child, 0) == 0; ++look) std::this_thread::sleep_for(20ms);
    const std::string line = contentsOf("/proc/" + std::to_string(child) + "/stat");
    EXPECT_TRUE(line.empty() || line.find(") Z ") != std::string::npos) << "still running: " << line;
  }
  std::filesystem::remove(program.log);
  const Program again(directory.path());
  const double left = secondsLeft(HTTPClient(again.port()).get("/livetranslate/api/me", token).json());
  EXPECT_LE(left, told);
  EXPECT_GE(left, told - 2 * 4) << "sound is charged that was not heard";
}

TEST(Program, EndsWhenIdle) {
  const TemporaryDirectory directory;
  service::Server server(
      {.stateDirectory = directory / "state", .engine = {"pocketsphinx"}, .longestIdle = 1s});
  std::atomic<bool> ended = false;
  std::thread thread([&] {
    server.run();
    ended = true;
  });
  auto held = std::make_optional<StreamClient>(server.port(), "target=es&source=en&token=" +
                                                                  HTTPClient(server.port()).signUp());
  ASSERT_TRUE(held->waitForType("ready"));
  std::this_thread::sleep_for(1500ms);
  EXPECT_FALSE(ended) << "a run was still open";
  held.reset();
  thread.join();
}

TEST(Program, TakenPortIsNamed) {
  const TemporaryDirectory directory, other;
  const Program first(directory.path());
  Program second(other.path(), first.port());
  EXPECT_NE(second.output().find("Cannot listen"), std::string::npos) << second.output();
  EXPECT_EQ(second.process.wait(10s), 1);
}

} // namespace
} // namespace tolvera::test
