#pragma once

#include "Platform/InterfaceLanguage.h"
#include "Platform/URLSession.h"

namespace tolvera::adapters {

// The session of another adapter, with its failures worded for people, in the interface language. What
// exactly happened stands in the trace. Any thread.
class WordedURLSession final : public platform::URLSession {
 public:
  // Both outlive this object and its tasks.
  WordedURLSession(platform::URLSession& inner, const platform::InterfaceLanguage& language)
      : inner_(inner), language_(language) {}

  std::shared_ptr<platform::WebSocketTask> webSocketTask(const platform::URL& url,
                                                         const Executor& serial) override;
  Task<platform::HTTPResponse> data(platform::HTTPRequest request) override;

 private:
  platform::URLSession& inner_;
  const platform::InterfaceLanguage& language_;
};

} // namespace tolvera::adapters
