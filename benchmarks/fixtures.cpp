// SPDX-License-Identifier: Apache-2.0
// The archives, and roots full of services, that the measurements use; made on first use.
#include "fixtures.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "floor.h"
#include "raw_tool.h"
#include "raw_tree.h"

namespace larkspur::bench {
namespace {

namespace fs = std::filesystem;

// Random bytes: an alphabet of 16 compresses to about half, as settings do, one of 200 hardly at
// all.
std::string bytes(std::size_t length, unsigned alphabet) {
  static std::minstd_rand random(1);
  std::string text(length, '\0');
  for (char& byte : text) byte = static_cast<char>('0' + (random() >> 8) % alphabet);
  return text;
}

void writeFiles(const fs::path& directory, int files, std::size_t size, unsigned alphabet = 16) {
  fs::create_directories(directory);
  for (int file = 0; file < files; ++file) {
    std::ofstream(directory / ("settings-" + std::to_string(file) + ".conf"))
        << bytes(size, alphabet);
  }
}

void writeTree(const fs::path& directory, const std::string& name) {
  if (name == "tiny") {
    writeFiles(directory, 1, 200);
  } else if (name == "small") {
    writeFiles(directory, 12, 40'000 / 12);
  } else if (name == "many") {
    for (int part = 0; part < 200; ++part) {
      writeFiles(directory / ("part-" + std::to_string(part)), 25, 1000);
    }
  } else {
    writeFiles(directory, 1, 200'000'000, 200);
  }
}

std::string quotedForShell(const std::string& text) { return '\'' + text + '\''; }

struct SilentLog : Log {
  bool isEnabled(LogLevel) const noexcept override { return false; }
  void write(const LogEntry&) noexcept override {}
};
struct SilentCenter : NotificationCenter {
  void post(const std::string&) noexcept override {}
};
struct SilentAnalytics : AnalyticsService {
  void sendEvent(const std::string&, AnalyticsPayload) noexcept override {}
};

}  // namespace

Area& Area::current() {
  static Area area;
  return area;
}

void Area::use(const std::string& path) {
  path_ = fs::canonical(path);
  require(fs::is_empty(path_), "the check that the area is empty");
  for (const char* name : {"home", "tmp", "archives"}) fs::create_directory(path_ + '/' + name);
  ::setenv("HOME", (path_ + "/home").c_str(), 1);
  ::setenv("TMPDIR", (path_ + "/tmp").c_str(), 1);
  descriptor_ = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  require(descriptor_ >= 0, path_);
}

Delivery Area::delivery(const std::string& name) {
  const std::string archive = path_ + "/archives/" + name + ".zip";
  if (!fs::exists(archive)) {
    const std::string tree = freshPath();
    writeTree(tree, name);
    const std::string command =
        "cd " + quotedForShell(tree) + " && zip -q -r " + quotedForShell(archive) + " .";
    require(std::system(command.c_str()) == 0, "zip");
    removeTree(tree);
  }
  return {"com.example." + name, archive, "version of " + name, "declaration of " + name};
}

std::string Area::root(std::size_t services) {
  std::string root = path_ + "/root-" + std::to_string(services);
  if (fs::exists(root)) return root;
  fs::create_directories(root + "/._saved");
  for (std::size_t service = 0; service < services; ++service) {
    const std::string number = std::to_string(service);
    const Delivery delivery{"com.example.service-" + number, "", "version-" + number,
                            "declaration-" + number};
    const std::string directory = root + '/' + delivery.serviceType;
    fs::create_directory(directory);
    writeRecord(directory, delivery);
  }
  return root;
}

std::string Area::freshPath() { return path_ + "/fresh-" + std::to_string(++fresh_); }

void Area::settle() const { require(::syncfs(descriptor_) == 0, "syncfs"); }

void useSinks() {
  useLog(std::make_shared<SilentLog>());
  useNotificationCenter(std::make_shared<SilentCenter>());
  useAnalyticsService(std::make_shared<SilentAnalytics>());
}

void useSystemServices() {
  useLog(nullptr);
  useNotificationCenter(nullptr);
  useAnalyticsService(nullptr);
}

std::unique_ptr<LarkspurFramework> quietFramework(const std::string& root) {
  useSinks();
  return LarkspurFramework::createFramework(root);
}

void install(LarkspurFramework& framework, const Delivery& delivery) {
  framework.installArchive(delivery.serviceType, FileURL(delivery.archive), delivery.contentType,
                           delivery.version, delivery.identifier, delivery.hash,
                           /*force=*/false);
}

}  // namespace larkspur::bench
