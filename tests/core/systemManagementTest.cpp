#include "core/systemManagement.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "core/debugLog.h"
#include "support/files.h"

namespace {

using ScratchDir = hmtest::TempDir;

// Reads `content` as the configuration file (trace closed) and returns the group.
struct ReadConfig {
    ScratchDir dir;
    systemManagement group;
    uint32_t status;

    explicit ReadConfig(const std::string& content) {
        std::string path = dir.file("hm.conf");
        hmtest::writeFile(path, content);
        status = group.init(path.c_str(), dir.file("trace.log").c_str());
        closeDebugLog();
    }
    int32_t intValue(int attribute) {
        int32_t value = 12345;
        EXPECT_EQ(CLIENT_SUCCESS, group.getIntInfo(attribute, 0, &value)) << attribute;
        return value;
    }
    std::string text(int attribute) {
        char* value = nullptr;
        EXPECT_EQ(CLIENT_SUCCESS, group.getStrInfo(attribute, 1, &value)) << attribute;
        std::string result = value != nullptr ? value : "<null>";
        free(value);
        return result;
    }
};

struct IntCase {
    const char* name;
    std::string content;
    int attribute;
    int32_t expected;
};

void PrintTo(const IntCase& c, std::ostream* os) {
    *os << c.name;
}

class ConfigIntTest : public ::testing::TestWithParam<IntCase> {};

TEST_P(ConfigIntTest, ReadsSetting) {
    ReadConfig config(GetParam().content);
    ASSERT_EQ(CLIENT_SUCCESS, config.status);
    EXPECT_EQ(GetParam().expected, config.intValue(GetParam().attribute));
}

const std::string kFiller1023 = "productdescription=" + std::string(1023 - 19, 'D');

INSTANTIATE_TEST_SUITE_P(
    Settings, ConfigIntTest,
    ::testing::Values(
        IntCase{"plain", "trapsenabled=1\n", trapsEnabledAttr, 1},
        IntCase{"noFinalLineEnd", "trapsenabled=1", trapsEnabledAttr, 1},
        IntCase{"commentAfterThreeSpaces", "   #trapsenabled=1\n", trapsEnabledAttr, 0},
        IntCase{"tabBeforeHashIsASettingWithAnUnknownKey", "\t#trapsenabled=1\n", trapsEnabledAttr, 0},
        IntCase{"tabBeforeKeyIsNotSkipped", "\ttrapsenabled=1\n", trapsEnabledAttr, 0},
        IntCase{"bareLineEndsIgnored", "\n\n \ntrapsenabled=1\n\n", trapsEnabledAttr, 1},
        IntCase{"capitalsAndInnerSpaces", "Traps Enabled = 1\n", trapsEnabledAttr, 1},
        IntCase{"repeatedKeyLastWins", "trapsenabled=1\ntrapsenabled=0\n", trapsEnabledAttr, 0},
        IntCase{"platformIdPrefixMatches", "platformidx=5\n", platformIdAttr, 5},
        IntCase{"platformId", "PlatformID = 42\n", platformIdAttr, 42},
        IntCase{"notANumberReadsZero", "platformid=abc\n", platformIdAttr, 0},
        IntCase{"quotedNumber", "platformid=\"17\"\n", platformIdAttr, 17},
        IntCase{"setsStayDisabled", "setsenabled=1\n", setsEnabledAttr, 0},
        IntCase{"lineWithoutEqualsSkipped", "trapsenabled\ntrapsenabled=1\n", trapsEnabledAttr, 1},
        IntCase{"longLineSplitRestReadAsALine", kFiller1023 + "trapsenabled=1\n", trapsEnabledAttr, 1},
        IntCase{"statusUnknownAfterRead", "trapsenabled=1\n", systemStatusAttr, 2}),
    [](const ::testing::TestParamInfo<IntCase>& info) { return std::string(info.param.name); });

struct TextCase {
    const char* name;
    std::string content;
    int attribute;
    std::string expected;
};

void PrintTo(const TextCase& c, std::ostream* os) {
    *os << c.name;
}

class ConfigTextTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(ConfigTextTest, ReadsSetting) {
    ReadConfig config(GetParam().content);
    ASSERT_EQ(CLIENT_SUCCESS, config.status);
    EXPECT_EQ(GetParam().expected, config.text(GetParam().attribute));
}

INSTANTIATE_TEST_SUITE_P(
    Settings, ConfigTextTest,
    ::testing::Values(
        TextCase{"leadingSpacesOfValueSkipped", "manufacturer =    Example Systems\n", manufacturerAttr,
                 "Example Systems"},
        TextCase{"valueKeepsCase", "PRODUCT NAME = Mixed Case\n", productNameAttr, "Mixed Case"},
        TextCase{"surroundingQuotesDropped", "productversion = \"2.1.0\"\n", productVersionAttr, "2.1.0"},
        TextCase{"innerQuotesDropped", "manufacturer = Example \"Big\" Systems\n", manufacturerAttr,
                 "Example Big Systems"},
        TextCase{"carriageReturnKept", "productbuildnumber=1234\r\n", productBuildNumberAttr, "1234\r"},
        TextCase{"repeatedKeyLastWins", "manufacturer=First\nmanufacturer=Second\n", manufacturerAttr,
                 "Second"},
        TextCase{"platformDescriptionWholeKeyOnly", "platformdescriptionx=Nope\n", platformDescriptionAttr,
                 ""},
        TextCase{"platformDescription", "platformdescription=Rack server\n", platformDescriptionAttr,
                 "Rack server"},
        TextCase{"equalsInsideValueKept", "productdescription=a=b\n", productDescriptionAttr, "a=b"},
        TextCase{"publishedCutTo63", "productname=" + std::string(100, 'N') + "\n", productNameAttr,
                 std::string(63, 'N')},
        TextCase{"firstPieceOfALongLine", kFiller1023 + "trapsenabled=1\n", productDescriptionAttr,
                 std::string(63, 'D')},
        TextCase{"defaultIsEmpty", "trapsenabled=1\n", productVersionAttr, ""}),
    [](const ::testing::TestParamInfo<TextCase>& info) { return std::string(info.param.name); });

TEST(SystemManagementTest, MissingFileReturns10KeepsDefaultsAndLogsNothing) {
    ScratchDir dir;
    std::string log = dir.file("trace.log");
    systemManagement group;
    EXPECT_EQ(10u, group.init(dir.file("absent.conf").c_str(), log.c_str()));
    EXPECT_FALSE(hmtest::fileExists(log));
    int32_t value = 0;
    EXPECT_EQ(CLIENT_SUCCESS, group.getIntInfo(systemStatusAttr, 0, &value));
    EXPECT_EQ(2, value);
    EXPECT_FALSE(group.isTrapsEnabled());
    EXPECT_FALSE(group.isDebugEnabled());
}

TEST(SystemManagementTest, EmptyFileReads) {
    ReadConfig config("");
    EXPECT_EQ(CLIENT_SUCCESS, config.status);
    EXPECT_EQ(0, config.intValue(trapsEnabledAttr));
}

TEST(SystemManagementTest, DebugDisabledOrAbsentCreatesNoTrace) {
    for (const char* content :
         {"trapsenabled=1\n", "debugenabled=0\ntrapsenabled=1\n", "   #debugenabled=1\n"}) {
        ReadConfig config(content);
        EXPECT_FALSE(hmtest::fileExists(config.dir.file("trace.log"))) << content;
        EXPECT_FALSE(config.group.isDebugEnabled()) << content;
    }
}

// The trace opens at the "debugenabled" line; every later setting line is traced.
TEST(SystemManagementTest, TracesSettingLinesOnceTheTraceIsOpen) {
    ReadConfig config("trapsenabled=1\n"
                      "debugenabled=1\n"
                      "# a comment\n"
                      "\t#x=1\n"
                      "no equals here\n"
                      "Manufacturer = \"Example Systems\"\r\n");
    EXPECT_TRUE(config.group.isDebugEnabled());
    EXPECT_EQ("*********** New Log ****************\n"
              "END of clSystemManagement::init. m_nTrapsEnabled is: 1 \n"
              "ptKey=:\t#x:, stValue=:1:\n"
              "END of clSystemManagement::init. m_nTrapsEnabled is: 1 \n"
              "ptKey=:manufacturer:, stValue=:Example Systems\r:\n"
              "END of clSystemManagement::init. m_nTrapsEnabled is: 1 \n"
              "*********** End Log ****************\n",
              hmtest::withoutPrefixes(hmtest::readFile(config.dir.file("trace.log"))));
}

TEST(SystemManagementTest, GroupInterface) {
    ReadConfig config("trapsenabled=1\nmanufacturer=Example\n");
    int32_t value = 0;
    char* text = reinterpret_cast<char*>(&value);

    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, config.group.getIntInfo(manufacturerAttr, 0, &value));
    EXPECT_EQ(-1, value);
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, config.group.getIntInfo(11, 0, &value));
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, config.group.getStrInfo(trapsEnabledAttr, 1, &text));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, config.group.getStrInfo(0, 1, &text));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(CLIENT_ERROR_NOTSUPPORTED, config.group.getIntData(systemStatusAttr, 0, &value));
    EXPECT_EQ(CLIENT_ERROR_NOTSUPPORTED, config.group.getStrData(manufacturerAttr, 1, &text));
    EXPECT_EQ(CLIENT_ERROR_NOTSUPPORTED, config.group.setIntData(trapsEnabledAttr, 0, 1));
    EXPECT_EQ(1, config.group.getCount());
    EXPECT_EQ(1, config.intValue(trapsEnabledAttr));

    config.group.setStatus(9);
    EXPECT_EQ(9, config.intValue(systemStatusAttr));
    EXPECT_TRUE(config.group.isTrapsEnabled());
    EXPECT_FALSE(config.group.isSetsEnabled());
}

} // namespace
