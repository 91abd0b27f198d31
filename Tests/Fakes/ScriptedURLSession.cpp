#include "Fakes/ScriptedURLSession.h"

#include "Platform/PlatformError.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace tolvera::test {

namespace {

platform::PlatformError lost(const std::string& description) {
  return {platform::transportErrorDomain, ECONNRESET, description};
}

bool pathEndsIn(const platform::URL& url, std::string_view path) {
  return std::string_view(url.encoded_path()).ends_with(path);
}

// The operations of a connection do not end early when their caller is cancelled.
constexpr auto ignoreCancellation = [](const Resumption&, boost::asio::cancellation_type) {};

} // namespace

// Applies a change of state under the lock, and then resumes those that need not wait any longer.
void ScriptedConnection::change(const std::function<void()>& apply) {
  std::vector<Resumption> ready;
  {
    std::scoped_lock lock(mutex_);
    apply();
    while (!outgoing_.empty() && (failure_ || (accepted_ && !stalled_))) {
      const auto frame = std::move(outgoing_.front());
      outgoing_.pop_front();
      frame->failure = failure_;
      if (!failure_) sent_.push_back(std::move(frame->message));
      ready.push_back(*std::exchange(frame->resume, std::nullopt));
    }
    if (reader_ && (failure_ || !incoming_.empty())) ready.push_back(*std::exchange(reader_, std::nullopt));
  }
  for (const auto& resumption : ready) resumption();
}

std::vector<platform::WebSocketTask::Message> ScriptedConnection::sent() const {
  std::scoped_lock lock(mutex_);
  return sent_;
}

std::vector<ScriptedConnection::Close> ScriptedConnection::closes() const {
  std::scoped_lock lock(mutex_);
  return closes_;
}

void ScriptedConnection::deliver(Message message) {
  change([&] {
    accepted_ = true;
    incoming_.push_back(std::move(message));
  });
}

void ScriptedConnection::fail(const std::string& description) {
  change([&] {
    if (!failure_) failure_ = description;
  });
}

void ScriptedConnection::resume() {
  if (auto begin = std::exchange(onResume_, nullptr)) begin(*this);
}

void ScriptedConnection::cancel(std::uint16_t closeCode, std::string reason) {
  change([&] {
    closes_.push_back({closeCode, std::move(reason)});
    if (!failure_) failure_ = "已关闭";
    incoming_.clear();
  });
}

Task<void> ScriptedConnection::send(Message message) { return send(shared_from_this(), std::move(message)); }

Task<void> ScriptedConnection::send(std::shared_ptr<ScriptedConnection> self, Message message) {
  auto frame = std::make_shared<Outgoing>();
  frame->message = std::move(message);
  auto park = [self, frame](Resumption resume) {
    self->change([&] {
      frame->resume = std::move(resume);
      self->outgoing_.push_back(frame);
    });
  };
  co_await suspend(std::move(park), ignoreCancellation);
  if (frame->failure) throw lost(*frame->failure);
}

Task<platform::WebSocketTask::Message> ScriptedConnection::receive() { return receive(shared_from_this()); }

Task<platform::WebSocketTask::Message> ScriptedConnection::receive(std::shared_ptr<ScriptedConnection> self) {
  auto park = [self](Resumption resume) { self->change([&] { self->reader_ = std::move(resume); }); };
  co_await suspend(std::move(park), ignoreCancellation);
  std::scoped_lock lock(self->mutex_);
  if (self->incoming_.empty()) throw lost(self->failure_.value());
  auto message = std::move(self->incoming_.front());
  self->incoming_.pop_front();
  co_return message;
}

ScriptedURLSession::~ScriptedURLSession() {
  for (const auto& connection : connections_) connection->fail("the test is over");
}

void ScriptedURLSession::onConnection(std::function<void(ScriptedConnection&)> rule) {
  std::scoped_lock lock(mutex_);
  rule_ = std::move(rule);
}

std::vector<std::shared_ptr<ScriptedConnection>> ScriptedURLSession::connections() const {
  std::scoped_lock lock(mutex_);
  return connections_;
}

std::shared_ptr<ScriptedConnection> ScriptedURLSession::connection() const {
  std::scoped_lock lock(mutex_);
  if (connections_.empty()) throw std::runtime_error("no connection was made");
  return connections_.back();
}

void ScriptedURLSession::reply(const std::string& path, std::optional<int> status, std::string body) {
  auto fixed = [](platform::HTTPResponse response) -> Task<platform::HTTPResponse> { co_return response; };
  platform::HTTPResponse response{status, std::move(body)};
  answer(path,
         [fixed, response = std::move(response)](const platform::HTTPRequest&) { return fixed(response); });
}

void ScriptedURLSession::answer(const std::string& path, Answer answer) {
  std::scoped_lock lock(mutex_);
  answers_[path] = std::move(answer);
}

std::vector<platform::HTTPRequest> ScriptedURLSession::requests() const {
  std::scoped_lock lock(mutex_);
  return requests_;
}

std::size_t ScriptedURLSession::requestCount(std::string_view path) const {
  std::scoped_lock lock(mutex_);
  return static_cast<std::size_t>(std::ranges::count_if(
      requests_, [path](const auto& request) { return pathEndsIn(request.url, path); }));
}

std::shared_ptr<platform::WebSocketTask> ScriptedURLSession::webSocketTask(const platform::URL& url,
                                                                           const Executor&) {
  std::scoped_lock lock(mutex_);
  auto connection = std::make_shared<ScriptedConnection>(url);
  connection->onResume_ = rule_;
  connections_.push_back(connection);
  return connection;
}

Task<platform::HTTPResponse> ScriptedURLSession::data(platform::HTTPRequest request) {
  Answer answer;
  {
    std::scoped_lock lock(mutex_);
    requests_.push_back(request);
    for (const auto& [path, scripted] : answers_) {
      if (pathEndsIn(request.url, path)) answer = scripted;
    }
  }
  if (!answer) throw platform::PlatformError(platform::transportErrorDomain, ECONNREFUSED, "连接被拒绝");
  co_return co_await answer(std::move(request));
}

} // namespace tolvera::test
