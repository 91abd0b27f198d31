#include "Platform/Linux/Network/WordedURLSession.h"

#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/PlatformError.h"

#include <string>
#include <utility>

namespace tolvera::adapters {

namespace {

using platform::InterfaceLanguage;
using platform::PlatformError;

// A host and its port; the rest of an address may hold a token.
std::string placeOf(const platform::URL& url) {
  return std::string(url.encoded_host()) + (url.has_port() ? ":" + std::string(url.port()) : "");
}

// The sentence for a failure, with "%1" where the place stands; empty to leave the adapter's own words.
std::string sentence(TransportError code, const InterfaceLanguage& language) {
  switch (code) {
  case TransportError::hostNotFound:
    return language.pick("找不到服务器 %1", "There is no server named %1");
  case TransportError::cannotConnect:
  case TransportError::timedOut:
    return language.pick("%1 上的服务没有响应", "The service at %1 does not answer");
  case TransportError::notTrusted:
  case TransportError::secureConnection:
    return language.pick("到 %1 的连接不安全，已放弃",
                         "The connection to %1 is not secure, so it was given up");
  case TransportError::connectionLost:
  case TransportError::closedByPeer:
    return language.pick("服务关闭了连接", "The service closed the connection");
  case TransportError::upgradeRefused:
  case TransportError::notHTTP:
    return language.pick("%1 不像翻译服务那样回答", "%1 does not answer as a translation service does");
  case TransportError::otherUser:
    return language.pick(
        "%1 上的服务属于这台电脑的另一个用户，没有向它发送任何内容",
        "The service at %1 belongs to another user of this machine, so nothing is sent there");
  case TransportError::tooLarge:
    return language.pick("%1 的回答太长", "The answer of %1 is too long");
  case TransportError::cancelled:
  case TransportError::badRequest:
    break;
  }
  return {};
}

// Inside a handler: throws what people are told in place of the error at hand.
[[noreturn]] void rethrowWorded(const PlatformError& error, const std::string& place,
                                const InterfaceLanguage& language) {
  std::string text;
  if (error.domain() == platform::transportErrorDomain)
    text = sentence(static_cast<TransportError>(error.code()), language);
  if (text.empty()) throw;
  if (const auto at = text.find("%1"); at != std::string::npos) text.replace(at, 2, place);
  throw PlatformError(error.domain(), error.code(), text);
}

class WordedWebSocketTask final : public platform::WebSocketTask {
 public:
  WordedWebSocketTask(std::shared_ptr<WebSocketTask> inner, std::string place,
                      const InterfaceLanguage& language)
      : inner_(std::move(inner)), place_(std::move(place)), language_(language) {}

  void resume() override { inner_->resume(); }
  Task<void> send(Message message) override {
    try {
      co_await inner_->send(std::move(message));
    } catch (const PlatformError& error) {
      rethrowWorded(error, place_, language_);
    }
  }
  Task<Message> receive() override {
    try {
      co_return co_await inner_->receive();
    } catch (const PlatformError& error) {
      rethrowWorded(error, place_, language_);
    }
  }
  void cancel(std::uint16_t closeCode, std::string reason) override {
    inner_->cancel(closeCode, std::move(reason));
  }

 private:
  const std::shared_ptr<WebSocketTask> inner_;
  const std::string place_;
  const InterfaceLanguage& language_;
};

} // namespace

std::shared_ptr<platform::WebSocketTask> WordedURLSession::webSocketTask(const platform::URL& url,
                                                                         const Executor& serial) {
  return std::make_shared<WordedWebSocketTask>(inner_.webSocketTask(url, serial), placeOf(url), language_);
}

Task<platform::HTTPResponse> WordedURLSession::data(platform::HTTPRequest request) {
  const std::string place = placeOf(request.url);
  try {
    co_return co_await inner_.data(std::move(request));
  } catch (const PlatformError& error) {
    rethrowWorded(error, place, language_);
  }
}

} // namespace tolvera::adapters
