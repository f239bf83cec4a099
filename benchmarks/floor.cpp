// SPDX-License-Identifier: Apache-2.0
// The steps of the library as one sequence of raw system calls.
#include "floor.h"

#include <dirent.h>
#include <fcntl.h>
#include <jansson.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string_view>

#include "raw_tool.h"
#include "raw_tree.h"
#include "steps.h"

namespace larkspur::bench {
namespace {

constexpr char kAttribute[] = "user.Larkspur";
constexpr char kVersionKey[] = "declarationVersionKey";
constexpr char kIdentifierKey[] = "declarationIdentifierKey";

struct Release {
  void operator()(json_t* value) const { json_decref(value); }
};
using JSON = std::unique_ptr<json_t, Release>;

// Reads the record with the two calls that its format prescribes.
bool readRecord(const std::string& directory, std::string& record) {
  const ssize_t length = ::getxattr(directory.c_str(), kAttribute, nullptr, 0);
  if (length < 0) return false;
  record.resize(static_cast<std::size_t>(length));
  return ::getxattr(directory.c_str(), kAttribute, record.data(), record.size()) >= 0;
}

JSON parsed(const std::string& record) {
  return JSON(
      json_loadb(record.data(), record.size(), JSON_ALLOW_NUL | JSON_DECODE_INT_AS_REAL, nullptr));
}

const char* member(const JSON& record, const char* key) {
  return json_string_value(json_object_get(record.get(), key));
}

bool exists(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0;
}

// All names, each with its final zero.
std::string namesIn(const std::string& directory) {
  DIR* const entries = ::opendir(directory.c_str());
  require(entries != nullptr, directory);
  std::string names;
  while (const dirent* entry = ::readdir(entries)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.append(name).push_back('\0');
  }
  ::closedir(entries);
  return names;
}

// Lists everything first, as the library does.
template <typename Visit>
void eachRecord(const std::string& root, Visit visit) {
  const std::string names = namesIn(root);
  std::string path = root + '/', record;
  const std::size_t prefix = path.size();
  for (std::size_t at = 0; at < names.size();) {
    const std::string_view name = names.c_str() + at;
    at += name.size() + 1;
    path.replace(prefix, std::string::npos, name);
    if (readRecord(path, record) && !visit(name, record)) break;
  }
}

template <typename Visit>
void eachValue(const std::string& root, const char* key, Visit visit) {
  eachRecord(root, [&](std::string_view name, const std::string& record) {
    const JSON document = parsed(record);
    const char* const value = member(document, key);
    return value == nullptr || visit(name, value);
  });
}

// The floor keeps the library's promises, so it flushes, and stages what it replaces and removes.
void flushVolume(const std::string& path) {
  const int directory = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  require(directory >= 0 && ::syncfs(directory) == 0, "syncfs");
  ::close(directory);
}

}  // namespace

std::optional<std::string> rawLoop(const std::string& root, const std::string& version) {
  std::optional<std::string> found;
  eachRecord(root, [&](std::string_view name, const std::string& record) {
    if (record.find('"' + version + '"') != std::string::npos) found = name;
    return !found;
  });
  return found;
}

void writeRecord(const std::string& directory, const Delivery& delivery) {
  const JSON record(json_pack("{ssssssss}", "contentType", delivery.contentType.c_str(),
                              kIdentifierKey, delivery.identifier.c_str(), kVersionKey,
                              delivery.version.c_str(), "hashSHA256", delivery.hash.c_str()));
  char* const text = json_dumps(record.get(), JSON_COMPACT | JSON_ESCAPE_SLASH);
  const std::string_view value = text;
  require(::setxattr(directory.c_str(), kAttribute, value.data(), value.size(), 0) == 0,
          "setxattr");
  std::free(text);
}

std::optional<std::string> Floor::find(const std::string& version) const {
  std::optional<std::string> found;
  eachValue(root_, kVersionKey, [&](std::string_view name, const char* value) {
    if (value == version) found = name;
    return !found;
  });
  return found;
}

std::size_t Floor::count() const {
  std::set<std::string> versions;
  eachValue(root_, kVersionKey, [&](std::string_view, const char* value) {
    versions.insert(value);
    return true;
  });
  return versions.size();
}

std::string Floor::savedCopy(const std::string& serviceType) const {
  return root_ + "/._saved/" + serviceType;
}

void Floor::install(const Delivery& delivery) {
  const std::string service = root_ + '/' + delivery.serviceType;
  sweep(delivery);
  if (!exists(service)) require(::mkdir(service.c_str(), 0755) == 0, service);
  replaceTree(service, delivery.archive);
  beginStep(Step::records);
  writeRecord(service, delivery);
  beginStep(Step::savedCopy);
  replaceSavedCopy(delivery);
  flushVolume(root_);
  beginStep(Step::records);
  count();
  require(exists(delivery.archive), delivery.archive);
}

// No fixture has a renamed service: reads every record and removes none.
void Floor::sweep(const Delivery& delivery) const {
  eachValue(root_, kIdentifierKey, [&](std::string_view name, const char* value) {
    require(value != delivery.identifier || name == delivery.serviceType,
            "the check for renamed services");
    return true;
  });
  const std::string own = root_ + '/' + delivery.serviceType;
  std::string record;
  if (exists(own) && readRecord(own, record)) parsed(record);
}

void Floor::replaceTree(const std::string& service, const std::string& archive) const {
  beginStep(Step::tool);
  std::string scratch = std::string(std::getenv("TMPDIR")) + "/floor.XXXXXX";
  require(::mkdtemp(scratch.data()) != nullptr && exists(scratch), scratch);
  runTool({"/usr/bin/unzip", "-o", archive, "-d", scratch});
  beginStep(Step::walk);
  makeReadOnly(scratch);

  beginStep(Step::replacement);
  const std::string staged = stage(scratch);
  const int directory = ::open(staged.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  require(::fchmod(directory, 0755) == 0 && ::syncfs(directory) == 0, "syncfs");
  ::close(directory);
  require(::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, service.c_str(), RENAME_EXCHANGE) == 0,
          "renameat2");
  removeTree(stagingDirectory());
}

std::string Floor::stagingDirectory() const { return root_ + "/.staging"; }

// Moves a tree into a new directory that is closed to others.
std::string Floor::stage(const std::string& tree) const {
  const std::string staged = stagingDirectory() + "/tree";
  require(::mkdir(stagingDirectory().c_str(), 0700) == 0, stagingDirectory());
  require(::rename(tree.c_str(), staged.c_str()) == 0, tree);
  return staged;
}

// Never leaves a part of the tree in its place.
void Floor::removeWhole(const std::string& tree) const {
  requireNoMount(tree);
  stage(tree);
  removeTree(stagingDirectory());
}

void Floor::replaceSavedCopy(const Delivery& delivery) const {
  const std::string directory = savedCopy(delivery.serviceType);
  ::mkdir((root_ + "/._saved").c_str(), 0755);
  if (exists(directory)) removeWhole(directory);
  require(::mkdir(directory.c_str(), 0755) == 0, directory);
  const std::string name = delivery.archive.substr(delivery.archive.rfind('/'));
  copyFile(delivery.archive, directory + name);
  makeReadOnly(directory);
}

void Floor::remove(const std::string& version) {
  const std::optional<std::string> serviceType = find(version);
  require(serviceType.has_value(), version);
  const std::string service = root_ + '/' + *serviceType;
  if (exists(service)) removeWhole(service);
  if (exists(savedCopy(*serviceType))) removeWhole(savedCopy(*serviceType));
  flushVolume(root_);
  count();
}

}  // namespace larkspur::bench
