#pragma once

#include "Async/AsyncStream.h"
#include "Async/Clock.h"
#include "Async/Task.h"
#include "Platform/URLSession.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tolvera {

// The connection to the translation service for one run. It opens the connection, reads it, opens it again
// with a backoff when it breaks, and says goodbye. The application makes one for each run and starts it once.
//
// Everything happens on a strand that the session owns and that its web sockets use too. The public
// operations may be called from any executor and resume the caller there. They run to their end even if the
// caller is cancelled, so that no frame is left half sent. Dropping a session without `stop` closes its
// connections.
class TranslateSession : public std::enable_shared_from_this<TranslateSession> {
 public:
  // The run's parameters, the same on every reconnection.
  struct Config {
    std::string target;
    std::string source; // a language code, or "auto"
    bool dub = false;
    bool showSource = false;
    std::optional<std::string> voice;

    bool operator==(const Config&) const = default;
  };

  enum class CaptionKind { source, translation };
  // The name of the kind on the wire: "src" or "tr".
  static constexpr std::string_view rawValue(CaptionKind kind) {
    return kind == CaptionKind::source ? "src" : "tr";
  }

  struct Ready {
    double secondsLeft = 0; // of the account; finite
    bool operator==(const Ready&) const = default;
  };
  // A line as far as it is known: `text`, which is settled, followed by `stash`, which may still change.
  struct Caption {
    CaptionKind kind = CaptionKind::source;
    std::string text;
    std::string stash;
    bool final = false; // the line is complete
    bool operator==(const Caption&) const = default;
  };
  struct Balance {
    double secondsLeft = 0; // of the account; finite
    bool operator==(const Balance&) const = default;
  };
  struct Dub {
    std::vector<float> samples; // mono, 24,000 Hz, -1 to 1
    bool operator==(const Dub&) const = default;
  };
  struct Failed {
    std::string message;
    std::string code;
    bool operator==(const Failed&) const = default;
  };
  struct Connecting {
    bool operator==(const Connecting&) const = default;
  };
  struct Reconnecting {
    bool operator==(const Reconnecting&) const = default;
  };
  // Always the last event.
  struct Ended {
    bool operator==(const Ended&) const = default;
  };
  using Event = std::variant<Ready, Caption, Balance, Dub, Failed, Connecting, Reconnecting, Ended>;

  // The error codes of the service after which a session must not go on.
  static constexpr std::array<std::string_view, 3> fatalCodes{"quota_exhausted", "replaced",
                                                              "upstream_rejected"};

  // Opens nothing. `background` runs the strand; it, the clock and the URL session outlive the session.
  static std::shared_ptr<TranslateSession> make(const Executor& background, Clock& clock,
                                                platform::URL baseURL, std::string token, Config config,
                                                platform::URLSession& urlSession);
  TranslateSession(const TranslateSession&) = delete;
  TranslateSession& operator=(const TranslateSession&) = delete;
  ~TranslateSession();

  // Begins connecting and gives the events, for one reader. Called once.
  Task<AsyncStream<Event>> start();
  // Sends one chunk. Suspends until the chunk is handed over or its failure has been dealt with, which takes
  // a backoff of up to 8 s. Without a connection, or once stopping, the chunk is dropped.
  Task<void> send(platform::Data audio);
  // Tells the service that the run is over, listens for another 5 s and closes. Returns at once if the
  // session is stopping already.
  Task<void> stop();

 private:
  using Connection = std::shared_ptr<platform::WebSocketTask>;

  TranslateSession(Executor strand, Clock& clock, platform::URL baseURL, std::string token, Config config,
                   platform::URLSession& urlSession);

  // Runs a task of this session on the strand, and holds the session until the task has ended.
  template<typename T>
  Task<T> onStrand(Task<T> task);
  // All of these run on the strand. The static ones hold the session weakly while they wait, since they may
  // go on after the application has dropped it.
  Task<AsyncStream<Event>> begin();
  Task<void> sendChunk(platform::Data audio);
  Task<void> sayGoodbye();
  static Task<void> receiveLoop(std::weak_ptr<TranslateSession> session, Connection connection);
  static Task<void> handleSocketFailure(std::weak_ptr<TranslateSession> session, std::string description);

  void connect();
  void receive(const platform::WebSocketTask::Message& message);
  void handle(std::string_view text);
  void deliver(Event event);
  void finish(std::string_view why); // the reason is for the trace
  void traceChunks();

  const Executor strand_;
  Clock& clock_;
  const platform::URL baseURL_;
  const std::string token_;
  const Config config_;
  platform::URLSession& urlSession_;

  Connection task_;
  std::vector<std::weak_ptr<platform::WebSocketTask>> replaced_;
  std::optional<AsyncStream<Event>::Writer> continuation_;
  bool stopping_ = false;
  bool finished_ = false;
  int reconnects_ = 0; // attempts since the last "ready"

  // Chunks since `countingSince_`, for the trace.
  WallTime countingSince_{};
  int sentChunks_ = 0;
  int droppedChunks_ = 0;
};

} // namespace tolvera
