// The built-in demo server through the client facade: every one of the fourteen groups
// has rows, and the inventory and discrete-sensor groups hold what the demo describes.
#include <gtest/gtest.h>

#include <cstdlib>

#include "core/hmClientApi.h"
#include "inventoryTestSupport.h"
#include "platform/smbiosInventory.h"

namespace {

using namespace inventorytest;

class DemoWalkTest : public InventoryTest {
protected:
    void SetUp() override {
        InventoryTest::SetUp();
        setenv("HMSUBAGENT_REGISTRY", "/nonexistent/hm-inventory-registry.reg", 1);
        serveModel(kelvarn::parsePlatform(kelvarn::demoPlatformText(), "demo"));
        ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    }
    void TearDown() override {
        destroyHMClient();
        unsetenv("HMSUBAGENT_REGISTRY");
        InventoryTest::TearDown();
    }
};

TEST_F(DemoWalkTest, EveryGroupHasRowsAndTheirColumns) {
    for (uint32_t entity = systemManagementEntity; entity <= driveSlotEntity; ++entity)
        EXPECT_GT(getTableSize(entity), 0u) << "entity " << entity;
    // From the demo's description: 2 processors, 2 arrays with 8 of 12 DIMMs, one power
    // redundancy sensor, 2 supplies, one regulator status, one fan redundancy sensor, one
    // fan presence sensor, 4 drive bays.
    const struct {
        uint32_t entity;
        uint32_t rows;
        uint32_t status;
    } groups[] = {{chassisInfoEntity, 1, 3},     {processorDeviceEntity, 2, 3}, {memoryArrayEntity, 2, 3},
                  {memoryDeviceEntity, 8, 3},    {powerUnitEntity, 1, 3},       {powerSupplyEntity, 2, 4},
                  {discreteVoltageEntity, 1, 3}, {coolingUnitEntity, 1, 3},     {discreteCoolingEntity, 1, 3},
                  {driveSlotEntity, 4, 3}};
    for (const auto& g : groups) {
        SCOPED_TRACE("entity " + std::to_string(g.entity));
        EXPECT_EQ(g.rows, getTableSize(g.entity));
        EXPECT_EQ(g.status, getTableStatus(g.entity));
    }
    char* text = nullptr;
    ASSERT_EQ(CLIENT_SUCCESS, getStrData(powerSupplyEntity, 52, 1, &text));
    EXPECT_STREQ(
        "power supply's presence has been detected,predictive failure has been detected for the power supply",
        text);
    free(text);
    int32_t value = 0;
    ASSERT_EQ(CLIENT_SUCCESS, getIntData(powerSupplyEntity, 53, 1, &value));
    EXPECT_EQ(4, value);
    ASSERT_EQ(CLIENT_SUCCESS, getIntInfo(processorDeviceEntity, 40, 0, &value));
    EXPECT_EQ(20, value); // Socket LGA771
    ASSERT_EQ(CLIENT_SUCCESS, getStrInfo(driveSlotEntity, 154, 3, &text));
    EXPECT_STREQ("Drive 3", text);
    free(text);
    ASSERT_EQ(CLIENT_SUCCESS, getIntData(driveSlotEntity, 156, 3, &value));
    EXPECT_EQ(1, value); // the empty bay
    ASSERT_EQ(CLIENT_SUCCESS, getIntData(chassisInfoEntity, 15, 0, &value));
    EXPECT_EQ(38, value); // Disabled, Not Implemented, Enabled, Not Implemented
}

TEST(SmbiosStartUp, UnreachableServiceStopsStartUp) {
    setenv("HMSUBAGENT_REGISTRY", "/nonexistent/hm-inventory-registry.reg", 1);
    auto script = std::make_shared<sensortest::ScriptedResponder>();
    script->failAll = true;
    kelvarn::setProcessResponder(script);
    EXPECT_EQ(SMBIOS_ERROR_UNAVAILABLE, initHMClient());
    destroyHMClient();
    kelvarn::setProcessResponder(nullptr);
    unsetenv("HMSUBAGENT_REGISTRY");
}

} // namespace
