// SPDX-License-Identifier: Apache-2.0
// Runs a tool with as little overhead as possible: the yardstick for an extraction.
#include "raw_tool.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "raw_tree.h"

namespace larkspur::bench {
namespace {

pid_t start(const std::vector<std::string>& arguments, posix_spawn_file_actions_t& actions) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  char path[] = "PATH=/usr/bin:/bin", locale[] = "LC_ALL=C.UTF-8";
  char* environment[] = {path, locale, nullptr};

  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  // Starts a new session, as the library does: the scheduler groups processes by session.
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t child = 0;
  const int refused =
      ::posix_spawn(&child, argv[0], &actions, &attributes, argv.data(), environment);
  require(refused == 0, argv[0]);
  ::posix_spawnattr_destroy(&attributes);
  return child;
}

// Reads both, so that neither can block the tool, and drops the output.
void drain(std::array<pollfd, 2> streams) {
  std::array<char, 1 << 16> buffer;
  for (int open = 2; open > 0;) {
    ::poll(streams.data(), streams.size(), -1);
    for (pollfd& stream : streams) {
      if (stream.fd < 0 || stream.revents == 0) continue;
      if (::read(stream.fd, buffer.data(), buffer.size()) > 0) continue;
      ::close(stream.fd);
      stream.fd = -1;
      --open;
    }
  }
}

}  // namespace

void runTool(const std::vector<std::string>& arguments) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  int output[2], errors[2];
  require(::pipe2(output, O_CLOEXEC) == 0 && ::pipe2(errors, O_CLOEXEC) == 0, "pipe2");
  ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  const pid_t child = start(arguments, actions);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(output[1]);
  ::close(errors[1]);

  drain({pollfd{output[0], POLLIN, 0}, pollfd{errors[0], POLLIN, 0}});
  int status = 0;
  ::waitpid(child, &status, 0);
  require(status == 0, arguments.front());
}

}  // namespace larkspur::bench
