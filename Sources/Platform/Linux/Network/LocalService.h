#pragma once

#include "Async/Clock.h"
#include "Async/Task.h"
#include "Platform/URLSession.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tolvera::adapters {

// The user's own translation service on this machine, behind the one address that programs know it by. It may
// listen elsewhere, because another user has taken the usual port: it writes its place into a file. When it
// does not run, the socket that the user's service manager keeps for it starts it; without that socket it is
// started when it is needed, by the manager, or else as a child of this program that ends with it. It uses
// another user's service only if that user is root and the service serves everyone. Any thread.
class LocalService {
 public:
  struct Settings {
    std::uint16_t usualPort = 18790;
    // Where the service writes its place; empty without a runtime directory.
    std::filesystem::path addressFile = defaultAddressFile();
    // Where a service of root that serves every user writes its place.
    std::filesystem::path sharedAddressFile = "/run/tolvera/service";
    // What is started as a child; empty for nothing.
    std::filesystem::path program = programBeside();
    bool usesServiceManager = true;
    Duration patience = std::chrono::seconds(20); // until a service that was started must listen
  };

  // `executor` runs what waits; it outlives this object.
  LocalService(const Executor& executor, Settings settings);
  explicit LocalService(const Executor& executor) : LocalService(executor, Settings()) {}
  // Ends the service if it is a child.
  ~LocalService();
  LocalService(const LocalService&) = delete;
  LocalService& operator=(const LocalService&) = delete;

  // True for an address by which programs know the service.
  [[nodiscard]] bool isMeant(const platform::URL& url) const;
  // The address with the port at which the service really listens; other addresses as they are. Without
  // waiting.
  [[nodiscard]] platform::URL located(platform::URL url) const;
  // The same once the service listens: starts it if need be and waits up to `patience`. The address may name
  // the manager's socket, by its path in place of the host. Throws PlatformError with `refusal`; for a
  // service that does not come the connection that follows fails in words.
  Task<platform::URL> reached(platform::URL url);
  // The same without waiting: starts the service if it does not run.
  [[nodiscard]] platform::URL reachedNow(platform::URL url);
  // Why nothing may be sent to the port: another user listens there; absent if none does.
  [[nodiscard]] std::optional<std::string> refusal() const;
  // Starts the service if it does not run, without waiting.
  void startSoon();

  static std::filesystem::path defaultAddressFile();
  static std::filesystem::path programBeside();

 private:
  struct Place {
    std::uint16_t port;
    uid_t owner; // of the service that may be used there
  };
  [[nodiscard]] Place place() const;
  [[nodiscard]] bool isListening() const;
  // The manager's socket, if it is kept for this user; otherwise empty.
  [[nodiscard]] std::filesystem::path activationSocket() const;
  bool start(); // false if there is nothing to start
  bool startByManager() const;
  // True while a service that was started may begin to listen.
  [[nodiscard]] bool mayStillCome();

  Executor executor_;
  Settings settings_;
  std::mutex mutex_; // of what is below
  std::optional<std::chrono::steady_clock::time_point> lastStart_;
  bool didStart_ = false; // the last start had something to start
  pid_t child_ = 0;
};

// The session of an adapter, with the local service reached as above.
class LocalServiceURLSession final : public platform::URLSession {
 public:
  // Both outlive this object.
  LocalServiceURLSession(platform::URLSession& inner, LocalService& service)
      : inner_(inner), service_(service) {}

  std::shared_ptr<platform::WebSocketTask> webSocketTask(const platform::URL& url,
                                                         const Executor& serial) override;
  Task<platform::HTTPResponse> data(platform::HTTPRequest request) override;

 private:
  platform::URLSession& inner_;
  LocalService& service_;
};

} // namespace tolvera::adapters
