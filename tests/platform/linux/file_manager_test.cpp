// SPDX-License-Identifier: Apache-2.0
// The file manager on a real disk: cases that no other test can provoke.
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <thread>

#include "platform/linux/system_platform.h"
#include "support/platform_scope.h"
#include "support/temporary_root.h"

namespace {

bool hidesTypes = false;
// The type reported for an entry named "swapped".
unsigned char typeBefore = DT_UNKNOWN;

}  // namespace

// Like a file system that does not store the types of its entries.
extern "C" ssize_t getdents64(int directory, void* buffer, std::size_t size) noexcept {
  const ssize_t length = ::syscall(SYS_getdents64, directory, buffer, size);
  for (ssize_t at = 0; at < length;) {
    auto* const entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + at);
    if (hidesTypes) entry->d_type = DT_UNKNOWN;
    if (typeBefore != DT_UNKNOWN && entry->d_name == std::string_view("swapped"))
      entry->d_type = typeBefore;
    at += entry->d_reclen;
  }
  return length;
}

namespace larkspur::test {
namespace {

using Tree = std::map<std::string, std::string>;
constexpr auto kYes = IntermediateDirectories::yes;

struct FileManagerTest : LarkspurTest {
  FileURL at(const std::string& name) const { return FileURL(root() / name); }
  void sh(const std::string& command) const {
    EXPECT_EQ(std::system(("cd " + root().native() + " && " + command).c_str()), 0) << command;
  }
  // Mounts a file system at `name` that only this process sees.
  void mountAt(const std::string& name) const {
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr);
    sh("mkdir -p " + name + " && mount -t tmpfs none " + name);
  }
  // Runs `body` in a child, where it may change limits, user and mounts.
  static void inChild(const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
      EXPECT_NO_THROW(body());  // or the child would run the other tests
      std::fflush(nullptr);
      ::_exit(HasFailure());
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  int failureOf(const std::function<void()>& call) const {
    try {
      return call(), 0;
    } catch (const std::system_error& failure) {
      return errno == failure.code().value() ? errno : -1;
    }
  }

  const std::shared_ptr<FileManager> files = linuxos::makeFileManager();
};

TEST_F(FileManagerTest, ModesAreExactWhateverTheUmask) {
  allowScratchDirectories(4);
  for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
    sh("rm -rf * && mkdir -p a/deep && echo x > a/deep/f && chmod 751 a/deep && chmod 600 "
       "a/deep/f");
    const mode_t before = ::umask(mask);
    files->createDirectory(at("made/deep/"), kYes, 0755);
    files->copyItem(at("a/deep"), at("b"));
    const FileURL scratch = *files->makeItemReplacementDirectory(at(""));
    ::umask(before);
    EXPECT_EQ(snapshot(directory() / "tmp").rbegin()->second, "d700");
    files->replaceItem(at("a"), scratch, "tmp");
    EXPECT_EQ(snapshot(root()), (Tree{{"a", "d755"},
                                      {"b", "d751"},
                                      {"b/f", "f600 x\n"},
                                      {"made", "d755"},
                                      {"made/deep", "d755"}}));
  }
}

TEST_F(FileManagerTest, FailuresSetErrnoAndChangeNothing) {
  sh("mkdir d; echo text > file; ln -s nowhere link; mkfifo d/pipe");
  const Tree before = snapshot(root());
  const FileURL zero((root() / "file").native() + '\0'), file = at("file"), none = at("none");
  const std::pair<int, std::function<void()>> cases[] = {
      {EINVAL, [&] { files->createDirectory(zero, kYes, 0755); }},
      {EINVAL, [&] { files->makeItemReplacementDirectory(zero); }},
      {EINVAL, [&] { files->replaceItem(zero, at("d"), "tmp"); }},
      {EINVAL, [&] { files->replaceItem(file, zero, "tmp"); }},
      {EINVAL, [&] { files->copyItem(zero, none); }},
      {EINVAL, [&] { files->copyItem(file, zero); }},
      {EINVAL, [&] { files->copyItem(at(""), at("into-itself")); }},
      {EINVAL, [&] { files->removeItem(zero, at("")); }},
      {EINVAL, [&] { files->contentsOfDirectory(zero); }},
      {EINVAL, [&] { files->enumerate(zero, {}); }},
      {EINVAL, [&] { files->fileSize(zero); }},
      {EEXIST, [&] { files->createDirectory(at("link"), kYes, 0755); }},
      {EEXIST, [&] { files->copyItem(file, at("link")); }},
      {ENOTSUP, [&] { files->copyItem(at("d"), at("copy")); }},
      {ENOTSUP, [&] { files->copyItem(at("d/pipe"), at("copy")); }},
      {0, [&] { files->createDirectory(at("d"), kYes, 0700); }}};
  for (const auto& one : cases) EXPECT_EQ(failureOf(one.second), one.first) << &one - cases;
  EXPECT_EQ(std::pair(files->existence(zero), errno), std::pair(Existence::nothing, EINVAL));
  EXPECT_EQ(snapshot(root()), before);
}

TEST_F(FileManagerTest, DeepTreesNeedFewDescriptors) {
  inChild([this] {
    std::filesystem::current_path(root());
    for (int i = 0; i < 2000; ++i) ASSERT_TRUE(::mkdir("d", 0755) == 0 && ::chdir("d") == 0);
    const rlimit few = {12, 12};
    ::setrlimit(RLIMIT_NOFILE, &few);
    files->copyItem(at("d"), at("copy"));
    std::size_t length = at("copy").path().size();
    files->enumerate(at("copy/"),
                     [&](auto& item) { length += item.url().path().size() == length + 2 ? 2 : 0; });
    EXPECT_EQ(length, at("copy").path().size() + 2 * 1999);
    files->removeItem(at("copy"), at(""));
    files->removeItem(at("d"), at(""));
    EXPECT_EQ(snapshot(root()), Tree{});
  });
}

TEST_F(FileManagerTest, MovedDirectoryEndsTheWalk) {
  sh("mkdir -p a/b/c/d elsewhere/e");
  std::string met;
  const auto moving = [&](EnumeratedItem& item) {
    met += item.url().lastPathComponent();
    if (met == "bcd") sh("mv a/b/c elsewhere");
  };
  EXPECT_EQ(failureOf([&] { files->enumerate(at("a"), moving); }), ESTALE);
  EXPECT_EQ(met, "bcd");
}

TEST_F(FileManagerTest, ModesAreNotChangedThroughLinks) {
  for (const unsigned char type : {DT_DIR, DT_REG}) {
    sh("mkdir -p t && touch secret && chmod 600 secret && ln -s ../secret t/swapped");
    typeBefore = type;
    const auto open = [](EnumeratedItem& item) { item.setPosixPermissions(0755); };
    EXPECT_EQ(failureOf([&] { files->enumerate(at("t"), open); }), EOPNOTSUPP);
    failureOf([&] { files->removeItemReplacementDirectory(at("t")); });
    typeBefore = DT_UNKNOWN;
    EXPECT_EQ(snapshot(root()).at("secret"), "f600 ");
    sh("rm -rf t");
  }
}

TEST_F(FileManagerTest, EntryOfUnknownTypeEndsTheWalk) {
  sh("mkdir -p t/d");
  hidesTypes = true;
  int met = 0;
  const auto swap = [&](EnumeratedItem&) { ++met, sh("rm -f t/*; rmdir t/d t/e 2>&-; true"); };
  sh("mkdir t/e");
  EXPECT_EQ(failureOf([&] { files->enumerate(at("t"), swap); }), ENOENT);
  hidesTypes = false;
  EXPECT_EQ(met, 1);
}

TEST_F(FileManagerTest, TreesThatCannotBeRemovedStayWhole) {
  if (!canMount()) GTEST_SKIP() << "needs root and mount namespaces";
  inChild([this] {
    mountAt("m");
    const std::pair<const char*, int> cases[] = {
        {"mount -t tmpfs none t/d/volume && touch t/d/volume/f", EBUSY},
        {"mount --bind m t/d/volume", EBUSY},
        {"touch t/d/bound && mount --bind /proc/version t/d/bound", EBUSY},
        {"mount --bind t t", EBUSY},
        {"chattr +i t/d/z", EPERM},
        {"chattr +a t", EPERM}};
    for (const auto& [obstacle, code] : cases) {
      sh("mkdir -p t/d/volume && touch t/a t/d/z && " + std::string(obstacle));
      const Tree before = snapshot(root());
      EXPECT_EQ(failureOf([this] { files->removeItem(at("t"), at("")); }), code) << obstacle;
      EXPECT_EQ(snapshot(root()), before) << obstacle;
      sh("umount -q t/d/volume t/d/bound t; chattr -ia t t/d/z; rm -rf t");
    }
  });
}

TEST_F(FileManagerTest, OwnersCanOpenClosedDirectories) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chown(root().c_str(), 65534, 65534), 0);
  std::filesystem::permissions(directory(), std::filesystem::perms{0755});
  inChild([this] {
    ASSERT_EQ(::setresuid(65534, 65534, 65534), 0);
    sh("mkdir -p t/closed/in t/unsearchable t/z && touch t/closed/in/f t/unsearchable/f t/z/f &&"
       " chmod 0 t/closed/in t/closed && chmod 444 t/unsearchable");
    int met = 0;
    files->enumerate(at("t"), [&](EnumeratedItem&) { ++met; });
    EXPECT_EQ(met, 5);
    EXPECT_EQ(failureOf([this] { files->copyItem(at("t"), at("copy")); }), EACCES);
    EXPECT_EQ(failureOf([this] { files->removeItem(at("t/closed"), at("")); }), EACCES);
    files->enumerate(at("t"), [](EnumeratedItem& item) {
      item.setPosixPermissions(item.kind() == ItemKind::directory ? 0755 : 0444);
    });
    const Tree all = snapshot(root());
    EXPECT_EQ(all.size(), 8U);
    EXPECT_EQ(all.at("t/closed/in") + all.at("t/closed/in/f"), "d755f444 ");
    files->removeItem(at("t"), at(""));
    EXPECT_EQ(snapshot(root()), Tree{});
  });
}

TEST_F(FileManagerTest, ReplacementLeavesOnlyTheNewTree) {
  if (!canMount()) GTEST_SKIP() << "needs root and mount namespaces";
  const auto check = [this](const std::string& replacement, const std::string& old) {
    sh("mkdir -p m " + replacement + "/sub && echo new > " + replacement + "/sub/f && cd m && " +
       old);
    ::setxattr(at("m/svc").path().c_str(), "user.Larkspur", "{}", 2, 0);
    files->replaceItem(at("m/svc"), at(replacement), "tmp");
    EXPECT_EQ(snapshot(at("m").path()),
              (Tree{{"svc", "d755"}, {"svc/sub", "d755"}, {"svc/sub/f", "f644 new\n"}}))
        << replacement << old;
    EXPECT_EQ(files->existence(at(replacement)), Existence::nothing);
    sh("rm -rf m/svc");
  };
  for (const std::string old : {"mkdir -p svc/old/deep", "touch svc", "ln -s /etc svc"}) {
    check("new", old);
    check("m/beside", old);
    inChild([&] { mountAt("m"), check("new", old); });
  }
  EXPECT_EQ(snapshot(root()), (Tree{{"m", "d755"}}));
}

TEST_F(FileManagerTest, ConcurrentReplacements) {
  if (!canMount()) GTEST_SKIP() << "needs root and mount namespaces";
  inChild([this] {
    mountAt("m");
    const auto replaceOften = [this](const std::string& name) {
      std::filesystem::create_directory(root() / "m" / name);
      for (int i = 0; i < 300; ++i) {
        std::filesystem::create_directory(root() / name);
        files->replaceItem(at("m/" + name), at(name), "tmp");
      }
    };
    std::thread other(replaceOften, "a");
    replaceOften("b");
    other.join();
    EXPECT_EQ(snapshot(root() / "m"), (Tree{{"a", "d755"}, {"b", "d755"}}));
  });
}

TEST_F(FileManagerTest, LeftoversOfCrashesAreRemovedOrLogged) {
  if (!canMount()) GTEST_SKIP() << "needs root and mount namespaces";
  inChild([this] {
    const auto recorder = recordSignals();
    mountAt("m");
    sh("mkdir -p new m/svc/old && cd m && mkdir -p .larkspur-stale1/sub .larkspur-in-use"
       " .larkspur-inuse1 .larkspur-servic && chmod 1700 .larkspur-*[1e]");
    const int held = ::open(at("m/.larkspur-inuse1").path().c_str(), O_RDONLY);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    files->replaceItem(at("m/svc"), at("new"), "tmp");
    EXPECT_EQ(snapshot(at("m").path()), (Tree{{".larkspur-in-use", "d1700"},
                                              {".larkspur-inuse1", "d1700"},
                                              {".larkspur-servic", "d755"},
                                              {"svc", "d755"}}));
    EXPECT_EQ(recorder->lines, std::vector<std::string>{});
    sh("mkdir -p new m/svc/mounted && mount -t tmpfs none m/svc/mounted");
    files->replaceItem(at("m/svc"), at("new"), "tmp");
    EXPECT_EQ(files->contentsOfDirectory(at("m/svc")).size(), 0U);
    ASSERT_EQ(recorder->lines.size(), 1U);
    EXPECT_TRUE(recorder->lines[0].starts_with("error Platform: Removing ")) << recorder->lines[0];
  });
}

TEST_F(FileManagerTest, ScratchDirectoriesAreOnTheMountOfTheReference) {
  if (!canMount()) GTEST_SKIP() << "needs root and mount namespaces";
  inChild([this] {
    mountAt("volume");
    sh("mkdir area volume/area && touch file");
    const char* const kCases[][3] = {{"area", "home", "area/larkspur-"},
                                     {"area", "volume", "volume/larkspur-"},
                                     {"area", "volume/none", "volume/larkspur-"},
                                     {"none", "volume", "volume/larkspur-"},
                                     {"file", "volume", "volume/larkspur-"},
                                     {"area", "file/none", "area/larkspur-"},
                                     {"volume/area", "volume/none", "volume/area/larkspur-"}};
    for (const auto& [area, reference, expected] : kCases) {
      ::setenv("TMPDIR", at(area).path().c_str(), 1);
      const std::string made = files->makeItemReplacementDirectory(at(reference))->path();
      EXPECT_TRUE(made.starts_with(at(expected).path())) << made;
    }
    ::setenv("TMPDIR", ".", 1);  // Not absolute, so it is ignored.
    const FileURL made = *files->makeItemReplacementDirectory(at(""));
    EXPECT_FALSE(made.path().starts_with(std::filesystem::current_path().native())) << made.path();
    files->removeItem(made, at(""));
  });
}

TEST_F(FileManagerTest, FilesLargerThanTheAddressSpace) {
  sh("mkdir tree && truncate -s 5G tree/big");
  EXPECT_EQ(files->fileSize(at("tree/big")), std::int64_t{5} << 30);
  files->enumerate(at("tree"), [](EnumeratedItem& item) { item.setPosixPermissions(0444); });
  files->removeItem(at("tree"), at(""));
}

TEST_F(FileManagerTest, CopiesAreCompleteAndNeverOverwrite) {
  sh("mkdir -p tree/sub && touch tree/empty && ln -s nowhere tree/link && cat /proc/version > same"
     " && head -c 3000001 /dev/urandom > tree/big && truncate -s 5M tree/big && chmod 640 tree/big"
     " && find tree -depth -exec touch -hd 2101-02-03 {} +");
  for (const std::string name : {"tree", "tree", "tree/big", "tree/link"}) {
    hidesTypes = !hidesTypes;
    files->copyItem(at(name), at("copy"));
    sh("diff -r --no-dereference " + name +
       " copy && list() { find $1 -printf '%P %m %y %t %l\n'"
       " | sort; } && list " +
       name + " > one && list copy | diff one -");
    EXPECT_EQ(failureOf([&] { files->copyItem(at(name), at("copy")); }), EEXIST);
    files->removeItem(at("copy"), at(""));
  }
  files->copyItem(FileURL("/proc/version"), at("copy"));  // its size is reported as 0
  sh("cmp copy same");
}

}  // namespace
}  // namespace larkspur::test
