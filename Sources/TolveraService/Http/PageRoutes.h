#pragma once

#include "TolveraService/Accounts/AccountStore.h"
#include "TolveraService/Http/HTTPMessage.h"
#include "TolveraService/Http/PageMarkup.h"
#include "TolveraService/Http/TextLanguage.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tolvera::service {

// The pages in the browser: sign-in, purchase, privacy. A one-time code leads to a page. The page shows what
// its form does, and does it when the form is posted. The form carries a proof that this service made it
// for this browser: a keyed hash of the code and a cookie. Owned by Routes, same thread.
class PageRoutes {
 public:
  PageRoutes(AccountStore& accounts, Destinations destinations)
      : accounts_(accounts), destinations_(std::move(destinations)), key_(makeSecret()) {}

  // The address of a page, for the browser.
  static std::string address(std::string_view host, AccountStore::Purpose purpose, std::string_view code,
                             TextLanguage language);

  // Nothing if there is no page at the path (below the base).
  std::optional<Response> answer(std::string_view path, const Request& request);

 private:
  Response show(const Request& request, AccountStore::Purpose purpose);
  Response confirm(const Request& request, AccountStore::Purpose purpose);
  Response form(const Request& request, const AccountStore::Link& link, const std::string& code,
                std::string_view note);
  Response confirmed(const Request& request, const AccountStore::Link& link, TextLanguage language);
  [[nodiscard]] std::string proof(std::string_view code, std::string_view cookie) const;

  AccountStore& accounts_;
  const Destinations destinations_;
  const std::string key_; // made at each start; a form of an earlier start is shown again
};

} // namespace tolvera::service
