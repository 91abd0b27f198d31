#include "Platform/Linux/Desktop/XdgWorkspace.h"

#include "Fakes/RecordingWorkspace.h"
#include "Harness/PrivateGraph.h"
#include "PlatformTests/DesktopFixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

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

TEST(DesktopWorkspace, HandsTheAddressToTheDefaultApplicationAsOneArgument) {
  const test::InstalledApplications installed;
  const std::string note = installed.root() / "note";
  const auto viewer = installed.addScript("bin/viewer", "#!/bin/sh\nprintf '%s\\n' \"$#\" \"$@\" >" + note +
                                                            ".part\nmv " + note + ".part " + note + "\n");
  installed.addEntry("viewer", viewer + " %u", "MimeType=x-scheme-handler/http;inode/directory;\n");
  std::ofstream(installed.root() / "mimeapps.list")
      << "[Default Applications]\nx-scheme-handler/http=viewer.desktop\ninode/directory=viewer.desktop\n";
  // In a process of its own, as GIO reads its environment once and for all.
  const auto argumentAfter = [&](const std::function<bool(adapters::XdgWorkspace&)>& open) {
    std::filesystem::remove(note);
    const pid_t child = ::fork();
    if (child == 0) {
      ::setenv("XDG_DATA_HOME", installed.dataDirectory().c_str(), 1);
      ::setenv("XDG_CONFIG_HOME", installed.root().c_str(), 1);
      ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
      ::unsetenv("XDG_CURRENT_DESKTOP");
      adapters::XdgWorkspace workspace;
      ::_exit(open(workspace) ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(test::eventually([&note] { return std::filesystem::exists(note); }));
    std::string count;
    std::string argument;
    std::ifstream arguments(note);
    std::getline(arguments, count);
    std::getline(arguments, argument);
    EXPECT_EQ(count, "1");
    return argument;
  };
  const std::string address = "http://127.0.0.1:18790/x?a=$(touch$IFS/tmp/x);'&b=*";
  EXPECT_EQ(argumentAfter([&](auto& workspace) { return workspace.openURL(platform::URL(address)); }),
            address);
  const std::string folder = installed.root() / "a folder";
  std::filesystem::create_directory(folder);
  EXPECT_EQ(argumentAfter([&](auto& workspace) { return workspace.openFolder(folder); }), folder);
}

} // namespace
} // namespace tolvera
