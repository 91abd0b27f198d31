#pragma once

#include "Async/Task.h"
#include "Platform/URLSession.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tolvera {

// Client of the account service's REST interface. A small value made for each use; every operation is one
// request. Any thread. The operations hold a copy of the value; the URL session must outlive them.
//
// An operation throws ServerError if the service refused, DecodingError if the reply has the wrong form, and
// the transport's PlatformError if there was no reply.
class API {
 public:
  static constexpr std::size_t longestToken = 4096; // bytes; headers and addresses carry no more everywhere

  struct Signup {
    std::string token; // 1 to `longestToken` visible ASCII characters
    double secondsLeft = 0;
    bool operator==(const Signup&) const = default;
  };
  struct Pack {
    std::string id;
    double hours = 0;
    std::int64_t cents = 0; // price in US cents
    std::int64_t fen = 0;   // price in hundredths of a yuan
    std::optional<bool> popular;
    bool operator==(const Pack&) const = default;
  };
  struct Me {
    double secondsLeft = 0;
    double secondsUsed = 0;
    double dubMultiplier = 0;
    std::vector<std::string> voices;
    std::vector<std::string> paymentMethods;
    std::vector<std::string> loginMethods;
    bool signedIn = false;
    std::vector<Pack> packs; // in the order to show
    bool operator==(const Me&) const = default;
  };
  struct AuthURL {
    std::string url; // to open in the browser
    bool operator==(const AuthURL&) const = default;
  };
  struct SignOut {
    bool signedIn = false;
    double secondsLeft = 0;
    bool operator==(const SignOut&) const = default;
  };
  struct Checkout {
    std::string url; // to open in the browser
    std::optional<std::string> orderId;
    std::optional<bool> signIn;
    bool operator==(const Checkout&) const = default;
  };

  // The service refused. `what()` is the message for the user.
  class ServerError : public std::runtime_error {
   public:
    ServerError(const std::string& message, int status) : std::runtime_error(message), status_(status) {}

    [[nodiscard]] std::string message() const { return what(); }
    [[nodiscard]] int status() const { return status_; } // of HTTP, or 0 if the reply was not HTTP
    [[nodiscard]] bool isUnauthorized() const { return status_ == 401; }

   private:
    int status_;
  };
  // The service's reply does not fit the record. The text names the field, and does not quote the reply.
  class DecodingError : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  static const platform::URL& defaultBaseURL();

  // Cuts all trailing slashes of the base.
  API(const platform::URL& baseURL, platform::URLSession& session);

  [[nodiscard]] const platform::URL& baseURL() const { return baseURL_; }

  [[nodiscard]] Task<Signup> signup() const;
  [[nodiscard]] Task<Me> me(std::string token) const;
  // `pack` is the id of a pack, `lang` the code of the interface language, "zh" or "en".
  [[nodiscard]] Task<Checkout> checkout(std::string token, std::string pack, std::string method,
                                        std::string lang) const;
  [[nodiscard]] Task<AuthURL> alipayAuthURL(std::string token, std::optional<std::string> pack,
                                            std::string lang) const;
  [[nodiscard]] Task<SignOut> signOut(std::string token) const;

 private:
  using Body = std::map<std::string, std::string>;

  template<typename Reply>
  static Task<Reply> send(API self, std::string path, std::string method, std::optional<std::string> token,
                          std::optional<Body> body);

  platform::URL baseURL_;
  platform::URLSession* session_;
};

} // namespace tolvera
