#include "Platform/Linux/UnrestrictedCaptureDevice.h"
#include "Platform/Linux/XdgWorkspace.h"

#include "Support/RecordingWorkspace.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestLoop.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace tolvera {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

template<typename Subject>
class WorkspaceContract : public testing::Test {
 protected:
  Subject subject;
};
using Subjects = testing::Types<test::RecordingWorkspace, adapters::XdgWorkspace>;
TYPED_TEST_SUITE(WorkspaceContract, Subjects);

TYPED_TEST(WorkspaceContract, OpensNothingButWebAddresses) {
  for (const char* address :
       {"file:///etc/passwd", "javascript:alert(1)", "mailto:a@example.org", "ftp://example.org/",
        "ws://example.org/", "//example.org/path", "path", "", "http:relative", "https:///path"})
    EXPECT_FALSE(this->subject.openURL(platform::URL(address))) << address;
}

// A desktop with one browser, which notes its arguments.
class Desktop {
 public:
  Desktop() {
    fs::create_directories(root_ / "data/applications");
    fs::create_directories(root_ / "config");
    const fs::path browser = root_ / "browser";
    std::ofstream(browser) << "#!/bin/sh\nprintf '%s\\n' \"$#\" \"$@\" >" << root_ / "partial" << "\nmv "
                           << root_ / "partial" << " " << noted() << "\n";
    fs::permissions(browser, fs::perms::owner_all);
    std::ofstream(root_ / "data/applications/browser.desktop")
        << "[Desktop Entry]\nType=Application\nName=Browser\nExec=" << browser.string()
        << " %u\nMimeType=x-scheme-handler/http;x-scheme-handler/https;\n";
    std::ofstream(root_ / "config/mimeapps.list")
        << "[Default Applications]\nx-scheme-handler/"
           "http=browser.desktop\nx-scheme-handler/https=browser.desktop\n";
  }

  // Opens the address in a process of its own, as GIO reads its environment once and for all.
  bool open(const char* address) {
    fs::remove(noted());
    const pid_t child = ::fork();
    if (child == 0) {
      for (const auto& [name, value] :
           {std::pair("XDG_DATA_HOME", root_ / "data"), std::pair("XDG_CONFIG_HOME", root_ / "config"),
            std::pair("XDG_DATA_DIRS", root_ / "none"), std::pair("XDG_CONFIG_DIRS", root_ / "none")})
        ::setenv(name, value.c_str(), 1);
      ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
      ::unsetenv("XDG_CURRENT_DESKTOP");
      ::_exit(adapters::XdgWorkspace().openURL(platform::URL(address)) ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == 0;
  }

  // What the browser noted, or the empty text if it did not come within the time.
  std::string waitForNote() {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!fs::exists(noted()) && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(5ms);
    std::stringstream content;
    content << std::ifstream(noted()).rdbuf();
    return content.str();
  }

  void removeBrowser() { fs::remove(root_ / "data/applications/browser.desktop"); }
  [[nodiscard]] fs::path noted() const { return root_ / "noted"; }

 private:
  test::TemporaryDirectory root_;
};

TEST(DesktopWorkspace, HandsTheAddressToTheDefaultBrowserAsOneArgument) {
  Desktop desktop;
  for (const char* address : {"https://example.org/sign-in?code=a%20b&lang=zh#top",
                              "http://127.0.0.1:18790/x?a=$(touch$IFS/tmp/x);'&b=*"}) {
    EXPECT_TRUE(desktop.open(address));
    EXPECT_EQ(desktop.waitForNote(), std::string("1\n") + address + "\n");
  }
}

TEST(DesktopWorkspace, SaysSoWhenThereIsNoBrowser) {
  Desktop desktop;
  desktop.removeBrowser();
  EXPECT_FALSE(desktop.open("https://example.org/"));
}

TEST(DesktopCaptureDevice, GrantsTheMicrophoneWithoutAsking) {
  test::TestLoop loop;
  adapters::UnrestrictedCaptureDevice device;
  EXPECT_EQ(device.audioAuthorizationStatus(), platform::AuthorizationStatus::authorized);
  EXPECT_TRUE(loop.run(device.requestAudioAccess()));
}

} // namespace
} // namespace tolvera
