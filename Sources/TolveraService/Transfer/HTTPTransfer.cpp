#include "TolveraService/Transfer/HTTPTransfer.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <curl/curl.h>

#include <array>
#include <exception>
#include <locale>
#include <stdexcept>

namespace tolvera::service {

namespace {

constexpr long secondsToConnect = 20;
constexpr long secondsOfSilence = 30; // at less than a byte a second

using Address = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;
using Headers = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
using Form = std::unique_ptr<curl_mime, decltype(&curl_mime_free)>;

std::string part(const std::string& address, CURLUPart which) {
  const Address parsed(curl_url(), &curl_url_cleanup);
  char* text = nullptr;
  if (curl_url_set(parsed.get(), CURLUPART_URL, address.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), which, &text, 0) != CURLUE_OK)
    return {};
  const std::string copy(text);
  curl_free(text);
  return copy;
}

} // namespace

bool isLocal(const std::string& address) {
  const std::string host = part(address, CURLUPART_HOST);
  return host == "127.0.0.1" || host == "localhost" || host == "[::1]";
}

bool isProtected(const std::string& address) {
  const std::string scheme = part(address, CURLUPART_SCHEME);
  return (scheme == "https" && !part(address, CURLUPART_HOST).empty()) ||
         (scheme == "http" && isLocal(address));
}

// One exchange under way. No exception may pass through libcurl, which calls the static functions.
struct HTTPTransfer::Exchange {
  CURL* handle;
  const HTTPRequest& request;
  std::exception_ptr thrown = nullptr;

  template<class Value>
  void set(CURLoption option, Value value) const {
    curl_easy_setopt(handle, option, value);
  }

  [[nodiscard]] long status() const {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    return status;
  }

  template<class Call>
  static bool guarded(void* self, Call call) {
    auto& exchange = *static_cast<Exchange*>(self);
    try {
      return call(exchange);
    } catch (...) {
      exchange.thrown = std::current_exception();
      return false;
    }
  }

  static std::size_t takeHeader(const char* data, std::size_t, std::size_t size, void* self) {
    const bool taken = guarded(self, [line = std::string_view(data, size)](Exchange& exchange) {
      const auto colon = line.find(':');
      if (!exchange.request.onHeader || colon == std::string_view::npos) return true;
      const std::locale plain = std::locale::classic();
      exchange.request.onHeader(boost::algorithm::to_lower_copy(std::string(line.substr(0, colon)), plain),
                                boost::algorithm::trim_copy(std::string(line.substr(colon + 1)), plain));
      return true;
    });
    return taken ? size : 0;
  }

  static std::size_t takeBody(const char* data, std::size_t, std::size_t size, void* self) {
    const bool taken = guarded(self, [bytes = std::span(data, size)](Exchange& exchange) {
      return !exchange.request.onBody || exchange.request.onBody(exchange.status(), bytes);
    });
    return taken ? size : CURL_WRITEFUNC_ERROR;
  }

  static int takeProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const bool goesOn = guarded(self, [](Exchange& exchange) {
      curl_off_t rate = 0;
      curl_easy_getinfo(exchange.handle, CURLINFO_SPEED_DOWNLOAD_T, &rate);
      if (exchange.request.onProgress) exchange.request.onProgress(static_cast<double>(rate));
      return !exchange.request.abandoned || !exchange.request.abandoned();
    });
    return goesOn ? 0 : 1;
  }
};

HTTPTransfer::HTTPTransfer() : handle_(curl_easy_init(), &curl_easy_cleanup) {
  if (!handle_) throw std::runtime_error("the transfer library does not start");
}

HTTPTransfer::~HTTPTransfer() = default;

HTTPOutcome HTTPTransfer::perform(const HTTPRequest& request) {
  CURL* const handle = handle_.get();
  curl_easy_reset(handle); // the connections stay
  Exchange exchange{handle, request};
  Headers headers(nullptr, &curl_slist_free_all);
  for (const std::string& line : request.headers)
    headers.reset(curl_slist_append(headers.release(), line.c_str()));
  Form form(nullptr, &curl_mime_free);
  if (!request.form.empty()) {
    form.reset(curl_mime_init(handle));
    for (const HTTPRequest::Part& field : request.form) {
      curl_mimepart* added = curl_mime_addpart(form.get());
      curl_mime_name(added, field.name.c_str());
      curl_mime_data(added, field.value.data(), field.value.size());
      if (field.fileName.empty()) continue;
      curl_mime_filename(added, field.fileName.c_str());
      curl_mime_type(added, field.type.c_str());
    }
    exchange.set(CURLOPT_MIMEPOST, form.get());
  } else if (!request.body.empty()) {
    exchange.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    exchange.set(CURLOPT_POSTFIELDS, request.body.data());
  }
  std::array<char, CURL_ERROR_SIZE> words{};
  exchange.set(CURLOPT_ERRORBUFFER, words.data());
  exchange.set(CURLOPT_URL, request.address.c_str());
  exchange.set(CURLOPT_HTTPHEADER, headers.get());
  exchange.set(CURLOPT_PROTOCOLS_STR, "http,https");
  if (isLocal(request.address)) exchange.set(CURLOPT_PROXY, "");
  exchange.set(CURLOPT_USERAGENT, "tolvera-service");
  exchange.set(CURLOPT_NOSIGNAL, 1L);
  exchange.set(CURLOPT_CONNECTTIMEOUT, secondsToConnect);
  exchange.set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  exchange.set(CURLOPT_LOW_SPEED_TIME, secondsOfSilence);
  exchange.set(CURLOPT_TIMEOUT_MS, static_cast<long>(request.limit.count()));
  exchange.set(CURLOPT_HEADERFUNCTION, &Exchange::takeHeader);
  exchange.set(CURLOPT_HEADERDATA, &exchange);
  exchange.set(CURLOPT_WRITEFUNCTION, &Exchange::takeBody);
  exchange.set(CURLOPT_WRITEDATA, &exchange);
  exchange.set(CURLOPT_NOPROGRESS, 0L);
  exchange.set(CURLOPT_XFERINFOFUNCTION, &Exchange::takeProgress);
  exchange.set(CURLOPT_XFERINFODATA, &exchange);
  const CURLcode code = curl_easy_perform(handle);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
  if (exchange.thrown) std::rethrow_exception(exchange.thrown);
  HTTPOutcome outcome{exchange.status(), {}, {}};
  char* next = nullptr;
  curl_easy_getinfo(handle, CURLINFO_REDIRECT_URL, &next);
  if (next != nullptr) outcome.redirect = next;
  if (code != CURLE_OK) outcome.failure = words[0] != '\0' ? words.data() : curl_easy_strerror(code);
  return outcome;
}

} // namespace tolvera::service
