#include "Platform/Linux/PosixFileManager.h"
#include "Platform/Linux/XdgDirectories.h"

#include "Support/InMemoryFileManager.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TemporaryEnvironment.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <thread>

namespace tolvera {
namespace {

namespace fs = std::filesystem;
using adapters::PosixFileManager;
using test::TemporaryDirectory;

mode_t modeOf(const fs::path& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::size_t entriesIn(const fs::path& directory) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

// What both implementations promise. Each works below a root of its own.
struct InMemory {
  test::InMemoryFileManager files;
  fs::path root = "/support";
};

struct OnDisk {
  PosixFileManager files;
  TemporaryDirectory directory;
  fs::path root = directory.path();
};

template<typename Subject>
class FileManagerContract : public testing::Test {
 protected:
  Subject subject;
};
using Subjects = testing::Types<InMemory, OnDisk>;
TYPED_TEST_SUITE(FileManagerContract, Subjects);

TYPED_TEST(FileManagerContract, ReadsBackWhatWasWrittenAndReplacesItWhole) {
  platform::FileManager& files = this->subject.files;
  const fs::path directory = this->subject.root / "a" / "b";
  EXPECT_FALSE(files.writePrivateFile(directory / "file", "too early"));
  ASSERT_TRUE(files.createPrivateDirectory(directory));
  ASSERT_TRUE(files.createPrivateDirectory(directory));
  EXPECT_FALSE(files.contents(directory / "file"));

  const std::string long_(100'000, 'x');
  for (const std::string& content : {long_, std::string("short\n"), std::string(), std::string("a\0b", 3)}) {
    ASSERT_TRUE(files.writePrivateFile(directory / "file", content));
    EXPECT_EQ(files.contents(directory / "file"), content);
  }
  ASSERT_TRUE(files.writePrivateFile(directory / "other", "kept"));
  files.remove(directory / "file");
  files.remove(directory / "file");
  EXPECT_FALSE(files.contents(directory / "file"));
  EXPECT_EQ(files.contents(directory / "other"), "kept");
}

TEST(DesktopFileManager, MakesPrivateDirectoriesUnderAnyMask) {
  const TemporaryDirectory root;
  PosixFileManager files;
  for (const mode_t mask : {0000U, 0022U, 0777U}) {
    const auto before = ::umask(mask);
    const fs::path directory = root / ("with-" + std::to_string(mask));
    const bool made = files.createPrivateDirectory(directory / "leaf");
    const bool written = files.writePrivateFile(directory / "leaf" / "file", "x");
    ::umask(before);
    EXPECT_TRUE(made && written) << mask;
    EXPECT_EQ(modeOf(directory), 0700u) << mask;
    EXPECT_EQ(modeOf(directory / "leaf"), 0700u) << mask;
    EXPECT_EQ(modeOf(directory / "leaf" / "file"), 0600u) << mask;
    EXPECT_EQ(entriesIn(directory / "leaf"), 1u);
  }
}

TEST(DesktopFileManager, NarrowsWhatWasThereBefore) {
  const TemporaryDirectory root;
  PosixFileManager files;
  const fs::path directory = root / "wide";
  fs::create_directory(directory);
  ::chmod(directory.c_str(), 0777);
  ASSERT_TRUE(files.createPrivateDirectory(directory));
  EXPECT_EQ(modeOf(directory), 0700u);

  std::ofstream(directory / "file") << "old";
  ::chmod((directory / "file").c_str(), 0644);
  ASSERT_TRUE(files.writePrivateFile(directory / "file", "new"));
  EXPECT_EQ(modeOf(directory / "file"), 0600u);
}

TEST(DesktopFileManager, ReplacesASymbolicLinkAndLeavesItsTargetAlone) {
  const TemporaryDirectory root;
  PosixFileManager files;
  std::ofstream(root / "target") << "untouched";
  fs::create_symlink(root / "target", root / "link");
  fs::create_symlink(root / "nowhere", root / "dangling");
  for (const char* name : {"link", "dangling"}) {
    ASSERT_TRUE(files.writePrivateFile(root / name, "secret"));
    EXPECT_FALSE(fs::is_symlink(root / name));
    EXPECT_EQ(files.contents(root / name), "secret");
  }
  EXPECT_EQ(files.contents(root / "target"), "untouched");
  EXPECT_FALSE(fs::exists(root / "nowhere"));
}

TEST(DesktopFileManager, FailsCleanlyWhereItCannotWrite) {
  const TemporaryDirectory root;
  PosixFileManager files;
  fs::create_directories(root / "directory" / "inside");
  std::ofstream(root / "file") << "x";
  EXPECT_FALSE(files.writePrivateFile(root / "directory", "x"));
  EXPECT_FALSE(files.writePrivateFile(root / std::string(300, 'n'), "x"));
  EXPECT_FALSE(files.writePrivateFile(root / "missing" / "file", "x"));
  EXPECT_FALSE(files.writePrivateFile("", "x"));
  EXPECT_FALSE(files.createPrivateDirectory(root / "file"));
  EXPECT_FALSE(files.createPrivateDirectory(root / "file" / "below"));
  EXPECT_FALSE(files.createPrivateDirectory(""));
  EXPECT_FALSE(files.contents(root / "directory"));
  files.remove(root / "directory");
  EXPECT_TRUE(fs::exists(root / "directory" / "inside"));
  EXPECT_EQ(entriesIn(root.path()), 2u); // no temporary file stays

  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files.contents(root / "pipe"));
}

TEST(DesktopFileManager, AFullDiskLeavesTheOldFileButForItsOwnerAlone) {
  const TemporaryDirectory root;
  PosixFileManager files;
  std::ofstream(root / "file") << "old";
  ::chmod((root / "file").c_str(), 0644);

  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const auto handler = ::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{.rlim_cur = 2, .rlim_max = before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  const bool written = files.writePrivateFile(root / "file", "too long");
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, handler);

  EXPECT_FALSE(written);
  EXPECT_EQ(files.contents(root / "file"), "old");
  EXPECT_EQ(modeOf(root / "file"), 0600u);
  EXPECT_EQ(entriesIn(root.path()), 1u);
}

// A reader beside the writer sees only whole contents, and never a file or directory that others may use.
TEST(DesktopFileManager, IsPrivateAndWholeAtEveryMoment) {
  const TemporaryDirectory root;
  const fs::path directory = root / "support" / "Tolvera";
  std::atomic<bool> done = false;
  std::atomic<bool> wide = false;
  std::atomic<bool> torn = false;
  std::atomic<int> looks = 0;
  const auto before = ::umask(0);
  std::thread watcher([&] {
    const PosixFileManager reader;
    while (!done) {
      for (const fs::path& each : {root / "support", directory})
        if (modeOf(each) & 0077) wide = true;
      std::error_code error;
      for (const auto& entry : fs::directory_iterator(directory, error))
        if (modeOf(entry.path()) & 0077) wide = true;
      if (const auto content = reader.contents(directory / "token"))
        if (content->size() != 5000 || content->find_first_not_of(content->front()) != std::string::npos)
          torn = true;
      ++looks;
    }
  });
  PosixFileManager files;
  for (int round = 0; round < 20; ++round) {
    fs::remove_all(root / "support");
    files.createPrivateDirectory(directory);
    for (int i = 0; i < 10 || looks < round; ++i)
      EXPECT_TRUE(
          files.writePrivateFile(directory / "token", std::string(5000, static_cast<char>('a' + i % 26))));
  }
  done = true;
  watcher.join();
  ::umask(before);
  EXPECT_FALSE(wide);
  EXPECT_FALSE(torn);
  EXPECT_GT(looks, 0);
}

TEST(XdgDirectories, IgnoreRelativeAndEmptyVariables) {
  test::TemporaryEnvironment environment;
  environment.set("HOME", "/home/somebody");
  environment.set("XDG_DATA_HOME", "/data");
  environment.set("XDG_CONFIG_HOME", "/config");
  EXPECT_EQ(PosixFileManager().applicationSupportDirectory(), "/data");
  EXPECT_EQ(adapters::XdgDirectories::configHome(), "/config");
  for (const auto& value : {std::optional<std::string>(), std::optional<std::string>(""),
                            std::optional<std::string>("data"), std::optional<std::string>("./data")}) {
    environment.set("XDG_DATA_HOME", value);
    environment.set("XDG_CONFIG_HOME", value);
    EXPECT_EQ(adapters::XdgDirectories::dataHome(), "/home/somebody/.local/share");
    EXPECT_EQ(adapters::XdgDirectories::configHome(), "/home/somebody/.config");
  }
  environment.set("HOME", std::nullopt);
  EXPECT_TRUE(adapters::XdgDirectories::dataHome().is_absolute());
}

} // namespace
} // namespace tolvera
