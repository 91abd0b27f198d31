#include "Platform/Linux/Network/BeastURLSession.h"

#include "Async/On.h"
#include "Platform/Linux/Network/BeastHTTP.h"
#include "Platform/Linux/Network/BeastWebSocketTask.h"

#include <boost/asio/strand.hpp>

namespace tolvera::adapters {

BeastURLSession::BeastURLSession(const Executor& ioExecutor, BeastOptions options)
    : environment_(std::make_shared<BeastEnvironment>(ioExecutor, std::move(options))) {}

BeastURLSession::~BeastURLSession() = default;

std::shared_ptr<platform::WebSocketTask> BeastURLSession::webSocketTask(const platform::URL& url) {
  return std::make_shared<BeastWebSocketTask>(environment_, url);
}

Task<platform::HTTPResponse> BeastURLSession::data(platform::HTTPRequest request) {
  const Executor strand = boost::asio::make_strand(environment_->ioExecutor);
  return on(strand, exchange(std::move(request), environment_));
}

} // namespace tolvera::adapters
