// Folders go with their objects, and those of killed processes when the next one is made.

#include "simulator/host_folder.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

namespace {

namespace fs = std::filesystem;
using simulator::HostFolder;

TEST(HostFolderTest, IsRemovedWhenItsProcessIsDeadAndNotBefore) {
  const HostFolder all;
  ASSERT_EQ(setenv("TMPDIR", all.path().c_str(), 1), 0);
  fs::create_directory(all.path() + "/another");

  // Tells its folder's path, and waits to be killed.
  int path[2];
  ASSERT_EQ(pipe(path), 0);
  const pid_t process = fork();
  if (process == 0) {
    const HostFolder folder;
    fs::create_directories(folder.path() + "/Windows/System32");
    if (write(path[1], folder.path().data(), folder.path().size()) > 0) {
      pause();
    }
    _exit(1);
  }
  char text[300] = {};
  ASSERT_GT(read(path[0], text, sizeof(text) - 1), 0);
  EXPECT_NE(std::string(text).find("-" + std::to_string(process) + "-"), std::string::npos) << text;

  std::optional<HostFolder> own;
  own.emplace();
  EXPECT_TRUE(fs::exists(std::string(text) + "/Windows")) << "its process is alive";
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  const HostFolder next;
  EXPECT_FALSE(fs::exists(text));
  EXPECT_TRUE(fs::exists(own->path())) << "this process is alive";

  const std::string ownPath = own->path();
  own.reset();
  EXPECT_FALSE(fs::exists(ownPath));
  EXPECT_TRUE(fs::exists(all.path() + "/another")) << "none of ours";
}

}  // namespace
