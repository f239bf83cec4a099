// SPDX-License-Identifier: Apache-2.0
// The file manager on a real disk: cases that no other test can provoke. The umask, which masks
// everything, must not matter.
#include <dirent.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <thread>

#include "platform/linux/system_platform.h"
#include "support/platform_scope.h"
#include "support/temporary_root.h"

// The type that directories report for each entry; by default the right one.
static std::optional<unsigned char> reportedType;

extern "C" ssize_t getdents64(int directory, void* buffer, std::size_t size) noexcept {
  const ssize_t length = ::syscall(SYS_getdents64, directory, buffer, size);
  for (ssize_t at = 0; at < length;) {
    auto* const entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + at);
    entry->d_type = reportedType.value_or(entry->d_type);
    at += entry->d_reclen;
  }
  return length;
}

namespace larkspur::test {

struct FileManagerTest : LarkspurTest {
  ~FileManagerTest() override { ::umask(mask); }
  FileURL at(const std::string& name) const { return FileURL(root() / name); }
  const std::shared_ptr<FileManager> files = linuxos::makeFileManager();
  const mode_t mask = ::umask(0777);
};

TEST_F(FileManagerTest, FailuresSetErrnoAndChangeNothing) {
  sh("mkdir d; echo text > file; ln -s nowhere link; mkfifo d/pipe");
  const Tree before = snapshot(root());
  const FileURL file = at("file"), top = at(""), zero(file.path() + '\0');
  constexpr auto kYes = IntermediateDirectories::yes, kNo = IntermediateDirectories::no;
  const std::pair<int, std::function<void()>> cases[] = {
      {EINVAL, [&] { files->createDirectory(zero, kYes, 0755); }},
      {EINVAL, [&] { files->makeItemReplacementDirectory(zero); }},
      {EINVAL, [&] { files->replaceItem(zero, at("d"), "tmp"); }},
      {EINVAL, [&] { files->replaceItem(file, zero, "tmp"); }},
      {EINVAL, [&] { files->copyItem(zero, at("copy")); }},
      {EINVAL, [&] { files->copyItem(file, zero); }},
      {EINVAL, [&] { files->copyItem(top, at("into-itself")); }},
      {EINVAL, [&] { files->removeItem(zero, top); }},
      {EINVAL, [&] { files->enumerate(zero, {}); }},
      {EINVAL, [&] { files->fileSize(zero); }},
      {EEXIST, [&] { files->createDirectory(at("link"), kYes, 0755); }},
      {EEXIST, [&] { files->createDirectory(at("d"), kNo, 0755); }},
      {ENOTDIR, [&] { files->createDirectory(at("file/a/b"), kYes, 0755); }},
      {EEXIST, [&] { files->copyItem(file, at("link")); }},
      {ENOTSUP, [&] { files->copyItem(at("d"), at("copy")); }},
      {0, [&] { files->createDirectory(at("d"), kYes, 0700); }}};
  for (const auto& one : cases) EXPECT_EQ(failureOf(one.second), one.first) << &one - cases;
  EXPECT_EQ(files->existence(at("file/")), Existence::file);
  EXPECT_EQ(files->fileSize(at("link")), 7);
  EXPECT_EQ(snapshot(root()), before);
}

TEST_F(FileManagerTest, DeepTreesNeedFewDescriptors) {
  sh("mkdir d && cd d && perl -e 'mkdir \"d\" x 200 and chdir \"d\" x 200 for 1..50'");
  inChild([this] {
    rlimit few = {12, 1024};
    ::setrlimit(RLIMIT_NOFILE, &few);
    files->copyItem(at("d"), at("copy"));
    files->removeItem(at("d"), at(""));
    few.rlim_cur = 0;  // Out of descriptors, the walk fails.
    const auto exhaust = [&](EnumeratedItem&) { ::setrlimit(RLIMIT_NOFILE, &few); };
    EXPECT_EQ(failureOf([&] { files->enumerate(at("copy"), exhaust); }), EMFILE);
    few.rlim_cur = few.rlim_max;  // for what sanitizers do at the end
    ::setrlimit(RLIMIT_NOFILE, &few);
  });
  files->removeItem(at("copy"), at(""));
}

TEST_F(FileManagerTest, EntriesMayChangeDuringAWalk) {
  sh("mkdir -p a/b/c/d elsewhere");
  const auto move = [&](EnumeratedItem& item) {
    if (item.url() == at("a/b/c/d")) sh("mv a/b/c elsewhere");
  };
  EXPECT_EQ(failureOf([&] { files->enumerate(at("a"), move); }), ESTALE);
  const std::tuple<int, const char*, int> swapped[] = {{DT_DIR, "ln -s ../away t/x", ENOTDIR},
                                                       {DT_REG, "ln -s ../away/f t/x", ELOOP},
                                                       {DT_REG, "mkfifo t/x", ENOTSUP}};
  for (const auto& [type, entry, code] : swapped) {
    sh("rm -rf *; mkdir away t; touch away/f; " + std::string(entry));
    reportedType = type;
    EXPECT_EQ(failureOf([&] { files->copyItem(at("t"), at("copy")); }), code);
    const auto open = [](EnumeratedItem& item) { item.setPosixPermissions(0777); };
    failureOf([&] { files->enumerate(at("t"), open); });
    failureOf([&] { files->removeItemReplacementDirectory(at("t")); });
    EXPECT_EQ(snapshot(root() / "away"), (Tree{{"f", "f644 "}}));
  }
  sh("mkdir -p t/d t/e");
  reportedType = DT_UNKNOWN;
  const auto remove = [&](EnumeratedItem&) { sh("rm -r t/*"); };
  EXPECT_EQ(failureOf([&] { files->enumerate(at("t"), remove); }), ENOENT);
  reportedType.reset();
}

TEST_F(FileManagerTest, TreesThatCannotBeRemovedStayWhole) {
  withVolume([this] {
    sh("chmod 755 .. && chown 65534 .");
    const auto remove = [this](const char* item) { files->removeItem(at(item), at("")); };
    for (const std::string obstacle :
         {"mount --bind ../home t/d/in", "mount --bind /proc/version t/d/in/f", "mount --bind t t",
          "chattr +i t/d/in/f", "chattr +a t/d"}) {
      sh("mkdir -p t/d/in && touch t/d/in/f t/1 t/2 t/3 t/4 t/5 && " + obstacle);
      const Tree before = snapshot(root());
      EXPECT_EQ(failureOf([&] { remove("t"); }), obstacle[0] == 'm' ? EBUSY : EPERM) << obstacle;
      EXPECT_EQ(snapshot(root()), before) << obstacle;
      sh("umount -q t/d/in t/d/in/f t; chattr -ia t/d t/d/in/f; rm -rf t");
    }
    ASSERT_EQ(::setresuid(65534, 65534, 65534), 0);
    sh("mkdir -p t/closed/in t/a/fixed/in && touch t/closed/in/f t/a/fixed/in/f &&"
       " chmod 0 t/closed/in t/closed && chmod 555 t/a/fixed");
    EXPECT_EQ(failureOf([&] { files->copyItem(at("t"), at("copy")); }), EACCES);
    EXPECT_EQ(failureOf([&] { remove("t/closed"); }), EACCES);
    EXPECT_EQ(failureOf([&] { remove("t/a"); }), EACCES);
    // A walk passes over closed directories, but its visitor can open them.
    int met = 0;
    files->enumerate(at("t"), [&](EnumeratedItem&) { ++met; });
    files->enumerate(at("t"), [](EnumeratedItem& item) { item.setPosixPermissions(0755); });
    EXPECT_EQ(met, 5);
    EXPECT_EQ(snapshot(root() / "t/closed"), (Tree{{"in", "d755"}, {"in/f", "f755 "}}));
    sh("chmod 0 t/closed/in t/closed");
    files->removeItemReplacementDirectory(at("t"));
    EXPECT_EQ(snapshot(root()), (Tree{{"m", "d755"}}));
  });
}

TEST_F(FileManagerTest, ReplacementLeavesNothingElse) {
  withVolume([this] {
    sh("touch m/a && ln -s none m/b");
    const auto replaceOften = [this](const std::string& name) {
      for (int i = 0; i < 300; ++i) {
        const std::string by = (i % 2 == 0 ? "new" : "m/new") + name;
        files->createDirectory(at(by + "/sub/deep"), IntermediateDirectories::yes, 0750);
        files->replaceItem(at("m/" + name), at(by), "tmp");
        if (i == 0) linuxos::makeExtendedAttributes()->set(at("m/" + name), "Larkspur", "{}");
      }
    };
    std::thread other(replaceOften, "a");
    replaceOften("b");
    other.join();
    const Tree modes{{"sub", "d750"}, {"sub/deep", "d750"}};
    EXPECT_TRUE(snapshot(root() / "m/a") == modes && snapshot(root() / "m/b") == modes);
    EXPECT_EQ(snapshot(root() / "m").at("a") + snapshot(root() / "m").at("b"), "d755d755");
    // Leftovers of crashes are removed; lookalikes and a mounted volume stay.
    const auto recorder = recordSignals();
    sh("[ * = m ] && mkdir new && cd m && mkdir -p .larkspur-crash1/d .larkspur-crash12"
       " .larkspur-crash- .larkspur-servic .larkspur-others a/volume && chmod 1700 .larkspur-[co]*"
       " && chown 65534 .larkspur-others && mount -t tmpfs none a/volume && touch a/volume/f");
    files->replaceItem(at("m/a"), at("new"), "tmp");
    sh("cd m && [ -e .larkspur-*/*/volume/f -a $(ls -d .larkspur-* | wc -l) = 5 ]");
    ASSERT_EQ(recorder->lines.size(), 1U);
    EXPECT_TRUE(recorder->lines[0].starts_with("error Platform: Removing ")) << recorder->lines[0];
  });
}

TEST_F(FileManagerTest, ScratchDirectoriesAreOnTheMountOfTheReference) {
  withVolume([this] {
    sh("mkdir bound m/area && mount --bind . bound");
    fs::current_path(root() / "m");
    const auto made = [this](const std::string& area, const char* reference) {
      ::setenv("TMPDIR", area.c_str(), 1);
      const std::string path = files->makeItemReplacementDirectory(at(reference))->path();
      return path.substr(0, path.size() - 6);
    };
    EXPECT_EQ(made(directory(), "none"), directory() / "larkspur-");
    EXPECT_EQ(made(root() / "bound", "none"), root() / "larkspur-");
    EXPECT_EQ(made(root(), "m/none/none"), root() / "m/larkspur-");
    EXPECT_EQ(made(".", "m/area"), root() / "m/area/larkspur-");
  });
}

TEST_F(FileManagerTest, CopiesAreComplete) {
  sh("mkdir -p tree/sub && touch tree/empty && ln -s nowhere tree/link && cat /proc/version > same"
     " && head -c 3000001 /dev/urandom > tree/big && truncate -s 5M tree/big && chmod 640 tree/big"
     " && find tree -depth -exec touch -hd 2101-02-03 {} +");
  for (const std::string name : {"tree", "tree/big", "tree/link"}) {
    files->copyItem(at(name), at("copy"));
    sh("diff -r --no-dereference " + name + " copy");
    sh("[ -z \"$(find " + name + " copy -printf '%P %m %y %t %l\n' | sort | uniq -u)\" ]");
    files->removeItem(at("copy"), at(""));
    reportedType = DT_UNKNOWN;
  }
  reportedType.reset();
  files->copyItem(FileURL("/proc/version"), at("copy"));  // its size is reported as 0
  sh("cmp copy same");
}

}  // namespace larkspur::test
