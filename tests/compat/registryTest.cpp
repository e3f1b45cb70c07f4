// Registry calls against .reg files written by each test.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>

#include "support/files.h"

namespace {

const char* const kParams = "SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters";
const std::string kHeader = "Windows Registry Editor Version 5.00\n\n";
const std::string kSection = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n";

// One query: the status, type and size it gives back and the bytes it wrote.
struct Query {
    LONG rc;
    DWORD type, size;
    std::string bytes;
};

// Queries `name` with a buffer of `room` bytes (none when 0); checks nothing is written past it.
Query query(HKEY key, const char* name, DWORD room = 64) {
    char buf[64];
    std::memset(buf, 'x', sizeof buf);
    Query q{0, REG_NONE, room, ""};
    q.rc = RegQueryValueExA(key, name, nullptr, &q.type, room ? reinterpret_cast<LPBYTE>(buf) : nullptr,
                            &q.size);
    EXPECT_EQ(std::string(buf + room, sizeof buf - room), std::string(sizeof buf - room, 'x')) << name;
    if (q.rc == ERROR_SUCCESS && room != 0)
        q.bytes.assign(buf, q.size);
    return q;
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir_.made());
        setenv(HM_COMPAT_REGISTRY_ENV, path_.c_str(), 1);
    }
    void TearDown() override { unsetenv(HM_COMPAT_REGISTRY_ENV); }
    void writeFile(const std::string& bytes) { hmtest::writeFile(path_, bytes); }
    // Opens the parameters key and reads one value.
    std::string read(const char* name) {
        HKEY key = nullptr;
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_SUCCESS);
        Query q = query(key, name);
        EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
        return q.bytes;
    }

    hmtest::TempDir dir_{"hmcompat-reg-"};
    std::string path_ = dir_ / "registry.reg";
};

// Key and value names are case-insensitive; a key's parents exist; the file is read when a
// key is opened. BOM, CRLF, comments, repeated sections and deletions are understood;
// malformed lines are skipped, and values after a section header without "]" belong to no key.
TEST_F(RegistryTest, ValuesSizesTypesAndFileSyntax) {
    writeFile("\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n\r\n; comment\r\n" +
              std::string("[hkey_local_machine\\software\\ARVENI\\fleetwatchsnmp\\PARAMETERS]\r\n") +
              "\"ConfigFile\"=\"old\"\r\n\"LogFile\"=\"gone\"\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\r\n" +
              "\"Stray\"=\"other\"\r\n" + kSection + "\"CONFIGFILE\"=\"C:\\\\hm\\\\hm.cfg\"\n" +
              "\"Quoted\"=\"say \\\"hi\\\"\"\n\"Empty\"=\"\"\n\"Interval\"=dword:0000000a\n" +
              "\"LogFile\"=-\n\"Unterminated\"=\"abc\n\"BadEscape\"=\"a\\qb\"\n\"BadDword\"=dword:12g4\n" +
              "\"Binary\"=hex:01,02,\\\n  03,04\n" + std::string("\"Nul\"=\"a\0b\"\n", 12) +
              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Broken\n\"Path\"=\"after broken section\"\n");
    HKEY key = nullptr, parent = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Arveni", 0, KEY_READ, &parent), ERROR_SUCCESS);
    ASSERT_EQ(RegOpenKeyExA(parent, "FleetwatchSNMP\\Parameters", 0, KEY_QUERY_VALUE, &key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(parent), ERROR_SUCCESS);
    writeFile(kHeader + kSection + "\"ConfigFile\"=\"second\"\n");
    const struct {
        const char* name;
        DWORD room;
        LONG rc;
        DWORD type, size;
        std::string bytes;
    } cases[] = {
        {"ConfigFile", 0, ERROR_SUCCESS, REG_SZ, 13, ""}, // size query: 12 characters and the NUL
        {"ConfigFile", 4, ERROR_MORE_DATA, REG_SZ, 13, ""},
        {"configfile", 64, ERROR_SUCCESS, REG_SZ, 13, std::string("C:\\hm\\hm.cfg", 13)},
        {"QUOTED", 64, ERROR_SUCCESS, REG_SZ, 9, std::string("say \"hi\"", 9)},
        {"Empty", 64, ERROR_SUCCESS, REG_SZ, 1, std::string(1, '\0')},
        {"interval", 4, ERROR_SUCCESS, REG_DWORD, 4, std::string("\x0a\0\0\0", 4)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " in " + std::to_string(c.room));
        Query q = query(key, c.name, c.room);
        EXPECT_EQ(q.rc, c.rc);
        EXPECT_EQ(q.type, c.type);
        EXPECT_EQ(q.size, c.size);
        EXPECT_EQ(q.bytes, c.bytes);
    }
    for (const char* name :
         {"LogFile", "Stray", "Unterminated", "BadEscape", "BadDword", "Binary", "Nul", "Path"}) {
        Query q = query(key, name);
        EXPECT_EQ(q.rc * 100 + q.type, ERROR_FILE_NOT_FOUND * 100 + REG_NONE) << name;
    }
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(read("CONFIGFILE"), std::string("second", 7));
}

// A missing file or key is not found, a file that is not a registry file a bad database;
// either way the result is left alone.
TEST_F(RegistryTest, FilesKeysAndHandlesThatCannotBeUsed) {
    const HKEY sentinel = reinterpret_cast<HKEY>(static_cast<uintptr_t>(0x1234));
    HKEY key = sentinel;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND); // no file
    const std::pair<std::string, LONG> cases[] = {
        // The same key under another hive is a different key.
        {kHeader + "[HKEY_CURRENT_USER\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n",
         ERROR_FILE_NOT_FOUND},
        {"", ERROR_BADDB},
        {kSection + "\"ConfigFile\"=\"x\"\n", ERROR_BADDB},                // no header
        {kHeader + kSection + std::string(1024 * 1024, ';'), ERROR_BADDB}, // over 1 MiB
    };
    for (const auto& [body, rc] : cases) {
        writeFile(body);
        EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), rc) << body.substr(0, 60);
    }
    EXPECT_EQ(key, sentinel);
    // A long line just under the limit is read, and the key after it found.
    writeFile(kHeader + "; " + std::string(1000 * 1000, 'x') + "\n" + kSection + "\"LogFile\"=\"ok\"\n");
    EXPECT_EQ(read("LogFile"), std::string("ok", 3));
    // A closed key is no longer a valid handle.
    ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
}

// A registry file that group or others may write to, or that belongs to someone other than
// root or the running user, is refused as Windows refuses a key whose security denies reading
// (ERROR_ACCESS_DENIED), with one message on standard error. A refusal is said once: opened
// again, the same refusal stays silent until the file is fixed; another refusal is said again.
TEST_F(RegistryTest, FilesWritableByOthersOrOwnedByAnotherUserAreRefused) {
    writeFile(kHeader + kSection + "\"ConfigFile\"=\"/etc/hmsubagent/hmsubagent.conf\"\n");
    auto open = [&](mode_t mode, std::string& printed) {
        EXPECT_EQ(chmod(path_.c_str(), mode), 0);
        HKEY key = nullptr;
        testing::internal::CaptureStderr();
        const LONG rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParams, 0, KEY_READ, &key);
        printed = testing::internal::GetCapturedStderr();
        EXPECT_EQ(rc == ERROR_SUCCESS ? RegCloseKey(key) : ERROR_SUCCESS, ERROR_SUCCESS);
        return rc;
    };
    const struct {
        mode_t mode;
        const char* refused; // the mode as the message writes it
        bool said;
    } cases[] = {{0644, nullptr, false}, {0602, "0602", true},   {0620, "0620", true},
                 {0620, "0620", false},  {0600, nullptr, false}, {0620, "0620", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::oct << c.mode);
        std::string printed;
        EXPECT_EQ(open(c.mode, printed), c.refused ? ERROR_ACCESS_DENIED : ERROR_SUCCESS);
        EXPECT_EQ(printed, c.said ? "hmcompat: registry file " + path_ +
                                        " refused: group or others may write to it (mode " + c.refused +
                                        "); allow writing to its owner only (chmod go-w)\n"
                                  : "");
    }
    if (geteuid() != 0)
        GTEST_SKIP() << "giving the file to another user needs root";
    std::string printed;
    ASSERT_EQ(chown(path_.c_str(), 4242, 4242), 0);
    EXPECT_EQ(open(0644, printed), ERROR_ACCESS_DENIED);
    EXPECT_NE(printed.find("refused: it belongs to uid 4242, neither root nor the user"), std::string::npos);
    // Group ownership does not matter, only who may write.
    ASSERT_EQ(chown(path_.c_str(), 0, 4242), 0);
    EXPECT_EQ(open(0644, printed), ERROR_SUCCESS);
}

} // namespace
