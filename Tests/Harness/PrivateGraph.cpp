#include "Harness/PrivateGraph.h"

#include "Harness/Spectrum.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <regex>
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

} // namespace

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
  start("dbus-daemon --session --nofork --nopidfile --address=unix:path=" + directory_ + "/bus");
  require(eventually([this] { return std::filesystem::exists(directory_ + "/bus"); }), "no message bus");
  startServer();
}

PrivateGraph::~PrivateGraph() { killServer(); }

void PrivateGraph::start(const std::string& command) {
  const std::string name = command.substr(0, command.find(' '));
  servers_.insert_or_assign(name, ChildProcess({"sh", "-c", "exec " + command}, directory_ + "/log"));
}

void PrivateGraph::startServer() {
  start("pipewire");
  require(eventually([] { return !listing("Core").empty(); }), "the sound server does not answer");
  startSessionManager();
  start("pipewire-pulse");
  require(eventually([this] { return std::filesystem::exists(directory_ + "/pulse/native"); }),
          "the PulseAudio server does not start");
}

void PrivateGraph::startSessionManager() {
  start("wireplumber");
  require(eventually([] { return listing("Metadata").find("\"default\"") != std::string::npos; }),
          "the session manager does not start");
}

void PrivateGraph::restartSessionManager() {
  servers_.erase("wireplumber");
  require(eventually([] { return listing("Metadata").find("\"default\"") == std::string::npos; }),
          "the session manager stays");
  startSessionManager();
}

void PrivateGraph::checkServers() {
  for (auto& [name, server] : servers_) require(server.running(), name + " has ended");
}

void PrivateGraph::killServer() {
  for (const char* name : {"pipewire", "pipewire-pulse", "wireplumber"}) servers_.erase(name);
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

ChildProcess PrivateGraph::play(const std::string& file, const std::string& target) const {
  return ChildProcess({"python3", TOLVERA_STAGE "/sound", "play", target, file}, directory_ + "/log");
}

std::string PrivateGraph::tone(double frequency, double amplitude, double seconds) const {
  constexpr std::uint32_t rate = 48000;
  const std::vector<float> samples = sine(frequency, amplitude, rate, seconds);
  const auto bytes = static_cast<std::uint32_t>(samples.size() * sizeof(float));
  // "RIFF", the rest's size, "WAVE", "fmt ", its size, IEEE float in one channel, and so on, "data".
  const std::uint32_t header[] = {0x46464952, 36 + bytes, 0x45564157,   0x20746d66, 16,   3 | 1 << 16,
                                  rate,       rate * 4,   4 | 32 << 16, 0x61746164, bytes};
  const std::string name = directory_ + "/tone-" + std::to_string(frequency) + "-" + std::to_string(seconds);
  std::ofstream file(name + ".wav", std::ios::binary);
  file.write(reinterpret_cast<const char*>(header), sizeof header);
  file.write(reinterpret_cast<const char*>(samples.data()), bytes);
  return name + ".wav";
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
