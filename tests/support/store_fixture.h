// SPDX-License-Identifier: Apache-2.0
// A framework on a temporary root with recorded signals; everything else is real.
#pragma once

#include <larkspur/larkspur.h>
#include <sys/xattr.h>

#include <fstream>
#include <regex>

#include "support/platform_scope.h"
#include "support/temporary_root.h"

namespace larkspur::test {

/// Writes or overwrites the file.
inline FileURL writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
  return FileURL(path);
}

class RecordedTest : public LarkspurTest {
 protected:
  static constexpr char kEverything[] = "";
  /// Errors, posts and events, without what every scan logs about "._saved".
  static constexpr char kSignals[] = R"(^(post|send|error (?!GetP.*\._saved )))";

  /// How a call ended ("done" or the error's message), and on the next lines what was recorded and
  /// matches. The test's directory becomes "$", a scratch
  /// directory "$scratch", the text of the JSON library "...".
  std::string report(const std::function<void()>& call, const char* pattern = kSignals) {
    recorder->lines.clear();
    std::string text = "done";
    try {
      call();
    } catch (const std::exception& error) {
      text = error.what();
    }
    for (const std::string& line : recorder->lines)
      if (std::regex_search(line, std::regex(pattern))) text += "\n" + line;
    const std::string path = directory();
    for (const auto& [from, to] : std::vector<std::pair<std::string, const char*>>{
             {path + "/tmp/larkspur-\\w{6}", "$$scratch"},
             {path, "$$"},
             {"internal error: .+", "internal error: ..."},
             {" *\n+", "\n"},
             {"[ \n]+$", ""}})
      text = std::regex_replace(text, std::regex(from), to);
    return text;
  }

  const std::shared_ptr<Recorder> recorder = recordSignals();
};

/// Makes the protected steps public.
struct OpenFramework : LarkspurFramework {
  using LarkspurFramework::checkUpdateScenario, LarkspurFramework::removeServiceDirectory;
};

class StoreTest : public RecordedTest {
 protected:
  /// An archive, made on first use. Its only entry, by default a file, contains `version`.
  FileURL archive(const std::string& version, const std::string& type = "S_IFREG") const {
    const std::string path = directory() / version / "config.zip";
    if (fs::create_directory(directory() / version))
      sh("python3 -c \"import stat, zipfile; entry = zipfile.ZipInfo('settings');"
         " entry.create_system = 3; entry.external_attr = stat." +
         type +
         " << 16;"
         " zipfile.ZipFile('" +
         path + "', 'w').writestr(entry, '" + version + "')\"");
    return FileURL(path);
  }
  /// That archive, for the declaration "identifier".
  Installation offer(const std::string& version) const {
    return {"vpn", archive(version), version, "identifier", "hash"};
  }
  void install(const std::string& version) { framework->installArchive(offer(version)); }
  /// Puts exactly this record on the item, a new directory if there is none.
  void manage(const std::string& type, const std::string& record) {
    std::error_code exists;
    fs::create_directory(root() / type, exists);
    ::setxattr((root() / type).c_str(), "user.Larkspur", record.data(), record.size(), 0);
  }
  /// The versions of tree, record and saved copy, "-" for a missing one: "v1 v2 -".
  std::string state() const {
    Tree items = snapshot(root());
    std::string versions;
    for (const std::string& text :
         {items["vpn/settings"], recordBytes(root() / "vpn"), items["._saved/vpn/config.zip"]}) {
      std::smatch found;
      versions += std::regex_search(text, found, std::regex("v[12]")) ? " " + found.str() : " -";
    }
    return versions.substr(1);
  }
  /// Repeats the operation on an installed "v1" and fails each step on the disk in turn: which
  /// step, the state it leaves, whether the change was announced, and the errors.
  std::string failEachStep(const std::function<void()>& operation) {
    std::string story;
    for (int failing = 1;; ++failing) {
      install("v1");
      const ScopedPlatform scope;
      std::string failed;
      int steps = 0;
      hookEverySeam([&](const char* step) {
        if (step == std::string("get") || ++steps != failing) return;
        failed = step;
        failCall(step);
      });
      const std::string outcome = report(operation, "^error (?!GetP)");
      if (failed.empty()) return story;
      const bool posted = std::ranges::count(recorder->lines, "post kLarkspurChanged_vpn") == 1;
      story += failed + ": " + state() + (posted ? ", announced, " : ", ") + outcome + "\n";
    }
  }

  std::unique_ptr<OpenFramework> framework = [this] {
    currentPlatform().fileManager = std::make_shared<HookedFileManager>();
    LarkspurFramework::larkspurPath() = root();
    return std::make_unique<OpenFramework>();
  }();
};

}  // namespace larkspur::test
