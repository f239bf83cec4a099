// SPDX-License-Identifier: Apache-2.0
// Attributes in the `user.` namespace, defaults in a file, and a system that a build option names.
#include "platform/linux/small_services.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/json_serialization.h"
#include "platform/linux/file_descriptor.h"

#ifndef LARKSPUR_INTERNAL_UI
#define LARKSPUR_INTERNAL_UI 0
#endif

namespace larkspur::linuxos {
namespace {

/// The only namespace that every owner of a file may write to.
class UserAttributes : public ExtendedAttributes {
 public:
  int set(const FileURL& item, const std::string& name, std::string_view value) override {
    if (!isWhole(item.path()) || !isWhole(name)) return -1;
    return ::setxattr(item.path().c_str(), ("user." + name).c_str(), value.data(), value.size(), 0);
  }

  std::ptrdiff_t get(const FileURL& item, const std::string& name, char* buffer,
                     std::size_t size) override {
    if (!isWhole(item.path()) || !isWhole(name)) return -1;
    return ::getxattr(item.path().c_str(), ("user." + name).c_str(), buffer, size);
  }

 private:
  static bool isWhole(const std::string& text) {
    if (text.find('\0') == std::string::npos) return true;
    errno = EINVAL;
    return false;
  }
};

/// Absolute, or empty where the environment has none that a privileged process may trust.
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

/// The contents of an ordinary file; empty when there is none, or it cannot be read to its end.
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

class LinuxVariant : public SystemVariant {
 public:
  std::optional<std::string> bundleIdentifier() override { return std::nullopt; }
  bool hasInternalUI(const std::optional<std::string>&) override {
    return LARKSPUR_INTERNAL_UI != 0;
  }
};

}  // namespace

std::shared_ptr<ExtendedAttributes> makeExtendedAttributes() {
  return std::make_shared<UserAttributes>();
}
std::shared_ptr<SystemVariant> makeSystemVariant() { return std::make_shared<LinuxVariant>(); }
std::shared_ptr<UserDefaults> makeUserDefaults() { return std::make_shared<DefaultsFile>(); }

}  // namespace larkspur::linuxos
