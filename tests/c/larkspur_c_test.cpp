// SPDX-License-Identifier: Apache-2.0
// The C interface: what each call reports, and that no exception escapes.
#include <larkspur/larkspur_c.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "foundation/utf8.h"
#include "support/store_fixture.h"

namespace larkspur::test {

class CInterfaceTest : public RecordedTest {
 protected:
  // Error code, errno, message and detail, with the test's directory as "$".
  std::string resultOf(int code) {
    EXPECT_EQ(code, error.code);
    return std::to_string(code) + " " + std::to_string(error.system_errno) + " " +
           shortened(error.message) + " | " + shortened(error.detail);
  }
  std::string shortened(std::string text) {
    const std::string path = directory();
    for (std::size_t at = 0; (at = text.find(path)) != std::string::npos;)
      text.replace(at, path.size(), "$");
    return text;
  }
  int open(const std::string& path, larkspur_store** opened) {
    return larkspur_open(path.c_str(), opened, &error);
  }
  void SetUp() override {
    ASSERT_EQ(open(root(), &store), LARKSPUR_OK) << error.message;
    RecordedTest::SetUp();
  }
  void close() { larkspur_close(std::exchange(store, nullptr)); }
  void TearDown() override {
    close();
    RecordedTest::TearDown();
  }

  larkspur_error error = {};
  larkspur_store* store = nullptr;
  const std::string archive =
      writeFile(directory() / "good.zip", zipBytes({{"settings", "on"}})).path();
  larkspur_install_options options = {
      sizeof options, "com.example.vpn", archive.c_str(), "v1", "d1", "hash", nullptr, 0};
};

TEST_F(CInterfaceTest, BadArguments) {
  char* type = nullptr;
  larkspur_service** list = nullptr;
  larkspur_store* none = store;
  const auto install = [&](auto member, auto value) {
    larkspur_install_options bad = options;
    bad.*member = value;
    return larkspur_install(store, &bad, &error);
  };
  const auto hooks = [&](std::size_t size, int level) {
    const larkspur_hooks bad{size, nullptr, nullptr, nullptr, nullptr, level};
    return larkspur_use_hooks(&bad, &error);
  };
  using Options = larkspur_install_options;
  const auto expect = [&](int code, const char* message) {
    EXPECT_EQ(resultOf(code), "32 0 " + std::string(message) + " | ");
  };
  expect(larkspur_open(nullptr, &none, &error), "root is NULL");
  EXPECT_EQ(none, nullptr);
  expect(open(root(), nullptr), "store is NULL");
  expect(larkspur_use_hooks(nullptr, &error), "hooks is NULL");
  expect(hooks(sizeof(larkspur_hooks) - 1, 0), "size is not sizeof(larkspur_hooks)");
  expect(hooks(sizeof(larkspur_hooks), 3), "log_level is not a level");
  expect(hooks(sizeof(larkspur_hooks), 0), "hooks cannot change while a store is open");
  expect(larkspur_check_archive(nullptr, "x", &error), "store is NULL");
  expect(larkspur_check_archive(store, nullptr, &error), "archive is NULL");
  expect(larkspur_check_archive(store, "", &error), "archive is empty");
  expect(larkspur_delete(nullptr, "x", &error), "store is NULL");
  expect(larkspur_delete(store, "\xED\xA0\x80", &error), "version is not UTF-8");
  expect(larkspur_find(store, "x", nullptr, &error), "service_type is NULL");
  expect(larkspur_find(store, nullptr, &type, &error), "version is NULL");
  expect(larkspur_services(nullptr, &list, &error), "store is NULL");
  expect(larkspur_services(store, nullptr, &error), "services is NULL");
  expect(larkspur_install(store, nullptr, &error), "options is NULL");
  expect(larkspur_install(nullptr, &options, &error), "store is NULL");
  expect(install(&Options::size, sizeof(Options) - 1),
         "size is not sizeof(larkspur_install_options)");
  expect(install(&Options::service_type, nullptr), "service_type is NULL");
  expect(install(&Options::service_type, ""), "service_type is empty");
  expect(install(&Options::service_type, "a\xC0\x80"), "service_type is not UTF-8");
  expect(install(&Options::service_type, "a/b"), "service_type contains a slash");
  expect(install(&Options::service_type, std::string(256, 'a').c_str()),
         "service_type is longer than 255 bytes");
  for (const char* name : {".", "..", "._saved", ".larkspur-abcdef"})
    expect(install(&Options::service_type, name), "service_type is a reserved name");
  expect(install(&Options::archive, nullptr), "archive is NULL");
  expect(install(&Options::version, "\xF4\x90\x80\x80"), "version is not UTF-8");
  expect(install(&Options::identifier, nullptr), "identifier is NULL");
  expect(install(&Options::sha256, "\xE2\x82"), "sha256 is not UTF-8");
  expect(install(&Options::content_type, "\x80"), "content_type is not UTF-8");
  larkspur_close(nullptr);
  larkspur_free(nullptr);
  larkspur_free_services(nullptr);
  EXPECT_TRUE(snapshot(root()).empty());
}

TEST_F(CInterfaceTest, Roots) {
  larkspur_store* other = nullptr;
  EXPECT_EQ(resultOf(open("a/b", &other)), "32 0 root is not an absolute path | ");
  EXPECT_EQ(resultOf(open("", &other)), "32 0 root is not an absolute path | ");
  EXPECT_EQ(resultOf(open("/\xFF", &other)), "32 0 root is not UTF-8 | ");
  EXPECT_EQ(resultOf(open(archive, &other)),
            "34 17 filesystem error: cannot create directory: File exists [$/good.zip] | ");
  EXPECT_EQ(open("/proc/none", &other), LARKSPUR_SYSTEM_ERROR);
  EXPECT_EQ(open("/" + std::string(256, 'a'), &other), LARKSPUR_SYSTEM_ERROR);
  EXPECT_EQ(error.system_errno, ENAMETOOLONG);
  EXPECT_EQ(other, nullptr);

  const mode_t mask = ::umask(077);
  EXPECT_EQ(resultOf(open(directory() / "a/é", &other)), "0 0  | ");
  ::umask(mask);
  EXPECT_EQ(snapshot(directory())["a"] + snapshot(directory())["a/é"], "d755d755");
  // Two stores, each with its own root.
  EXPECT_EQ(larkspur_install(store, &options, nullptr), LARKSPUR_OK);
  options.version = "v2";
  EXPECT_EQ(larkspur_install(other, &options, nullptr), LARKSPUR_OK);
  EXPECT_NE(recordBytes(root() / "com.example.vpn").find("v1"), std::string::npos);
  EXPECT_NE(recordBytes(directory() / "a/é/com.example.vpn").find("v2"), std::string::npos);
  larkspur_close(other);

  wrap<ForwardingNotificationCenter>(&Platform::notificationCenter, failOn("open", ENOENT));
  EXPECT_EQ(resultOf(open(root(), &other)),
            "33 0 the system has no notification center | Failed getting darwin notification "
            "center. errno: 2");
  EXPECT_EQ(other, nullptr);
}

TEST_F(CInterfaceTest, EveryCode) {
  const std::string saved = "Getting system state for $/root/._saved failed with error: ";
  const std::string scan = saved + "Internal Error";
  char* type = nullptr;
  EXPECT_EQ(resultOf(larkspur_find(store, "v1", &type, &error)),
            "2 0 Managed service not found for v1 | ");
  EXPECT_EQ(type, nullptr);
  options.size += 100;  // like a later version of the struct
  EXPECT_EQ(resultOf(larkspur_install(store, &options, &error)), "0 0  | " + scan);
  EXPECT_EQ(resultOf(larkspur_find(store, "v1", &type, &error)).substr(0, 4), "0 0 ");
  EXPECT_STREQ(type, "com.example.vpn");
  larkspur_free(type);

  const auto install = [&](auto member, auto value) {
    larkspur_install_options changed = options;
    changed.*member = value;
    return resultOf(larkspur_install(store, &changed, &error));
  };
  using Options = larkspur_install_options;
  EXPECT_EQ(install(&Options::content_type, "text/plain").substr(0, 4), "1 0 ");
  EXPECT_EQ(install(&Options::identifier, "d2").substr(0, 4), "3 0 ");
  EXPECT_EQ(install(&Options::service_type, "com.corvid.none").substr(0, 4), "5 0 ");
  const std::string link = writeFile(directory() / "l.zip", zipBytes({zipLink("a", "b")})).path();
  EXPECT_EQ(resultOf(larkspur_check_archive(store, link.c_str(), &error)).substr(0, 4), "6 0 ");
  EXPECT_NE(install(&Options::archive, "/missing.zip").find(scan + "\nunzip configuration file"),
            std::string::npos);
  EXPECT_EQ(error.code, LARKSPUR_UNZIP_FAILED);
  allowScratchDirectories(1);
  EXPECT_EQ(resultOf(larkspur_delete(store, "v1", &error)).substr(0, 4), "2 0 ");

  const auto failing = [&](const char* call, const auto& failure) {
    const ScopedPlatform scope;
    hookEverySeam([&](const char* name) {
      if (std::string(call) == name) throw failure;
    });
    return resultOf(larkspur_install(store, &options, &error));
  };
  const std::system_error full(ENOSPC, std::generic_category(), "write");
  EXPECT_EQ(failing("replaceItem", full).substr(0, 4), "7 0 ");
  EXPECT_EQ(failing("fileSize", full).substr(0, 5), "34 28");
  EXPECT_EQ(failing("fileSize", std::bad_alloc()),
            "35 0 out of memory | " + scan + "\n" + scan);  // once for renames, once for the count
  EXPECT_EQ(failing("enumerate", full).substr(0, 4), "8 0 ");
  allowScratchDirectories(scratchDirectories());
  EXPECT_EQ(larkspur_delete(store, "v1", nullptr), LARKSPUR_OK);
}

TEST_F(CInterfaceTest, ListsEveryService) {
  larkspur_service** list = nullptr;
  ASSERT_EQ(resultOf(larkspur_services(store, &list, &error)), "0 0  | ");
  EXPECT_EQ(list[0], nullptr);
  larkspur_free_services(list);
  const std::string record = R"({"declarationVersionKey":"1","contentType":"a\u0000b"})";
  for (const char* type : {"a", "b"}) {
    std::filesystem::create_directory(root() / type);
    ASSERT_EQ(
        0, ::setxattr((root() / type).c_str(), "user.Larkspur", record.data(), record.size(), 0));
  }
  ASSERT_EQ(larkspur_services(store, &list, &error), LARKSPUR_OK);
  std::string types;
  for (larkspur_service** at = list; *at != nullptr; ++at) {
    types += (*at)->type;
    EXPECT_STREQ((*at)->version, "1");
    EXPECT_TRUE(!(*at)->identifier && !(*at)->content_type && !(*at)->sha256);
  }
  larkspur_free_services(list);
  EXPECT_TRUE(types == "ab" || types == "ba") << types;
}

TEST_F(CInterfaceTest, DetailIsNotCutInsideACharacter) {
  std::string path = directory();
  for (int parts = 0; parts < 5; ++parts) {
    path += "/";
    for (int characters = 0; characters < 120; ++characters) path += "é";
  }
  for (const char* shift : {"", "x"}) {
    EXPECT_EQ(larkspur_check_archive(store, (path + shift).c_str(), &error), LARKSPUR_UNZIP_FAILED);
    EXPECT_GE(std::string(error.detail).size(), sizeof error.detail - 2);
    EXPECT_TRUE(isUTF8(error.detail));
  }
  // The latest lines are kept.
  for (int entry = 10; entry < 30; ++entry)
    std::filesystem::create_directory(root() / std::to_string(entry));
  EXPECT_EQ(larkspur_install(store, &options, &error), LARKSPUR_OK);
  const std::string detail = shortened(error.detail);
  EXPECT_TRUE(matches(
      detail,
      R"((Getting system state for \$/root/\S+ failed with error: Internal Error(\n|$))+)"));
}

struct Calls {
  std::string lines;
  static void log(void* calls, int level, const char* category, const char*) {
    static_cast<Calls*>(calls)->lines += std::to_string(level) + category + " ";
  }
  static void change(void* calls, const char* name) {
    static_cast<Calls*>(calls)->lines += std::string(name) + " ";
  }
  static void event(void* calls, const char* type, int enabled, long long size, long long count) {
    static_cast<Calls*>(calls)->lines += std::string(type) + " " + std::to_string(enabled) + " " +
                                         std::to_string(size) + " " + std::to_string(count) + " ";
  }
};

TEST_F(CInterfaceTest, HooksAreCalled) {
  close();
  Calls calls;
  larkspur_hooks hooks{sizeof hooks, &calls, Calls::log, Calls::change, Calls::event, 0};
  ASSERT_EQ(larkspur_use_hooks(&hooks, &error), LARKSPUR_OK);
  ASSERT_EQ(open(root(), &store), LARKSPUR_OK);
  EXPECT_EQ(larkspur_install(store, &options, &error), LARKSPUR_OK);
  EXPECT_EQ(calls.lines, "kLarkspurChanged_com.example.vpn 0GetPersistedData Other 1 120 1 ");
  EXPECT_NE(error.detail[0], '\0');
  close();

  hooks = {sizeof hooks, &calls, Calls::log, nullptr, nullptr, LARKSPUR_LOG_INFO};
  calls.lines.clear();
  ASSERT_EQ(larkspur_use_hooks(&hooks, &error), LARKSPUR_OK);
  wrap<ForwardingNotificationCenter>(&Platform::notificationCenter, failOn("open", ENOENT));
  EXPECT_EQ(open(root(), &store), LARKSPUR_NOT_READY);
  EXPECT_EQ(calls.lines, "0Framework ");
}

}  // namespace larkspur::test
