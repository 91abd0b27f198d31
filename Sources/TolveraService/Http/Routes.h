#pragma once

#include "TolveraService/Accounts/AccountStore.h"
#include "TolveraService/Http/HTTPMessage.h"
#include "TolveraService/Http/PageRoutes.h"
#include "TolveraService/Http/RateLimit.h"
#include "TolveraService/Http/TextLanguage.h"

#include <boost/json/object.hpp>

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tolvera::service {

// Answers every request below the base path, except the web socket's. Owned by the server. A call may wait
// for the disk, so all calls run on the server's one thread for blocking work.
class Routes {
 public:
  static constexpr std::string_view base = "/livetranslate";

  // `voices`: codes of the voices that speak translations. `about`: what the service says of itself now.
  Routes(
      AccountStore& accounts, std::vector<std::string> voices,
      std::function<boost::json::object()> about = [] { return boost::json::object(); },
      Destinations destinations = {})
      : accounts_(accounts), voices_(std::move(voices)), about_(std::move(about)),
        pages_(accounts, std::move(destinations)) {}

  // Never throws: a failure of the store becomes status 503.
  Response answer(const Request& request);

 private:
  using Handler = Response (Routes::*)(const Request&);

  Response dispatch(const Request& request);
  Response signup(const Request& request);
  Response me(const Request& request);
  Response about(const Request& request);
  Response checkout(const Request& request);
  Response signInAddress(const Request& request);
  Response unbind(const Request& request);

  std::optional<AccountStore::Account> caller(const Request& request);

  AccountStore& accounts_;
  std::vector<std::string> voices_;
  std::function<boost::json::object()> about_;
  PageRoutes pages_;
  RateLimit signups_{2000, 4000};
  std::size_t signupCount_ = 0; // since the start
  RateLimit links_{50, 200};
};

// A refusal as the client reads it: an object of texts with the key "error".
Response refuse(unsigned status, TextLanguage language, const Wording& wording);

} // namespace tolvera::service
