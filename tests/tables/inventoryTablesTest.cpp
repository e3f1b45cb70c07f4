// The SMBIOS, chassis and discrete-sensor tables over a platform file whose contents are
// known (every column against the value written down here by hand), over servers that lack
// what they read, over a real server's SMBIOS table, and the demo server through the client facade.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/hmClientApi.h"
#include "cells.h"
#include "tests/platform/sensorTestSupport.h"
#include "kelvarn/Smbios.h"
#include "platform/smbiosInventory.h"
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

using hmtest::cells;

std::string dataFile(const std::string& name) {
    return std::string(HM_TEST_DATA_DIR) + "/inventory/" + name;
}

void servePlatformFile(const std::string& name) {
    sensortest::serveModel(kelvarn::loadPlatformFile(dataFile(name)));
}

void servePlatformText(const std::string& text) {
    sensortest::serveModel(kelvarn::parsePlatform(text, "test platform"));
}

template <class T> BaseAccessor* make() {
    return new T();
}

struct TableCase {
    BaseAccessor* (*make)();
    int first; // the id column; the next one is a text served by getStrInfo
    uint32_t noRow;
    uint32_t liveRead, thresholdWrite; // the answers of an empty table: its no-row code, or 4 (no such data)
    // On inventory-server.json: the worst status, the columns checked (see cells()), the rows.
    int32_t maxStatus;
    const char* kinds;
    const char* rows;
};

// Processors: the empty socket keeps an unknown family (0), an unknown socket name gives 2,
// 3.3V is 3300 mV; CPU1 is throttled (its BMC sensor): nonCritical. Memory arrays: any
// location is the system board (3); no device at all: "other". Memory devices: only present
// ones, array by array; Synchronous and CMOS supported, the type detail holds CMOS alone (256);
// "Reserved" is 16, an unknown memory type 2. Discrete sensors: id, name, live status text and
// status, state bits where the table has them (the cooling unit: and its entity).
const TableCase kTables[] = {
    {make<processorDevice>, 27, 22, 4, 4, 4, "issiissisiiiiiss",
     "80|CPU1|Intel|4|3|Test CPU @ 2.40GHz|A1 06 02 00 FF FB EB BF|179|CPU-PN-1|1200|100|4000|2400|24|"
     "Populated|CPU-SN-1\n"
     "2|CPU2||1|6|||0||3300|0|0|0|2|Unpopulated|"},
    {make<MemoryArray>, 76, 2, 4, 4, 3, "issiiiiiiisi",
     "1|Memory Array 1|System memory|3|3|3|6|268435456|4660|3|Multi-bit ECC|2\n"
     "2|Memory Array 2|Cache memory|3|3|7|5|1024|65534|1|Single-bit ECC|1\n"
     "3|Memory Array 3|Flash memory|1|3|5|3|0|65534|0|None|0"},
    {make<MemoryDevice>, 89, 2, 4, 4, 3, "issisiiiiiissiiissss",
     "1|DIMM_A1|NODE 0 CHANNEL 0|3|Samsung|9|21|256|1333|8192|72|SN-A1|M393B1K70DH0|64|1|1|AT-A1|DIMM|DDR3|"
     "CMOS\n"
     "2|DIMM_A3|NODE 0 CHANNEL 2|3|Hynix|16|2|8|2133|16384|72|SN-A3|HMA42GR7|64|1|3|AT-A3|Reserved|Unknown|"
     "Fast-paged\n"
     "3|CACHE0||3|Micron|15|20|0|667|512|64|SN-C0|MT-C0|64|2|1||FB-DIMM|DDR2 FB-DIMM|None"},
    {make<temperatureProbe>, 138, 32, 32, 32, 0, "", ""},
    {make<voltageProbe>, 55, 25, 25, 25, 0, "", ""},
    {make<coolingDevice>, 117, 30, 30, 30, 0, "", ""},
    {make<powerUnit>, 44, 23, 23, 4, 4, "isSII",
     "70|PS Redundancy|Redundancy Degraded|4|4\n71|Power Unit|POWER_CYCLE|3|2"},
    {make<powerSupply>, 50, 24, 24, 4, 5, "isSI",
     "64|PSU1 Status|power supply's presence has been detected|3\n"
     "65|PSU2 Status|power supply's presence has been detected,Power Supply Input (AC/DC) Lost|5\n"
     "66|PSU3 Status|All Deasserted|1"},
    {make<discreteVoltage>, 70, 26, 26, 4, 5, "isSII",
     "27|VR Fault|State Asserted|5|2\n28|CPU Perf|performance has been met|3|1"},
    {make<coolingUnit>, 110, 29, 29, 4, 5, "isSIIs",
     "56|Fan Redundancy|Full Redundancy|3|1|29.16\n58|Liquid Cooling|Redundancy Lost|5|2|30.2"},
    {make<discreteCooling>, 132, 31, 31, 4, 4, "isSII", "57|FAN6 Presence|Device Removed/Absent|4|1"},
    {make<driveSlot>, 153, 34, 34, 4, 4, "isSI",
     "112|Drive 0|DRIVE_PRESENCE,REBUILD/REMAP_IN_PROGRESS|4\n113|Drive 1|All Deasserted|1"}};

// Every row of a table, one a line.
std::string rowsOf(BaseAccessor& table, int first, const char* kinds) {
    std::string all;
    for (int r = 0; r < table.getCount(); ++r)
        all += (r > 0 ? "\n" : "") + cells(table, r, first, kinds);
    return all;
}

using InventoryTablesTest = sensortest::TracedTest;

TEST_F(InventoryTablesTest, EveryColumnOfEveryTableOnAKnownServerAndTheLiveStates) {
    servePlatformFile("inventory-server.json");
    for (const TableCase& c : kTables) {
        if (*c.kinds == '\0')
            continue;
        SCOPED_TRACE(c.first);
        std::unique_ptr<BaseAccessor> table(c.make());
        ASSERT_EQ(CLIENT_SUCCESS, table->init());
        EXPECT_EQ(c.rows, rowsOf(*table, c.first, c.kinds));
        EXPECT_EQ(c.maxStatus, table->getMaxStatus());
        if (c.liveRead == 4) { // inventory: a foreign code, an integer column asked as text
            EXPECT_EQ("!9|!9", cells(*table, 0, 11, "i") + "|" + cells(*table, 0, c.first, "s"));
            continue;
        }
        // Discrete sensors are found by their number; their status is live only, and read-only.
        std::istringstream rows(c.rows);
        int r = 0;
        for (std::string row; std::getline(rows, row);)
            EXPECT_EQ(++r, table->findIndexById(std::stoul(row)));
        EXPECT_EQ("!9", cells(*table, 0, c.first + 3, "i"));
        EXPECT_EQ(CLIENT_ERROR_NOTSUPPORTED, table->setIntData(c.first + 3, 0, 1));
    }
    // The empty socket's BMC sensor (81) is not taken: it keeps its number. The SDR scans that
    // follow run in mode 14.
    processorDevice processors;
    ASSERT_EQ(CLIENT_SUCCESS, processors.init());
    EXPECT_EQ(1, processors.findIndexById(80));
    EXPECT_EQ(2, processors.findIndexById(2));
    EXPECT_EQ(14, queryService().Flags());

    // Chassis security settings byte: power-on enabled (1) << 6, keyboard not implemented (2) << 4,
    // administrator disabled (0) << 2, front panel reset unknown (3): 64 + 32 + 3 = 99. The live
    // columns follow the platform; the cached ones and the start-up statuses keep what start-up read.
    chassisInfo chassis;
    powerSupply supplies;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init() + supplies.init());
    ASSERT_EQ(1, chassis.getCount());
    EXPECT_EQ("3|4|5|4|99|5|17|2|3|1|4711|CH-PART-01|CH-SERIAL-77|ASSET-0042|Testfield Systems",
              cells(chassis, 0, 11, "IIIIIIiiiiissss"));
    EXPECT_STREQ("Tower", chassis.getDescription(0));
    // Live columns only live, cached ones only cached; a scalar group's texts read with index 1
    // are the same one row.
    EXPECT_EQ("!9|!9|CH-PART-01", cells(chassis, 0, 11, "i") + "|" + cells(chassis, 0, 17, "I") + "|" +
                                      cells(chassis, 1, 22, "s"));
    // PSU1 now reports a failure; PSU2 and PSU3 are gone from the platform: their state cannot be read.
    servePlatformText(
        "{\"format\": \"kelvarn-platform\", \"version\": 1, \"smbios\": {\"chassis\": "
        "{\"thermalState\": \"Non-recoverable\", \"powerOnPassword\": \"Disabled\", "
        "\"keyboardPassword\": \"Disabled\", \"administratorPassword\": \"Disabled\", "
        "\"frontPanelReset\": \"Disabled\"}}, \"bmc\": {\"sensors\": ["
        "{\"name\": \"PSU1 Status\", \"number\": 64, \"record\": \"compact\", \"sensorType\": 8,"
        " \"eventReadingType\": 111, \"states\": [\"PRESENCE_DETECTED\", "
        "\"POWER_SUPPLY_FAILURE_DETECTED\"]}]}}");
    EXPECT_EQ("3|3|6|3|0|6", cells(chassis, 0, 11, "IIIIII"));
    EXPECT_EQ("2|4711|Testfield Systems", cells(chassis, 0, 18, "i..i...s"));
    EXPECT_EQ("power supply's presence has been detected,power supply has suffered a failure|5\n"
              "State Unavailable|2\nState Unavailable|2",
              rowsOf(supplies, 52, "SI"));
    EXPECT_EQ(5, supplies.getMaxStatus()); // PSU2's start-up status
}

// Answers from a platform, except for the FRU, which fails as if the BMC had none.
class NoFruResponder : public kelvarn::Responder {
public:
    explicit NoFruResponder(std::shared_ptr<kelvarn::Responder> platform) : m_platform(std::move(platform)) {}
    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>& segments,
                const kelvarn::Parameters& params, uint8_t flags, kelvarn::ResultMap& out) override {
        if (path.compare(0, 8, "/BMC/FRU") == 0)
            throw ResultStatus(std::vector<RStatus>{sensortest::failure(2, 1083, "no such instance")});
        m_platform->answer(path, segments, params, flags, out);
    }

private:
    std::shared_ptr<kelvarn::Responder> m_platform;
};

// Every table starts empty and answers with its own no-row code when nothing was discovered:
// with no service at all, and on a bare platform (which still describes a default chassis:
// rack mount, safe, no FRU texts).
TEST_F(InventoryTablesTest, ServersWithoutTheDataTheTablesRead) {
    for (bool reachable : {false, true}) {
        SCOPED_TRACE(reachable);
        if (reachable)
            servePlatformText("{\"format\": \"kelvarn-platform\", \"version\": 1}");
        else
            useScript()->failAll = true;
        for (const TableCase& c : kTables) {
            SCOPED_TRACE(c.first);
            std::unique_ptr<BaseAccessor> table(c.make());
            EXPECT_EQ(CLIENT_SUCCESS, table->init());
            EXPECT_EQ(0, table->getCount());
            EXPECT_EQ(0, table->getMaxStatus());
            EXPECT_EQ(0u, table->seedHealth(nullptr));
            const std::string no = "!" + std::to_string(c.noRow), live = "!" + std::to_string(c.liveRead);
            EXPECT_EQ(no + "|" + no + "|" + no,
                      cells(*table, 0, c.first, "is") + "|" + cells(*table, 0, 1, "i"));
            EXPECT_EQ(live + "|" + live, cells(*table, 0, 1, "I") + "|" + cells(*table, 0, 1, "S"));
            EXPECT_EQ(c.thresholdWrite, table->setIntData(1, 0, 0));
        }
        chassisInfo chassis;
        ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
        ASSERT_EQ(reachable ? 1 : 0, chassis.getCount());
        if (reachable)
            EXPECT_EQ("3|3|3|3|3|23|1|1|2|0||||", cells(chassis, 0, 11, "IIII.Iiiiiissss"));
        else
            EXPECT_EQ("!32|!32|!32|!32", cells(chassis, 0, 11, "I") + "|" + cells(chassis, 0, 17, "i") + "|" +
                                             cells(chassis, 0, 1, "i") + "|" + cells(chassis, 0, 22, "s"));
    }
    // A chassis fact the service does not give, or a name it does not know, reads as unknown.
    EXPECT_EQ((std::vector<int32_t>{2, 2, 4, 2, 4}),
              (std::vector<int32_t>{chassisInfo::stateCode(nullptr), chassisInfo::securityStatusCode(nullptr),
                                    chassisInfo::settingCode(nullptr), chassisInfo::stateCode("Safe "),
                                    chassisInfo::settingCode("enabled")}));
    // A chassis without FRU keeps its SMBIOS facts (FRU columns: type unknown, empty texts); an
    // array that cannot be read is published as unknown.
    auto source = std::make_shared<kelvarn::SimulatedSource>(
        "inventory-server.json", kelvarn::loadPlatformFile(dataFile("inventory-server.json")));
    kelvarn::setProcessResponder(std::make_shared<NoFruResponder>(kelvarn::makePlatformResponder(source)));
    chassisInfo chassis;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
    ASSERT_EQ(1, chassis.getCount());
    EXPECT_EQ("5|2|2|4711||||Testfield Systems", cells(chassis, 0, 13, "I...ii..issss"));

    auto script = useScript();
    script->value("/SMBIOS/MemoryArray/TotalNoOfArray", "1");
    script->failures["/SMBIOS/MemoryArray[0]"] = {sensortest::failure(1, 1086, "data source unavailable")};
    MemoryArray arrays;
    ASSERT_EQ(CLIENT_SUCCESS, arrays.init());
    ASSERT_EQ(1, arrays.getCount());
    EXPECT_EQ("1|Memory Array 1|Unknown|1|2|2|2|0|0|0|Unknown|0", cells(arrays, 0, 76, "issiiiiiiisi"));
}

// A real server's SMBIOS table (a Dell PowerEdge R630: one of its two sockets and 2 of its 24
// slots filled), read as Windows' firmware-table call answers it: a row per socket, rows for
// installed modules only, in slot order, numbered by array and slot. dmidecode says "Maximum
// Capacity: 3 TB", more than the Integer32 column holds.
TEST_F(InventoryTablesTest, DellPowerEdgeR630) {
    const std::string table = std::string(HM_SOURCE_DIR) +
                              "/../shared/realdata/siderolabs-go-smbios/Dell-PowerEdge-R630-Dual-Xeon.dmi";
    if (!hmtest::fileExists(table))
        GTEST_SKIP() << table << " is not there";
    const std::string text = hmtest::readFile(table);
    hmtest::TempDir dir;
    // Calling method 0, SMBIOS 3.0, DMI revision 0, the table's length; then the table.
    const char header[] = {0, 3, 0, 0, char(text.size() & 0xFF), char(text.size() >> 8), 0, 0};
    hmtest::writeFile(dir / "firmware.bin", std::string(header, sizeof header) + text);
    kelvarn::setProcessResponder(kelvarn::makePlatformResponder(std::make_shared<kelvarn::SmbiosSource>(
        kelvarn::SmbiosSource::Kind::Firmware, dir / "firmware.bin")));
    processorDevice processors;
    MemoryArray arrays;
    MemoryDevice devices;
    ASSERT_EQ(CLIENT_SUCCESS, processors.init() + arrays.init() + devices.init());
    EXPECT_EQ(
        "1|CPU1|Intel(R) Xeon(R) CPU E5-2630 v3 @ 2.40GHz|4000|2400|Populated\n2|CPU2||4000|0|Unpopulated",
        rowsOf(processors, 27, "is...s.....ii.s"));
    EXPECT_EQ("1|6|2147483647|24|Multi-bit ECC|2", rowsOf(arrays, 76, "i.....ii.isi"));
    EXPECT_EQ("1|A3|16384|1|3\n2|A4|16384|1|4", rowsOf(devices, 89, "is.......i....ii"));
}

// The built-in demo server through the client facade: every one of the fourteen groups has
// rows, and the inventory and discrete-sensor groups hold what the demo describes.
// Start-up stops when the service cannot be reached; over the demo server it succeeds.
TEST(DemoWalk, EveryGroupHasRowsAndTheirColumns) {
    setenv("HMSUBAGENT_REGISTRY", "/nonexistent/hm-inventory-registry.reg", 1);
    auto unreachable = std::make_shared<sensortest::ScriptedResponder>();
    unreachable->failAll = true;
    kelvarn::setProcessResponder(unreachable);
    EXPECT_EQ(SMBIOS_ERROR_UNAVAILABLE, initHMClient());
    destroyHMClient();
    sensortest::serveModel(kelvarn::parsePlatform(kelvarn::demoPlatformText(), "demo"));
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    for (uint32_t entity = systemManagementEntity; entity <= driveSlotEntity; ++entity)
        EXPECT_GT(getTableSize(entity), 0u) << "entity " << entity;
    // From the demo's description: 2 processors, 2 arrays with 8 of 12 DIMMs, one power
    // redundancy sensor, 2 supplies, one regulator status, one fan redundancy sensor, one
    // fan presence sensor, 4 drive bays.
    // Entity, rows, worst status.
    const uint32_t groups[][3] = {{chassisInfoEntity, 1, 3},     {processorDeviceEntity, 2, 3},
                                  {memoryArrayEntity, 2, 3},     {memoryDeviceEntity, 8, 3},
                                  {powerUnitEntity, 1, 3},       {powerSupplyEntity, 2, 4},
                                  {discreteVoltageEntity, 1, 3}, {coolingUnitEntity, 1, 3},
                                  {discreteCoolingEntity, 1, 3}, {driveSlotEntity, 4, 3}};
    for (const auto& g : groups)
        EXPECT_EQ((std::vector<uint32_t>{g[1], g[2]}),
                  (std::vector<uint32_t>{getTableSize(g[0]), getTableStatus(g[0])}))
            << "entity " << g[0];
    // Columns through the facade: a supply predicting failure; Socket LGA771; the empty bay;
    // security settings Disabled, Not Implemented, Enabled, Not Implemented.
    int32_t value = 0;
    EXPECT_EQ((std::vector<int32_t>{4, 20, 1, 38}),
              (std::vector<int32_t>{getIntData(powerSupplyEntity, 53, 1, &value) == 0 ? value : -1,
                                    getIntInfo(processorDeviceEntity, 40, 0, &value) == 0 ? value : -1,
                                    getIntData(driveSlotEntity, 156, 3, &value) == 0 ? value : -1,
                                    getIntData(chassisInfoEntity, 15, 0, &value) == 0 ? value : -1}));
    destroyHMClient();
    kelvarn::setProcessResponder(nullptr);
    unsetenv("HMSUBAGENT_REGISTRY");
}

} // namespace
