// The SMBIOS source: tables refused or cut safely, structures decoded as the
// /SMBIOS paths publish them, and every published field of real servers'
// tables equal to what dmidecode (an independent decoder) prints.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "kelvarn/Errors.h"
#include "kelvarn/Smbios.h"
#include "serviceTestUtil.h"
#include "support/files.h"
#include "smbiosTestUtil.h"

namespace {

using kelvarn::smbios::parseDumpFile;
using kelvarn::smbios::parseFirmwareTable;
using kelvarn::smbios::parseStructures;
using kelvarn::smbios::SmbiosError;
using kelvarn::smbios::Table;

using hmtest::TempDir;

std::unique_ptr<SDK::System>
systemOverDump(const std::string& file,
               kelvarn::SmbiosSource::Kind kind = kelvarn::SmbiosSource::Kind::Dump) {
    auto source = std::make_shared<kelvarn::SmbiosSource>(kind, file);
    return std::make_unique<SDK::System>(kelvarn::makePlatformResponder(source));
}

// A type 4 structure: socket "CPU1", manufacturer "Intel", version "Xeon E5",
// serial "S1", part "P1"; the given family, upgrade, voltage and status.
Bytes processor(uint16_t handle, uint8_t family, uint8_t upgrade, uint8_t voltage = 0x8C,
                uint8_t status = 0x41) {
    Bytes b(0x30 - 4, 0);
    auto at = [&b](size_t offset) -> uint8_t& { return b[offset - 4]; };
    at(0x04) = 1;
    at(0x05) = 3;
    at(0x06) = family;
    at(0x07) = 2;
    const uint8_t id[8] = {0xA9, 0x06, 0x03, 0x00, 0xFF, 0xFB, 0xEB, 0xBF};
    std::copy(id, id + 8, &at(0x08));
    at(0x10) = 3;
    at(0x11) = voltage;
    at(0x12) = 100;                   // external clock 100 MHz
    at(0x14) = 0x0C, at(0x15) = 0x0E; // max 3596 MHz
    at(0x16) = 0x60, at(0x17) = 0x09; // current 2400 MHz
    at(0x18) = status;
    at(0x19) = upgrade;
    at(0x20) = 4;
    at(0x22) = 5;
    at(0x23) = 8;
    at(0x25) = 16;
    return smbiosStructure(4, handle, b, {"CPU1", "Intel", "Xeon E5", "S1", "P1"});
}

Bytes memoryArray(uint16_t handle, uint32_t maxKB = 0x01000000, uint16_t devices = 2) {
    Bytes b(0x17 - 4, 0);
    b[0] = 3; // system board
    b[1] = 3; // system memory
    b[2] = 6; // multi-bit ECC
    putLittle(b, 0x07 - 4, maxKB, 4);
    putLittle(b, 0x0B - 4, 0xFFFE, 2);
    putLittle(b, 0x0D - 4, devices, 2);
    return smbiosStructure(16, handle, b);
}

// A type 17 structure of the given size word (MiB, or KiB with bit 15).
Bytes memoryDevice(uint16_t handle, uint16_t array, uint16_t size, const std::string& locator,
                   uint16_t typeDetail = 0x0080, uint8_t type = 0x1A, uint32_t extendedSize = 0) {
    Bytes b(0x28 - 4, 0);
    auto at = [&b](size_t offset) -> uint8_t& { return b[offset - 4]; };
    putLittle(b, 0x04 - 4, array, 2);
    putLittle(b, 0x06 - 4, 0xFFFE, 2);
    putLittle(b, 0x08 - 4, 72, 2);
    putLittle(b, 0x0A - 4, 64, 2);
    putLittle(b, 0x0C - 4, size, 2);
    at(0x0E) = 0x09; // DIMM
    at(0x10) = 1;
    at(0x11) = 2;
    at(0x12) = type;
    putLittle(b, 0x13 - 4, typeDetail, 2);
    putLittle(b, 0x15 - 4, 2133, 2);
    at(0x17) = 3;
    at(0x18) = 4;
    at(0x19) = 0;
    at(0x1A) = 5;
    putLittle(b, 0x1C - 4, extendedSize, 4);
    return smbiosStructure(17, handle, b, {locator, "BANK 0", "Samsung", "0001", "M393A"});
}

// ---------------------------------------------------------------- splitting

TEST(SmbiosTable, BrokenStructuresEndTheTableAfterWhatIsWhole) {
    const Bytes good = smbiosStructure(24, 1, {0x26});
    struct Case {
        const char* name;
        Bytes tail;
        const char* problem; // expected text inside the one problem reported
    };
    const Case cases[] = {
        {"header cut short", {3, 0x15}, "header cut short"},
        {"length below the header", {3, 2, 0, 0, 0, 0}, "length 2 is shorter than its header"},
        {"length past the end", {3, 0x40, 2, 0, 1, 2, 0, 0}, "length 64 runs past the table"},
        {"strings without their double NUL",
         {3, 5, 2, 0, 1, 'A', 'c', 'm', 'e', 0},
         "without its closing double NUL"},
        {"formatted area without strings", {3, 5, 2, 0, 1}, "without its closing double NUL"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes t = good;
        t.insert(t.end(), c.tail.begin(), c.tail.end());
        Table table = parseStructures(t);
        ASSERT_EQ(table.structures.size(), 1u);
        EXPECT_EQ(table.structures[0].type, 24);
        ASSERT_EQ(table.problems.size(), 1u);
        EXPECT_NE(table.problems[0].find(c.problem), std::string::npos) << table.problems[0];
        EXPECT_NE(table.problems[0].find("offset 7"), std::string::npos) << table.problems[0];
    }
}

TEST(SmbiosTable, StringSetsAndEndOfTable) {
    Bytes t = smbiosStructure(3, 0x0300, {1, 0x17, 0, 0, 0}, {"Acme", "R1", "R2"});
    Bytes end = endOfTable();
    t.insert(t.end(), end.begin(), end.end());
    Bytes after = smbiosStructure(4, 9, {0});
    t.insert(t.end(), after.begin(), after.end()); // beyond the end marker: not read
    Table table = parseStructures(t);
    EXPECT_TRUE(table.problems.empty());
    ASSERT_EQ(table.structures.size(), 1u);
    EXPECT_EQ(table.structures[0].handle, 0x0300);
    EXPECT_EQ(table.structures[0].formatted.size(), 9u);
    EXPECT_EQ(table.structures[0].strings, (std::vector<std::string>{"Acme", "R1", "R2"}));
}

TEST(SmbiosTable, EntryPointsAreCheckedAndBoundTheTable) {
    Bytes t = smbiosStructure(24, 1, {0x26});
    Bytes t3 = smbiosStructure(24, 2, {0x27});
    Bytes t2 = smbiosStructure(24, 3, {0x28});
    t.insert(t.end(), t3.begin(), t3.end());
    t.insert(t.end(), t2.begin(), t2.end());

    // The 32-bit entry point's structure count stops the walk.
    Bytes file = entryPoint2(t.size(), 2);
    file.insert(file.end(), t.begin(), t.end());
    Table counted = parseDumpFile(file);
    EXPECT_EQ(counted.entry.major, 2);
    EXPECT_EQ(counted.entry.minor, 7);
    EXPECT_EQ(counted.structures.size(), 2u);

    // A table length beyond the file is cut to the file, and said so.
    Bytes longer = entryPoint3(t.size() + 100);
    longer.insert(longer.end(), t.begin(), t.end());
    Table cut = parseDumpFile(longer);
    EXPECT_EQ(cut.structures.size(), 3u);
    ASSERT_FALSE(cut.problems.empty());
    EXPECT_NE(cut.problems[0].find("not the 121"), std::string::npos) << cut.problems[0];

    // Windows' firmware-table answer: its 8-byte header gives the version and bounds the table.
    Bytes firmware = {0, 3, 4, 0, 0, 0, 0, 0};
    putLittle(firmware, 4, t.size() + 100, 4);
    firmware.insert(firmware.end(), t.begin(), t.end());
    Table fromFirmware = parseFirmwareTable(firmware);
    EXPECT_EQ(fromFirmware.entry.major, 3);
    EXPECT_EQ(fromFirmware.entry.minor, 4);
    EXPECT_EQ(fromFirmware.structures.size(), 3u);
    ASSERT_EQ(fromFirmware.problems.size(), 1u);
    EXPECT_NE(fromFirmware.problems[0].find("the firmware table is 21 bytes, not the 121"), std::string::npos)
        << fromFirmware.problems[0];
    try {
        parseFirmwareTable(Bytes{0, 3, 0, 0, 21});
        ADD_FAILURE() << "a cut header was accepted";
    } catch (const SmbiosError& e) {
        EXPECT_STREQ(e.what(), "firmware table of 5 bytes is shorter than its 8-byte header");
    }

    struct Bad {
        const char* name;
        Bytes file;
        const char* message;
    };
    Bytes badSum = entryPoint3(t.size());
    badSum[0x0C] ^= 1;
    Bytes badDmi = entryPoint2(t.size(), 3);
    badDmi[0x12] = 'X';
    fixChecksum(badDmi, 4, 0, 0x1F);
    Bytes farTable = entryPoint3(t.size());
    putLittle(farTable, 0x10, 4096, 8);
    fixChecksum(farTable, 5, 0, 0x18);
    Bytes shortLength = entryPoint3(t.size());
    shortLength[6] = 0x10;
    fixChecksum(shortLength, 5, 0, 0x10);
    const Bad bad[] = {
        {"no anchor", Bytes(40, 0), "no SMBIOS entry point"},
        {"cut entry point", Bytes{'_', 'S', 'M', '3', '_', 0}, "too short"},
        {"checksum", badSum, "checksum is wrong"},
        {"intermediate anchor", badDmi, "\"_DMI_\""},
        {"table past the file", farTable, "past the end"},
        {"entry point length", shortLength, "gives the length 16"},
    };
    for (const Bad& b : bad) {
        SCOPED_TRACE(b.name);
        try {
            parseDumpFile(b.file);
            ADD_FAILURE() << "accepted";
        } catch (const SmbiosError& e) {
            EXPECT_NE(std::string(e.what()).find(b.message), std::string::npos) << e.what();
        }
    }
}

// ---------------------------------------------------------------- decoding

TEST(SmbiosDecode, ProcessorFieldsAsPublished) {
    TempDir dir;
    Bytes t = processor(0x40, 0xB3, 0x18);
    Bytes empty = processor(0x41, 0xFE, 0x2B, 0x02, 0x00); // family in the word at 0x28
    empty[0x28] = 0x01, empty[0x29] = 0x01;                // 0x101: not in the name table
    t.insert(t.end(), empty.begin(), empty.end());
    writeBytes(dir.path() + "/p.bin", dumpOf(t));
    auto sys = systemOverDump(dir.path() + "/p.bin");
    const std::map<std::string, std::string> expected = {
        {"/SMBIOS/ProcessorInfo/TotalNoOfProcessor", "2"},
        {"/SMBIOS/ProcessorInfo/TotalNoOfProcessorPresent", "1"},
        {"/SMBIOS/ProcessorInfo[0]/SocketDesignation", "CPU1"},
        {"/SMBIOS/ProcessorInfo[0]/ProcessorType", "Central processor"},
        {"/SMBIOS/ProcessorInfo[0]/ProcessorFamily", "Xeon"},
        {"/SMBIOS/ProcessorInfo[0]/ProcessorManufacturer", "Intel"},
        {"/SMBIOS/ProcessorInfo[0]/ProcessorId", "A9 06 03 00 FF FB EB BF"},
        {"/SMBIOS/ProcessorInfo[0]/ProcessorVersion", "Xeon E5"},
        {"/SMBIOS/ProcessorInfo[0]/VoltageCapability", "1.2V"},
        {"/SMBIOS/ProcessorInfo[0]/ClockFrequency", "100"},
        {"/SMBIOS/ProcessorInfo[0]/MaxSpeed", "3596"},
        {"/SMBIOS/ProcessorInfo[0]/CurrentSpeed", "2400"},
        {"/SMBIOS/ProcessorInfo[0]/Upgrade", "Socket F"},
        {"/SMBIOS/ProcessorInfo[0]/SerialNumber", "S1"},
        {"/SMBIOS/ProcessorInfo[0]/PartNumber", "P1"},
        {"/SMBIOS/ProcessorInfo[0]/CoreCount", "8"},
        {"/SMBIOS/ProcessorInfo[0]/ThreadCount", "16"},
        {"/SMBIOS/ProcessorInfo[0]/Status", "Populated"},
        {"/SMBIOS/ProcessorInfo[1]/ProcessorFamily", "Unknown"},
        {"/SMBIOS/ProcessorInfo[1]/VoltageCapability", "3.3V"},
        {"/SMBIOS/ProcessorInfo[1]/Upgrade", "Socket LGA2011-3"},
        {"/SMBIOS/ProcessorInfo[1]/Status", "Unpopulated"},
    };
    for (const auto& e : expected)
        EXPECT_EQ(valueOf(*sys, e.first), e.second) << e.first;
}

TEST(SmbiosDecode, MemoryArraysCollectTheirDevicesByHandle) {
    TempDir dir;
    Bytes t = memoryArray(0x10);
    for (const Bytes& s : {memoryArray(0x20, 0x80000000u),
                           memoryDevice(0x11, 0x10, 0x4000, "DIMM_A1", 0x0080 | 0x0100 | 0x2000),
                           memoryDevice(0x21, 0x20, 0x0000, "DIMM_B1"),
                           memoryDevice(0x12, 0x10, 0x8000 | 0x0800, "DIMM_A2", 0x0008, 0x18),
                           memoryDevice(0x22, 0x20, 0x7FFF, "DIMM_B2", 0x0080, 0x22, 65536),
                           memoryDevice(0x99, 0x77, 0x1000, "ORPHAN")})
        t.insert(t.end(), s.begin(), s.end());
    // Array 0x20's extended maximum capacity, 2 TiB in bytes, at 0x0F; the
    // second structure starts after the first's 23 formatted bytes and 2 NULs.
    Bytes file = dumpOf(t);
    const size_t array2 = 32 + 23 + 2;
    putLittle(file, array2 + 0x0F, uint64_t(2) << 40, 8);
    writeBytes(dir.path() + "/m.bin", file);
    auto sys = systemOverDump(dir.path() + "/m.bin");
    const std::string a0 = "/SMBIOS/MemoryArray[0]", a1 = "/SMBIOS/MemoryArray[1]";
    const std::map<std::string, std::string> expected = {
        {"/SMBIOS/MemoryArray/TotalNoOfArray", "2"},
        {a0 + "/Location", "System board or motherboard"},
        {a0 + "/Use", "System memory"},
        {a0 + "/MemoryErrorCorrection", "Multi-bit ECC"},
        {a0 + "/MaxCapacity", "16777216"},
        {a0 + "/MemoryErrorInfoHandle", "65534"},
        {a0 + "/NumMemoryDevices", "2"},
        {a0 + "/TotalNoOfDevicePresent", "2"},
        {a0 + "/MemoryDevice[0]/DeviceLocator", "DIMM_A1"},
        {a0 + "/MemoryDevice[0]/BankLocator", "BANK 0"},
        {a0 + "/MemoryDevice[0]/Size", "16384"},
        {a0 + "/MemoryDevice[0]/MemoryType", "DDR4"},
        {a0 + "/MemoryDevice[0]/FormFactor", "DIMM"},
        {a0 + "/MemoryDevice[0]/TypeDetail/Synchronous", "Supported"},
        {a0 + "/MemoryDevice[0]/TypeDetail/CMOS", "Supported"},
        {a0 + "/MemoryDevice[0]/TypeDetail/EDO", "Not supported"},
        {a0 + "/MemoryDevice[0]/Speed", "2133"},
        {a0 + "/MemoryDevice[0]/Manufacturer", "Samsung"},
        {a0 + "/MemoryDevice[0]/SerialNumber", "0001"},
        {a0 + "/MemoryDevice[0]/AssetTag", ""},
        {a0 + "/MemoryDevice[0]/PartNumber", "M393A"},
        {a0 + "/MemoryDevice[0]/TotalWidth", "72"},
        {a0 + "/MemoryDevice[0]/DataWidth", "64"},
        {a0 + "/MemoryDevice[0]/DevicePresent", "True"},
        {a0 + "/MemoryDevice[1]/DeviceLocator", "DIMM_A2"},
        {a0 + "/MemoryDevice[1]/Size", "2"}, // 2048 KiB
        {a0 + "/MemoryDevice[1]/MemoryType", "DDR3"},
        {a0 + "/MemoryDevice[1]/TypeDetail/Fast-paged", "Supported"},
        {a0 + "/MemoryDevice[1]/TypeDetail/Synchronous", "Not supported"},
        {a1 + "/MaxCapacity", "2147483648"},
        {a1 + "/NumMemoryDevices", "2"},
        {a1 + "/TotalNoOfDevicePresent", "1"},
        {a1 + "/MemoryDevice[0]/DeviceLocator", "DIMM_B1"},
        {a1 + "/MemoryDevice[0]/Size", "0"},
        {a1 + "/MemoryDevice[0]/DevicePresent", "False"},
        {a1 + "/MemoryDevice[1]/Size", "65536"},
        {a1 + "/MemoryDevice[1]/MemoryType", "DDR5"},
    };
    for (const auto& e : expected)
        EXPECT_EQ(valueOf(*sys, e.first), e.second) << e.first;
    // The device naming an array that does not exist is left out.
    EXPECT_EQ(failuresOf(*sys, a1 + "/MemoryDevice[2]").at(0).Code, kelvarn::kNoSuchInstance);
}

TEST(SmbiosDecode, ShortAndMissingStructures) {
    // Structures shorter than their oldest layout are skipped; a string index
    // past the string set reads empty; no chassis structures: Unknown.
    Bytes shortCpu = smbiosStructure(4, 1, Bytes(0x10, 1), {"CPU"});
    Bytes badIndex = processor(2, 0xB3, 0x18);
    badIndex[0x10] = 9; // version names string 9 of 5
    Bytes t = shortCpu;
    t.insert(t.end(), badIndex.begin(), badIndex.end());
    kelvarn::smbios::Decoded d = kelvarn::smbios::decode(parseDumpFile(dumpOf(t)));
    ASSERT_EQ(d.processors.size(), 1u);
    EXPECT_EQ(d.processors[0].version, "");
    EXPECT_EQ(d.processors[0].socketDesignation, "CPU1");
    EXPECT_EQ(d.chassis.type, "Unknown");
    EXPECT_EQ(d.chassis.powerOnPassword, "Unknown");
    ASSERT_EQ(d.problems.size(), 2u);
    EXPECT_EQ(d.problems[0], "type 4 structure (handle 1) is 20 bytes, shorter than 26; skipped");
    EXPECT_EQ(d.problems[1], "no type 3 structure: chassis fields are defaults");
}

TEST(SmbiosDecode, ChassisAndSecuritySettings) {
    TempDir dir;
    Bytes t = smbiosStructure(3, 3, {1, 0x97, 2, 3, 0, 3, 4, 5, 3}, {"Acme", "v2", "SN\x01X"});
    Bytes sec = smbiosStructure(24, 4, {0x26});
    t.insert(t.end(), sec.begin(), sec.end());
    writeBytes(dir.path() + "/c.bin", dumpOf(t));
    auto sys = systemOverDump(dir.path() + "/c.bin");
    const std::map<std::string, std::string> expected = {
        {"/SMBIOS/Type3/Manufacturer", "Acme"},
        {"/SMBIOS/Type3/Type", "Rack Mount Chassis"}, // lock bit 7 set, type 0x17
        {"/SMBIOS/Type3/Version", "v2"},
        {"/SMBIOS/Type3/SerialNumber", "SN.X"},
        {"/SMBIOS/Type3/AssetTag", ""},
        {"/SMBIOS/Type3/BootupState", "Safe"},
        {"/SMBIOS/Type3/PowerSupplyState", "Warning"},
        {"/SMBIOS/Type3/ThermalState", "Critical"},
        {"/SMBIOS/Type3/SecurityStatus", "None"},
        {"/SMBIOS/Type24/HardwareSecuritySettings", "38"},
        {"/SMBIOS/Type24/HardwareSecuritySettings/PowerOnPassword", "Disabled"},
        {"/SMBIOS/Type24/HardwareSecuritySettings/KeyboardPassword", "Not Implemented"},
        {"/SMBIOS/Type24/HardwareSecuritySettings/AdministratorPassword", "Enabled"},
        {"/SMBIOS/Type24/HardwareSecuritySettings/FrontPanelReset", "Not Implemented"},
    };
    for (const auto& e : expected)
        EXPECT_EQ(valueOf(*sys, e.first), e.second) << e.first;
}

TEST(SmbiosSource, UnreadableDumpFailsEachQueryUntilItIsThere) {
    TempDir dir;
    const std::string file = dir.path() + "/later.bin";
    auto sys = systemOverDump(file);
    auto f = failuresOf(*sys, "/SMBIOS/ProcessorInfo/TotalNoOfProcessor");
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].Code, kelvarn::kSourceUnavailable);
    EXPECT_EQ(f[0].Message, "SMBIOS data source unavailable: " + file + ": cannot be opened");
    writeBytes(file, Bytes(64, 0));
    f = failuresOf(*sys, "/SMBIOS/ProcessorInfo/TotalNoOfProcessor");
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].Message, "SMBIOS data source unavailable: " + file +
                                ": no SMBIOS entry point (\"_SM_\" or \"_SM3_\") at the start");
    writeBytes(file, dumpOf(processor(1, 0xB3, 0x18)));
    EXPECT_EQ(valueOf(*sys, "/SMBIOS/ProcessorInfo/TotalNoOfProcessor"), "1");
}

// ------------------------------------------------- against dmidecode's decoding

// The service's names where they differ from dmidecode's.
const std::map<std::string, std::string> kServiceName = {
    {"Central Processor", "Central processor"},
    {"Other Processor", "other"},
    {"Math Processor", "mathProcessor"},
    {"DSP Processor", "dspProcessor"},
    {"Video Processor", "videoProcessor"},
    {"370-pin Socket", "370-pin socket"},
    {"Socket A (Socket 462)", "Socket A"},
    {"Socket F (1207)", "Socket F"},
    {"System Board Or Motherboard", "System board or motherboard"},
    {"System Memory", "System memory"},
    {"Video Memory", "Video memory"},
    {"Flash Memory", "Flash memory"},
    {"Non-volatile RAM", "Non Volatile memory"},
    {"Cache Memory", "Cache memory"},
    {"Proprietary Card", "ProprietaryCard"},
    {"Row Of Chips", "RowOfChips"},
    {"Flash", "FLASH"},
    {"External Interface Locked Out", "External interface locked out"},
    {"External Interface Enabled", "External interface enabled"},
    {"Not Specified", ""},
};

std::string asService(const std::string& dmidecode) {
    auto it = kServiceName.find(dmidecode);
    return it == kServiceName.end() ? dmidecode : it->second;
}

// "2200 MHz" -> "2200", "72 bits" -> "72", "Unknown" -> "0".
std::string number(const std::string& v) {
    size_t n = 0;
    while (n < v.size() && isdigit(static_cast<unsigned char>(v[n])))
        ++n;
    return n ? v.substr(0, n) : "0";
}

// "4 GB" -> MiB, "No Module Installed" -> 0.
std::string sizeMiB(const std::string& v) {
    unsigned long long n = std::strtoull(v.c_str(), nullptr, 10);
    if (v.find(" kB") != std::string::npos)
        n /= 1024;
    else if (v.find(" GB") != std::string::npos)
        n *= 1024;
    else if (v.find(" TB") != std::string::npos)
        n *= 1024 * 1024;
    return std::to_string(n);
}

// "384 GB" -> KiB.
std::string capacityKiB(const std::string& v) {
    unsigned long long n = std::strtoull(v.c_str(), nullptr, 10);
    if (v.find(" MB") != std::string::npos)
        n *= 1024;
    else if (v.find(" GB") != std::string::npos)
        n *= 1024 * 1024;
    else if (v.find(" TB") != std::string::npos)
        n *= 1024ull * 1024 * 1024;
    return std::to_string(n);
}

std::string errorHandle(const std::string& v) {
    if (v == "Not Provided")
        return "65534";
    if (v == "No Error")
        return "65535";
    return std::to_string(std::strtoul(v.c_str(), nullptr, 16));
}

// dmidecode's names of the type detail bits the service publishes.
const std::pair<const char*, const char*> kTypeDetail[] = {{"Fast-paged", "Fast-paged"},
                                                           {"Static column", "Static Column"},
                                                           {"Pseudo-static", "Pseudo-static"},
                                                           {"RAMBUS", "RAMBus"},
                                                           {"Synchronous", "Synchronous"},
                                                           {"CMOS", "CMOS"},
                                                           {"EDO", "EDO"},
                                                           {"Window DRAM", "Window DRAM"},
                                                           {"Cache DRAM", "Cache DRAM"},
                                                           {"Non-volatile", "Non-Volatile"}};

// Compares every published field with dmidecode's; returns how many were compared.
// dmidecode reads `file`, a dump; the service reads the same file, or `firmware`, the same
// table as Windows' firmware-table call answers it.
size_t compareWithDmidecode(const std::string& file, const std::string& firmware = "") {
    auto sys = firmware.empty() ? systemOverDump(file)
                                : systemOverDump(firmware, kelvarn::SmbiosSource::Kind::Firmware);
    auto field = [](const std::map<std::string, std::string>& m, const std::string& k) {
        auto it = m.find(k);
        return it == m.end() ? std::string("<absent>") : it->second;
    };
    size_t compared = 0;
    // Everything below /SMBIOS, asked once.
    Result all;
    for (const char* root :
         {"/SMBIOS/Type3", "/SMBIOS/Type24", "/SMBIOS/ProcessorInfo", "/SMBIOS/MemoryArray"})
        sys->Get(root, all);
    auto expectEq = [&](const std::string& path, const std::string& expected) {
        auto it = all.find(path);
        ASSERT_TRUE(it != all.end() && it->second.Values.size() == 1) << path;
        EXPECT_EQ(it->second.Values[0], expected) << path;
        ++compared;
    };

    const auto chassis = dmidecodeOf(file, 3);
    if (!chassis.empty()) {
        const auto& c = chassis[0];
        expectEq("/SMBIOS/Type3/Manufacturer", asService(field(c, "Manufacturer")));
        expectEq("/SMBIOS/Type3/Type", field(c, "Type"));
        expectEq("/SMBIOS/Type3/Version", asService(field(c, "Version")));
        expectEq("/SMBIOS/Type3/SerialNumber", asService(field(c, "Serial Number")));
        expectEq("/SMBIOS/Type3/AssetTag", asService(field(c, "Asset Tag")));
        expectEq("/SMBIOS/Type3/BootupState", field(c, "Boot-up State"));
        expectEq("/SMBIOS/Type3/PowerSupplyState", field(c, "Power Supply State"));
        expectEq("/SMBIOS/Type3/ThermalState", field(c, "Thermal State"));
        expectEq("/SMBIOS/Type3/SecurityStatus", asService(field(c, "Security Status")));
    }
    const auto security = dmidecodeOf(file, 24);
    if (!security.empty()) {
        const std::string hs = "/SMBIOS/Type24/HardwareSecuritySettings/";
        expectEq(hs + "PowerOnPassword", field(security[0], "Power-On Password Status"));
        expectEq(hs + "KeyboardPassword", field(security[0], "Keyboard Password Status"));
        expectEq(hs + "AdministratorPassword", field(security[0], "Administrator Password Status"));
        expectEq(hs + "FrontPanelReset", field(security[0], "Front Panel Reset Status"));
    }

    const auto cpus = dmidecodeOf(file, 4);
    expectEq("/SMBIOS/ProcessorInfo/TotalNoOfProcessor", std::to_string(cpus.size()));
    for (size_t i = 0; i < cpus.size(); ++i) {
        const auto& p = cpus[i];
        const std::string b = "/SMBIOS/ProcessorInfo[" + std::to_string(i) + "]/";
        expectEq(b + "SocketDesignation", asService(field(p, "Socket Designation")));
        expectEq(b + "ProcessorType", asService(field(p, "Type")));
        expectEq(b + "ProcessorFamily", field(p, "Family"));
        expectEq(b + "ProcessorManufacturer", asService(field(p, "Manufacturer")));
        expectEq(b + "ProcessorId", field(p, "ID"));
        expectEq(b + "ProcessorVersion", asService(field(p, "Version")));
        std::string volts = field(p, "Voltage"); // "1.1 V", "3.3 V 2.9 V" or "Unknown"
        expectEq(b + "VoltageCapability",
                 volts == "Unknown" ? volts : volts.substr(0, volts.find(' ')) + "V");
        expectEq(b + "ClockFrequency", number(field(p, "External Clock")));
        expectEq(b + "MaxSpeed", number(field(p, "Max Speed")));
        expectEq(b + "CurrentSpeed", number(field(p, "Current Speed")));
        expectEq(b + "Upgrade", asService(field(p, "Upgrade")));
        if (p.count("Serial Number"))
            expectEq(b + "SerialNumber", asService(field(p, "Serial Number")));
        if (p.count("Part Number"))
            expectEq(b + "PartNumber", asService(field(p, "Part Number")));
        if (p.count("Core Count"))
            expectEq(b + "CoreCount", field(p, "Core Count"));
        if (p.count("Thread Count"))
            expectEq(b + "ThreadCount", field(p, "Thread Count"));
        expectEq(b + "Status",
                 field(p, "Status").compare(0, 9, "Populated") == 0 ? "Populated" : "Unpopulated");
    }

    const auto arrays = dmidecodeOf(file, 16);
    const auto devices = dmidecodeOf(file, 17);
    expectEq("/SMBIOS/MemoryArray/TotalNoOfArray", std::to_string(arrays.size()));
    for (size_t a = 0; a < arrays.size(); ++a) {
        const auto& m = arrays[a];
        const std::string b = "/SMBIOS/MemoryArray[" + std::to_string(a) + "]";
        expectEq(b + "/Location", asService(field(m, "Location")));
        expectEq(b + "/Use", asService(field(m, "Use")));
        expectEq(b + "/MemoryErrorCorrection", field(m, "Error Correction Type"));
        expectEq(b + "/MaxCapacity", capacityKiB(field(m, "Maximum Capacity")));
        expectEq(b + "/MemoryErrorInfoHandle", errorHandle(field(m, "Error Information Handle")));
        size_t d = 0, present = 0;
        for (const auto& dev : devices) {
            if (field(dev, "Array Handle") != field(m, "Handle"))
                continue;
            const std::string db = b + "/MemoryDevice[" + std::to_string(d++) + "]/";
            const std::string size = field(dev, "Size");
            const bool installed = size != "No Module Installed";
            present += installed ? 1 : 0;
            expectEq(db + "DeviceLocator", asService(field(dev, "Locator")));
            expectEq(db + "BankLocator", asService(field(dev, "Bank Locator")));
            expectEq(db + "FormFactor", asService(field(dev, "Form Factor")));
            expectEq(db + "MemoryType", asService(field(dev, "Type")));
            const std::string detail = " " + field(dev, "Type Detail") + " ";
            for (const auto& t : kTypeDetail)
                expectEq(db + "TypeDetail/" + t.first,
                         detail.find(std::string(" ") + t.second + " ") != std::string::npos
                             ? "Supported"
                             : "Not supported");
            expectEq(db + "Speed", number(field(dev, "Speed")));
            expectEq(db + "Size", installed ? sizeMiB(size) : "0");
            if (dev.count("Manufacturer")) // not printed for an empty slot
                expectEq(db + "Manufacturer", asService(field(dev, "Manufacturer")));
            if (dev.count("Serial Number")) // not printed for an empty slot
                expectEq(db + "SerialNumber", asService(field(dev, "Serial Number")));
            if (dev.count("Asset Tag")) // not printed for an empty slot
                expectEq(db + "AssetTag", asService(field(dev, "Asset Tag")));
            if (dev.count("Part Number")) // not printed for an empty slot
                expectEq(db + "PartNumber", asService(field(dev, "Part Number")));
            expectEq(db + "TotalWidth", number(field(dev, "Total Width")));
            expectEq(db + "DataWidth", number(field(dev, "Data Width")));
            expectEq(db + "DevicePresent", installed ? "True" : "False");
        }
        expectEq(b + "/NumMemoryDevices", std::to_string(d));
        expectEq(b + "/TotalNoOfDevicePresent", std::to_string(present));
    }
    return compared;
}

TEST(SmbiosAgainstDmidecode, RealServersTables) {
    if (!haveDmidecode())
        GTEST_SKIP() << "dmidecode is not installed";
    const std::string dir = std::string(HM_SOURCE_DIR) + "/../shared/realdata/siderolabs-go-smbios";
    if (!std::filesystem::is_directory(dir))
        GTEST_SKIP() << dir << " is not there";
    TempDir tmp;
    size_t tables = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() != ".dmi")
            continue;
        SCOPED_TRACE(entry.path().filename().string());
        // The files hold the structure table alone: put the entry point a
        // dump carries in front of it.
        const std::string dump = tmp.path() + "/" + entry.path().stem().string() + ".bin";
        const Bytes table = readBytes(entry.path().string());
        writeBytes(dump, dumpOf(table, false));
        EXPECT_GT(compareWithDmidecode(dump), 200u);
        // Windows' answer: calling method 0, version 3.0 as in the dump, DMI revision 0, the
        // table's length, the table.
        Bytes firmware = {0, 3, 0, 0, 0, 0, 0, 0};
        putLittle(firmware, 4, table.size(), 4);
        firmware.insert(firmware.end(), table.begin(), table.end());
        writeBytes(tmp.path() + "/firmware.bin", firmware);
        EXPECT_GT(compareWithDmidecode(dump, tmp.path() + "/firmware.bin"), 200u);
        ++tables;
    }
    EXPECT_EQ(tables, 3u);
}

TEST(SmbiosAgainstDmidecode, EveryNameOfTheEnumerationTables) {
    if (!haveDmidecode())
        GTEST_SKIP() << "dmidecode is not installed";
    // One processor for each family and upgrade code, one device for each
    // memory type and form factor, one chassis for each chassis type.
    Bytes t = memoryArray(0x10, 1 << 20, 0);
    uint16_t handle = 0x100;
    const unsigned families[] = {0x01, 0x02, 0x0B, 0x0C, 0x0D, 0x0F, 0x10, 0x11, 0x1D, 0x28, 0x2B, 0x83,
                                 0x84, 0x85, 0x87, 0x88, 0x8A, 0x8B, 0xB0, 0xB2, 0xB3, 0xB5, 0xB8, 0xB9,
                                 0xBA, 0xBB, 0xBF, 0xC2, 0xC6, 0xCD, 0xCE, 0xD6, 0xE4, 0xEE};
    for (unsigned f : families) {
        Bytes s = processor(handle++, uint8_t(f), 1);
        t.insert(t.end(), s.begin(), s.end());
    }
    for (unsigned u = 1; u <= 0x3E; ++u) {
        Bytes s = processor(handle++, 0xB3, uint8_t(u));
        t.insert(t.end(), s.begin(), s.end());
    }
    for (unsigned m = 1; m <= 0x23; ++m) {
        if (m >= 0x15 && m <= 0x17)
            continue; // reserved codes
        Bytes s = memoryDevice(handle++, 0x10, 1024, "M" + std::to_string(m), 0x0080, uint8_t(m));
        t.insert(t.end(), s.begin(), s.end());
    }
    for (unsigned ff = 1; ff <= 0x10; ++ff) {
        Bytes s = memoryDevice(handle++, 0x10, 1024, "F" + std::to_string(ff));
        s[0x0E] = uint8_t(ff);
        t.insert(t.end(), s.begin(), s.end());
    }
    TempDir tmp;
    writeBytes(tmp.path() + "/names.bin", dumpOf(t));
    EXPECT_GT(compareWithDmidecode(tmp.path() + "/names.bin"), 1000u);
    for (unsigned c = 1; c <= 0x24; ++c) {
        SCOPED_TRACE("chassis type " + std::to_string(c));
        Bytes chassis = smbiosStructure(3, 1, {1, uint8_t(c), 0, 0, 0, 3, 3, 3, 3}, {"Acme"});
        writeBytes(tmp.path() + "/chassis.bin", dumpOf(chassis));
        // 9 chassis fields and the two totals.
        EXPECT_EQ(compareWithDmidecode(tmp.path() + "/chassis.bin"), 11u);
    }
}

// ---------------------------------------------------------------- composition

TEST(SmbiosComposition, ConfigurationTakesBmcAndSmbiosFromDifferentSources) {
    TempDir dir;
    writeBytes(dir.path() + "/tables.bin", dumpOf(processor(1, 0xB3, 0x18)));
    {
        std::ofstream conf(dir.path() + "/kelvarn.conf");
        conf << "# the demo BMC, this machine's tables\nbmc = demo\nsmbios = dump:tables.bin\n";
    }
    const char* old = std::getenv("KELVARN_CONFIG");
    const std::string saved = old ? old : "";
    setenv("KELVARN_CONFIG", (dir.path() + "/kelvarn.conf").c_str(), 1);
    kelvarn::setProcessResponder(nullptr);
    {
        SDK::System sys;
        EXPECT_EQ(valueOf(sys, "/BMC/OEM/PRODUCTID"), "2210");             // the demo server's
        EXPECT_EQ(valueOf(sys, "/BMC/SENSOR[27]/NAME"), "Fan Redundancy"); // the demo server's
        EXPECT_EQ(valueOf(sys, "/SMBIOS/ProcessorInfo/TotalNoOfProcessor"), "1");
        EXPECT_EQ(valueOf(sys, "/SMBIOS/ProcessorInfo[0]/Upgrade"), "Socket F");
        EXPECT_EQ(valueOf(sys, "/SMBIOS/MemoryArray/TotalNoOfArray"), "0");
    }
    if (old)
        setenv("KELVARN_CONFIG", saved.c_str(), 1);
    else
        unsetenv("KELVARN_CONFIG");
    kelvarn::setProcessResponder(nullptr);
}

TEST(SmbiosComposition, ConfigurationKeys) {
    kelvarn::ServiceConfig c =
        kelvarn::parseServiceConfig("smbios=dump:t.bin\n", "/etc/kelvarn/kelvarn.conf");
    EXPECT_EQ(c.bmc, "demo");
    EXPECT_EQ(c.smbios, "dump:/etc/kelvarn/t.bin");
    c = kelvarn::parseServiceConfig("source=demo\nsmbios=sysfs\n", "/x/k.conf");
    EXPECT_EQ(c.smbios, "sysfs");
    c = kelvarn::parseServiceConfig("smbios=sysfs:/tmp/dmi\nbmc=simulated\nplatform=p.json\n", "/x/k.conf");
    EXPECT_EQ(c.smbios, "sysfs:/tmp/dmi");
    EXPECT_EQ(c.bmc, "simulated");
    EXPECT_EQ(c.journal, "/x/p.json.journal");
    const std::pair<const char*, const char*> bad[] = {
        {"smbios=floppy\n", "k.conf:1: smbios \"floppy\" is not \"simulated\", \"demo\", \"sysfs\", "
                            "\"sysfs:DIR\", \"dump:FILE\" or \"firmware\""},
        {"smbios=dump:\n", "k.conf:1: smbios \"dump:\" names no path"},
        {"\nbmc=snmp\n",
         "k.conf:2: bmc \"snmp\" is not \"simulated\", \"demo\", \"ipmi-inband\" or \"ipmi-lan\""},
        {"bmc=simulated\n", "k.conf: source=simulated needs platform=<file>"},
    };
    for (const auto& b : bad) {
        try {
            kelvarn::parseServiceConfig(b.first, "k.conf");
            ADD_FAILURE() << b.first << " accepted";
        } catch (const kelvarn::PlatformFileError& e) {
            EXPECT_EQ(std::string(e.what()), b.second);
        }
    }
}

} // namespace
