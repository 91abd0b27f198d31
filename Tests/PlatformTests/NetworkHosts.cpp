// The host names that this test program can look up. It replaces the system's lookup, so that no name server
// is asked. Another name does not exist; numeric addresses work as usual.

#include <dlfcn.h>
#include <netdb.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

// The system's own function turns the addresses into entries, and frees these one by one.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo*, addrinfo** result) {
  // Never destroyed, since a lookup may outlive the statics.
  static const auto& hosts = *new std::map<std::string, std::vector<const char*>>{
      {"service.test", {"127.0.0.1"}},
      {"example.test", {"127.0.0.1"}},
      {"both.test", {"::1", "127.0.0.1"}},
      {"dead-first.test", {"127.0.0.2", "127.0.0.3", "::1", "127.0.0.1"}},
      {"swallowing.test", {"127.0.0.1", "::1"}},
  };
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  if (node == std::string("slow.test")) std::this_thread::sleep_for(std::chrono::seconds(2));
  if (!hosts.contains(node)) return EAI_NONAME;
  addrinfo numeric{};
  numeric.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  numeric.ai_socktype = SOCK_STREAM;
  *result = nullptr;
  for (const char* address : hosts.at(node)) {
    if (const int error = real(address, service, &numeric, result)) return error;
    while (*result != nullptr) result = &(*result)->ai_next;
  }
  return 0;
}
