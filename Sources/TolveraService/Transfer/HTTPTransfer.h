#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// True for an https address, and for an http address of this machine itself: nothing goes over the network
// unprotected. False for what is no address. Pure, as the next one.
bool isProtected(const std::string& address);
// True if the address is one of this machine: 127.0.0.1, localhost, [::1].
bool isLocal(const std::string& address);

// What to ask of an HTTP server. Its functions are called on the caller's thread and may throw.
struct HTTPRequest {
  struct Part { // of a form
    std::string name;
    std::string value;
    std::string fileName; // empty for a plain field
    std::string type;     // of a file
  };

  std::string address;
  std::vector<std::string> headers;   // "Name: value"
  std::string body;                   // posted, if there is one
  std::vector<Part> form;             // posted as multipart/form-data, if there is one
  std::chrono::milliseconds limit{0}; // for all of it; 0: only silence ends it
  std::function<void(std::string_view name, std::string_view value)> onHeader; // the name in lower case
  std::function<bool(long status, std::span<const char> bytes)> onBody;        // false ends the exchange
  std::function<void(double bytesPerSecond)> onProgress; // about once a second, or more often
  std::function<bool()> abandoned;                       // asked as often
};

struct HTTPOutcome {
  long status = 0;
  std::string redirect; // the address that the server names; it is not followed
  std::string failure;  // why no whole answer came, in words; empty if one did
};

// Exchanges with HTTP servers, one at a time, on one thread at a time. It keeps the connection for the next
// one. Proxies are those of the environment, and none for this machine itself. TLS checks chain, name and
// time against the system's store.
class HTTPTransfer {
 public:
  HTTPTransfer();
  ~HTTPTransfer();
  HTTPTransfer(const HTTPTransfer&) = delete;
  HTTPTransfer& operator=(const HTTPTransfer&) = delete;

  // Blocks. Throws what the request's functions throw.
  HTTPOutcome perform(const HTTPRequest& request);

 private:
  struct Exchange;
  std::unique_ptr<void, void (*)(void*)> handle_;
};

} // namespace tolvera::service
