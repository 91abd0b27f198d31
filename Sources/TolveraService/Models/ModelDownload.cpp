#include "TolveraService/Models/ModelDownload.h"

#include "TolveraService/Models/PartialFile.h"

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <exception>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

namespace {

constexpr int mostRedirects = 5;
constexpr long secondsToConnect = 20;
constexpr long secondsOfSilence = 30; // at less than a byte a second

using Handle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using Address = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;
using Headers = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

std::string part(CURLU* address, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(address, which, &text, 0) != CURLUE_OK) return {};
  const std::string copy(text);
  curl_free(text);
  return copy;
}

// Nothing goes over the network unprotected.
void requireProtected(const std::string& text) {
  const Address address(curl_url(), &curl_url_cleanup);
  if (curl_url_set(address.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK)
    throw std::runtime_error("this is not an address: " + text);
  const std::string scheme = part(address.get(), CURLUPART_SCHEME);
  const std::string host = part(address.get(), CURLUPART_HOST);
  const bool isLocal = host == "127.0.0.1" || host == "localhost" || host == "[::1]";
  if (scheme != "https" && !(scheme == "http" && isLocal))
    throw std::runtime_error("models are fetched over https alone, not from " + text);
}

// The exchange with one address. libcurl calls the two static functions from `perform`.
class Exchange {
 public:
  Exchange(PartialFile& file, const Model& model, const std::function<void(const Progress&)>& report,
           const Interrupted& interrupted)
      : file_(file), model_(model), report_(report), interrupted_(interrupted) {}

  enum class End { finished, interrupted, redirected };

  // Fetches what the file still lacks. `address` becomes the next one if it is redirected.
  End run(std::string& address) {
    requireProtected(address);
    const Handle handle(curl_easy_init(), &curl_easy_cleanup);
    if (!handle) throw std::runtime_error("the transfer library does not start");
    handle_ = handle.get();
    Headers headers(nullptr, &curl_slist_free_all);
    if (file_.size() > 0 && !file_.versionTag().empty()) {
      headers.reset(curl_slist_append(nullptr, ("If-Range: " + file_.versionTag()).c_str()));
      set(CURLOPT_RANGE, (std::to_string(file_.size()) + "-").c_str());
      set(CURLOPT_HTTPHEADER, headers.get());
    }
    std::array<char, CURL_ERROR_SIZE> words{};
    set(CURLOPT_ERRORBUFFER, words.data());
    set(CURLOPT_URL, address.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_USERAGENT, "tolvera-service");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT, secondsToConnect);
    set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(CURLOPT_LOW_SPEED_TIME, secondsOfSilence);
    set(CURLOPT_HEADERFUNCTION, &Exchange::takeHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Exchange::takeBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Exchange::takeProgress);
    set(CURLOPT_XFERINFODATA, this);
    const CURLcode code = curl_easy_perform(handle_);
    if (failure_) std::rethrow_exception(failure_);
    if (interrupted_()) return End::interrupted;
    if (code != CURLE_OK)
      throw std::runtime_error("the download stopped: " +
                               std::string(words[0] != '\0' ? words.data() : curl_easy_strerror(code)));
    return ended(address);
  }

 private:
  template<class Value>
  void set(CURLoption option, Value value) {
    curl_easy_setopt(handle_, option, value);
  }

  End ended(std::string& address) {
    const long status = this->status();
    if (status >= 300 && status < 400) {
      char* next = nullptr;
      curl_easy_getinfo(handle_, CURLINFO_REDIRECT_URL, &next);
      if (next == nullptr) throw std::runtime_error(address + " leads nowhere");
      address = next;
      return End::redirected;
    }
    if (status == 416) { // what is here is longer than what is there
      file_.restart({});
      throw std::runtime_error(address + " has another version now; try again");
    }
    if (status != 200 && status != 206)
      throw std::runtime_error(address + " answered with status " + std::to_string(status));
    return End::finished;
  }

  [[nodiscard]] long status() const {
    long status = 0;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
    return status;
  }

  static std::size_t takeHeader(const char* data, std::size_t, std::size_t size, void* self) {
    const std::string_view line(data, size);
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return size;
    std::string name(line.substr(0, colon));
    for (char& letter : name)
      if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    if (name == "etag") {
      const auto begin = line.find_first_not_of(" \t", colon + 1);
      const auto end = line.find_last_not_of("\r\n \t");
      // A weak tag does not promise equal bytes.
      if (begin != std::string_view::npos && line[begin] == '"')
        static_cast<Exchange*>(self)->tag_ = line.substr(begin, end - begin + 1);
    }
    return size;
  }

  static std::size_t takeBody(const char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<Exchange*>(self)->take({data, size}) ? size : CURL_WRITEFUNC_ERROR;
  }

  // No exception may pass through libcurl.
  bool take(std::span<const char> bytes) {
    try {
      if (const long code = status(); code != 200 && code != 206) return true; // the text of an error
      if (!begun_ && status() == 200) file_.restart(tag_);
      begun_ = true;
      if (!file_.add(bytes)) {
        file_.restart({});
        throw std::runtime_error("what comes is longer than the model; it was deleted");
      }
      return true;
    } catch (...) {
      failure_ = std::current_exception();
      return false;
    }
  }

  static int takeProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& exchange = *static_cast<Exchange*>(self);
    curl_off_t rate = 0;
    curl_easy_getinfo(exchange.handle_, CURLINFO_SPEED_DOWNLOAD_T, &rate);
    exchange.report_({exchange.file_.size(), exchange.model_.size, static_cast<double>(rate)});
    return exchange.interrupted_() ? 1 : 0;
  }

  PartialFile& file_;
  const Model& model_;
  const std::function<void(const Progress&)>& report_;
  const Interrupted& interrupted_;
  CURL* handle_ = nullptr;
  std::string tag_;
  bool begun_ = false;
  std::exception_ptr failure_;
};

} // namespace

bool downloadModel(const Model& model, const std::function<void(const Progress&)>& report,
                   const Interrupted& interrupted) {
  if (model.address.empty())
    throw std::runtime_error(model.name + " is not published by itself: install it with --from FILE");
  PartialFile file(model);
  std::string address = model.address;
  for (int redirects = 0; file.size() < model.size; ++redirects) {
    if (redirects > mostRedirects) throw std::runtime_error(model.address + " leads round in circles");
    const auto end = Exchange(file, model, report, interrupted).run(address);
    if (end == Exchange::End::interrupted) return false;
    if (end == Exchange::End::finished) break;
  }
  if (file.size() < model.size)
    throw std::runtime_error("the download ended early; the next try goes on where it ended");
  file.commit();
  return true;
}

void importModel(const Model& model, const std::filesystem::path& path) {
  std::ifstream source(path, std::ios::binary);
  if (!source) throw std::runtime_error(path.string() + " cannot be read");
  PartialFile file(model);
  file.restart({});
  std::vector<char> block(1 << 18);
  while (source.read(block.data(), static_cast<std::streamsize>(block.size())) || source.gcount() > 0) {
    if (!file.add({block.data(), static_cast<std::size_t>(source.gcount())})) {
      file.restart({}); // too long: `commit` says so
      break;
    }
  }
  file.commit();
}

} // namespace tolvera::service
