// Asks the service's REST interface for signups and accounts from clients on the loopback interface, each on
// one connection that it keeps, and prints how many a second it answers and how soon.

#include "Quantile.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace asio = boost::asio;
using tolvera::bench::quantile;
using Clock = std::chrono::steady_clock;

// A client that does as little as it can: the service is what is measured.
class KeptConnection {
 public:
  explicit KeptConnection(std::uint16_t port) : socket_(context_) {
    socket_.connect({asio::ip::address_v4::loopback(), port});
    socket_.set_option(asio::ip::tcp::no_delay(true));
  }
  // True if the answer's status is 200.
  bool ask(const std::string& request) {
    asio::write(socket_, asio::buffer(request));
    std::string answer;
    const std::size_t head = asio::read_until(socket_, asio::dynamic_buffer(answer), "\r\n\r\n");
    constexpr std::string_view length = "Content-Length: ";
    const std::size_t at = answer.find(length);
    const std::size_t body = std::stoul(answer.substr(at + length.size()));
    if (answer.size() < head + body)
      asio::read(socket_, asio::dynamic_buffer(answer), asio::transfer_exactly(head + body - answer.size()));
    return answer.starts_with("HTTP/1.1 200");
  }

 private:
  asio::io_context context_;
  asio::ip::tcp::socket socket_;
};

void measure(const char* name, std::uint16_t port, const std::string& request, double limit) {
  constexpr std::size_t clients = 4;
  constexpr std::chrono::seconds duration{5};
  const auto start = Clock::now();
  std::vector<std::vector<double>> times(clients);
  std::vector<std::size_t> refused(clients);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < clients; ++i) {
    threads.emplace_back([&, i] {
      KeptConnection connection(port);
      // Each client asks at its share of `limit`, or as fast as it is answered if there is none.
      const std::chrono::duration<double> pace(limit > 0 ? clients / limit : 0);
      auto due = start;
      while (Clock::now() - start < duration) {
        due += std::chrono::duration_cast<Clock::duration>(pace);
        if (limit > 0) std::this_thread::sleep_until(due);
        const auto before = Clock::now();
        if (!connection.ask(request)) ++refused[i];
        times[i].push_back(std::chrono::duration<double, std::milli>(Clock::now() - before).count());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::vector<double> all;
  std::size_t refusals = 0;
  for (std::size_t i = 0; i < clients; ++i) {
    all.insert(all.end(), times[i].begin(), times[i].end());
    refusals += refused[i];
  }
  std::printf("%-22s %7.0f a second, median %.2f ms, p99 %.2f ms, worst %.2f ms, %zu refused\n", name,
              static_cast<double>(all.size()) / seconds, quantile(all, 0.5), quantile(all, 0.99),
              quantile(all, 1), refusals);
}

} // namespace

int main() {
  tolvera::test::RunningServer server(0);
  const std::uint16_t port = server->port();
  const std::string host = " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n";
  const std::string signup = "POST /livetranslate/api/signup" + host + "\r\n";
  const std::string me = "GET /livetranslate/api/me" + host + "Authorization: Bearer " +
                         tolvera::test::HTTPClient(port).signUp() + "\r\n\r\n";
  measure("signup, 500 a second", port, signup, 500);
  measure("me, 2,000 a second", port, me, 2000);
  measure("me, all it can", port, me, 0);
}
