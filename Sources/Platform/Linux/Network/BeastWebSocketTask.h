#pragma once

#include "Platform/Linux/Network/BeastConnect.h"

namespace tolvera::adapters {

class WebSocketConnection;

// The caller's handle of a connection. The connection lives on its executor, kept alive by the operations
// under way there, and is closed when the handle is destroyed.
class BeastWebSocketTask final : public platform::WebSocketTask {
 public:
  BeastWebSocketTask(std::shared_ptr<BeastEnvironment> environment, const Executor& serial,
                     const platform::URL& url);
  ~BeastWebSocketTask() override;

  void resume() override;
  Task<void> send(Message message) override;
  Task<Message> receive() override;
  void cancel(std::uint16_t closeCode, std::string reason) override;

 private:
  std::shared_ptr<WebSocketConnection> connection_;
};

} // namespace tolvera::adapters
