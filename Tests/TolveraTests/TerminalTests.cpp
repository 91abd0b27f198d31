// The terminal program whole, on a machine where nothing that it needs is there.

#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace tolvera::test {
namespace {

TEST(Terminal, ReportsAnAbsentService) {
  const TemporaryDirectory home;
  TemporaryEnvironment environment;
  for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"})
    environment.set(variable, home.path().string());
  std::filesystem::create_directories(home / "tolvera");
  std::ofstream(home / "tolvera/preferences.json")
      << R"({"serverURL":"http://127.0.0.1:9","uiLanguage":"english","captureMode":"mic"})";

  const auto output = home / "output";
  ChildProcess terminal({TOLVERA_TERMINAL}, output.string());
  EXPECT_EQ(terminal.wait(std::chrono::seconds(30)), 1);
  std::ifstream file(output);
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  EXPECT_NE(text.find("phase: failed("), std::string::npos) << text;
  EXPECT_NE(text.find("--check"), std::string::npos) << text;
}

} // namespace
} // namespace tolvera::test
