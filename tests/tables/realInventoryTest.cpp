// A real server's SMBIOS table (a Dell PowerEdge R630: one of its two sockets and 2 of its 24
// slots filled), read as Windows' firmware-table call answers it. Its fields are checked
// against dmidecode by the service's tests; here, the tables' own rules over it: a row per
// socket, rows for installed modules only, in slot order, numbered by array and slot.
#include <gtest/gtest.h>

#include "inventoryTestSupport.h"
#include "kelvarn/Smbios.h"
#include "support/files.h"
#include "tables/MemoryArray.h"
#include "tables/MemoryDevice.h"
#include "tables/processorDevice.h"

namespace {

using namespace inventorytest;

using RealInventoryTest = InventoryTest;

TEST_F(RealInventoryTest, DellPowerEdgeR630) {
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
    ASSERT_EQ(CLIENT_SUCCESS, processors.init());
    ASSERT_EQ(CLIENT_SUCCESS, arrays.init());
    ASSERT_EQ(CLIENT_SUCCESS, devices.init());
    ASSERT_EQ(2, processors.getCount());
    expectRow(processors, 0,
              {I(27, 1), S(28, "CPU1"), S(32, "Intel(R) Xeon(R) CPU E5-2630 v3 @ 2.40GHz"), I(38, 4000),
               I(39, 2400), S(41, "Populated")});
    expectRow(processors, 1,
              {I(27, 2), S(28, "CPU2"), S(32, ""), I(38, 4000), I(39, 0), S(41, "Unpopulated")});
    ASSERT_EQ(1, arrays.getCount());
    // dmidecode: "Maximum Capacity: 3 TB", more than the Integer32 column holds.
    expectRow(arrays, 0,
              {I(76, 1), I(82, 6), I(83, 2147483647), I(85, 24), I(87, 2), S(86, "Multi-bit ECC")});
    ASSERT_EQ(2, devices.getCount());
    for (int r = 0; r < 2; ++r)
        expectRow(devices, r,
                  {I(89, r + 1), S(90, r == 0 ? "A3" : "A4"), I(98, 16384), I(103, 1), I(104, r + 3)});
}

} // namespace
