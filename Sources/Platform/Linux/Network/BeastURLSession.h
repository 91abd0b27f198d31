#pragma once

#include "Platform/URLSession.h"

namespace tolvera::adapters {

// Codes of the PlatformErrors whose domain is `platform::transportErrorDomain`.
enum class TransportError {
  cancelled = 1, // by the caller, or the connection was closed by this side
  badRequest,    // an address or a header that cannot be sent
  hostNotFound,
  cannotConnect,
  notTrusted,       // the certificate was refused
  secureConnection, // any other failure of TLS
  timedOut,         // no answer to a lookup, a connect, a handshake or a request
  upgradeRefused,   // an HTTP status other than 101 in answer to a web socket request
  notHTTP,          // an answer that cannot be understood
  tooLarge,         // a message or a body over the limit
  connectionLost,   // broken, reset or silent
  closedByPeer,     // a web socket closed by the other side
  otherUser,        // the local service of another user of this machine
};

struct BeastOptions {
  Duration resolveTimeout = std::chrono::seconds(10);
  Duration connectTimeout = std::chrono::seconds(10); // for all addresses of a host together
  Duration tlsTimeout = std::chrono::seconds(10);
  Duration upgradeTimeout = std::chrono::seconds(10);
  Duration closeTimeout = std::chrono::seconds(2);          // for the goodbye of a web socket
  Duration connectStagger = std::chrono::milliseconds(250); // until the next address is tried as well

  // A web socket notices a vanished peer after `unacknowledged` while data flows. In silence it notices after
  // the keepalive's idle time and its probes; those times count in whole seconds.
  Duration unacknowledged = std::chrono::seconds(20);
  std::chrono::seconds keepAliveIdle{10};
  std::chrono::seconds keepAliveInterval{5};
  int keepAliveProbes = 2;

  // What a broken or hostile service may send; beyond it the connection ends with an error.
  std::size_t maxTextBytes = 64U << 10U;   // a text is a caption, hundreds of times longer than one is spoken
  std::size_t maxBinaryBytes = 4U << 20U;  // a binary message is sound of the dub, a minute and a half of it
  std::size_t maxReplyBytes = 256U << 10U; // an HTTP reply, header and framing included, is an account
  // How fast messages are read; the rest waits in the socket. Captions come a few times a second.
  double messagesPerSecond = 1000;
  double bytesPerSecond = 4e6;
  std::string userAgent = "Tolvera"; // of HTTP requests; a web socket sends none
};

struct BeastEnvironment;

// Connections by Boost.Beast and OpenSSL, certificates checked against the system's store (or
// SSL_CERT_FILE). Each exchange runs on a strand of its own, and each web socket on the executor given for
// it; callers may be on any executor and resume on theirs.
//
// An HTTP connection carries one exchange. A redirect is a reply like any other and is not followed. An
// answer that is not HTTP is a PlatformError (`notHTTP`), so `status` is never absent. Cancelling the caller
// of `data` ends the exchange.
//
// A web socket keeps reading while it is open, at the pace of the options, and holds up to a few MiB of
// messages until they are received; beyond that it stops reading. Dropping the last reference to an open
// connection closes it with code 1001 in the background.
class BeastURLSession final : public platform::URLSession {
 public:
  // `background` runs the HTTP exchanges. Its context outlives this object and all exchanges.
  explicit BeastURLSession(const Executor& background, BeastOptions options = {});
  ~BeastURLSession() override;

  std::shared_ptr<platform::WebSocketTask> webSocketTask(const platform::URL& url,
                                                         const Executor& serial) override;
  Task<platform::HTTPResponse> data(platform::HTTPRequest request) override;

 private:
  std::shared_ptr<BeastEnvironment> environment_;
};

} // namespace tolvera::adapters
