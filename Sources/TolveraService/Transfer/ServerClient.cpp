#include "TolveraService/Transfer/ServerClient.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace tolvera::service {

namespace json = boost::json;

namespace {

constexpr std::size_t mostBytes = 1 << 18; // of an answer
constexpr std::size_t longestKey = 4096;

std::string readKey(const std::filesystem::path& path) {
  const auto refuse = [&](const std::string& why) -> std::string {
    throw std::runtime_error("The key in " + path.string() + " cannot be used: " + why + ".");
  };
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return refuse("the file cannot be read");
  struct stat facts{};
  std::array<char, longestKey> bytes{};
  const bool known = ::fstat(file, &facts) == 0;
  const ssize_t size = ::read(file, bytes.data(), bytes.size());
  ::close(file);
  if (!known || size < 0) return refuse("the file cannot be read");
  if ((facts.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    return refuse("other users may read the file; \"chmod 600\" mends that");
  std::string key(bytes.data(), static_cast<std::size_t>(size));
  key.erase(key.find_last_not_of(" \t\r\n") + 1);
  if (key.empty()) return refuse("the file is empty");
  const auto isPlain = [](char letter) { return letter > ' ' && letter < 0x7F; };
  if (key.size() == longestKey || !std::all_of(key.begin(), key.end(), isPlain))
    return refuse("it is not one line of plain letters");
  return key;
}

} // namespace

ServerClient::ServerClient(const ServerChoice& choice) : address_(choice.address) {
  if (address_.find_first_of("@?# ") != std::string::npos)
    throw std::runtime_error(
        "A server's address has neither a name nor a query, and a key stands in a file.");
  if (!isProtected(address_))
    throw std::runtime_error("Use https for " + address_ +
                             ": what is said would go over the network unprotected.");
  while (address_.ends_with('/')) address_.pop_back();
  if (!choice.keyFile.empty()) key_ = readKey(choice.keyFile);
}

std::vector<std::string> ServerClient::authorization() const {
  if (key_.empty()) return {};
  return {"Authorization: Bearer " + key_};
}

json::value ServerClient::post(const std::string& path, const json::object& body,
                               std::vector<std::string> headers, const Limit& limit) {
  HTTPRequest request;
  request.address = path;
  request.headers = std::move(headers);
  request.headers.emplace_back("Content-Type: application/json");
  request.body = json::serialize(body);
  return ask(std::move(request), limit);
}

json::value ServerClient::ask(HTTPRequest request, const Limit& limit) {
  std::string body;
  request.address.insert(0, address_);
  request.limit = limit.time;
  request.abandoned = limit.abandoned;
  request.onBody = [&body](long, std::span<const char> bytes) {
    body.append(bytes.data(), bytes.size());
    return body.size() <= mostBytes;
  };
  auto transfer = idleTransfer();
  const HTTPOutcome outcome = transfer->perform(request);
  {
    const std::scoped_lock lock(mutex_);
    idle_.push_back(std::move(transfer));
  }
  if (body.size() > mostBytes) throw ServerFailure("its answer is too long");
  if (!outcome.failure.empty()) throw ServerFailure(outcome.failure);
  if (outcome.status != 200) throw ServerFailure("it answered with status " + std::to_string(outcome.status));
  boost::system::error_code error;
  json::value value = json::parse(body, error);
  if (error) throw ServerFailure("its answer is not JSON");
  return value;
}

std::unique_ptr<HTTPTransfer> ServerClient::idleTransfer() {
  const std::scoped_lock lock(mutex_);
  if (idle_.empty()) return std::make_unique<HTTPTransfer>();
  auto transfer = std::move(idle_.back());
  idle_.pop_back();
  return transfer;
}

std::string textAt(const json::value& answer, std::string_view pointer) {
  boost::system::error_code error;
  const json::value* value = answer.find_pointer(pointer, error);
  if (value == nullptr || !value->is_string()) throw ServerFailure("its answer holds no text");
  std::string line;
  for (const char letter : value->get_string()) {
    const bool isSpace = static_cast<unsigned char>(letter) <= ' ' || letter == 0x7F;
    if (!isSpace)
      line += letter;
    else if (!line.empty() && line.back() != ' ')
      line += ' ';
  }
  if (line.ends_with(' ')) line.pop_back();
  return line;
}

} // namespace tolvera::service
