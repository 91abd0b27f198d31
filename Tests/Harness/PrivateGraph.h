#pragma once

#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tolvera::test {

// Waits in real time for up to `limit` until `condition` holds; true if it did.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

// A sound server for a test: message bus, PipeWire and its session manager in a directory of their own.
// While it lives, the environment of this process leads PipeWire's clients there; make it before anything
// that starts threads. Each operation waits until it has taken effect, and throws std::runtime_error if it
// does not.
class PrivateGraph {
 public:
  PrivateGraph();
  ~PrivateGraph();
  PrivateGraph(const PrivateGraph&) = delete;
  PrivateGraph& operator=(const PrivateGraph&) = delete;

  // A virtual microphone: it captures what is played into it. Positions as in "[MONO]", and more properties
  // after them.
  void createSource(const std::string& name, const std::string& positions = "[MONO]");
  void createSink(const std::string& name, const std::string& positions = "[FL FR]");
  void destroyNode(const std::string& name);
  // The node may be a sink: then the default source is its monitor.
  void setDefaultSource(const std::string& name);
  void setDefaultSink(const std::string& name);

  void killServer();            // SIGKILL to PipeWire; the session manager ends with it
  void startServer();           // an empty graph again
  void startPulse();            // the server for PulseAudio's clients, until `killServer`
  void restartSessionManager(); // SIGKILL, and a new one, which ignores the old nodes
  void checkServers();          // throws if one has ended by itself

  // Plays a WAV file into all inputs of a node, until it is dropped. Does not wait.
  [[nodiscard]] ChildProcess play(const std::string& file, const std::string& target) const;
  // Plays a WAV file as applications do, to the default output, natively or through the PulseAudio server.
  // Does not wait.
  [[nodiscard]] ChildProcess application(const std::string& file) const;
  [[nodiscard]] ChildProcess pulseApplication(const std::string& file) const;
  // A file in the graph's directory with a sine at 48 kHz, mono; amplitude 0 to 1.
  [[nodiscard]] std::string tone(double frequency, double amplitude, double seconds) const;
  [[nodiscard]] const std::string& directory() const { return directory_; }

  // The number of objects of each interface, "Node", "Client", "Link", ..., without this call's own client.
  [[nodiscard]] std::map<std::string, int> objects() const;
  [[nodiscard]] bool hasNode(const std::string& name) const;

 private:
  [[nodiscard]] ChildProcess sessionManager() const;
  void createNode(const std::string& name, const std::string& mediaClass, const std::string& positions);
  void setDefault(const std::string& key, const std::string& name);
  [[nodiscard]] std::string log(const std::string& name) const { return directory_ + "/" + name + ".log"; }

  TemporaryDirectory temporary_;
  TemporaryEnvironment environment_;
  const std::string directory_;
  std::vector<ChildProcess> processes_; // the bus, then the server, the session manager and PulseAudio's
};

} // namespace tolvera::test
