#include "Fuzz/Fuzz.h"

#include "Harness/TemporaryDirectory.h"
#include "Platform/Linux/Network/BeastHTTP.h"
#include "Platform/PlatformError.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>

#include <memory>

// A server's whole answer, as the client reads it from a socket.
void tolvera::test::fuzz(std::string_view input) {
  namespace asio = boost::asio;
  using Local = asio::local::stream_protocol;
  static const TemporaryDirectory directory;
  static asio::io_context context;
  static Local::acceptor acceptor(context, (directory.path() / "socket").string());
  static const auto environment =
      std::make_shared<adapters::BeastEnvironment>(context.get_executor(), adapters::BeastOptions());

  Local::socket server(context);
  acceptor.async_accept(server, [&](const boost::system::error_code& error) {
    require(!error, "the client connects");
    asio::write(server, asio::buffer(input));
    server.shutdown(server.shutdown_send);
  });
  platform::HTTPRequest request{"GET", platform::URL("http://h/me"), {}, {}};
  request.url.set_host((directory.path() / "socket").string());
  auto asking = adapters::exchange(std::move(request), environment);
  const auto ended = [](const std::exception_ptr& failure, const platform::HTTPResponse& response) {
    try {
      if (failure) std::rethrow_exception(failure);
      require(response.status.has_value(), "an answer that was read has a status");
    } catch (const platform::PlatformError&) { // refused in words
    }
  };
  asio::co_spawn(context, std::move(asking), ended);
  context.restart();
  context.run();
}
