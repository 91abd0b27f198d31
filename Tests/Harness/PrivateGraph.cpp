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

// A failed listing, as in the moments when the server starts, lists nothing.
std::string listing(const std::string& what) {
  try {
    return outputOf({"pw-cli", "ls", what});
  } catch (const std::runtime_error&) {
    return {};
  }
}

// "node:port" of a node, of one direction: "-i" or "-o".
std::vector<std::string> ports(const std::string& direction, const std::string& node) {
  std::vector<std::string> found;
  std::istringstream lines(outputOf({"pw-link", direction}));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(node + ':')) found.push_back(line);
  }
  return found;
}

// Suspends an output that idles, as on a desktop, in place of the script of Debian 12's session manager. That
// one asks it of an output that is gone by then too, and the session manager crashes.
constexpr const char* suspendScript = R"lua(
nodes = ObjectManager { Interest { type = "node", Constraint { "media.class", "matches", "Audio/*" } } }
local timers = {}
local function stop(id)
  if timers[id] then timers[id]:destroy() end
  timers[id] = nil
end
nodes:connect("object-added", function(_, node)
  local id = node["bound-id"]
  node:connect("pw-proxy-destroyed", function() stop(id) end)
  node:connect("state-changed", function(_, _, state)
    stop(id)
    if state ~= "idle" then return end
    timers[id] = Core.timeout_add(5000, function()
      timers[id] = nil
      node:send_command("Suspend")
      return false
    end)
  end)
end)
nodes:activate()
)lua";

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

PrivateGraph::PrivateGraph() {
  const char* base = std::getenv("TMPDIR");
  directory_ = std::string(base != nullptr ? base : "/tmp") + "/tolvera-graph.XXXXXX";
  require(::mkdtemp(directory_.data()) != nullptr, "no directory");
  for (const char* name :
       {"XDG_RUNTIME_DIR", "PIPEWIRE_RUNTIME_DIR", "XDG_STATE_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) {
    setEnvironment(name, directory_);
  }
  const std::string scripts = directory_ + "/wireplumber/scripts";
  std::filesystem::create_directories(scripts);
  std::ofstream(scripts + "/suspend-node.lua") << suspendScript;
  setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + directory_ + "/bus");
  setEnvironment("PIPEWIRE_REMOTE", "pipewire-0");
  setEnvironment("PULSE_SERVER", "unix:" + directory_ + "/pulse/native");
  try {
    processes_.emplace_back(std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--nopidfile",
                                                     "--address=unix:path=" + directory_ + "/bus"},
                            log("bus"));
    require(eventually([this] { return std::filesystem::exists(directory_ + "/bus"); }), "no message bus");
    startServer();
  } catch (...) {
    processes_.clear();
    std::filesystem::remove_all(directory_);
    throw;
  }
}

PrivateGraph::~PrivateGraph() {
  while (!processes_.empty()) processes_.pop_back();
  for (const auto& [name, value] : formerEnvironment_) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void PrivateGraph::setEnvironment(const std::string& name, const std::string& value) {
  const char* former = std::getenv(name.c_str());
  formerEnvironment_[name] = former != nullptr ? std::optional<std::string>(former) : std::nullopt;
  ::setenv(name.c_str(), value.c_str(), 1);
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
  require(eventually([&name] { return !ports("-i", name).empty(); }), "no node " + name);
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

// While somebody starts to read the defaults, which the polling does too, the server keeps changes of them
// from those who listen already: so the session manager is given time.
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

// The session manager links a player to sinks alone, so it is linked by hand; it starts when it is.
ChildProcess PrivateGraph::play(const std::string& file, const std::string& target) const {
  static int players = 0;
  const std::string name = "player-" + std::to_string(++players);
  ChildProcess player(
      {"pw-play", "--target", "0", "-P", "{ node.name=" + name + " node.want-driver=false }", file},
      log("play"));
  std::vector<std::string> outputs;
  require(eventually([&outputs, &name] { return !(outputs = ports("-o", name)).empty(); }), "no player");
  const std::vector<std::string> inputs = ports("-i", target);
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    outputOf({"pw-link", outputs[i % outputs.size()], inputs[i]});
  }
  return player;
}

ChildProcess PrivateGraph::application(const std::string& file) const {
  return ChildProcess({"pw-play", file}, log("application"));
}

ChildProcess PrivateGraph::pulseApplication(const std::string& file) const {
  return ChildProcess({"paplay", file}, log("application"));
}

std::string PrivateGraph::tone(double frequency, double amplitude, double seconds) const {
  constexpr std::uint32_t rate = 48000;
  const auto frames = static_cast<std::uint32_t>(seconds * rate);
  std::ostringstream name;
  name << directory_ << "/tone-" << frequency << '-' << amplitude << '-' << seconds << ".wav";
  std::ofstream file(name.str(), std::ios::binary);
  const auto put = [&file](auto value) { file.write(reinterpret_cast<const char*>(&value), sizeof value); };
  file << "RIFF";
  put(36 + frames * 4);
  file << "WAVEfmt ";
  put(std::uint32_t{16});
  put(std::uint16_t{3}); // IEEE float
  put(std::uint16_t{1});
  put(rate);
  put(rate * 4);
  put(std::uint16_t{4});
  put(std::uint16_t{32});
  file << "data";
  put(frames * 4);
  for (const float sample : sine(frequency, amplitude, rate, seconds)) put(sample);
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
