// SPDX-License-Identifier: Apache-2.0
// Reads user defaults from a JSON file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/json_serialization.h"
#include "platform/linux/file_descriptor.h"
#include "platform/linux/system_platform.h"

namespace larkspur::linuxos {
namespace {

/// The variable, or an empty string if it is not an absolute path or the process is privileged.
std::string directoryFromEnvironment(const char* name) {
  const char* value = ::secure_getenv(name);
  return value != nullptr && *value == '/' ? value : "";
}

std::string defaultsPath() {
  std::string directory = directoryFromEnvironment("XDG_CONFIG_HOME");
  if (directory.empty()) {
    directory = directoryFromEnvironment("HOME");
    if (directory.empty()) return {};
    directory += "/.config";
  }
  return directory + "/larkspur/defaults.json";
}

/// The contents of a regular file; empty if it is missing or cannot be read to its end.
std::string contents(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  std::string text;
  char bytes[4096];
  for (;;) {
    const ssize_t length = ::read(file.get(), bytes, sizeof bytes);
    if (length == 0) return text;
    if (length > 0) text.append(bytes, static_cast<std::size_t>(length));
    if (length < 0 && errno != EINTR) return {};
  }
}

class DefaultsFile : public UserDefaults {
 public:
  std::optional<std::string> stringForKey(const std::string& key) override {
    try {
      const auto defaults = JSONSerialization::object(contents(defaultsPath()));
      if (!defaults) return std::nullopt;
      const auto value = defaults->stringForKey(key);
      return value ? std::optional<std::string>(*value) : std::nullopt;
    } catch (const JSONError&) {
      return std::nullopt;
    }
  }
};

}  // namespace

std::shared_ptr<UserDefaults> makeUserDefaults() { return std::make_shared<DefaultsFile>(); }

}  // namespace larkspur::linuxos
