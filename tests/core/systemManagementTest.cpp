#include "core/systemManagement.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/debugLog.h"
#include "support/files.h"

namespace {

// Reads `content` as the configuration file (trace closed) and holds the group.
struct ReadConfig {
    hmtest::TempDir dir;
    systemManagement group;
    uint32_t status;

    explicit ReadConfig(const std::string& content) {
        hmtest::writeFile(dir / "hm.conf", content);
        status = group.init((dir / "hm.conf").c_str(), (dir / "trace.log").c_str());
        closeDebugLog();
    }
    // The published value of `attribute`, numbers as decimal text.
    std::string value(int attribute) {
        if (attribute <= setsEnabledAttr && attribute != platformDescriptionAttr) {
            int32_t number = 12345;
            EXPECT_EQ(CLIENT_SUCCESS, group.getIntInfo(attribute, 0, &number)) << attribute;
            return std::to_string(number);
        }
        char* text = nullptr;
        EXPECT_EQ(CLIENT_SUCCESS, group.getStrInfo(attribute, 1, &text)) << attribute;
        std::string result = text != nullptr ? text : "<null>";
        free(text);
        return result;
    }
};

TEST(SystemManagementTest, ReadsSettings) {
    const std::string filler1023 = "productdescription=" + std::string(1023 - 19, 'D');
    const struct {
        std::string content;
        int attribute;
        std::string expected;
    } cases[] = {
        {"trapsenabled=1\n", trapsEnabledAttr, "1"},
        {"trapsenabled=1", trapsEnabledAttr, "1"},                   // no final line end
        {"", trapsEnabledAttr, "0"},                                 // empty file
        {"   #trapsenabled=1\n", trapsEnabledAttr, "0"},             // comment after three spaces
        {"\t#trapsenabled=1\n", trapsEnabledAttr, "0"},              // a setting with an unknown key
        {"\ttrapsenabled=1\n", trapsEnabledAttr, "0"},               // a tab before the key is kept
        {"\n\n \ntrapsenabled=1\n\n", trapsEnabledAttr, "1"},        // bare line ends ignored
        {"Traps Enabled = 1\n", trapsEnabledAttr, "1"},              // capitals and inner spaces
        {"trapsenabled=1\ntrapsenabled=0\n", trapsEnabledAttr, "0"}, // the last one wins
        {"trapsenabled\ntrapsenabled=1\n", trapsEnabledAttr, "1"},   // a line without "=" skipped
        {"debugenabled=0\ntrapsenabled=1\n", trapsEnabledAttr, "1"},
        {"   #debugenabled=1\n", trapsEnabledAttr, "0"},
        {filler1023 + "trapsenabled=1\n", trapsEnabledAttr, "1"}, // the rest of a long line is a line
        {"platformidx=5\n", platformIdAttr, "5"},                 // the prefix matches
        {"PlatformID = 42\n", platformIdAttr, "42"},
        {"platformid=abc\n", platformIdAttr, "0"},
        {"platformid=\"17\"\n", platformIdAttr, "17"},
        {"setsenabled=1\n", setsEnabledAttr, "0"}, // sets stay disabled
        {"trapsenabled=1\n", systemStatusAttr, "2"},
        {"manufacturer =    Example Systems\n", manufacturerAttr, "Example Systems"},
        {"PRODUCT NAME = Mixed Case\n", productNameAttr, "Mixed Case"},
        {"productversion = \"2.1.0\"\n", productVersionAttr, "2.1.0"},
        {"manufacturer = Example \"Big\" Systems\n", manufacturerAttr, "Example Big Systems"},
        {"productbuildnumber=1234\r\n", productBuildNumberAttr, "1234\r"},
        {"manufacturer=First\nmanufacturer=Second\n", manufacturerAttr, "Second"},
        {"platformdescriptionx=Nope\n", platformDescriptionAttr, ""}, // the whole key only
        {"platformdescription=Rack server\n", platformDescriptionAttr, "Rack server"},
        {"productdescription=a=b\n", productDescriptionAttr, "a=b"},
        {"productname=" + std::string(100, 'N') + "\n", productNameAttr, std::string(63, 'N')},
        {filler1023 + "trapsenabled=1\n", productDescriptionAttr, std::string(63, 'D')},
        {"trapsenabled=1\n", productVersionAttr, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content.substr(0, 60));
        ReadConfig config(c.content);
        ASSERT_EQ(CLIENT_SUCCESS, config.status);
        EXPECT_EQ(c.expected, config.value(c.attribute));
        EXPECT_FALSE(config.group.isDebugEnabled());
        EXPECT_FALSE(hmtest::fileExists(config.dir / "trace.log"));
    }
}

// A missing file: 10, the defaults kept, nothing traced.
TEST(SystemManagementTest, MissingFileReturns10KeepsDefaultsAndLogsNothing) {
    hmtest::TempDir dir;
    systemManagement group;
    EXPECT_EQ(10u, group.init((dir / "absent.conf").c_str(), (dir / "trace.log").c_str()));
    int32_t value = 0;
    EXPECT_EQ(CLIENT_SUCCESS, group.getIntInfo(systemStatusAttr, 0, &value));
    EXPECT_EQ(2, value);
    EXPECT_FALSE(group.isTrapsEnabled() || group.isDebugEnabled() || hmtest::fileExists(dir / "trace.log"));
}

// The trace opens at the "debugenabled" line; every later setting line is traced.
TEST(SystemManagementTest, TracesSettingLinesOnceTheTraceIsOpen) {
    ReadConfig config("trapsenabled=1\ndebugenabled=1\n# a comment\nManufacturer = \"Example Systems\"\r\n");
    EXPECT_TRUE(config.group.isDebugEnabled());
    const std::string trace = hmtest::readFile(config.dir / "trace.log");
    EXPECT_NE(std::string::npos, trace.find("ptKey=:manufacturer:, stValue=:Example Systems\r:\n"));
    EXPECT_EQ(std::string::npos, trace.find("ptKey=:trapsenabled:"));
}

// Only the system group's own attributes, through the getter of their type; nothing is live
// or writable.
TEST(SystemManagementTest, GroupInterface) {
    ReadConfig config("trapsenabled=1\nmanufacturer=Example\n");
    int32_t value = 0;
    char* text = reinterpret_cast<char*>(&value);
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, config.group.getIntInfo(manufacturerAttr, 0, &value));
    EXPECT_EQ(-1, value);
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, config.group.getStrInfo(trapsEnabledAttr, 1, &text));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(
        (std::vector<uint32_t>{CLIENT_ERROR_NOSUCHNAME, CLIENT_ERROR_NOSUCHNAME, CLIENT_ERROR_NOTSUPPORTED,
                               CLIENT_ERROR_NOTSUPPORTED, CLIENT_ERROR_NOTSUPPORTED}),
        (std::vector<uint32_t>{config.group.getIntInfo(11, 0, &value), config.group.getStrInfo(0, 1, &text),
                               config.group.getIntData(systemStatusAttr, 0, &value),
                               config.group.getStrData(manufacturerAttr, 1, &text),
                               config.group.setIntData(trapsEnabledAttr, 0, 1)}));
    EXPECT_EQ(1, config.group.getCount());
    config.group.setStatus(9);
    EXPECT_EQ("9", config.value(systemStatusAttr));
    EXPECT_TRUE(config.group.isTrapsEnabled());
    EXPECT_FALSE(config.group.isSetsEnabled());
}

} // namespace
