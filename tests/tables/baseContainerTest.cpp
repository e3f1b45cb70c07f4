#include "tables/BaseContainer.h"

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "events/eventHandler.h"
#include "tables/MemoryArray.h"
#include "tables/MemoryDevice.h"
#include "tables/chassisInfo.h"
#include "tables/coolingDevice.h"
#include "tables/coolingUnit.h"
#include "tables/discreteCooling.h"
#include "tables/discreteVoltage.h"
#include "tables/driveSlot.h"
#include "tables/powerSupply.h"
#include "tables/powerUnit.h"
#include "tables/processorDevice.h"
#include "tables/temperatureProbe.h"
#include "tables/voltageProbe.h"

namespace {

constexpr int32_t A = NO_VALUE; // absent

// A container filled by the test: (id, status, description) per row.
template <class XInfo> class FilledTable : public BaseContainer<XInfo> {
public:
    struct Row {
        uint32_t id;
        int32_t status;
        const char* description;
    };
    explicit FilledTable(const std::vector<Row>& rows) {
        this->m_nCount = static_cast<int32_t>(rows.size());
        EXPECT_EQ(CLIENT_SUCCESS, this->allocTable(this->m_nCount));
        for (size_t i = 0; i < rows.size(); ++i) {
            XInfo& row = this->m_pRows[i];
            row.id = rows[i].id;
            row.status = rows[i].status;
            strncpy(row.description, rows[i].description, sizeof row.description - 1);
        }
    }
    uint32_t getIntInfo(int, int, int32_t*) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getIntData(int, int, int32_t*) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getStrInfo(int, int, char**) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t getStrData(int, int, char**) override { return CLIENT_ERROR_NOSUCHNAME; }
    uint32_t setIntData(int, int, int32_t) override { return CLIENT_ERROR_NOTSUPPORTED; }
    uint32_t init() override { return CLIENT_SUCCESS; }
};

using SensorTable = FilledTable<TemperatureInfo>;
using InventoryTable = FilledTable<ProcessorInfo>;

struct ThresholdCase {
    const char* name;
    int32_t reading, lnr, lc, lnc, uc, unr, unc;
    const char* expected;
};

void PrintTo(const ThresholdCase& c, std::ostream* os) {
    *os << c.name;
}

class ThresholdRuleTest : public ::testing::TestWithParam<ThresholdCase> {};

TEST_P(ThresholdRuleTest, Status) {
    const ThresholdCase& c = GetParam();
    SensorTable table({});
    EXPECT_STREQ(c.expected, table.mapThresholdsToStatus(c.reading, c.lnr, c.lc, c.lnc, c.uc, c.unr, c.unc));
}

INSTANTIATE_TEST_SUITE_P(Rule, ThresholdRuleTest,
                         ::testing::Values(
                             //            name                      reading  LNR  LC   LNC  UC   UNR  UNC
                             ThresholdCase{"absentReading", A, 0, 10, 20, 80, 90, 70, "unknown"},
                             ThresholdCase{"equalToUnrIsInside", 100, A, A, A, A, 100, A, "ok"},
                             ThresholdCase{"aboveUnrIsCritical", 101, A, A, A, A, 100, A, "critical"},
                             ThresholdCase{"belowLcIsCritical", 4, A, 5, A, A, A, A, "critical"},
                             ThresholdCase{"aboveUcIsCritical", 81, A, A, A, 80, A, A, "critical"},
                             ThresholdCase{"belowLnrIsCritical", 4, 5, A, A, A, A, A, "critical"},
                             ThresholdCase{"aboveUncIsNonCritical", 71, 0, 10, 20, 80, 90, 70, "nonCritical"},
                             ThresholdCase{"belowLncIsNonCritical", 19, 0, 10, 20, 80, 90, 70, "nonCritical"},
                             ThresholdCase{"negativeReadingSigned", -5, A, A, 0, A, A, A, "nonCritical"},
                             ThresholdCase{"allAbsent", 20, A, A, A, A, A, A, "unknown"},
                             ThresholdCase{"onlyUncPresentAndBelow", 20, A, A, A, A, A, 50, "ok"},
                             ThresholdCase{"ucTestedBeforeLnc", 60, A, A, 80, 50, A, A, "critical"},
                             ThresholdCase{"equalToLncIsInside", 20, 0, 10, 20, 80, 90, 70, "ok"},
                             ThresholdCase{"equalToUncIsInside", 70, 0, 10, 20, 80, 90, 70, "ok"},
                             ThresholdCase{"equalToUcIsInside", 80, A, A, A, 80, A, A, "ok"},
                             ThresholdCase{"equalToLcIsInside", 10, A, 10, A, A, A, A, "ok"},
                             ThresholdCase{"equalToLnrIsInside", 0, 0, A, A, A, A, A, "ok"},
                             ThresholdCase{"insideAllSix", 50, 0, 10, 20, 80, 90, 70, "ok"}),
                         [](const ::testing::TestParamInfo<ThresholdCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(StatusVocabulary, StringToEnum) {
    SensorTable table({});
    const struct {
        const char* text;
        int32_t value;
    } cases[] = {{"other", 1},    {"unknown", 2},        {"ok", 3},  {"nonCritical", 4},
                 {"critical", 5}, {"nonRecoverable", 6}, {"ok ", 2}, {"OK", 2},
                 {"okay", 2},     {"noncritical", 2},    {"", 2},    {"criticalx", 2},
                 {nullptr, 2}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.value, table.mapStatusStringToEnum(c.text)) << (c.text ? c.text : "null");
    }
}

TEST(StatusVocabulary, EnumToString) {
    SensorTable table({});
    const struct {
        int32_t value;
        const char* text;
    } cases[] = {{1, "other"},          {2, "unknown"}, {3, "ok"},      {4, "nonCritical"}, {5, "critical"},
                 {6, "nonRecoverable"}, {0, "unknown"}, {7, "unknown"}, {-1, "unknown"}};
    for (const auto& c : cases) {
        char buffer[HM_STATUS_NAME_SIZE];
        memset(buffer, 'X', sizeof buffer);
        EXPECT_EQ(0u, table.mapStatusEnumToString(c.value, buffer)) << c.value;
        EXPECT_STREQ(c.text, buffer) << c.value;
    }
}

TEST(BaseContainerTest, FindIndexById) {
    SensorTable table({{7, 3, "a"}, {9, 3, "b"}, {7, 5, "c"}});
    EXPECT_EQ(1, table.findIndexById(7));
    EXPECT_EQ(2, table.findIndexById(9));
    EXPECT_EQ(0, table.findIndexById(8));
    SensorTable empty({});
    EXPECT_EQ(0, empty.findIndexById(0));
}

TEST(BaseContainerTest, GetMaxStatus) {
    EXPECT_EQ(0, SensorTable({}).getMaxStatus());
    EXPECT_EQ(5, SensorTable({{1, 3, ""}, {2, 5, ""}, {3, 4, ""}}).getMaxStatus());
    EXPECT_EQ(3, SensorTable({{1, 1, ""}, {2, 3, ""}, {3, 2, ""}}).getMaxStatus());
    EXPECT_EQ(6, InventoryTable({{1, 6, ""}, {2, 3, ""}}).getMaxStatus());
}

TEST(BaseContainerTest, RowsAndDescriptionsInBothLayouts) {
    SensorTable sensors({{10, 3, "CPU temp"}, {11, 4, "Inlet temp"}});
    InventoryTable processors({{1, 3, "CPU1"}});
    EXPECT_EQ(2, sensors.getCount());
    EXPECT_STREQ("Inlet temp", sensors.getDescription(1));
    EXPECT_STREQ("CPU1", processors.getDescription(0));
    EXPECT_EQ(nullptr, sensors.getDescription(2));
    EXPECT_EQ(nullptr, sensors.getDescription(-1));
    ASSERT_NE(nullptr, sensors.getRow(1));
    EXPECT_EQ(11u, static_cast<TemperatureInfo*>(sensors.getRow(1))->id);
    EXPECT_EQ(nullptr, sensors.getRow(2));
    SensorTable empty({});
    EXPECT_EQ(nullptr, empty.getRow(0));
    EXPECT_EQ(nullptr, empty.getDescription(0));
}

class SeedHealthTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0u, handler.init()); }
    eventHandler handler;
};

TEST_F(SeedHealthTest, RowsThatAreNotOkGoToTheHealthLists) {
    SensorTable sensors({{10, 3, ""}, {11, 4, ""}, {12, 6, ""}, {13, 5, ""}});
    InventoryTable processors({{20, 5, ""}, {21, 3, ""}});
    EXPECT_EQ(0u, sensors.seedHealth(&handler));
    EXPECT_EQ(0u, processors.seedHealth(&handler));
    EXPECT_EQ((std::list<int32_t>{11}), handler.nonCriticalList());
    EXPECT_EQ((std::list<int32_t>{13, 20}), handler.criticalList());
    EXPECT_EQ((std::list<int32_t>{12}), handler.nonRecoverableList());
}

TEST_F(SeedHealthTest, NothingToSeed) {
    EXPECT_EQ(0u, SensorTable({{10, 3, ""}, {11, 3, ""}}).seedHealth(&handler));
    EXPECT_EQ(0u, SensorTable({}).seedHealth(&handler));
    EXPECT_EQ(0u, SensorTable({{10, 5, ""}}).seedHealth(nullptr));
    EXPECT_TRUE(handler.nonCriticalList().empty());
    EXPECT_TRUE(handler.criticalList().empty());
    EXPECT_TRUE(handler.nonRecoverableList().empty());
}

// Every table starts empty and answers with its own no-row code until its rows are discovered.
TEST(TableGroups, EmptyTablesAnswerTheirNoRowCode) {
    const struct {
        const char* name;
        std::function<BaseAccessor*()> make;
        uint32_t noRow;
        bool liveData;   // false: the inventory tables offer no live data (4)
        bool thresholds; // true: the table accepts threshold writes, so a write finds no row
    } tables[] = {
        {"processorDevice", [] { return new processorDevice(); }, 22, false, false},
        {"MemoryArray", [] { return new MemoryArray(); }, 2, false, false},
        {"MemoryDevice", [] { return new MemoryDevice(); }, 2, false, false},
        {"temperatureProbe", [] { return new temperatureProbe(); }, 32, true, true},
        {"powerUnit", [] { return new powerUnit(); }, 23, true, false},
        {"powerSupply", [] { return new powerSupply(); }, 24, true, false},
        {"voltageProbe", [] { return new voltageProbe(); }, 25, true, true},
        {"discreteVoltage", [] { return new discreteVoltage(); }, 26, true, false},
        {"coolingDevice", [] { return new coolingDevice(); }, 30, true, true},
        {"coolingUnit", [] { return new coolingUnit(); }, 29, true, false},
        {"discreteCooling", [] { return new discreteCooling(); }, 31, true, false},
        {"driveSlot", [] { return new driveSlot(); }, 34, true, false},
    };
    for (const auto& t : tables) {
        std::unique_ptr<BaseAccessor> table(t.make());
        int32_t value = 0;
        char* text = reinterpret_cast<char*>(&value);
        EXPECT_EQ(0u, table->init()) << t.name;
        EXPECT_EQ(0, table->getCount()) << t.name;
        EXPECT_EQ(0, table->getMaxStatus()) << t.name;
        EXPECT_EQ(t.noRow, table->getIntInfo(1, 0, &value)) << t.name;
        EXPECT_EQ(-1, value) << t.name;
        EXPECT_EQ(t.noRow, table->getStrInfo(1, 0, &text)) << t.name;
        EXPECT_EQ(nullptr, text) << t.name;
        value = 0;
        EXPECT_EQ(t.liveData ? t.noRow : 4u, table->getIntData(1, 0, &value)) << t.name;
        EXPECT_EQ(t.liveData ? t.noRow : 4u, table->getStrData(1, 0, &text)) << t.name;
        EXPECT_EQ(t.thresholds ? t.noRow : 4u, table->setIntData(1, 0, 0)) << t.name;
    }
}

} // namespace
