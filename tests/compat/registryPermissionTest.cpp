// The registry file's permissions: a file that group or others may write to, or
// that belongs to someone other than root or the running user, is refused as
// Windows refuses a key whose security denies reading (ERROR_ACCESS_DENIED),
// with one message on standard error. The checks read the file's mode and owner,
// so they hold when the tests run as root too.
#include <windows.h>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const char* const kParams = "SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters";
const char kText[] = "Windows Registry Editor Version 5.00\r\n\r\n"
                     "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                     "\"ConfigFile\"=\"/etc/hmsubagent/hmsubagent.conf\"\r\n";

class RegistryPermissionTest : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/hmcompat-perm-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        path_ = dir_ + "/registry.reg";
        FILE* f = std::fopen(path_.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fputs(kText, f);
        std::fclose(f);
        setenv(HM_COMPAT_REGISTRY_ENV, path_.c_str(), 1);
    }
    void TearDown() override {
        unlink(path_.c_str());
        rmdir(dir_.c_str());
        unsetenv(HM_COMPAT_REGISTRY_ENV);
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

    std::string dir_;
    std::string path_;
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
