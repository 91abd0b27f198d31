#include "ServiceTests/StreamClient.h"

#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <thread>

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

namespace {

HTTPReply replyOf(const std::string& answer) {
  HTTPReply reply;
  const std::size_t end = answer.find("\r\n\r\n");
  if (!answer.starts_with("HTTP/1.") || end == std::string::npos) return reply;
  reply.status = static_cast<unsigned>(std::stoul(answer.substr(9, 3)));
  reply.rawHead = answer.substr(0, end);
  reply.body = answer.substr(end + 4);
  return reply;
}

// True when the answer has the length that it promised.
bool isWhole(const std::string& answer) {
  const HTTPReply reply = replyOf(answer);
  const std::size_t at = beast::string_view(reply.rawHead).find("ontent-Length:");
  return at != std::string::npos && reply.body.size() >= std::stoul(reply.rawHead.substr(at + 14));
}

} // namespace

HTTPReply HTTPClient::raw(std::string_view bytes, bool more) const {
  asio::io_context context;
  tcp::socket socket(context);
  socket.connect({asio::ip::address_v4::loopback(), port_});
  boost::system::error_code error;
  asio::write(socket, asio::buffer(bytes.data(), bytes.size()), error);
  if (!more) socket.shutdown(tcp::socket::shutdown_send, error);
  std::string answer;
  while (!error && !(more && isWhole(answer)))
    asio::read(socket, asio::dynamic_buffer(answer), asio::transfer_at_least(1), error);
  return replyOf(answer);
}

HTTPReply HTTPClient::request(std::string_view method, std::string_view target, const Headers& headers,
                              std::string_view body) const {
  std::string message(method);
  message += ' ';
  message += target;
  message += " HTTP/1.1\r\nConnection: close\r\n";
  bool hasHost = false;
  for (const auto& [name, value] : headers) {
    hasHost = hasHost || name == "Host";
    message += name + ": " + value + "\r\n";
  }
  if (!hasHost) message += "Host: 127.0.0.1:" + std::to_string(port_) + "\r\n";
  if (!body.empty() || method == "POST") message += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  message += "\r\n";
  message += body;
  return raw(message, true);
}

HTTPReply HTTPClient::get(std::string_view target, std::string_view token) const {
  return request("GET", target, {{"Authorization", "Bearer " + std::string(token)}});
}

HTTPReply HTTPClient::post(std::string_view target, std::string_view token, std::string_view body) const {
  return request("POST", target,
                 {{"Authorization", "Bearer " + std::string(token)}, {"Content-Type", "application/json"}},
                 body);
}

std::string HTTPClient::signUp() const {
  return std::string(post("/livetranslate/api/signup").json().at("token").as_string());
}

struct StreamClient::State {
  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  beast::websocket::stream<tcp::socket> socket{context};
  beast::flat_buffer buffer;
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<Frame> frames;
  bool closed = false;
  std::thread thread;

  void read() {
    socket.async_read(buffer, [this](boost::system::error_code error, std::size_t) {
      const auto now = Clock::now();
      std::scoped_lock lock(mutex);
      changed.notify_all();
      if (error) {
        closed = true;
        return;
      }
      std::string bytes = beast::buffers_to_string(buffer.data());
      buffer.consume(buffer.size());
      if (socket.got_text()) {
        frames.push_back({now, boost::json::parse(bytes).as_object(), {}});
      } else {
        frames.push_back({now, {}, std::move(bytes)});
      }
      read();
    });
  }
};

StreamClient::StreamClient(std::uint16_t port, const std::string& query) : state_(std::make_shared<State>()) {
  state_->socket.next_layer().connect({asio::ip::address_v4::loopback(), port});
  state_->socket.next_layer().set_option(tcp::no_delay(true));
  state_->socket.handshake("127.0.0.1:" + std::to_string(port), "/livetranslate/ws?" + query);
  state_->read();
  state_->thread = std::thread([state = state_.get()] { state->context.run(); });
}

StreamClient::~StreamClient() {
  state_->context.stop();
  state_->thread.join();
}

void StreamClient::sendAudio(std::span<const std::int16_t> samples) {
  sendBytes({reinterpret_cast<const char*>(samples.data()), samples.size_bytes()}, true);
}

void StreamClient::sendBytes(std::string bytes, bool binary) {
  std::promise<void> done;
  asio::post(state_->context, [&] {
    state_->socket.binary(binary);
    state_->socket.async_write(asio::buffer(bytes),
                               [&done](boost::system::error_code, std::size_t) { done.set_value(); });
  });
  done.get_future().wait();
}

void StreamClient::close() {
  asio::post(state_->context, [state = state_.get()] {
    state->socket.async_close(beast::websocket::close_code::normal, [](boost::system::error_code) {});
  });
}

std::vector<StreamClient::Frame> StreamClient::frames() const {
  std::scoped_lock lock(state_->mutex);
  return state_->frames;
}

std::optional<StreamClient::Frame> StreamClient::waitFor(const std::function<bool(const Frame&)>& condition,
                                                         std::chrono::milliseconds limit) const {
  const auto deadline = Clock::now() + limit;
  std::unique_lock lock(state_->mutex);
  for (std::size_t looked = 0;;) {
    for (; looked < state_->frames.size(); ++looked)
      if (condition(state_->frames[looked])) return state_->frames[looked];
    if (state_->closed) return std::nullopt;
    if (state_->changed.wait_until(lock, deadline) == std::cv_status::timeout) return std::nullopt;
  }
}

std::optional<StreamClient::Frame> StreamClient::waitForType(std::string_view type, bool finalOnly) const {
  return waitFor([&](const Frame& frame) {
    const auto* final = frame.json.if_contains("final");
    return textOf(frame, "type") == type && (!finalOnly || (final != nullptr && final->as_bool()));
  });
}

bool StreamClient::waitUntilClosed(std::chrono::milliseconds limit) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, limit, [&] { return state_->closed; });
}

std::unique_ptr<StreamClient> openStream(std::uint16_t port, const std::string& query) {
  for (int attempt = 0; attempt < 50; ++attempt) {
    auto client = std::make_unique<StreamClient>(port, query);
    const auto first = client->waitFor([](const auto&) { return true; });
    if (first && textOf(*first, "type") == "ready") return client;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return nullptr;
}

void sendSpeech(StreamClient& client, const std::string& words) {
  static const std::vector<std::int16_t> silence(16000);
  client.sendAudio(spoken(words));
  client.sendAudio(silence);
}

std::string textOf(const StreamClient::Frame& frame, std::string_view key) {
  const auto* value = frame.json.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

} // namespace tolvera::test
