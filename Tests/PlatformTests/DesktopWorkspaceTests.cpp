#include "Platform/Linux/XdgWorkspace.h"

#include "PlatformTests/DesktopFixture.h"
#include "Support/PrivateGraph.h"
#include "Support/RecordingWorkspace.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tolvera {
namespace {

TEST(DesktopWorkspace, OpensNothingButWebAddressesAsTheRecordingOneDoes) {
  adapters::XdgWorkspace real;
  test::RecordingWorkspace recording;
  for (const char* address :
       {"file:///etc/passwd", "javascript:alert(1)", "mailto:a@example.org", "ftp://example.org/",
        "ws://example.org/", "//example.org/path", "path", "", "http:relative", "https:///path"}) {
    EXPECT_FALSE(real.openURL(platform::URL(address))) << address;
    EXPECT_FALSE(recording.openURL(platform::URL(address))) << address;
  }
}

TEST(DesktopWorkspace, HandsTheAddressToTheDefaultBrowserAsOneArgument) {
  const test::InstalledApplications installed;
  const std::string note = installed.root() / "note";
  const auto browser = installed.addScript("bin/browser", "#!/bin/sh\nprintf '%s\\n' \"$#\" \"$@\" >" + note +
                                                              ".part\nmv " + note + ".part " + note + "\n");
  installed.addEntry("browser", browser + " %u", "MimeType=x-scheme-handler/http;\n");
  std::ofstream(installed.root() / "mimeapps.list")
      << "[Default Applications]\nx-scheme-handler/http=browser.desktop\n";
  const std::string address = "http://127.0.0.1:18790/x?a=$(touch$IFS/tmp/x);'&b=*";
  // In a process of its own, as GIO reads its environment once and for all.
  const pid_t child = ::fork();
  if (child == 0) {
    ::setenv("XDG_DATA_HOME", installed.dataDirectory().c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", installed.root().c_str(), 1);
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    ::unsetenv("XDG_CURRENT_DESKTOP");
    ::_exit(adapters::XdgWorkspace().openURL(platform::URL(address)) ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  ASSERT_TRUE(test::eventually([&note] { return std::filesystem::exists(note); }));
  std::string count;
  std::string argument;
  std::ifstream(note) >> count >> argument;
  EXPECT_EQ(count, "1");
  EXPECT_EQ(argument, address);
}

} // namespace
} // namespace tolvera
