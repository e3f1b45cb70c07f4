// The rows, statuses and health seeding shared by every table, over containers filled here.
#include "tables/BaseContainer.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "events/eventHandler.h"
#include "tables/processorDevice.h"
#include "tables/temperatureProbe.h"

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

// mapThresholdsToStatus over (reading, LNR, LC, LNC, UC, UNR, UNC).
TEST(BaseContainerTest, ThresholdRule) {
    const struct {
        const char* name;
        int32_t reading, lnr, lc, lnc, uc, unr, unc;
        const char* expected;
    } cases[] = {{"absentReading", A, 0, 10, 20, 80, 90, 70, "unknown"},
                 {"equalToUnrIsInside", 100, A, A, A, A, 100, A, "ok"},
                 {"aboveUnrIsCritical", 101, A, A, A, A, 100, A, "critical"},
                 {"belowLcIsCritical", 4, A, 5, A, A, A, A, "critical"},
                 {"aboveUcIsCritical", 81, A, A, A, 80, A, A, "critical"},
                 {"belowLnrIsCritical", 4, 5, A, A, A, A, A, "critical"},
                 {"aboveUncIsNonCritical", 71, 0, 10, 20, 80, 90, 70, "nonCritical"},
                 {"belowLncIsNonCritical", 19, 0, 10, 20, 80, 90, 70, "nonCritical"},
                 {"negativeReadingSigned", -5, A, A, 0, A, A, A, "nonCritical"},
                 {"allAbsent", 20, A, A, A, A, A, A, "unknown"},
                 {"onlyUncPresentAndBelow", 20, A, A, A, A, A, 50, "ok"},
                 {"ucTestedBeforeLnc", 60, A, A, 80, 50, A, A, "critical"},
                 {"equalToLncIsInside", 20, 0, 10, 20, 80, 90, 70, "ok"},
                 {"equalToUncIsInside", 70, 0, 10, 20, 80, 90, 70, "ok"},
                 {"equalToUcIsInside", 80, A, A, A, 80, A, A, "ok"},
                 {"equalToLcIsInside", 10, A, 10, A, A, A, A, "ok"},
                 {"equalToLnrIsInside", 0, 0, A, A, A, A, A, "ok"},
                 {"insideAllSix", 50, 0, 10, 20, 80, 90, 70, "ok"}};
    SensorTable table({});
    for (const auto& c : cases)
        EXPECT_STREQ(c.expected,
                     table.mapThresholdsToStatus(c.reading, c.lnr, c.lc, c.lnc, c.uc, c.unr, c.unc))
            << c.name;
}

TEST(BaseContainerTest, StatusVocabulary) {
    SensorTable table({});
    const struct {
        const char* text;
        int32_t value;
    } toEnum[] = {{"other", 1},    {"unknown", 2},        {"ok", 3},  {"nonCritical", 4},
                  {"critical", 5}, {"nonRecoverable", 6}, {"ok ", 2}, {"OK", 2},
                  {"okay", 2},     {"noncritical", 2},    {"", 2},    {"criticalx", 2},
                  {nullptr, 2}};
    for (const auto& c : toEnum)
        EXPECT_EQ(c.value, table.mapStatusStringToEnum(c.text)) << (c.text ? c.text : "null");
    const struct {
        int32_t value;
        const char* text;
    } toText[] = {{1, "other"},          {2, "unknown"}, {3, "ok"},      {4, "nonCritical"}, {5, "critical"},
                  {6, "nonRecoverable"}, {0, "unknown"}, {7, "unknown"}, {-1, "unknown"}};
    for (const auto& c : toText) {
        char buffer[HM_STATUS_NAME_SIZE];
        memset(buffer, 'X', sizeof buffer);
        EXPECT_EQ(0u, table.mapStatusEnumToString(c.value, buffer)) << c.value;
        EXPECT_STREQ(c.text, buffer) << c.value;
    }
}

TEST(BaseContainerTest, RowsIdsDescriptionsAndMaxStatusInBothLayouts) {
    SensorTable sensors({{10, 3, "CPU temp"}, {11, 5, "Inlet temp"}, {10, 4, "c"}});
    InventoryTable processors({{1, 6, "CPU1"}, {2, 3, ""}});
    SensorTable empty({});
    // Positions from 1, the first row of an id; 0 when absent.
    EXPECT_EQ((std::vector<int>{1, 2, 0, 0}),
              (std::vector<int>{sensors.findIndexById(10), sensors.findIndexById(11),
                                sensors.findIndexById(8), empty.findIndexById(0)}));
    EXPECT_EQ((std::vector<int>{5, 3, 6, 0}),
              (std::vector<int>{sensors.getMaxStatus(),
                                SensorTable({{1, 1, ""}, {2, 3, ""}, {3, 2, ""}}).getMaxStatus(),
                                processors.getMaxStatus(), empty.getMaxStatus()}));
    EXPECT_EQ(3, sensors.getCount());
    EXPECT_STREQ("Inlet temp", sensors.getDescription(1));
    EXPECT_STREQ("CPU1", processors.getDescription(0));
    ASSERT_NE(nullptr, sensors.getRow(1));
    EXPECT_EQ(11u, static_cast<TemperatureInfo*>(sensors.getRow(1))->id);
    for (const void* outside :
         std::initializer_list<const void*>{sensors.getDescription(3), sensors.getDescription(-1),
                                            sensors.getRow(3), empty.getRow(0), empty.getDescription(0)})
        EXPECT_EQ(nullptr, outside);
}

// Rows that are not "ok" go to the health lists; nothing to seed leaves them empty. A row of
// unknown status is offered too: the handler keeps no list for it and answers 9.
TEST(BaseContainerTest, SeedHealth) {
    eventHandler handler;
    ASSERT_EQ(0u, handler.init());
    EXPECT_EQ((std::vector<uint32_t>{0, 9, 0, 0}),
              (std::vector<uint32_t>{SensorTable({{10, 3, ""}, {11, 3, ""}}).seedHealth(&handler),
                                     SensorTable({{10, 2, ""}}).seedHealth(&handler),
                                     SensorTable({}).seedHealth(&handler),
                                     SensorTable({{10, 5, ""}}).seedHealth(nullptr)}));
    EXPECT_TRUE(handler.nonCriticalList().empty() && handler.criticalList().empty() &&
                handler.nonRecoverableList().empty());
    EXPECT_EQ(0u, SensorTable({{10, 3, ""}, {11, 4, ""}, {12, 6, ""}, {13, 5, ""}}).seedHealth(&handler));
    EXPECT_EQ(0u, InventoryTable({{20, 5, ""}, {21, 3, ""}}).seedHealth(&handler));
    EXPECT_EQ((std::list<int32_t>{11}), handler.nonCriticalList());
    EXPECT_EQ((std::list<int32_t>{13, 20}), handler.criticalList());
    EXPECT_EQ((std::list<int32_t>{12}), handler.nonRecoverableList());
}

} // namespace
