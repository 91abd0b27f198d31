#include "PlatformTests/NetworkHosts.h"

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
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

std::vector<std::string> addressesOf(const std::string& name) {
  std::unique_lock lock(table().mutex);
  table().released.wait(lock, [&name] { return !table().heldBack.contains(name); });
  return table().addresses[name];
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

} // namespace tolvera::test::hosts

// The system's own turns the addresses into entries, and frees these one by one.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo*, addrinfo** result) {
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  addrinfo numeric{};
  numeric.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  numeric.ai_socktype = SOCK_STREAM;
  *result = nullptr;
  for (const std::string& address : tolvera::test::hosts::addressesOf(node)) {
    if (const int error = real(address.c_str(), service, &numeric, result)) return error;
    while (*result != nullptr) result = &(*result)->ai_next;
  }
  return tolvera::test::hosts::addressesOf(node).empty() ? EAI_NONAME : 0;
}
