#include "Platform/Linux/Desktop/PosixFileManager.h"
#include "Platform/Linux/Desktop/XdgDirectories.h"

#include "Fakes/InMemoryFileManager.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

namespace tolvera {
namespace {

namespace fs = std::filesystem;

mode_t modeOf(const fs::path& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class DesktopFileManager : public testing::Test {
 protected:
  [[nodiscard]] std::size_t entries() const {
    const fs::directory_iterator all(root.path());
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }
  void putFile(const char* name, const char* content, fs::perms mode) const {
    std::ofstream(root / name) << content;
    fs::permissions(root / name, mode);
  }

  static constexpr auto wide = static_cast<fs::perms>(0777);
  test::TemporaryDirectory root;
  adapters::PosixFileManager files;
};

TEST_F(DesktopFileManager, ReadsBackWhatWasWrittenAsTheOneInMemoryDoes) {
  test::InMemoryFileManager inMemory;
  const fs::path file = root / "a/b/file";
  for (platform::FileManager* each : std::initializer_list<platform::FileManager*>{&inMemory, &files}) {
    EXPECT_FALSE(each->writePrivateFile(file, "too early"));
    ASSERT_TRUE(each->createPrivateDirectory(file.parent_path()));
    ASSERT_TRUE(each->createPrivateDirectory(file.parent_path()));
    EXPECT_FALSE(each->contents(file));
    for (const std::string& content : {std::string(100'000, 'x'), std::string(), std::string("a\0b", 3)}) {
      ASSERT_TRUE(each->writePrivateFile(file, content));
      EXPECT_EQ(each->contents(file), content);
    }
    each->remove(file);
    each->remove(file);
    EXPECT_FALSE(each->contents(file));
  }
}

TEST_F(DesktopFileManager, MakesWhatIsPrivateUnderAnyMaskAndOutOfWhatWasNot) {
  for (const mode_t mask : {0000U, 0022U, 0777U}) {
    const auto before = ::umask(mask);
    const fs::path directory = root / ("with-" + std::to_string(mask));
    const bool made = files.createPrivateDirectory(directory / "leaf");
    const bool written = files.writePrivateFile(directory / "leaf/file", "x");
    ::umask(before);
    EXPECT_TRUE(made && written) << mask;
    EXPECT_EQ(modeOf(directory), 0700u) << mask;
    EXPECT_EQ(modeOf(directory / "leaf"), 0700u) << mask;
    EXPECT_EQ(modeOf(directory / "leaf/file"), 0600u) << mask;
  }
  fs::permissions(root / "with-0", wide);
  putFile("file", "old", wide);
  ASSERT_TRUE(files.createPrivateDirectory(root / "with-0"));
  ASSERT_TRUE(files.writePrivateFile(root / "file", "new"));
  EXPECT_EQ(modeOf(root / "with-0"), 0700u);
  EXPECT_EQ(modeOf(root / "file"), 0600u);
}

TEST_F(DesktopFileManager, ReplacesASymbolicLinkAndLeavesItsTargetAlone) {
  putFile("target", "untouched", wide);
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

TEST_F(DesktopFileManager, FailsCleanlyWhereItCannotReadOrWrite) {
  fs::create_directories(root / "directory/inside");
  putFile("file", "x", wide);
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
  for (const fs::path& path :
       {root / "directory", root / std::string(300, 'n'), root / "missing/file", fs::path()}) {
    EXPECT_FALSE(files.writePrivateFile(path, "x")) << path;
  }
  for (const fs::path& path : {root / "file", root / "file/below", fs::path()}) {
    EXPECT_FALSE(files.createPrivateDirectory(path)) << path;
  }
  EXPECT_FALSE(files.contents(root / "directory"));
  EXPECT_FALSE(files.contents(root / "pipe"));
  files.remove(root / "directory");
  EXPECT_TRUE(fs::exists(root / "directory/inside"));
  EXPECT_EQ(entries(), 3u); // no temporary file stays
}

TEST_F(DesktopFileManager, AFullDiskLeavesTheOldFileButForItsOwnerAlone) {
  putFile("file", "old", wide);
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
  EXPECT_EQ(entries(), 1u);
}

// A reader beside the writer sees only whole contents, and never a file or directory that others may use.
TEST_F(DesktopFileManager, IsPrivateAndWholeAtEveryMoment) {
  const fs::path directory = root / "support/Tolvera";
  const fs::path file = directory / "token";
  std::atomic<bool> done = false;
  std::atomic<int> looks = 0;
  std::atomic<int> faults = 0;
  const auto before = ::umask(0);
  std::thread watcher([&] {
    for (; !done; ++looks) {
      std::error_code gone;
      for (const fs::path& path : {root / "support", directory, file}) {
        if (modeOf(path) & 0077) ++faults;
      }
      for (const auto& entry : fs::directory_iterator(directory, gone)) {
        if (modeOf(entry.path()) & 0077) ++faults;
      }
      const std::string content = files.contents(file).value_or(std::string(5000, 'a'));
      if (content != std::string(5000, content.empty() ? ' ' : content[0])) ++faults;
    }
  });
  adapters::PosixFileManager writer;
  for (int round = 0; round < 100; ++round) {
    fs::remove_all(root / "support");
    writer.createPrivateDirectory(directory);
    for (int i = 0; i < 3 || looks < round; ++i) {
      EXPECT_TRUE(writer.writePrivateFile(file, std::string(5000, static_cast<char>('a' + i % 26))));
    }
  }
  done = true;
  watcher.join();
  ::umask(before);
  EXPECT_EQ(faults, 0);
}

TEST(XdgDirectories, IgnoreRelativeAndEmptyVariables) {
  test::TemporaryEnvironment environment;
  environment.set("HOME", "/home/somebody");
  environment.set("XDG_DATA_HOME", "/data");
  EXPECT_EQ(adapters::PosixFileManager().applicationSupportDirectory(), "/data");
  for (const char* value : {"", "data", "./data"}) {
    environment.set("XDG_DATA_HOME", value);
    EXPECT_EQ(adapters::XdgDirectories::dataHome(), "/home/somebody/.local/share");
  }
  environment.set("HOME", std::nullopt);
  EXPECT_TRUE(adapters::XdgDirectories::dataHome().is_absolute());
}

} // namespace
} // namespace tolvera
