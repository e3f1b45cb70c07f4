// Registry calls against .reg files written by each test.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "support/files.h"

namespace {

const char* const kParams = "SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters";

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir_.made());
        setenv(HM_COMPAT_REGISTRY_ENV, path_.c_str(), 1);
    }
    void TearDown() override { unsetenv(HM_COMPAT_REGISTRY_ENV); }
    void writeFile(const std::string& bytes) { hmtest::writeFile(path_, bytes); }
    // Opens the parameters key and reads one string value.
    LONG readString(const char* name, std::string& out) {
        HKEY key = nullptr;
        LONG rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        char buf[128];
        DWORD size = sizeof buf;
        DWORD type = REG_NONE;
        rc = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(buf), &size);
        if (rc == ERROR_SUCCESS) {
            EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
            EXPECT_GE(size, 1u);
            EXPECT_EQ(buf[size - 1], '\0');
            out.assign(buf, size - 1);
        }
        EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
        return rc;
    }

    hmtest::TempDir dir_{"hmcompat-reg-"};
    std::string path_ = dir_ / "registry.reg";
};

const std::string kHeader = "Windows Registry Editor Version 5.00\n\n";
const std::string kSection = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n";

TEST_F(RegistryTest, MissingFileAndMissingKeyAreNotFoundAndLeaveTheResultAlone) {
    HKEY sentinel = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x1234));
    HKEY key = sentinel;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, sentinel);

    writeFile(kHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n\"ConfigFile\"=\"x\"\n");
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, sentinel);
    // The same key under another hive is a different key.
    writeFile(kHeader + "[HKEY_CURRENT_USER\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n");
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, sentinel);
}

TEST_F(RegistryTest, BadArgumentsAndHandles) {
    writeFile(kHeader + kSection + "\"A\"=\"1\"\n");
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER);
    HKEY key = nullptr;
    int notAKey = 0;
    EXPECT_EQ(RegOpenKeyExA(reinterpret_cast<HKEY>(&notAKey), kParams, 0, KEY_READ, &key),
              ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(reinterpret_cast<HKEY>(&notAKey)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);

    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_SUCCESS);
    BYTE buf[8];
    EXPECT_EQ(RegQueryValueExA(key, "A", nullptr, nullptr, buf, nullptr), ERROR_INVALID_PARAMETER);
    DWORD reserved = 0;
    DWORD size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "A", &reserved, nullptr, buf, &size), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    // A closed key is no longer a valid handle.
    EXPECT_EQ(RegQueryValueExA(key, "A", nullptr, nullptr, buf, &size), ERROR_INVALID_HANDLE);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

TEST_F(RegistryTest, ValuesSizesAndTypes) {
    writeFile(kHeader + kSection + "\"ConfigFile\"=\"C:\\\\hm\\\\hm.cfg\"\n\"Quoted\"=\"say \\\"hi\\\"\"\n" +
              "\"Empty\"=\"\"\n\"Interval\"=dword:0000000a\n\"Short\"=dword:FfFf\n");
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_QUERY_VALUE, &key), ERROR_SUCCESS);

    // Size query: "C:\hm\hm.cfg" is 12 characters plus the NUL.
    DWORD type = REG_NONE;
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExA(key, "ConfigFile", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(size, 13u);

    // Too small a buffer: ERROR_MORE_DATA, the needed size, and no write past the buffer.
    char small[8];
    std::memset(small, 'x', sizeof small);
    size = 4;
    EXPECT_EQ(RegQueryValueExA(key, "ConfigFile", nullptr, nullptr, reinterpret_cast<LPBYTE>(small), &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(size, 13u);
    EXPECT_EQ(std::string(small + 4, 4), "xxxx");

    char buf[64];
    size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "configfile", nullptr, nullptr, reinterpret_cast<LPBYTE>(buf), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, 13u);
    EXPECT_STREQ(buf, "C:\\hm\\hm.cfg");

    size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "QUOTED", nullptr, nullptr, reinterpret_cast<LPBYTE>(buf), &size),
              ERROR_SUCCESS);
    EXPECT_STREQ(buf, "say \"hi\"");
    size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "Empty", nullptr, nullptr, reinterpret_cast<LPBYTE>(buf), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(buf[0], '\0');

    DWORD value = 0;
    size = sizeof value;
    type = REG_NONE;
    EXPECT_EQ(RegQueryValueExA(key, "interval", nullptr, &type, reinterpret_cast<LPBYTE>(&value), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(value, 10u);
    size = sizeof value;
    EXPECT_EQ(RegQueryValueExA(key, "Short", nullptr, nullptr, reinterpret_cast<LPBYTE>(&value), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(value, 0xFFFFu);

    // Type only.
    type = REG_NONE;
    EXPECT_EQ(RegQueryValueExA(key, "Interval", nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));

    size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "LogFile", nullptr, nullptr, reinterpret_cast<LPBYTE>(buf), &size),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
}

TEST_F(RegistryTest, KeyNamesAreCaseInsensitiveAndParentsExist) {
    writeFile(kHeader +
              "[hkey_local_machine\\software\\ARVENI\\fleetwatchsnmp\\PARAMETERS]\n\"LogFile\"=\"/l\"\n");
    std::string text;
    EXPECT_EQ(readString("LogFile", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "/l");

    HKEY parent = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Arveni", 0, KEY_READ, &parent), ERROR_SUCCESS);
    HKEY child = nullptr;
    EXPECT_EQ(RegOpenKeyExA(parent, "FleetwatchSNMP\\Parameters", 0, KEY_READ, &child), ERROR_SUCCESS);
    char buf[8];
    DWORD size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(child, "LOGFILE", nullptr, nullptr, reinterpret_cast<LPBYTE>(buf), &size),
              ERROR_SUCCESS);
    EXPECT_STREQ(buf, "/l");
    EXPECT_EQ(RegCloseKey(child), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(parent), ERROR_SUCCESS);
}

TEST_F(RegistryTest, BomCrlfCommentsAndRepeatedSections) {
    writeFile("\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n\r\n; comment\r\n" +
              std::string("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n") +
              "\"ConfigFile\"=\"old\"\r\n\"LogFile\"=\"gone\"\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\r\n" +
              "\"ConfigFile\"=\"other\"\r\n" +
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n" +
              "\"CONFIGFILE\"=\"new\"\r\n\"LogFile\"=-\r\n");
    std::string text;
    EXPECT_EQ(readString("ConfigFile", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "new");
    EXPECT_EQ(readString("LogFile", text), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, MalformedLinesAreSkipped) {
    writeFile(kHeader + kSection + "\"Unterminated\"=\"abc\n" + "\"BadEscape\"=\"a\\qb\"\n" +
              "\"BadDword\"=dword:12g4\n" + "\"LongDword\"=dword:123456789\n" + "\"NoEquals\" \"x\"\n" +
              "\"Trailing\"=\"a\" b\n" + "\"Binary\"=hex:01,02,\\\n  03,04\n" +
              std::string("\"Nul\"=\"a\0b\"\n", 12) + "\"LogFile\"=\"/var/log/hm.log\"\n" +
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Broken\n" + "\"ConfigFile\"=\"after broken section\"\n");
    std::string text;
    for (const char* name :
         {"Unterminated", "BadEscape", "BadDword", "LongDword", "NoEquals", "Trailing", "Binary", "Nul"}) {
        EXPECT_EQ(readString(name, text), ERROR_FILE_NOT_FOUND) << name;
    }
    EXPECT_EQ(readString("LogFile", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "/var/log/hm.log");
    // Values after a section header without "]" belong to no key.
    EXPECT_EQ(readString("ConfigFile", text), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, FilesThatAreNotRegistryFilesCannotBeOpened) {
    HKEY key = nullptr;
    const std::string bodies[] = {
        "",                                                 // empty
        kSection + "\"ConfigFile\"=\"x\"\n",                // no header
        "REGEDIT4\n" + kSection,                            // older format
        "Windows Registry Editor Version 5.0\n" + kSection, // wrong header
        std::string("\xFF\xFEW\0i\0", 6) + kSection,        // UTF-16
        kHeader + kSection + std::string(1024 * 1024, ';'), // over 1 MiB
    };
    for (const std::string& body : bodies) {
        writeFile(body);
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_BADDB)
            << body.substr(0, 40);
    }
    // A long line just under the limit is read, and the key after it found.
    writeFile(kHeader + "; " + std::string(1000 * 1000, 'x') + "\n" + kSection + "\"LogFile\"=\"ok\"\n");
    std::string text;
    EXPECT_EQ(readString("LogFile", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "ok");
}

TEST_F(RegistryTest, FileIsReadAtOpenTime) {
    writeFile(kHeader + kSection + "\"ConfigFile\"=\"first\"\n");
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_SUCCESS);
    writeFile(kHeader + kSection + "\"ConfigFile\"=\"second\"\n");
    char buf[16];
    DWORD size = sizeof buf;
    EXPECT_EQ(RegQueryValueExA(key, "ConfigFile", nullptr, nullptr, reinterpret_cast<LPBYTE>(buf), &size),
              ERROR_SUCCESS);
    EXPECT_STREQ(buf, "first");
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    std::string text;
    EXPECT_EQ(readString("ConfigFile", text), ERROR_SUCCESS);
    EXPECT_EQ(text, "second");
}

// The registry file's permissions: a file that group or others may write to, or
// that belongs to someone other than root or the running user, is refused as
// Windows refuses a key whose security denies reading (ERROR_ACCESS_DENIED),
// with one message on standard error. The checks read the file's mode and owner,
// so they hold when the tests run as root too.
const char kText[] = "Windows Registry Editor Version 5.00\r\n\r\n"
                     "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                     "\"ConfigFile\"=\"/etc/hmsubagent/hmsubagent.conf\"\r\n";

class RegistryPermissionTest : public RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        writeFile(kText);
    }
    // Opens the parameters key; returns the status and what was printed on stderr.
    LONG open(std::string& printed) {
        HKEY key = nullptr;
        testing::internal::CaptureStderr();
        const LONG rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key);
        printed = testing::internal::GetCapturedStderr();
        if (rc == ERROR_SUCCESS) {
            EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
        }
        return rc;
    }
    std::string refusal(const std::string& problem) const {
        return "hmcompat: registry file " + path_ + " refused: " + problem + "\n";
    }
};

TEST_F(RegistryPermissionTest, ModesWritableByGroupOrOthersAreRefused) {
    struct Case {
        mode_t mode;
        LONG expected;
        const char* message;
    };
    const Case cases[] = {
        {0600, ERROR_SUCCESS, ""},
        {0400, ERROR_SUCCESS, ""},
        {0640, ERROR_SUCCESS, ""},
        {0644, ERROR_SUCCESS, ""},
        {0755, ERROR_SUCCESS, ""},
        {0602, ERROR_ACCESS_DENIED,
         "group or others may write to it (mode 0602); allow writing to its owner only (chmod go-w)"},
        {0620, ERROR_ACCESS_DENIED,
         "group or others may write to it (mode 0620); allow writing to its owner only (chmod go-w)"},
        {0664, ERROR_ACCESS_DENIED,
         "group or others may write to it (mode 0664); allow writing to its owner only (chmod go-w)"},
        {0666, ERROR_ACCESS_DENIED,
         "group or others may write to it (mode 0666); allow writing to its owner only (chmod go-w)"},
        {0646, ERROR_ACCESS_DENIED,
         "group or others may write to it (mode 0646); allow writing to its owner only (chmod go-w)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::oct << c.mode);
        ASSERT_EQ(chmod(path_.c_str(), c.mode), 0);
        std::string printed;
        EXPECT_EQ(open(printed), c.expected);
        EXPECT_EQ(printed, c.expected == ERROR_SUCCESS ? "" : refusal(c.message));
    }
}

TEST_F(RegistryPermissionTest, RefusalIsSaidOnceUntilTheFileIsFixed) {
    const std::string message =
        refusal("group or others may write to it (mode 0666); allow writing to its owner only (chmod go-w)");
    ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
    std::string printed;
    EXPECT_EQ(open(printed), ERROR_ACCESS_DENIED);
    EXPECT_EQ(printed, message);
    // The agent opens the key again and again: the same refusal stays silent,
    // and a query of the hive itself is refused the same way.
    EXPECT_EQ(open(printed), ERROR_ACCESS_DENIED);
    EXPECT_EQ(printed, "");
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExA(HKEY_LOCAL_MACHINE, "x", nullptr, nullptr, nullptr, &size),
              ERROR_ACCESS_DENIED);
    // Fixed, then broken again: said again.
    ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
    EXPECT_EQ(open(printed), ERROR_SUCCESS);
    ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
    EXPECT_EQ(open(printed), ERROR_ACCESS_DENIED);
    EXPECT_EQ(printed, message);
}

TEST_F(RegistryPermissionTest, OwnerMustBeRootOrTheRunningUser) {
    ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
    std::string printed;
    EXPECT_EQ(open(printed), ERROR_SUCCESS) << "owned by the running user";
    if (geteuid() != 0) {
        GTEST_SKIP() << "giving the file to another user needs root";
    }
    ASSERT_EQ(chown(path_.c_str(), 4242, 4242), 0);
    EXPECT_EQ(open(printed), ERROR_ACCESS_DENIED);
    EXPECT_EQ(printed,
              refusal("it belongs to uid 4242, neither root nor the user the agent runs as (uid 0)"));
    // Group ownership does not matter, only who may write.
    ASSERT_EQ(chown(path_.c_str(), 0, 4242), 0);
    EXPECT_EQ(open(printed), ERROR_SUCCESS);
    EXPECT_EQ(printed, "");
}

} // namespace
