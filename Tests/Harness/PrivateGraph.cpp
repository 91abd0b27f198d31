#include "Harness/PrivateGraph.h"

#include "Harness/Spectrum.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tolvera::test {

namespace {

void require(bool held, const std::string& what) {
  if (!held) throw std::runtime_error("private graph: " + what);
}

// Empty if the server does not answer, as in the moment when it starts.
std::string listing(const std::string& what) {
  try {
    return outputOf({"pw-cli", "ls", what});
  } catch (const std::runtime_error&) {
    return {};
  }
}

constexpr const char* serverNames[] = {"message bus", "sound server", "session manager", "PulseAudio server"};

} // namespace

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

PrivateGraph::PrivateGraph() : directory_(temporary_.path()) {
  for (const char* name :
       {"XDG_RUNTIME_DIR", "PIPEWIRE_RUNTIME_DIR", "XDG_STATE_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) {
    environment_.set(name, directory_);
  }
  environment_.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + directory_ + "/bus");
  environment_.set("PIPEWIRE_REMOTE", "pipewire-0");
  environment_.set("PULSE_SERVER", "unix:" + directory_ + "/pulse/native");
  const std::string scripts = directory_ + "/wireplumber/scripts";
  std::filesystem::create_directories(scripts);
  std::filesystem::copy(TOLVERA_STAGE "/suspend-node.lua", scripts);
  processes_.emplace_back(std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--nopidfile",
                                                   "--address=unix:path=" + directory_ + "/bus"},
                          log("bus"));
  require(eventually([this] { return std::filesystem::exists(directory_ + "/bus"); }), "no message bus");
  startServer();
}

PrivateGraph::~PrivateGraph() {
  while (!processes_.empty()) processes_.pop_back();
}

void PrivateGraph::startServer() {
  processes_.emplace_back(std::vector<std::string>{"pipewire"}, log("pipewire"));
  require(eventually([] { return !listing("Core").empty(); }), "the sound server does not answer");
  processes_.push_back(sessionManager());
}

ChildProcess PrivateGraph::sessionManager() const {
  ChildProcess process({"wireplumber"}, log("wireplumber"));
  require(eventually([] { return listing("Metadata").find("\"default\"") != std::string::npos; }),
          "the session manager does not start");
  return process;
}

void PrivateGraph::restartSessionManager() {
  processes_.at(2).kill();
  require(eventually([] { return listing("Metadata").find("\"default\"") == std::string::npos; }),
          "the session manager stays");
  processes_.at(2) = sessionManager();
}

void PrivateGraph::checkServers() {
  for (std::size_t i = 0; i < processes_.size(); ++i) {
    require(processes_[i].running(), std::string("the ") + serverNames[i] + " has ended");
  }
}

void PrivateGraph::startPulse() {
  processes_.emplace_back(std::vector<std::string>{"pipewire-pulse"}, log("pulse"));
  require(eventually([this] { return std::filesystem::exists(directory_ + "/pulse/native"); }),
          "the PulseAudio server does not start");
}

void PrivateGraph::killServer() {
  processes_.at(1).kill();
  while (processes_.size() > 1) processes_.pop_back();
}

void PrivateGraph::createNode(const std::string& name, const std::string& mediaClass,
                              const std::string& positions) {
  outputOf({"pw-cli", "create-node", "adapter",
            "{ factory.name=support.null-audio-sink node.name=" + name + " media.class=" + mediaClass +
                " object.linger=true audio.position=" + positions + " priority.session=1500 }"});
  // The session manager has set it up when its ports are there.
  const auto isReady = [line = '\n' + name + ':'] {
    return ('\n' + outputOf({"pw-link", "-i"})).find(line) != std::string::npos;
  };
  require(eventually(isReady), "no node " + name);
}

void PrivateGraph::createSource(const std::string& name, const std::string& positions) {
  createNode(name, "Audio/Source/Virtual", positions);
}

void PrivateGraph::createSink(const std::string& name, const std::string& positions) {
  createNode(name, "Audio/Sink", positions);
}

void PrivateGraph::destroyNode(const std::string& name) {
  outputOf({"pw-cli", "destroy", name});
  require(eventually([this, &name] { return !hasNode(name); }), "node " + name + " stays");
}

// While one client begins to read the defaults, as this polling does, the server keeps changes from its other
// listeners. The pause gives the session manager time.
void PrivateGraph::setDefault(const std::string& key, const std::string& name) {
  require(eventually([&key, &name] {
            outputOf({"pw-metadata", "0", "default.configured.audio." + key, R"({"name":")" + name + R"("})",
                      "Spa:String:JSON"});
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            const std::string now = outputOf({"pw-metadata", "0", "default.audio." + key});
            return now.find('"' + name + '"') != std::string::npos;
          }),
          name + " does not become the default");
}

void PrivateGraph::setDefaultSource(const std::string& name) { setDefault("source", name); }

void PrivateGraph::setDefaultSink(const std::string& name) { setDefault("sink", name); }

ChildProcess PrivateGraph::play(const std::string& file, const std::string& target) const {
  return ChildProcess({"python3", TOLVERA_STAGE "/sound", "play", target, file}, log("play"));
}

ChildProcess PrivateGraph::application(const std::string& file) const {
  return ChildProcess({"pw-play", file}, log("application"));
}

ChildProcess PrivateGraph::pulseApplication(const std::string& file) const {
  return ChildProcess({"paplay", file}, log("application"));
}

std::string PrivateGraph::tone(double frequency, double amplitude, double seconds) const {
  constexpr std::uint32_t rate = 48000;
  const std::vector<float> samples = sine(frequency, amplitude, rate, seconds);
  const auto bytes = static_cast<std::uint32_t>(samples.size() * sizeof(float));
  // After "fmt " its size, then IEEE float in one channel, and so on.
  const std::uint32_t format[] = {16, 3 | 1 << 16, rate, rate * 4, 4 | 32 << 16};
  std::ostringstream name;
  name << directory_ << "/tone-" << frequency << '-' << amplitude << '-' << seconds << ".wav";
  std::ofstream file(name.str(), std::ios::binary);
  const auto put = [&file](const void* data, std::size_t size) {
    file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  };
  const std::uint32_t whole = 36 + bytes;
  put("RIFF", 4), put(&whole, 4), put("WAVEfmt ", 8), put(format, sizeof format);
  put("data", 4), put(&bytes, 4), put(samples.data(), bytes);
  return name.str();
}

std::map<std::string, int> PrivateGraph::objects() const {
  static const std::regex line("type PipeWire:Interface:([A-Za-z]+)");
  const std::string text = outputOf({"pw-cli", "ls"});
  std::map<std::string, int> counts;
  for (std::sregex_iterator found(text.begin(), text.end(), line), end; found != end; ++found) {
    ++counts[(*found)[1]];
  }
  --counts["Client"];
  return counts;
}

bool PrivateGraph::hasNode(const std::string& name) const {
  return listing("Node").find("node.name = \"" + name + '"') != std::string::npos;
}

} // namespace tolvera::test
