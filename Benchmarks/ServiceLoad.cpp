// Many runs at once against a service of its own with ten thousand accounts. A stand-in hears for it, a
// transcription server that answers at once, so that the service itself is what is measured. Prints for each
// number of runs:
// - how late sound is taken: from the sending of a second of sound until the balance that charges it is
// there;
// - how late a finished caption is: after the end of the speech, for which the gate waits for 0.45 s of
// silence;
// - the time to read an account meanwhile; memory and processor time a run; what the transcription server is
// asked.
//
//   ServiceLoad [--target CODE] TOLVERA-SERVICE [RUNS]...      8, 32 and 64 runs by default
//
// The speech is English, and so are the captions, unless --target names a language that Apertium translates
// into.

#include "ProcessUse.h"
#include "Quantile.h"

#include "Harness/Eventually.h"
#include "Harness/TemporaryDirectory.h"
#include "ServiceTests/Clients.h"
#include "TolveraService/Accounts/AccountStore.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <latch>
#include <mutex>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace tolvera;
using bench::quantile;
namespace asio = boost::asio;
namespace http = boost::beast::http;
using Clock = test::StreamClient::Clock;
using Seconds = std::chrono::duration<double>;

constexpr std::size_t accountsKept = 10'000;
constexpr std::size_t chunk = 1600; // 100 ms
constexpr double chunkSeconds = 0.1;
constexpr auto warmUp = 5s;
constexpr auto measured = 30s;

// A transcription server that has always heard the same. One thread a connection; it ends after its clients.
class StandIn {
 public:
  StandIn() : acceptor_(context_, {asio::ip::address_v4::loopback(), 0}), accepting_([this] { accept(); }) {}
  ~StandIn() {
    ::shutdown(acceptor_.native_handle(), SHUT_RDWR); // ends the wait
    accepting_.join();
    for (std::thread& thread : serving_) thread.join();
  }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
  [[nodiscard]] std::size_t requests() const { return requests_; }
  [[nodiscard]] std::size_t bytes() const { return bytes_; } // of sound and of what is asked with it
  [[nodiscard]] std::string address() const {
    return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + "/v1";
  }

 private:
  void accept() {
    for (boost::system::error_code error; !error;) {
      auto socket = acceptor_.accept(error);
      if (!error) serving_.emplace_back([this, peer = std::move(socket)]() mutable { serve(peer); });
    }
  }
  void serve(asio::ip::tcp::socket& socket) {
    socket.set_option(asio::ip::tcp::no_delay(true));
    boost::system::error_code error;
    for (boost::beast::flat_buffer buffer; !error;) {
      http::request<http::string_body> request;
      http::read(socket, buffer, request, error);
      if (error) return;
      ++requests_;
      bytes_ += request.body().size();
      http::response<http::string_body> response(http::status::ok, 11);
      response.body() = R"({"text":"The children are playing in the garden behind the house."})";
      response.prepare_payload();
      http::write(socket, response, error);
    }
  }

  std::atomic<std::size_t> requests_ = 0;
  std::atomic<std::size_t> bytes_ = 0;
  asio::io_context context_;
  asio::ip::tcp::acceptor acceptor_;
  std::vector<std::thread> serving_; // the accepting thread's
  std::thread accepting_;
};

// Accounts that are in use, so that none is forgotten.
std::vector<std::string> fillAccounts(const std::filesystem::path& directory) {
  service::AccountStore accounts(directory);
  std::vector<std::string> tokens(accountsKept);
  for (std::string& token : tokens) {
    token = accounts.signUp().token;
    (void)accounts.find(token);
  }
  return tokens;
}

struct Delays {
  std::vector<double> sound, captions; // s
};

// Sends the film in real time, over and over, until `end`; gives the delays of what came after `begin`.
class Run {
 public:
  Run(std::uint16_t port, const std::string& token, const std::string& target)
      : client_(port, "token=" + token + "&target=" + target + "&source=en&dub=0&src=0") {
    const auto ready = client_.waitForType("ready");
    if (!ready) throw std::runtime_error("a run was refused");
    granted_ = ready->json.at("secondsLeft").to_number<double>();
  }

  Delays stream(const std::vector<std::int16_t>& film, std::size_t speech, Clock::time_point first,
                Clock::time_point begin, Clock::time_point end) {
    std::vector<Clock::time_point> sent; // when each chunk was
    for (auto due = first; due < end; due += 100ms) {
      client_.readUntil(due);
      client_.sendAudio({film.data() + sent.size() * chunk % film.size(), chunk});
      sent.push_back(Clock::now());
    }
    client_.readUntil(Clock::now() + 1s);
    Delays delays;
    for (const auto& frame : client_.frames()) {
      if (frame["type"] == "error") throw std::runtime_error("a run ended: " + frame["message"]);
      if (frame.received < begin || frame.received >= end) continue;
      if (frame["type"] == "balance") {
        const double heard = granted_ - frame.json.at("secondsLeft").to_number<double>();
        const auto last = static_cast<std::size_t>(std::lround(heard / chunkSeconds));
        delays.sound.push_back(Seconds(frame.received - sent.at(std::min(last, sent.size()) - 1)).count());
      } else if (frame.isFinal("tr")) {
        const Seconds since = frame.received - first;
        const double period = static_cast<double>(film.size()) / 16000;
        const double spoken = static_cast<double>(speech) / 16000;
        delays.captions.push_back(std::fmod(since.count() + period - spoken, period));
      }
    }
    return delays;
  }

 private:
  test::StreamClient client_;
  double granted_ = 0;
};

void print(const char* what, const std::vector<double>& seconds) {
  std::printf("  %-24s median %6.1f ms, p99 %6.1f ms, worst %6.1f ms (%zu)\n", what,
              1000 * quantile(seconds, 0.5), 1000 * quantile(seconds, 0.99), 1000 * quantile(seconds, 1),
              seconds.size());
}

// The service, and what is streamed to it.
struct Load {
  pid_t service = -1;
  std::uint16_t port = 0;
  std::vector<std::string> tokens;
  std::string target;
  std::vector<std::int16_t> film;
  std::size_t speech = 0; // samples of the film before its silence
  double memory = 0;      // MB that the service uses without a run
  StandIn hearing;
};

void measure(const Load& load, std::size_t count) {
  std::latch ready(static_cast<std::ptrdiff_t>(count) + 1);
  Delays all;
  std::mutex mutex;
  Clock::time_point start;
  std::latch begin(1);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      Run run(load.port, load.tokens[i * (accountsKept / 64)], load.target);
      ready.arrive_and_wait();
      begin.wait();
      // Speakers do not pause at the same time.
      const auto offset = std::chrono::milliseconds(load.film.size() / 16 * i / count);
      const auto delays =
          run.stream(load.film, load.speech, start + offset, start + warmUp, start + warmUp + measured);
      const std::scoped_lock lock(mutex);
      all.sound.insert(all.sound.end(), delays.sound.begin(), delays.sound.end());
      all.captions.insert(all.captions.end(), delays.captions.begin(), delays.captions.end());
    });
  }
  ready.arrive_and_wait();
  start = Clock::now() + 100ms;
  begin.count_down();
  std::this_thread::sleep_until(start + warmUp);
  const double before = bench::processorTime(load.service);
  const std::size_t requests = load.hearing.requests();
  const std::size_t bytes = load.hearing.bytes();
  const test::HTTPClient client(load.port);
  std::vector<double> reads;
  for (std::size_t i = 0; Clock::now() < start + warmUp + measured; ++i) {
    const auto asked = Clock::now();
    if (client.get("/livetranslate/api/me", load.tokens[i * 7919 % accountsKept]).status != 200)
      throw std::runtime_error("an account was not read");
    reads.push_back(Seconds(Clock::now() - asked).count());
    std::this_thread::sleep_until(asked + 50ms);
  }
  const double used = (bench::processorTime(load.service) - before) / Seconds(measured).count();
  const double memory = bench::memory(load.service, "RssAnon") - load.memory;
  const auto perSecond = [](std::size_t now, std::size_t earlier) {
    return static_cast<double>(now - earlier) / Seconds(measured).count();
  };
  const double asked = perSecond(load.hearing.requests(), requests);
  const double sent = perSecond(load.hearing.bytes(), bytes);
  for (std::thread& thread : threads) thread.join();
  const auto runs = static_cast<double>(count);
  std::printf("%zu runs: %.1f %% of a core and %.2f MB a run; the service %.0f %% of a core, %.0f MB\n",
              count, 100 * used / runs, memory / runs, 100 * used, bench::memory(load.service, "VmRSS"));
  print("sound is taken after", all.sound);
  print("a caption is there after", all.captions);
  print("an account is read in", reads);
  std::printf("  the transcription server is asked %.0f times a second, %.2f MB\n", asked, sent / 1e6);
}

std::uint16_t portIn(const std::string& log) {
  std::ifstream file(log);
  for (std::string line; std::getline(file, line);)
    if (const auto at = line.find("listening on 127.0.0.1:"); at != line.npos)
      return static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
  return 0;
}

void run(const std::string& program, const std::string& target, const std::vector<std::size_t>& counts) {
  const test::TemporaryDirectory directory;
  Load load;
  load.target = target;
  const auto began = Clock::now();
  load.tokens = fillAccounts(directory / "state");
  std::printf("%zu accounts made in %.1f s\n", load.tokens.size(), Seconds(Clock::now() - began).count());
  const std::string log = directory / "log";
  const test::ChildProcess service({program, "--port", "0", "--state", directory / "state", "--streams", "64",
                                    "--recogniser", load.hearing.address(), "--recogniser-model", "any"},
                                   log);
  if (!test::eventually([&] { return portIn(log) != 0; }, 20s)) throw std::runtime_error("no service");
  load.service = service.pid();
  load.port = portIn(log);
  load.memory = bench::memory(service.pid(), "RssAnon");
  load.film = test::spoken("the children are playing in the garden behind the house");
  while (std::abs(load.film.back()) < 300)
    load.film.pop_back(); // what the synthesiser is silent for at the end
  load.speech = load.film.size();
  load.film.resize((load.film.size() + 24000) / chunk * chunk); // a second and a half of silence
  for (const std::size_t count : counts) measure(load, count);
}

} // namespace

int main(int count, char** values) {
  std::vector<std::string> words(values + 1, values + count);
  std::string target = "en";
  if (words.size() > 1 && words[0] == "--target") {
    target = words[1];
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty()) {
    std::fputs("usage: ServiceLoad [--target CODE] TOLVERA-SERVICE [RUNS]...\n", stderr);
    return 2;
  }
  std::vector<std::size_t> counts;
  for (std::size_t i = 1; i < words.size(); ++i)
    counts.push_back(std::clamp<std::size_t>(std::strtoul(words[i].c_str(), nullptr, 10), 1, 64));
  if (counts.empty()) counts = {8, 32, 64};
  try {
    run(words[0], target, counts);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ServiceLoad: %s\n", error.what());
    return 1;
  }
}
