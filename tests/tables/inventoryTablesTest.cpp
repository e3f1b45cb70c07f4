// The SMBIOS, chassis and discrete-sensor tables over a platform file whose contents are
// known: every column of every row against the value written down here by hand.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "inventoryTestSupport.h"
#include "platform/smbiosInventory.h"
#include "tables/MemoryArray.h"
#include "tables/MemoryDevice.h"
#include "tables/chassisInfo.h"
#include "tables/coolingUnit.h"
#include "tables/discreteCooling.h"
#include "tables/discreteVoltage.h"
#include "tables/driveSlot.h"
#include "tables/powerSupply.h"
#include "tables/powerUnit.h"
#include "tables/processorDevice.h"

namespace {

using namespace inventorytest;

class InventoryTablesTest : public InventoryTest {
protected:
    void SetUp() override {
        InventoryTest::SetUp();
        servePlatformFile("inventory-server.json");
    }
};

TEST_F(InventoryTablesTest, ProcessorsOnePopulatedSocketAndOneEmpty) {
    processorDevice table;
    ASSERT_EQ(CLIENT_SUCCESS, table.init());
    ASSERT_EQ(2, table.getCount());
    expectRow(table, 0,
              {I(27, 80), S(28, "CPU1"), S(29, "Intel"), I(30, 4), I(31, 3), S(32, "Test CPU @ 2.40GHz"),
               S(33, "A1 06 02 00 FF FB EB BF"), I(34, 179), S(35, "CPU-PN-1"), I(36, 1200), I(37, 100),
               I(38, 4000), I(39, 2400), I(40, 24), S(41, "Populated"), S(42, "CPU-SN-1")});
    // The empty socket: an unknown family keeps 0, an unknown socket name gives 2, 3.3V is 3300 mV;
    // its BMC sensor (81) is not taken for an empty socket.
    expectRow(table, 1,
              {I(27, 2), S(28, "CPU2"), S(29, ""), I(30, 1), I(31, 6), S(32, ""), S(33, ""), I(34, 0),
               S(35, ""), I(36, 3300), I(37, 0), I(38, 0), I(39, 0), I(40, 2), S(41, "Unpopulated"),
               S(42, "")});
    // CPU1 is throttled (its BMC sensor): nonCritical; the empty socket keeps its number and "other".
    EXPECT_EQ(4, table.getMaxStatus());
    EXPECT_EQ(1, table.findIndexById(80));
    EXPECT_EQ(2, table.findIndexById(2));
    EXPECT_EQ(14, queryService().Flags()); // the SDR scans that follow run in this mode
}

TEST_F(InventoryTablesTest, MemoryArraysEveryColumn) {
    MemoryArray table;
    ASSERT_EQ(CLIENT_SUCCESS, table.init());
    ASSERT_EQ(3, table.getCount());
    expectRow(table, 0,
              {I(76, 1), S(77, "Memory Array 1"), S(78, "System memory"), I(79, 3), I(80, 3), I(81, 3),
               I(82, 6), I(83, 268435456), I(84, 4660), I(85, 3), S(86, "Multi-bit ECC"), I(87, 2)});
    // Any location is published as the system board (3).
    expectRow(table, 1,
              {I(76, 2), S(77, "Memory Array 2"), S(78, "Cache memory"), I(79, 3), I(80, 3), I(81, 7),
               I(82, 5), I(83, 1024), I(84, 65534), I(85, 1), S(86, "Single-bit ECC"), I(87, 1)});
    // No device at all: status "other".
    expectRow(table, 2,
              {I(76, 3), S(77, "Memory Array 3"), S(78, "Flash memory"), I(79, 1), I(80, 3), I(81, 5),
               I(82, 3), I(83, 0), I(84, 65534), I(85, 0), S(86, "None"), I(87, 0)});
}

TEST_F(InventoryTablesTest, MemoryDevicesOnlyPresentOnesArrayByArray) {
    MemoryDevice table;
    ASSERT_EQ(CLIENT_SUCCESS, table.init());
    ASSERT_EQ(3, table.getCount());
    // Row 0: Synchronous and CMOS supported, the type detail holds CMOS alone (256).
    // Row 1: the absent DIMM_A2 is skipped; "Reserved" is 16, an unknown memory type 2.
    const std::vector<Column> rows[] = {
        {I(89, 1), S(90, "DIMM_A1"), S(91, "NODE 0 CHANNEL 0"), I(92, 3), S(93, "Samsung"), I(94, 9),
         I(95, 21), I(96, 256), I(97, 1333), I(98, 8192), I(99, 72), S(100, "SN-A1"), S(101, "M393B1K70DH0"),
         I(102, 64), I(103, 1), I(104, 1), S(105, "AT-A1"), S(106, "DIMM"), S(107, "DDR3")},
        {I(89, 2), S(90, "DIMM_A3"), S(91, "NODE 0 CHANNEL 2"), I(92, 3), S(93, "Hynix"), I(94, 16), I(95, 2),
         I(96, 8), I(97, 2133), I(98, 16384), I(99, 72), S(100, "SN-A3"), S(101, "HMA42GR7"), I(102, 64),
         I(103, 1), I(104, 3), S(105, "AT-A3"), S(106, "Reserved"), S(107, "Unknown")},
        {I(89, 3), S(90, "CACHE0"), S(91, ""), I(92, 3), S(93, "Micron"), I(94, 15), I(95, 20), I(96, 0),
         I(97, 667), I(98, 512), I(99, 64), S(100, "SN-C0"), S(101, "MT-C0"), I(102, 64), I(103, 2),
         I(104, 1), S(105, ""), S(106, "FB-DIMM"), S(107, "DDR2 FB-DIMM")}};
    const char* details[] = {"CMOS", "Fast-paged", "None"};
    for (int r = 0; r < 3; ++r) {
        expectRow(table, r, rows[r]);
        expectRow(table, r, {S(108, details[r])});
    }
}

// (That they offer no live data is checked on empty tables: inventoryMissingDataTest.)
TEST_F(InventoryTablesTest, InventoryTablesRefuseForeignCodes) {
    processorDevice processors;
    MemoryArray arrays;
    MemoryDevice devices;
    BaseAccessor* tables[] = {&processors, &arrays, &devices};
    const int ownCode[] = {27, 76, 89};
    for (int t = 0; t < 3; ++t) {
        SCOPED_TRACE(t);
        ASSERT_EQ(CLIENT_SUCCESS, tables[t]->init());
        IntRead foreign = readInt(*tables[t], Getter::IntInfo, 11, 0);
        EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, foreign.code);
        EXPECT_EQ(-1, foreign.value);
        StrRead foreignText = readStr(*tables[t], Getter::StrInfo, ownCode[t], 0); // an integer column
        EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, foreignText.code);
        EXPECT_TRUE(foreignText.null);
    }
}

TEST_F(InventoryTablesTest, ChassisEveryScalarAndItsLiveStates) {
    chassisInfo chassis;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
    ASSERT_EQ(1, chassis.getCount());
    // Security settings byte: power-on enabled (1) << 6, keyboard not implemented (2) << 4,
    // administrator disabled (0) << 2, front panel reset unknown (3): 64 + 32 + 3 = 99.
    expectRow(chassis, 0,
              {IL(11, 3), IL(12, 4), IL(13, 5), IL(14, 4), IL(15, 99), IL(16, 5), I(17, 17), I(18, 2),
               I(19, 3), I(20, 1), I(21, 4711), S(22, "CH-PART-01"), S(23, "CH-SERIAL-77"),
               S(24, "ASSET-0042"), S(25, "Testfield Systems")});
    EXPECT_STREQ("Tower", chassis.getDescription(0));
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, readInt(chassis, Getter::IntInfo, 11, 0).code); // live only
    EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, readInt(chassis, Getter::IntData, 17, 0).code); // cached only
    // The front end reads a scalar group's texts with index 1: the same one row.
    expectRow(chassis, 1, {S(22, "CH-PART-01")});

    servePlatformText("{\"format\": \"kelvarn-platform\", \"version\": 1, \"smbios\": {\"chassis\": "
                      "{\"thermalState\": \"Non-recoverable\", \"powerOnPassword\": \"Disabled\", "
                      "\"keyboardPassword\": \"Disabled\", \"administratorPassword\": \"Disabled\", "
                      "\"frontPanelReset\": \"Disabled\"}}}");
    expectRow(chassis, 0, {IL(11, 3), IL(12, 3), IL(13, 6), IL(14, 3), IL(15, 0), IL(16, 6)});
    // The cached columns keep what start-up read.
    expectRow(chassis, 0, {I(18, 2), I(21, 4711), S(25, "Testfield Systems")});
}

// One discrete-sensor row: sensor number, name, live status text and status, state bits
// (-1: the table has no state column).
struct SensorRow {
    uint32_t id;
    const char *name, *statusText;
    int32_t status, stateMask;
};

template <class T> std::unique_ptr<BaseAccessor> make() {
    return std::unique_ptr<BaseAccessor>(new T());
}

TEST_F(InventoryTablesTest, DiscreteSensorTablesEveryColumn) {
    const struct {
        std::unique_ptr<BaseAccessor> (*make)();
        int firstAttribute; // the id column (1.2)
        int32_t maxStatus;
    } tables[] = {{make<powerUnit>, 44, 4},        {make<powerSupply>, 50, 5},
                  {make<discreteVoltage>, 70, 5},  {make<coolingUnit>, 110, 5},
                  {make<discreteCooling>, 132, 4}, {make<driveSlot>, 153, 4}};
    const std::vector<SensorRow> rowsOf[] = {
        {{70, "PS Redundancy", "Redundancy Degraded", 4, 4}, {71, "Power Unit", "POWER_CYCLE", 3, 2}},
        {{64, "PSU1 Status", "power supply's presence has been detected", 3, -1},
         {65, "PSU2 Status", "power supply's presence has been detected,Power Supply Input (AC/DC) Lost", 5,
          -1},
         {66, "PSU3 Status", "All Deasserted", 1, -1}},
        {{27, "VR Fault", "State Asserted", 5, 2}, {28, "CPU Perf", "performance has been met", 3, 1}},
        {{56, "Fan Redundancy", "Full Redundancy", 3, 1}, {58, "Liquid Cooling", "Redundancy Lost", 5, 2}},
        {{57, "FAN6 Presence", "Device Removed/Absent", 4, 1}},
        {{112, "Drive 0", "DRIVE_PRESENCE,REBUILD/REMAP_IN_PROGRESS", 4, -1},
         {113, "Drive 1", "All Deasserted", 1, -1}}};
    for (size_t t = 0; t < 6; ++t) {
        const auto& c = tables[t];
        const std::vector<SensorRow>& rows = rowsOf[t];
        SCOPED_TRACE(c.firstAttribute);
        std::unique_ptr<BaseAccessor> table = c.make();
        ASSERT_EQ(CLIENT_SUCCESS, table->init());
        ASSERT_EQ(static_cast<int>(rows.size()), table->getCount());
        const int a = c.firstAttribute;
        for (size_t r = 0; r < rows.size(); ++r) {
            const SensorRow& row = rows[r];
            std::vector<Column> columns = {I(a, static_cast<int32_t>(row.id)), S(a + 1, row.name),
                                           SL(a + 2, row.statusText), IL(a + 3, row.status)};
            if (row.stateMask >= 0)
                columns.push_back(IL(a + 4, row.stateMask));
            expectRow(*table, static_cast<int>(r), columns);
            EXPECT_EQ(static_cast<int>(r) + 1, table->findIndexById(row.id));
        }
        EXPECT_EQ(c.maxStatus, table->getMaxStatus());
        EXPECT_EQ(CLIENT_ERROR_NOTSUPPORTED, table->setIntData(a + 3, 0, 1));
        EXPECT_EQ(CLIENT_ERROR_NOSUCHNAME, readInt(*table, Getter::IntInfo, a + 3, 0).code);
    }
    coolingUnit cooling; // its entity column
    ASSERT_EQ(CLIENT_SUCCESS, cooling.init());
    expectRow(cooling, 0, {S(115, "29.16")});
    expectRow(cooling, 1, {S(115, "30.2")});
}

TEST_F(InventoryTablesTest, LiveStatusFollowsThePlatform) {
    powerSupply table;
    ASSERT_EQ(CLIENT_SUCCESS, table.init());
    // PSU1 now reports a failure; its start-up status stays what it was.
    std::string text =
        "{\"format\": \"kelvarn-platform\", \"version\": 1, \"bmc\": {\"sensors\": ["
        "{\"name\": \"PSU1 Status\", \"number\": 64, \"record\": \"compact\", \"sensorType\": 8,"
        " \"eventReadingType\": 111, \"states\": [\"PRESENCE_DETECTED\", "
        "\"POWER_SUPPLY_FAILURE_DETECTED\"]}]}}";
    servePlatformText(text);
    expectRow(
        table, 0,
        {IL(53, 5), SL(52, "power supply's presence has been detected,power supply has suffered a failure")});
    EXPECT_EQ(5, table.getMaxStatus()); // PSU2's start-up status
    // PSU2 is gone from the platform: its state cannot be read.
    expectRow(table, 1, {IL(53, 2), SL(52, "State Unavailable")});
}

} // namespace
