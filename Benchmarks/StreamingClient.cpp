#include "StreamingClient.h"

#include "Tolvera/Model/NoWindows.h"

#include <boost/asio/post.hpp>

#include <chrono>
#include <future>

namespace tolvera::benchmarks {

StreamingClient::StreamingClient(const std::string& serverURL) {
  userDefaults_.setObject("serverURL", serverURL);
  userDefaults_.setObject("captureMode", "mic");
  userDefaults_.setObject("seenOnboarding", true);
  audio_.inputFormat = {16000, 1};
  model_ = AppState::make(platform_, noWindows());
  mainThread_ = std::thread([this] { main_.run(); });
  backgroundThread_ = std::thread([this] { background_.run(); });
}

StreamingClient::~StreamingClient() {
  runOnMain(model_->stop());
  keepMain_.reset();
  mainThread_.join();
  model_.reset();
  background_.stop();
  backgroundThread_.join();
}

bool StreamingClient::start() {
  runOnMain(model_->bootstrap());
  runOnMain(model_->start());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    std::promise<bool> live;
    boost::asio::post(main_, [&] { live.set_value(model_->phase().is(Phase::Kind::live)); });
    if (live.get_future().get()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

void StreamingClient::runOnMain(Task<void> task) {
  std::promise<void> done;
  auto wrapped = [](Task<void> inner, std::promise<void>& promise) -> Task<void> {
    co_await std::move(inner);
    promise.set_value();
  };
  spawn(main_.get_executor(), "benchmark", wrapped(std::move(task), done));
  done.get_future().get();
}

void serveAccount(test::LoopbackServer& server) {
  using Server = test::LoopbackServer;
  server.onRequest([](const Server::Request& request) {
    if (request.target.ends_with("/api/signup")) {
      return Server::Reply::http(200, R"({"token":"benchmark","secondsLeft":36000})");
    }
    return Server::Reply::http(
        200, R"({"secondsLeft":36000,"secondsUsed":0,"dubMultiplier":4,"voices":[],"paymentMethods":[],)"
             R"("loginMethods":[],"signedIn":false,"packs":[]})");
  });
  server.onOpen(
      [](Server::Connection& connection) { connection.sendText(R"({"type":"ready","secondsLeft":36000})"); });
}

} // namespace tolvera::benchmarks
