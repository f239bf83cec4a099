// SPDX-License-Identifier: Apache-2.0
// The store that the sweeps break and repair: one service in two versions, and another service.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "support/store_fixture.h"

namespace larkspur::test {

/// An operation on the service: installs "v2", or deletes or looks up "v1". "v1" is installed
/// before, under the service type `before`.
struct Operation {
  std::string name, before;
  friend std::ostream& operator<<(std::ostream& out, const Operation& operation) {
    return out << operation.name;
  }
};
inline constexpr char kVPN[] = "com.example.vpn", kOld[] = "com.example.old",
                      kOther[] = "com.example.other";
inline const Operation kNew{"New", ""}, kUpdate{"Update", kVPN}, kRename{"Rename", kOld},
    kDelete{"Delete", kVPN}, kFind{"Find", kVPN}, kList{"List", kVPN};

/// By default a sweep breaks some of the calls, spread over all of them; with the variable every
/// call.
inline const bool kEveryPoint = std::getenv("LARKSPUR_SWEEP_EVERY_POINT") != nullptr;

class SweepTest : public StoreTest {
 protected:
  /// The archive of that version.
  FileURL offer(const std::string& version) {
    const std::string large(100'000, version[1]);
    const std::string zip = zipBytes({{"settings", version}, {version + "/large", large}});
    trees_[version] = {
        {"settings", "f444 " + version}, {version, "d755"}, {version + "/large", "f444 " + large}};
    copies_[version] = {{"config.zip", "f444 " + zip}};
    return writeFile(directory() / "config.zip", zip);
  }
  void install(const std::string& version, const std::string& type = kVPN) {
    StoreTest::install(version, false, type, "application/zip", offer(version));
  }
  void prepare(const Operation& operation) {
    std::error_code busy;  // A tool whose parent was killed may still write there.
    for (const auto& place : {root(), scratchArea})
      for (const auto& entry : std::filesystem::directory_iterator(place))
        std::filesystem::remove_all(entry.path(), busy);
    manage(kOther, R"({"declarationVersionKey":"v0"})");
    if (!operation.before.empty()) install("v1", operation.before);
    offer("v2");
    recorder->lines.clear();
  }

  std::string record(const std::string& type) const {
    const std::string bytes = recordBytes(root() / type);
    return bytes.empty() ? "-" : bytes.substr(bytes.find("\"v") + 1, 2);
  }
  /// The versions of tree, record and saved copy: "v2 v2 v1". Also "-" if missing, "empty",
  /// "part-of-v1", and "other" for anything else, like a mixture or wrong modes.
  std::string state(const std::string& type = kVPN) const {
    return version(root() / type, trees_) + " " + record(type) + " " +
           version(root() / "._saved" / type, copies_);
  }

  /// The states that any outcome may leave: old, new or a step between them, but never a mixture.
  void expectOldOrNew(const Operation& operation) const {
    const bool isUpdate = operation.name == "Update";
    const std::string saved = isUpdate ? "v1" : "-", before = isUpdate ? "v1 v1 v1|-" : "(-|empty)",
                      deleted = "v1 v1 v1|- - (v1|-)",
                      installed = before + " - " + saved + "|v2 - " + saved +
                                  "|v2 v2 (v2|-|empty|other|" + saved + ")";
    EXPECT_TRUE(matches(state(), operation.name == "Delete" ? deleted : installed));
    EXPECT_TRUE(matches(state(kOld), operation.name == "Rename" ? deleted : "- - -"));
  }

  /// Only services are open to other users.
  void expectClosed() const {
    constexpr std::filesystem::perms kOthers{077};
    for (const auto& place : {root(), scratchArea}) {
      for (const auto& entry : std::filesystem::directory_iterator(place)) {
        const bool isOurs = entry.path().filename().native().find("larkspur-") < 2;
        EXPECT_TRUE(!isOurs || (entry.status().permissions() & kOthers) == std::filesystem::perms{})
            << entry;
      }
    }
  }

  /// After any outcome lookups find only services, and the next install brings tree, record and
  /// saved copy together.
  void expectConsistentAndRepairable() {
    std::vector<std::string> recorded;
    for (const char* type : {kOld, kOther, kVPN})
      if (record(type) != "-") recorded.push_back(record(type));
    EXPECT_EQ(framework->getDeclarationVersionKeys(), recorded);

    install("v2");
    EXPECT_EQ(state(), "v2 v2 v2");
    const std::filesystem::directory_iterator entries(root());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 3) << "the other one, ._saved and this";
  }

  std::filesystem::path scratchArea = directory() / "tmp";

 private:
  static std::string version(const std::filesystem::path& path,
                             const std::map<std::string, Tree>& versions) {
    const Tree items = snapshot(path);
    if (items.empty()) return std::filesystem::exists(path) ? "empty" : "-";
    for (const auto& [name, whole] : versions)
      if (std::ranges::includes(whole, items)) return (items == whole ? "" : "part-of-") + name;
    return "other";
  }

  std::map<std::string, Tree> trees_, copies_;
};

}  // namespace larkspur::test
