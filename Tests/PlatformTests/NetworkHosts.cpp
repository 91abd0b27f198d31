#include "PlatformTests/NetworkHosts.h"

#include <boost/asio/ip/address.hpp>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

namespace tolvera::test::hosts {

namespace {

struct Table {
  std::mutex mutex;
  std::condition_variable released;
  std::map<std::string, std::vector<std::string>> addresses;
  std::set<std::string> heldBack;
};

Table& table() {
  static auto* one = new Table; // lookups may outlive the statics
  return *one;
}

// One block for the entry and its socket address, so that a lookup is freed entry by entry.
struct Entry {
  addrinfo info{};
  sockaddr_storage address{};
};

addrinfo* entry(const boost::asio::ip::address& address, std::uint16_t port) {
  auto* made = new Entry;
  made->info.ai_family = address.is_v6() ? AF_INET6 : AF_INET;
  made->info.ai_socktype = SOCK_STREAM;
  made->info.ai_protocol = IPPROTO_TCP;
  made->info.ai_addr = reinterpret_cast<sockaddr*>(&made->address);
  if (address.is_v6()) {
    sockaddr_in6 full{};
    full.sin6_family = AF_INET6;
    full.sin6_port = htons(port);
    const auto bytes = address.to_v6().to_bytes();
    std::memcpy(&full.sin6_addr, bytes.data(), bytes.size());
    std::memcpy(&made->address, &full, sizeof full);
    made->info.ai_addrlen = sizeof full;
  } else {
    sockaddr_in full{};
    full.sin_family = AF_INET;
    full.sin_port = htons(port);
    full.sin_addr.s_addr = htonl(address.to_v4().to_uint());
    std::memcpy(&made->address, &full, sizeof full);
    made->info.ai_addrlen = sizeof full;
  }
  return &made->info;
}

} // namespace

void define(const std::string& name, const std::vector<std::string>& addresses) {
  const std::scoped_lock lock(table().mutex);
  table().addresses[name] = addresses;
}

void holdBack(const std::string& name) {
  const std::scoped_lock lock(table().mutex);
  table().heldBack.insert(name);
}

void release() {
  const std::scoped_lock lock(table().mutex);
  table().heldBack.clear();
  table().released.notify_all();
}

namespace {

int lookUp(const std::string& name, std::uint16_t port, addrinfo** result) {
  std::vector<std::string> found;
  {
    std::unique_lock lock(table().mutex);
    table().released.wait(lock, [&name] { return !table().heldBack.contains(name); });
    const auto known = table().addresses.find(name);
    if (known == table().addresses.end()) return EAI_NONAME;
    found = known->second;
  }
  addrinfo** end = result;
  for (const auto& text : found) {
    *end = entry(boost::asio::ip::make_address(text), port);
    end = &(*end)->ai_next;
  }
  return 0;
}

} // namespace
} // namespace tolvera::test::hosts

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo*, addrinfo** result) {
  *result = nullptr;
  if (node == nullptr || service == nullptr) return EAI_NONAME;
  return tolvera::test::hosts::lookUp(node, static_cast<std::uint16_t>(std::atoi(service)), result);
}

extern "C" __attribute__((visibility("default"))) void freeaddrinfo(addrinfo* first) {
  while (first != nullptr) {
    auto* next = first->ai_next;
    delete reinterpret_cast<tolvera::test::hosts::Entry*>(first);
    first = next;
  }
}
