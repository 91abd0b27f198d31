// The program itself, as a person or a unit starts it.

#include "ServiceTests/StreamClient.h"
#include "Support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

namespace tolvera::test {
namespace {

class Program {
 public:
  explicit Program(const std::filesystem::path& state) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDERR_FILENO);
    ::posix_spawn_file_actions_addclose(&actions, pipe[0]);
    std::vector<std::string> words = {TOLVERA_SERVICE_PROGRAM, "--port", "0", "--state", state.string()};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int result =
        ::posix_spawn(&process_, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    output_ = ::fdopen(pipe[0], "r");
    if (result != 0) throw std::runtime_error("cannot start the service");
    std::array<char, 200> line{};
    if (std::fgets(line.data(), line.size(), output_) != nullptr) ready_ = line.data();
  }
  ~Program() {
    if (process_ > 0) end(SIGKILL);
    std::fclose(output_);
  }
  // Ends it, and gives its status as wait does.
  int end(int signal) {
    ::kill(process_, signal);
    int status = 0;
    ::waitpid(std::exchange(process_, 0), &status, 0);
    return status;
  }
  [[nodiscard]] const std::string& ready() const { return ready_; }
  [[nodiscard]] std::uint16_t port() const {
    return static_cast<std::uint16_t>(std::stoi(ready_.substr(ready_.rfind(':') + 1)));
  }
  // Whatever else it printed, once it has ended.
  std::string rest() {
    std::string all;
    for (int c = std::fgetc(output_); c != EOF; c = std::fgetc(output_)) all += static_cast<char>(c);
    return all;
  }
  [[nodiscard]] std::vector<pid_t> children() const {
    std::vector<pid_t> all;
    const auto tasks = std::filesystem::path("/proc") / std::to_string(process_) / "task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
      std::ifstream file(task.path() / "children");
      for (pid_t child = 0; file >> child;) all.push_back(child);
    }
    return all;
  }

 private:
  pid_t process_ = 0;
  std::FILE* output_ = nullptr;
  std::string ready_;
};

double secondsLeft(std::uint16_t port, const std::string& token) {
  return HTTPClient(port).get("/livetranslate/api/me", token).json().at("secondsLeft").to_number<double>();
}

TEST(ProgramTest, SaysWhereItListensAndEndsPolitelyAtASignal) {
  TemporaryDirectory directory;
  for (const int signal : {SIGTERM, SIGINT}) {
    Program program(directory.path());
    EXPECT_TRUE(program.ready().starts_with("tolvera-service: listening on 127.0.0.1:")) << program.ready();
    const std::string token = HTTPClient(program.port()).signUp();
    StreamClient run(program.port(), "token=" + token + "&target=es&source=en&dub=0&src=1");
    ASSERT_TRUE(run.waitForType("ready"));
    run.sendAudio(spoken("we need more time"));
    ASSERT_TRUE(run.waitForType("tr"));
    const int status = program.end(signal);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(run.waitUntilClosed());
    EXPECT_EQ(program.rest(), ""); // neither token nor speech
  }
}

TEST(ProgramTest, TimeSurvivesAKillAndNothingIsLeftRunning) {
  TemporaryDirectory directory;
  std::string token;
  double told = 0;
  std::vector<pid_t> children;
  {
    Program program(directory.path());
    token = HTTPClient(program.port()).signUp();
    StreamClient run(program.port(), "token=" + token + "&target=es&source=en&dub=1&src=1");
    const auto speech = spoken("many people in this country do not have clean water");
    run.sendAudio(speech);
    ASSERT_TRUE(run.waitForType("tr"));
    const auto balance = run.waitForType("balance");
    ASSERT_TRUE(balance);
    told = balance->json.at("secondsLeft").to_number<double>();
    EXPECT_EQ(told, 3596); // a second of sound costs four with dub
    children = program.children();
    EXPECT_FALSE(children.empty());
    program.end(SIGKILL);
    for (const auto& frame : run.frames())
      if (textOf(frame, "type") == "balance") told = frame.json.at("secondsLeft").to_number<double>();
  }
  for (const pid_t child : children) {
    for (int look = 0; look < 250 && ::kill(child, 0) == 0; ++look)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::ifstream state("/proc/" + std::to_string(child) + "/stat");
    std::string line;
    std::getline(state, line);
    EXPECT_TRUE(line.empty() || line.find(") Z ") != std::string::npos) << "still running: " << line;
  }
  Program again(directory.path());
  const double left = secondsLeft(again.port(), token);
  EXPECT_LE(left, told);         // what was told is kept
  EXPECT_GE(left, told - 2 * 4); // and no sound is charged that was not heard
}

TEST(ProgramTest, SaysWhatIsWrongWhenThePortIsTaken) {
  TemporaryDirectory directory;
  Program first(directory.path() / "a");
  const std::string command = std::string(TOLVERA_SERVICE_PROGRAM) + " --port " +
                              std::to_string(first.port()) + " --state " + (directory.path() / "b").string() +
                              " 2>&1";
  std::FILE* second = ::popen(command.c_str(), "r");
  std::array<char, 300> line{};
  ASSERT_NE(std::fgets(line.data(), line.size(), second), nullptr);
  EXPECT_NE(std::string(line.data()).find("Cannot listen"), std::string::npos) << line.data();
  EXPECT_EQ(WEXITSTATUS(::pclose(second)), 1);
}

} // namespace
} // namespace tolvera::test
