#include "ServiceTests/StreamClient.h"

#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"

#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <filesystem>
#include <fstream>

namespace tolvera::test {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;

std::vector<std::int16_t> spoken(const std::string& sentence) {
  const TemporaryDirectory directory;
  const auto file = directory / "speech.wav";
  outputOf({"flite", "-voice", "rms", "-t", sentence, "-o", file.string()});
  constexpr std::size_t header = 44;
  std::vector<std::int16_t> samples((std::filesystem::file_size(file) - header) / 2);
  std::ifstream stream(file, std::ios::binary);
  stream.seekg(header);
  stream.read(reinterpret_cast<char*>(samples.data()), static_cast<std::streamsize>(samples.size() * 2));
  return samples;
}

HTTPReply HTTPClient::exchange(std::string_view bytes, bool more) const {
  asio::io_context context;
  tcp::socket socket(context);
  socket.connect({asio::ip::address_v4::loopback(), port_});
  boost::system::error_code error;
  asio::write(socket, asio::buffer(bytes.data(), bytes.size()), error);
  if (!more) socket.shutdown(tcp::socket::shutdown_send, error);
  HTTPReply reply;
  for (beast::flat_buffer buffer;;) {
    beast::http::response<beast::http::string_body> message;
    beast::http::read(socket, buffer, message, error);
    if (error) return reply;
    reply = {message.result_int(), message.body()};
    if (more) return reply;
  }
}

HTTPReply HTTPClient::raw(std::string_view bytes) const { return exchange(bytes, false); }

HTTPReply HTTPClient::request(std::string_view method, std::string_view target, Headers headers,
                              std::string_view body) const {
  bool hasHost = false;
  for (const auto& header : headers) hasHost = hasHost || header.first == "Host";
  if (!hasHost) headers.emplace_back("Host", "127.0.0.1:" + std::to_string(port_));
  if (method == "POST") headers.emplace_back("Content-Length", std::to_string(body.size()));
  std::string message = std::string(method) + ' ' + std::string(target) + " HTTP/1.1\r\n";
  for (const auto& [name, value] : headers) message += name + ": " + value + "\r\n";
  message += "\r\n";
  message += body;
  return exchange(message, true);
}

HTTPReply HTTPClient::get(std::string_view target, std::string_view token) const {
  return request("GET", target, {{"Authorization", "Bearer " + std::string(token)}});
}

HTTPReply HTTPClient::post(std::string_view target, std::string_view token, std::string_view body) const {
  return request("POST", target, {{"Authorization", "Bearer " + std::string(token)}}, body);
}

std::string HTTPClient::signUp() const {
  return std::string(post("/livetranslate/api/signup").json().at("token").as_string());
}

StreamClient::StreamClient(std::uint16_t port, const std::string& query) {
  socket_.next_layer().connect({asio::ip::address_v4::loopback(), port});
  socket_.next_layer().set_option(tcp::no_delay(true));
  socket_.handshake("127.0.0.1:" + std::to_string(port), "/livetranslate/ws?" + query);
  read();
}

void StreamClient::read() {
  socket_.async_read(buffer_, [this](boost::system::error_code error, std::size_t) {
    closed_ = error.failed();
    if (closed_) return;
    std::string bytes = beast::buffers_to_string(buffer_.data());
    buffer_.consume(buffer_.size());
    Frame& frame = frames_.emplace_back(Frame{Clock::now(), {}, {}});
    if (socket_.got_text())
      frame.json = boost::json::parse(bytes).as_object();
    else
      frame.binary = std::move(bytes);
    read();
  });
}

void StreamClient::sendAudio(std::span<const std::int16_t> samples) {
  sendBytes({reinterpret_cast<const char*>(samples.data()), samples.size_bytes()}, true);
}

void StreamClient::sendBytes(std::string_view bytes, bool binary) {
  bool sent = false;
  socket_.binary(binary);
  socket_.async_write(asio::buffer(bytes.data(), bytes.size()),
                      [&sent](boost::system::error_code, std::size_t) { sent = true; });
  context_.restart();
  while (!sent) context_.run_one();
}

void StreamClient::close() {
  socket_.async_close(beast::websocket::close_code::normal, [](boost::system::error_code) {});
}

std::optional<StreamClient::Frame> StreamClient::waitFor(const Condition& condition,
                                                         std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  context_.restart();
  for (std::size_t next = 0;;) {
    for (; next < frames_.size(); ++next)
      if (condition(frames_[next])) return frames_[next];
    if (context_.run_one_until(deadline) == 0) return std::nullopt;
  }
}

std::optional<StreamClient::Frame> StreamClient::waitForType(std::string_view type, bool finalOnly) {
  return waitFor([&](const Frame& frame) {
    const auto* final = frame.json.if_contains("final");
    return textOf(frame, "type") == type && (!finalOnly || (final != nullptr && final->as_bool()));
  });
}

void StreamClient::readUntil(Clock::time_point time) {
  context_.restart();
  context_.run_until(time);
}

bool StreamClient::waitUntilClosed(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  context_.restart();
  while (!closed_ && context_.run_one_until(deadline) > 0) {
  }
  return closed_;
}

void sendSpeech(StreamClient& client, const std::string& words) {
  static const std::vector<std::int16_t> silence(16000);
  client.sendAudio(spoken(words));
  client.sendAudio(silence);
}

std::vector<pid_t> childrenOf(pid_t process) {
  std::vector<pid_t> all;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::ifstream file(task.path() / "children");
    for (pid_t child = 0; file >> child;) all.push_back(child);
  }
  return all;
}

std::string textOf(const StreamClient::Frame& frame, std::string_view key) {
  const auto* value = frame.json.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

} // namespace tolvera::test
