#include "Platform/Linux/Network/BeastURLSession.h"

#include "Async/On.h"
#include "Platform/Linux/Network/BeastHTTP.h"
#include "Platform/Linux/Network/BeastWebSocketTask.h"

#include <boost/asio/strand.hpp>

namespace tolvera::adapters {

BeastURLSession::BeastURLSession(const Executor& background, BeastOptions options)
    : environment_(std::make_shared<BeastEnvironment>(background, std::move(options))) {}

BeastURLSession::~BeastURLSession() = default;

std::shared_ptr<platform::WebSocketTask> BeastURLSession::webSocketTask(const platform::URL& url,
                                                                        const Executor& serial) {
  return std::make_shared<BeastWebSocketTask>(environment_, serial, url);
}

Task<platform::HTTPResponse> BeastURLSession::data(platform::HTTPRequest request) {
  const Executor strand = boost::asio::make_strand(environment_->background);
  return on(strand, exchange(std::move(request), environment_));
}

} // namespace tolvera::adapters
