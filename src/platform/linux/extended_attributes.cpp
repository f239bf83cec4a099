// SPDX-License-Identifier: Apache-2.0
// Extended attributes in the `user.` namespace.
#include <sys/xattr.h>

#include <cerrno>

#include "platform/linux/system_platform.h"

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

}  // namespace

std::shared_ptr<ExtendedAttributes> makeExtendedAttributes() {
  return std::make_shared<UserAttributes>();
}

}  // namespace larkspur::linuxos
