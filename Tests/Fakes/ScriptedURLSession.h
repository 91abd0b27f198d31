#pragma once

#include "Async/Suspension.h"
#include "Platform/URLSession.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::test {

// One in-memory web socket, seen from both ends: the program holds it as a WebSocketTask, and the test
// plays the server. Any thread.
class ScriptedConnection final : public platform::WebSocketTask,
                                 public std::enable_shared_from_this<ScriptedConnection> {
 public:
  struct Close {
    std::uint16_t code;
    std::string reason;
  };

  explicit ScriptedConnection(platform::URL url) : url_(std::move(url)) {}

  // What the client has done.
  [[nodiscard]] const platform::URL& url() const { return url_; }
  [[nodiscard]] std::vector<Message> sent() const; // frames handed over, in order
  [[nodiscard]] std::vector<platform::Data> sentAudio() const { return sentOf<platform::Data>(); }
  [[nodiscard]] std::vector<std::string> sentTexts() const { return sentOf<std::string>(); }
  [[nodiscard]] std::vector<Close> closes() const; // each call of `cancel`

  // What the server does. Frames delivered before a failure can still be read.
  void accept() {
    change([this] { accepted_ = true; });
  } // the handshake is done
  void deliver(Message message);
  void fail(const std::string& description = "线路断了"); // a lost line, a refused handshake, or a close
  void stall() {
    change([this] { stalled_ = true; });
  } // stops reading: frames wait
  void goOn() {
    change([this] { stalled_ = false; });
  }

  // WebSocketTask
  void resume() override;
  Task<void> send(Message message) override;
  Task<Message> receive() override;
  void cancel(std::uint16_t closeCode, std::string reason) override;

 private:
  friend class ScriptedURLSession;
  struct Outgoing {
    Message message;
    std::optional<Resumption> resume;
    std::optional<std::string> failure;
  };

  static Task<void> send(std::shared_ptr<ScriptedConnection> self, Message message);
  static Task<Message> receive(std::shared_ptr<ScriptedConnection> self);
  void change(const std::function<void()>& apply);
  template<typename Kind>
  [[nodiscard]] std::vector<Kind> sentOf() const {
    std::vector<Kind> frames;
    for (const auto& frame : sent()) {
      if (const auto* kind = std::get_if<Kind>(&frame)) frames.push_back(*kind);
    }
    return frames;
  }

  const platform::URL url_;
  std::function<void(ScriptedConnection&)> onResume_;

  mutable std::mutex mutex_;
  bool accepted_ = false;
  bool stalled_ = false;
  std::optional<std::string> failure_;
  std::deque<Message> incoming_;
  std::optional<Resumption> reader_;
  std::deque<std::shared_ptr<Outgoing>> outgoing_;
  std::vector<Message> sent_;
  std::vector<Close> closes_;
};

// The network of a test: connections that the test plays the server of, and HTTP replies by script.
// Declare it after the TestLoop: its destructor fails all waiting operations. Any thread.
class ScriptedURLSession final : public platform::URLSession {
 public:
  using Answer = std::function<Task<platform::HTTPResponse>(platform::HTTPRequest)>;

  ~ScriptedURLSession() override;

  // Runs for each connection when it begins. The first rule accepts; others may fail, do nothing, or greet.
  void onConnection(std::function<void(ScriptedConnection&)> rule);
  [[nodiscard]] std::vector<std::shared_ptr<ScriptedConnection>> connections() const;
  // The newest one; throws if there is none.
  [[nodiscard]] std::shared_ptr<ScriptedConnection> connection() const;

  // The reply to every request whose path ends in `path`, until it is scripted anew. A request without a
  // reply fails as a refused connection does.
  void reply(const std::string& path, std::optional<int> status, std::string body);
  // As `reply`, with an operation that may wait, look at the request, or throw.
  void answer(const std::string& path, Answer answer);
  [[nodiscard]] std::vector<platform::HTTPRequest> requests() const;
  [[nodiscard]] std::size_t requestCount(std::string_view path) const; // whose path ends so

  // URLSession
  std::shared_ptr<platform::WebSocketTask> webSocketTask(const platform::URL& url,
                                                         const Executor& serial) override;
  Task<platform::HTTPResponse> data(platform::HTTPRequest request) override;

 private:
  mutable std::mutex mutex_;
  std::function<void(ScriptedConnection&)> rule_ = [](ScriptedConnection& connection) {
    connection.accept();
  };
  std::vector<std::shared_ptr<ScriptedConnection>> connections_;
  std::map<std::string, Answer> answers_;
  std::vector<platform::HTTPRequest> requests_;
};

} // namespace tolvera::test
