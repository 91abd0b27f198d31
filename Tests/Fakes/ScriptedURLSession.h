#pragma once

#include "Async/Suspension.h"
#include "Platform/PlatformError.h"
#include "Platform/URLSession.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tolvera::test {

// One in-memory web socket, seen from both ends: the program holds it as a WebSocketTask, and the test plays
// the server. The methods may be called on any thread; the fields are read while no other thread uses it.
class ScriptedConnection final : public platform::WebSocketTask {
 public:
  using Rule = std::function<void(ScriptedConnection&)>;

  ScriptedConnection(platform::URL address, Rule onResume)
      : url(std::move(address)), onResume_(std::move(onResume)) {}

  // What the client has done.
  const platform::URL url;
  std::vector<Message> sent;         // frames handed over, in order
  std::vector<std::uint16_t> closes; // the code of each call of `cancel`

  // What the server does. Frames delivered before a failure can still be read.
  void accept() { // ends the handshake, and reads
    change([this] { reads_ = true; });
  }
  void stall() { // stops reading, so that frames wait
    change([this] { reads_ = false; });
  }
  void deliver(Message message) {
    change([&] { incoming_.push_back(std::move(message)); });
  }
  // A lost line, a refused handshake, or a close.
  void fail(const std::string& description = "线路断了") {
    change([&] { failure_ = failure_.value_or(description); });
  }

  void resume() override { onResume_(*this); }
  Task<void> send(Message message) override {
    bool handedOver = false;
    co_await until([&] {
      handedOver = reads_ && !failure_;
      if (handedOver) sent.push_back(std::move(message));
      return handedOver || failure_;
    });
    if (!handedOver) throw lost();
  }
  Task<Message> receive() override {
    std::optional<Message> message;
    co_await until([&] {
      if (incoming_.empty()) return failure_.has_value();
      message = std::move(incoming_.front());
      incoming_.pop_front();
      return true;
    });
    if (!message) throw lost();
    co_return *std::move(message);
  }
  void cancel(std::uint16_t closeCode, std::string) override {
    change([&] {
      closes.push_back(closeCode);
      failure_ = failure_.value_or("已关闭");
      incoming_.clear();
    });
  }

 private:
  // Takes the step under the lock: at once, or after the change that makes it possible.
  Task<void> until(std::function<bool()> step) {
    bool taken = false;
    while (!taken) {
      co_await suspend([this, &step, &taken](Resumption resume) {
        const std::scoped_lock lock(mutex_);
        taken = step();
        if (taken)
          resume();
        else
          waiting_.push_back(std::move(resume));
      });
    }
  }
  void change(const std::function<void()>& apply) {
    const std::scoped_lock lock(mutex_);
    apply();
    for (const auto& resume : std::exchange(waiting_, {})) resume();
  }
  [[nodiscard]] platform::PlatformError lost() {
    const std::scoped_lock lock(mutex_);
    return {platform::transportErrorDomain, ECONNRESET, failure_.value()};
  }

  const Rule onResume_;
  std::mutex mutex_;
  bool reads_ = false;
  std::optional<std::string> failure_;
  std::deque<Message> incoming_;
  std::vector<Resumption> waiting_;
};

// The network of a test: connections that the test plays the server of, and HTTP replies by script.
// Declare it after the TestLoop: its destructor fails all waiting operations. Connections may be made on any
// thread; the rest belongs to the test's.
class ScriptedURLSession final : public platform::URLSession {
 public:
  using Answer = std::function<Task<platform::HTTPResponse>()>;

  ~ScriptedURLSession() override {
    for (const auto& connection : connections_) connection->fail("the test is over");
  }

  // Runs for each connection when it begins. The first rule accepts; others may fail, do nothing, or greet.
  void onConnection(ScriptedConnection::Rule rule) {
    const std::scoped_lock lock(mutex_);
    rule_ = std::move(rule);
  }
  [[nodiscard]] std::vector<std::shared_ptr<ScriptedConnection>> connections() const {
    const std::scoped_lock lock(mutex_);
    return connections_;
  }
  // The newest one; throws if there is none.
  [[nodiscard]] std::shared_ptr<ScriptedConnection> connection() const {
    const auto all = connections();
    return all.at(all.size() - 1);
  }

  // The answer to every request whose path ends in the key. A request without one fails as a refused
  // connection does.
  std::map<std::string, Answer> answers;
  std::vector<platform::HTTPRequest> requests; // in order
  void reply(const std::string& path, std::optional<int> status, const std::string& body) {
    answers[path] = [response = platform::HTTPResponse{status, body}]() -> Task<platform::HTTPResponse> {
      co_return response;
    };
  }
  [[nodiscard]] std::size_t requestCount(const std::string& path) const { // whose path ends so
    return static_cast<std::size_t>(
        std::ranges::count_if(requests, [&](const auto& request) { return endsIn(request, path); }));
  }

  std::shared_ptr<platform::WebSocketTask> webSocketTask(const platform::URL& url, const Executor&) override {
    const std::scoped_lock lock(mutex_);
    connections_.push_back(std::make_shared<ScriptedConnection>(url, rule_));
    return connections_.back();
  }
  Task<platform::HTTPResponse> data(platform::HTTPRequest request) override {
    requests.push_back(request);
    const auto found =
        std::ranges::find_if(answers, [&](const auto& entry) { return endsIn(request, entry.first); });
    if (found == answers.end())
      throw platform::PlatformError(platform::transportErrorDomain, ECONNREFUSED, "连接被拒绝");
    const Answer answer = found->second; // lives as long as its task
    co_return co_await answer();
  }

 private:
  static bool endsIn(const platform::HTTPRequest& request, const std::string& path) {
    return std::string(request.url.encoded_path()).ends_with(path);
  }

  mutable std::mutex mutex_;
  ScriptedConnection::Rule rule_ = &ScriptedConnection::accept;
  std::vector<std::shared_ptr<ScriptedConnection>> connections_;
};

} // namespace tolvera::test
