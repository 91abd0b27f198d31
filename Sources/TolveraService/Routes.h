#pragma once

#include "TolveraService/AccountStore.h"
#include "TolveraService/HTTPMessage.h"

#include <string>
#include <string_view>

namespace tolvera::service {

// Answers the REST requests below the base path. Owned by the server; a call blocks for the store of
// accounts, so it runs on the server's thread for blocking work.
class Routes {
 public:
  static constexpr std::string_view base = "/livetranslate";

  explicit Routes(AccountStore& accounts) : accounts_(accounts) {}

  // Never throws: a fault of the store becomes status 503.
  Response answer(const Request& request);

 private:
  Response dispatch(const Request& request);
  Response signup();
  Response me(const Request& request);

  AccountStore& accounts_;
};

// Which of the two languages a text is for: `lang` of the query, else the first that Accept-Language names.
enum class TextLanguage { chinese, english };
TextLanguage languageOf(const Request& request);

// A refusal as the client reads it: an object of texts with the key "error".
Response refuse(unsigned status, const Request& request, std::string_view chinese, std::string_view english);

} // namespace tolvera::service
