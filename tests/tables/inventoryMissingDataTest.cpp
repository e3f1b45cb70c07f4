// Servers that lack what the inventory tables read: no service at all, a bare platform
// (no processors, memory, sensors or drive bays), no FRU.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "inventoryTestSupport.h"
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

using namespace inventorytest;

struct TableCase {
    const char* name;
    std::function<BaseAccessor*()> make;
    uint32_t noRow;
    int intAttribute, strAttribute; // columns served by getIntInfo and getStrInfo
    bool liveData;                  // false: the inventory tables offer no live data (4)
    bool thresholds;                // true: the table accepts threshold writes, so a write finds no row
};

const TableCase kTables[] = {
    {"processorDevice", [] { return new processorDevice(); }, 22, 27, 28, false, false},
    {"MemoryArray", [] { return new MemoryArray(); }, 2, 76, 77, false, false},
    {"MemoryDevice", [] { return new MemoryDevice(); }, 2, 89, 90, false, false},
    {"temperatureProbe", [] { return new temperatureProbe(); }, 32, 138, 139, true, true},
    {"powerUnit", [] { return new powerUnit(); }, 23, 44, 45, true, false},
    {"powerSupply", [] { return new powerSupply(); }, 24, 50, 51, true, false},
    {"voltageProbe", [] { return new voltageProbe(); }, 25, 55, 56, true, true},
    {"discreteVoltage", [] { return new discreteVoltage(); }, 26, 70, 71, true, false},
    {"coolingDevice", [] { return new coolingDevice(); }, 30, 117, 118, true, true},
    {"coolingUnit", [] { return new coolingUnit(); }, 29, 110, 111, true, false},
    {"discreteCooling", [] { return new discreteCooling(); }, 31, 132, 133, true, false},
    {"driveSlot", [] { return new driveSlot(); }, 34, 153, 154, true, false}};

// Every table starts empty and answers with its own no-row code when nothing was discovered.
void expectEmpty(BaseAccessor& table, const TableCase& c) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(CLIENT_SUCCESS, table.init());
    EXPECT_EQ(0, table.getCount());
    EXPECT_EQ(0, table.getMaxStatus());
    EXPECT_EQ(0u, table.seedHealth(nullptr));
    for (int attribute : {c.intAttribute, 1}) {
        IntRead i = readInt(table, Getter::IntInfo, attribute, 0);
        EXPECT_EQ(c.noRow, i.code);
        EXPECT_EQ(-1, i.value);
    }
    StrRead s = readStr(table, Getter::StrInfo, c.strAttribute, 0);
    EXPECT_EQ(c.noRow, s.code);
    EXPECT_TRUE(s.null);
    if (c.make == nullptr) { // the chassis: its live columns only
        EXPECT_EQ(c.noRow, readInt(table, Getter::IntData, 11, 0).code);
        return;
    }
    EXPECT_EQ(c.liveData ? c.noRow : 4u, readInt(table, Getter::IntData, 1, 0).code);
    EXPECT_EQ(c.liveData ? c.noRow : 4u, readStr(table, Getter::StrData, 1, 0).code);
    EXPECT_EQ(c.thresholds ? c.noRow : 4u, table.setIntData(1, 0, 0));
}

class MissingDataTest : public InventoryTest {};

TEST_F(MissingDataTest, UnreachableServiceLeavesEveryGroupEmpty) {
    useScript()->failAll = true;
    for (const TableCase& c : kTables) {
        std::unique_ptr<BaseAccessor> table(c.make());
        expectEmpty(*table, c);
    }
    chassisInfo chassis;
    expectEmpty(chassis, {"chassisInfo", nullptr, 32, 17, 22, true, false});
}

TEST_F(MissingDataTest, BarePlatformHasNoRowsButAChassis) {
    servePlatformText("{\"format\": \"kelvarn-platform\", \"version\": 1}");
    for (const TableCase& c : kTables) {
        std::unique_ptr<BaseAccessor> table(c.make());
        expectEmpty(*table, c);
    }
    // The service describes a default chassis: rack mount, safe, no FRU texts.
    chassisInfo chassis;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
    ASSERT_EQ(1, chassis.getCount());
    expectRow(chassis, 0,
              {IL(11, 3), IL(12, 3), IL(13, 3), IL(14, 3), IL(16, 3), I(17, 23), I(18, 1), I(19, 1), I(20, 2),
               I(21, 0), S(22, ""), S(23, ""), S(24, ""), S(25, "")});
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

TEST_F(MissingDataTest, ChassisWithoutFruKeepsItsSmbiosFacts) {
    auto source = std::make_shared<kelvarn::SimulatedSource>(
        "inventory-server.json", kelvarn::loadPlatformFile(dataFile("inventory-server.json")));
    kelvarn::setProcessResponder(std::make_shared<NoFruResponder>(kelvarn::makePlatformResponder(source)));
    chassisInfo chassis;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
    ASSERT_EQ(1, chassis.getCount());
    // FRU columns: type unknown (2) and empty texts; the rest as the platform file says.
    expectRow(chassis, 0,
              {IL(13, 5), I(17, 2), I(18, 2), I(21, 4711), S(22, ""), S(23, ""), S(24, ""),
               S(25, "Testfield Systems")});
    EXPECT_NE(std::string::npos,
              trace().find("\n chassisInfo: query failed\nOperation: 2on :/BMC/FRU failed. "
                           "1083: no such instance"));
}

TEST_F(MissingDataTest, ArrayThatCannotBeReadIsPublishedAsUnknown) {
    auto script = useScript();
    script->value("/SMBIOS/MemoryArray/TotalNoOfArray", "1");
    script->failures["/SMBIOS/MemoryArray[0]"] = {sensortest::failure(1, 1086, "data source unavailable")};
    MemoryArray arrays;
    ASSERT_EQ(CLIENT_SUCCESS, arrays.init());
    ASSERT_EQ(1, arrays.getCount());
    expectRow(arrays, 0,
              {I(76, 1), S(77, "Memory Array 1"), S(78, "Unknown"), I(79, 1), I(80, 2), I(81, 2), I(82, 2),
               I(83, 0), I(84, 0), I(85, 0), S(86, "Unknown"), I(87, 0)});
}

} // namespace
