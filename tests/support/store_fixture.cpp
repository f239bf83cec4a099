// SPDX-License-Identifier: Apache-2.0
// A framework on a temporary root with recorded signals.
#include "support/store_fixture.h"

#include <sys/xattr.h>

#include <algorithm>
#include <regex>
#include <sstream>

namespace larkspur::test {
namespace {

// Lists directories in sorted order.
struct SortedFileManager : ForwardingFileManager {
  using ForwardingFileManager::ForwardingFileManager;
  std::vector<FileURL> contentsOfDirectory(const FileURL& directory) override {
    auto items = ForwardingFileManager::contentsOfDirectory(directory);
    std::ranges::sort(items, {}, &FileURL::path);
    return items;
  }
};

constexpr std::size_t kScratchSuffix = 6;

// Also replaces `more` characters after each match. No std::regex: it overflows the stack on long
// strings.
std::string replaced(std::string text, const std::string& from, const std::string& to,
                     std::size_t more = 0) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size() + more, to);
  return text;
}

}  // namespace

std::vector<std::vector<std::string>> table(std::size_t columns, const std::string& text) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    auto& row = rows.emplace_back();
    for (std::size_t at = 0, end; row.size() < columns; at = end + 3) {
      end = row.size() + 1 < columns ? line.find(" | ", at) : line.size();
      row.push_back(line.substr(at, end - at));
    }
  }
  return rows;
}

::testing::AssertionResult matches(const std::string& text, const std::string& pattern) {
  if (std::regex_match(text, std::regex(pattern))) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << text;
}

std::string outcome(const std::function<void()>& call) {
  try {
    call();
  } catch (const LarkspurError& error) {
    return error.description();
  } catch (const std::system_error& error) {
    return "system error " + std::to_string(error.code().value());
  }
  return "done";
}

std::string RecordedTest::report(const std::function<void()>& call, const char* pattern) {
  recorder->lines.clear();
  std::string text = outcome(call);
  for (std::string line : recorder->lines) {
    line = replaced(line, directory().native(), "$");
    line = replaced(line, "$/tmp/larkspur-", "$scratch", kScratchSuffix);
    line = replaced(line.substr(0, line.find_last_not_of(" \n") + 1), "\n", " | ");
    if (std::regex_search(line, std::regex(pattern))) text += " | " + line;
  }
  return text;
}

StoreTest::StoreTest() {
  wrap<SortedFileManager>(&Platform::fileManager);
  LarkspurFramework::larkspurPath() = root();
  framework = std::make_unique<OpenFramework>();
}

void StoreTest::install(const std::string& version, bool force, const std::string& type,
                        const std::string& contentType, std::optional<FileURL> offered) {
  if (!offered) offered = archive(version);
  framework->installArchive({type, *offered, version, "identifier", "hash", contentType, force});
}

void StoreTest::manage(const std::string& type, const std::string& record) {
  std::filesystem::create_directories(root() / type);
  ::setxattr((root() / type).c_str(), "user.Larkspur", record.data(), record.size(), 0);
}

std::string StoreTest::state() {
  Tree items = snapshot(root());
  const std::string type = kType, saved = "._saved/" + type;
  const auto version = [&](const std::string& text, const std::string& top) -> std::string {
    for (const char* known : {"v1", "v2"})
      if (text.find(known) != std::string::npos) return known;
    return items.contains(top) ? "?" : "-";
  };
  return version(items[type + "/settings"], type) + " " + version(recordBytes(root() / type), "") +
         " " + version(items[saved + "/config.zip"], saved);
}

void StoreTest::expectFailures(const std::string& rows, const std::function<void()>& operation) {
  for (const auto& row : table(5, rows)) {
    SCOPED_TRACE(row[0] + " " + row[1]);
    install("v1", true);
    ASSERT_EQ(state(), "v1 v1 v1");
    allowScratchDirectories(scratchDirectories() + std::stoi(row[3]));
    const ScopedPlatform scope;
    hookEverySeam(failOn(row[0], std::stoi(row[2]), std::stoi(row[1])));
    const std::string result = report(operation);
    EXPECT_EQ(state() + " | " + result, row[4]);
    EXPECT_EQ(scratchDirectories(), allowedScratchDirectories());
  }
}

}  // namespace larkspur::test
