#include "Fuzz/Fuzz.h"

#include "Async/Printable.h"
#include "TolveraCore/SessionProtocol.h"

#include <algorithm>

// What a service sends, and its way to a terminal.
void tolvera::test::fuzz(std::string_view input) {
  (void)SessionProtocol::event(input);
  const auto shown = printable(input);
  require(std::ranges::none_of(shown, [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
          "no control character reaches a terminal");
}
