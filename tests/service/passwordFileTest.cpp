// The IPMI LAN password file: refused when group or others may read or write it
// (checked on the mode, so the checks hold when the tests run as root), its
// first line read with a bound, and the refusal as a query sees it.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "kelvarn/Errors.h"
#include "kelvarn/Ipmi.h"
#include "serviceTestUtil.h"
#include "support/files.h"

namespace {

const char kOpen[] = ": the password file is open to group or others; allow only its owner (chmod 600)";

class PasswordFile : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.made()); }
    void write(const std::string& text, mode_t mode) {
        hmtest::writeFile(m_file, text);
        ASSERT_EQ(chmod(m_file.c_str(), mode), 0);
    }
    // The password, or "refused: " and the reason.
    std::string read() {
        try {
            return kelvarn::readPasswordFile(m_file);
        } catch (const std::runtime_error& e) {
            return std::string("refused: ") + e.what();
        }
    }

    hmtest::TempDir m_dir{"hm-pass-"};
    std::string m_file = m_dir / "bmc.pass";
};

TEST_F(PasswordFile, ModesThatLetGroupOrOthersReadOrWriteAreRefused) {
    struct Case {
        mode_t mode;
        bool accepted;
    };
    const Case cases[] = {
        {0600, true},  {0400, true},  {0700, true},  {0610, true},  {0601, true},  {0500, true},
        {0640, false}, {0620, false}, {0660, false}, {0644, false}, {0604, false}, {0602, false},
        {0606, false}, {0666, false}, {0440, false}, {0404, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::oct << c.mode);
        write("s3cret\n", c.mode);
        EXPECT_EQ(read(), c.accepted ? "s3cret" : "refused: " + m_file + kOpen);
    }
}

TEST_F(PasswordFile, FirstLineWithinTwentyBytes) {
    struct Case {
        const char* text;
        const char* expected; // nullptr: too long
    };
    const Case cases[] = {
        {"s3cret\r\nsecond line\n", "s3cret"},
        {"", ""},
        {"\n", ""},
        {"12345678901234567890\n", "12345678901234567890"},
        {"12345678901234567890\r\n", "12345678901234567890"},
        {"12345678901234567890", "12345678901234567890"},
        {"123456789012345678901\n", nullptr},
        {"123456789012345678901", nullptr},
        {"pass word, spaces\n", "pass word, spaces"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        write(c.text, 0600);
        EXPECT_EQ(read(), c.expected != nullptr
                              ? std::string(c.expected)
                              : "refused: " + m_file + ": the password is longer than 20 bytes");
    }
}

TEST_F(PasswordFile, OnlyRegularFilesThatExist) {
    EXPECT_EQ(read(), "refused: " + m_file + ": No such file or directory");
    ASSERT_EQ(mkfifo(m_file.c_str(), 0600), 0);
    EXPECT_EQ(read(), "refused: " + m_file + ": not a regular file");
    std::filesystem::remove(m_file);
    ASSERT_EQ(mkdir(m_file.c_str(), 0700), 0);
    EXPECT_EQ(read(), "refused: " + m_file + ": not a regular file");
}

// Through the query service: the data source reports the refusal as its failure
// (data source unavailable) with the reason, and no IPMI session is attempted.
TEST_F(PasswordFile, RefusalSeenByAQuery) {
    write("s3cret\n", 0644);
    hmtest::writeFile(m_dir / "kelvarn.conf",
                      "bmc=ipmi-lan\nipmi-host=127.0.0.1\nipmi-port=9\nipmi-user=ipmiusr\n"
                      "ipmi-password-file=bmc.pass\nipmi-startup-wait-ms=5000\n");
    ScopedConfig config(m_dir / "kelvarn.conf");
    SDK::System sys;
    const std::vector<RStatus> failures = failuresOf(sys, "/BMC/SDR/SENSOR_TYPE[1]");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].Code, 1086);
    EXPECT_EQ(failures[0].Message,
              "BMC data unavailable: nothing read yet from IPMI over LAN at 127.0.0.1:9: password file " +
                  m_file + kOpen);
}

} // namespace
