#include "Fuzz/Fuzz.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tolvera::test::fuzz({reinterpret_cast<const char*>(data), size});
  return 0;
}
