#pragma once

#include "Harness/ChildProcess.h"
#include "Harness/Eventually.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"

#include <map>
#include <string>
#include <vector>

namespace tolvera::test {

// A sound server for a test: message bus, PipeWire, its session manager and its server for PulseAudio's
// clients, in a directory of their own. While it lives, the environment of this process leads PipeWire's
// clients there; make it before anything that starts threads. Each operation waits until it has taken effect,
// and throws std::runtime_error if it does not.
class PrivateGraph {
 public:
  PrivateGraph();
  ~PrivateGraph();
  PrivateGraph(const PrivateGraph&) = delete;
  PrivateGraph& operator=(const PrivateGraph&) = delete;

  // A virtual microphone: it captures what is played into it. Positions as in "[MONO]", and more properties
  // after them.
  void createSource(const std::string& name, const std::string& positions = "[MONO]") {
    createNode(name, "Audio/Source/Virtual", positions);
  }
  void createSink(const std::string& name, const std::string& positions = "[FL FR]") {
    createNode(name, "Audio/Sink", positions);
  }
  void destroyNode(const std::string& name);
  // The node may be a sink: then the default source is its monitor.
  void setDefaultSource(const std::string& name) { setDefault("source", name); }
  void setDefaultSink(const std::string& name) { setDefault("sink", name); }

  void killServer();            // SIGKILL to PipeWire; the session manager ends with it
  void startServer();           // an empty graph again
  void restartSessionManager(); // SIGKILL, and a new one, which ignores the old nodes
  void checkServers();          // throws if one has ended by itself

  // Plays a WAV file into all inputs of a node, until it is dropped. Does not wait.
  [[nodiscard]] ChildProcess play(const std::string& file, const std::string& target) const;
  // A file in the graph's directory with a sine at 48 kHz, mono; amplitude 0 to 1.
  [[nodiscard]] std::string tone(double frequency, double amplitude, double seconds) const;
  [[nodiscard]] const std::string& directory() const { return directory_; }

  // The number of objects of each interface, "Node", "Client", "Link", ..., without this call's own client.
  [[nodiscard]] std::map<std::string, int> objects() const;
  [[nodiscard]] bool hasNode(const std::string& name) const;

 private:
  void start(const std::string& command);
  void startSessionManager();
  void createNode(const std::string& name, const std::string& mediaClass, const std::string& positions);
  void setDefault(const std::string& key, const std::string& name);

  TemporaryDirectory temporary_;
  TemporaryEnvironment environment_;
  const std::string directory_;
  std::map<std::string, ChildProcess> servers_; // by their programs' names
};

} // namespace tolvera::test
