#include "PlatformTests/NetworkHosts.h"

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
#include <map>
#include <mutex>

namespace tolvera::test::hosts {

namespace {

// Never destroyed, since lookups may outlive the statics.
auto& mutex = *new std::mutex;
auto& released = *new std::condition_variable;
auto& addresses = *new std::map<std::string, std::vector<std::string>>;
std::string heldBack;

std::vector<std::string> addressesOf(const std::string& name) {
  std::unique_lock lock(mutex);
  released.wait(lock, [&name] { return name != heldBack; });
  return addresses[name];
}

} // namespace

void define(const std::string& name, const std::vector<std::string>& all) {
  const std::scoped_lock lock(mutex);
  addresses[name] = all;
}

void holdBack(const std::string& name) {
  const std::scoped_lock lock(mutex);
  heldBack = name;
  released.notify_all();
}

} // namespace tolvera::test::hosts

// The system's own function turns the addresses into entries, and frees these one by one.
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
