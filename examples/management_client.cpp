// SPDX-License-Identifier: Apache-2.0
// A management client: installs, lists, finds and deletes services under the root it is given.

#include <larkspur/larkspur.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

constexpr const char* kUsage =
    R"(usage: management_client [--verbose] [--force] ROOT COMMAND

  install SERVICE_TYPE ARCHIVE VERSION IDENTIFIER   install or update a service from a zip archive
  list                                              show every service and its version
  find VERSION                                      show the service that VERSION installed
  delete VERSION                                    delete the service that VERSION installed

  --force     skip the check for a rename or another declaration's service
  --verbose   show the library's log lines on standard error

exit status: 0 done, 1 refused or failed, 2 wrong usage, 255 the root cannot be made
)";

class StandardErrorLog : public larkspur::Log {
 public:
  bool isEnabled(larkspur::LogLevel) const noexcept override { return true; }

  void write(const larkspur::LogEntry& entry) noexcept override {
    std::cerr << "log " << name(entry.level) << ", " << entry.category << ": " << entry.message
              << '\n';
  }

 private:
  static const char* name(larkspur::LogLevel level) {
    switch (level) {
      case larkspur::LogLevel::error:
        return "error";
      case larkspur::LogLevel::info:
        return "info";
      case larkspur::LogLevel::debug:
        return "debug";
    }
    return "other";
  }
};

// A temporary directory, removed with all its contents.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string path = fs::temp_directory_path() / "management-client-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), "cannot make " + path);
    }
    path_ = path;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// The library uses a service type unchanged as a directory name, so the client refuses names of
// other directories.
void requirePlainServiceType(const std::string& serviceType) {
  static const std::set<std::string> kNoService = {"", ".", "..", "._saved"};
  if (kNoService.contains(serviceType) || serviceType.find('/') != std::string::npos) {
    throw std::runtime_error("not a service type: '" + serviceType + "'");
  }
}

// Resolves links: the library refuses a link, but only after it has installed the tree. The unzip
// tool takes some characters in a file name for a pattern.
fs::path resolveArchive(const std::string& name) {
  fs::path archive = fs::canonical(name);
  if (!fs::is_regular_file(archive)) {
    throw std::runtime_error("not a file: " + archive.string());
  }
  if (archive.filename().string().find_first_of("[*?\\") != std::string::npos) {
    throw std::runtime_error("rename the archive: unzip takes [ * ? \\ for a pattern: " +
                             archive.string());
  }
  return archive;
}

bool liesBelow(const fs::path& directory, const fs::path& item) {
  const auto [end, rest] =
      std::mismatch(directory.begin(), directory.end(), item.begin(), item.end());
  return end == directory.end();
}

// The digest in hexadecimal, from sha256sum. The path is passed in the environment, where the shell
// does not interpret it.
std::string sha256(const fs::path& archive) {
  if (setenv("ARCHIVE", archive.c_str(), 1) != 0) {
    throw std::system_error(errno, std::generic_category(), "setenv");
  }
  std::FILE* tool = popen("sha256sum < \"$ARCHIVE\"", "r");
  if (tool == nullptr) {
    throw std::system_error(errno, std::generic_category(), "cannot run sha256sum");
  }
  constexpr std::size_t kDigits = 64;
  std::array<char, 128> output{};
  const std::size_t length = std::fread(output.data(), 1, output.size(), tool);
  if (pclose(tool) != 0 || length < kDigits) {
    throw std::runtime_error("sha256sum failed on " + archive.string());
  }
  return {output.data(), kDigits};
}

int install(larkspur::LarkspurFramework& framework, const fs::path& root,
            const std::vector<std::string>& arguments, bool force) {
  const std::string& serviceType = arguments[0];
  const std::string& version = arguments[2];
  const std::string& identifier = arguments[3];
  requirePlainServiceType(serviceType);
  fs::path archive = resolveArchive(arguments[1]);

  // An install deletes the saved copy of the service before it makes a new one, so an archive in
  // there is copied first.
  std::unique_ptr<ScratchDirectory> scratch;
  if (liesBelow(fs::canonical(root) / "._saved", archive)) {
    scratch = std::make_unique<ScratchDirectory>();
    const fs::path copy = scratch->path() / archive.filename();
    fs::copy_file(archive, copy);
    archive = copy;
  }

  const std::string digest = sha256(archive);
  try {
    framework.installArchive(serviceType, larkspur::FileURL(archive), "application/zip", version,
                             identifier, digest, force);
  } catch (const std::system_error& error) {
    // Tree, record and saved copy are in place.
    std::cerr << "management_client: installed, but not counted: " << error.what() << '\n';
  }
  std::cout << "installed " << serviceType << " at " << framework.servicePathURL(serviceType).path()
            << "\n  version    " << version << "\n  identifier " << identifier << "\n  sha256     "
            << digest << '\n';
  return kDone;
}

int list(larkspur::LarkspurFramework& framework) {
  std::vector<larkspur::Service> services = framework.services();
  std::ranges::sort(services, {}, &larkspur::Service::type);
  for (const larkspur::Service& service : services) {
    std::cout << service.declarationVersion.value_or("-") << "  " << service.type << '\n';
  }
  std::cout << services.size() << (services.size() == 1 ? " service\n" : " services\n");
  return kDone;
}

int find(larkspur::LarkspurFramework& framework, const std::string& version) {
  const std::string serviceType = framework.findServiceType(version);
  std::cout << version << " installed " << serviceType << " at "
            << framework.servicePathURL(serviceType).path() << '\n';
  return kDone;
}

int remove(larkspur::LarkspurFramework& framework, const std::string& version) {
  const std::string serviceType = framework.findServiceType(version);
  framework.deleteService(version);
  std::cout << "deleted " << serviceType << ", installed by " << version << '\n';
  return kDone;
}

int run(std::vector<std::string> arguments) {
  bool verbose = false;
  bool force = false;
  while (!arguments.empty() && arguments.front().starts_with("--")) {
    if (arguments.front() == "--verbose") {
      verbose = true;
    } else if (arguments.front() == "--force") {
      force = true;
    } else {
      break;
    }
    arguments.erase(arguments.begin());
  }
  const std::string command = arguments.size() < 2 ? "" : arguments[1];
  const std::size_t count = arguments.size() < 2 ? 0 : arguments.size() - 2;
  const bool known = (command == "install" && count == 4) || (command == "list" && count == 0) ||
                     ((command == "find" || command == "delete") && count == 1);
  if (!known) {
    std::cerr << kUsage;
    return kWrongUsage;
  }

  if (verbose) larkspur::useLog(std::make_shared<StandardErrorLog>());
  const fs::path root = fs::absolute(arguments[0]);
  const auto framework = larkspur::LarkspurFramework::createFramework(root.string());
  if (!framework->isDarwinNotifCenterSuccess()) {
    std::cerr << "management_client: no system bus to announce changes on\n";
    return kFailed;
  }

  arguments.erase(arguments.begin(), arguments.begin() + 2);
  if (command == "install") return install(*framework, root, arguments, force);
  if (command == "list") return list(*framework);
  if (command == "find") return find(*framework, arguments[0]);
  return remove(*framework, arguments[0]);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const larkspur::LarkspurError& error) {
    std::cerr << "management_client: " << error.description() << " ("
              << larkspur::LarkspurError::domain() << ", code " << error.code() << ")\n";
  } catch (const std::exception& error) {
    std::cerr << "management_client: " << error.what() << '\n';
  }
  return kFailed;
}
