// The SMBIOS source: tables refused or cut safely, structures decoded as the
// /SMBIOS paths publish them, and every published field of real servers'
// tables equal to what dmidecode (an independent decoder) prints.
#include <gtest/gtest.h>

#include <filesystem>

#include "kelvarn/Errors.h"
#include "kelvarn/Smbios.h"
#include "serviceTestUtil.h"
#include "support/e2e.h"
#include "support/files.h"

namespace {

using hmtest::TempDir;
using kelvarn::Bytes;
using kelvarn::smbios::parseDumpFile;
using kelvarn::smbios::SmbiosError;
using kelvarn::smbios::Table;

// ---------------------------------------------------------------- building tables

void putLittle(Bytes& b, size_t offset, uint64_t v, size_t width) {
    for (size_t i = 0; i < width; ++i)
        b[offset + i] = uint8_t(v >> (8 * i));
}

void fixChecksum(Bytes& b, size_t at, size_t from, size_t length) {
    b[at] = 0;
    uint8_t sum = 0;
    for (size_t i = from; i < from + length; ++i)
        sum = uint8_t(sum + b[i]);
    b[at] = uint8_t(-sum);
}

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

// One structure: header (type, length, handle), the formatted bytes after the header, the string set.
Bytes smbiosStructure(uint8_t type, uint16_t handle, const Bytes& body,
                      const std::vector<std::string>& strings = {}) {
    Bytes s = cat({{type, uint8_t(4 + body.size()), uint8_t(handle & 0xFF), uint8_t(handle >> 8)}, body});
    for (const std::string& t : strings)
        s = cat({s, Bytes(t.begin(), t.end()), {0}});
    return cat({s, strings.empty() ? Bytes{0, 0} : Bytes{0}});
}

// A formatted area of `length` bytes (header included) with little-endian fields set:
// `fields` holds triples of offset in the structure, width and value.
Bytes body(size_t length, std::initializer_list<uint64_t> fields) {
    Bytes b(length - 4, 0);
    for (auto f = fields.begin(); f + 2 < fields.end(); f += 3)
        putLittle(b, size_t(f[0] - 4), f[2], size_t(f[1]));
    return b;
}

// A type 4 structure: socket "CPU1", manufacturer "Intel", version "Xeon E5", serial "S1", part "P1",
// 100/3596/2400 MHz, 8 cores, 16 threads.
Bytes processor(uint16_t handle, uint8_t family, uint8_t upgrade, uint8_t voltage = 0x8C,
                uint8_t status = 0x41, uint16_t family2 = 0) {
    return smbiosStructure(
        4, handle,
        body(0x30,
             {0x04, 1, 1,      0x05, 1, 3,       0x06, 1, family, 0x07, 1, 2,    0x08, 8, 0xBFEBFBFF000306A9,
              0x10, 1, 3,      0x11, 1, voltage, 0x12, 2, 100,    0x14, 2, 3596, 0x16, 2, 2400,
              0x18, 1, status, 0x19, 1, upgrade, 0x20, 1, 4,      0x22, 1, 5,    0x23, 1, 8,
              0x25, 1, 16,     0x28, 2, family2}),
        {"CPU1", "Intel", "Xeon E5", "S1", "P1"});
}

// A type 16 structure: system board (or `location`), system memory, multi-bit ECC.
Bytes memoryArray(uint16_t handle, uint32_t maxKB, uint16_t devices, uint64_t extendedMax = 0,
                  uint8_t location = 3) {
    return smbiosStructure(
        16, handle, body(0x17, {0x04,  1,    location, 0x05,   1,    3, 0x06,    1,    6, 0x07,       4,
                                maxKB, 0x0B, 2,        0xFFFE, 0x0D, 2, devices, 0x0F, 8, extendedMax}));
}

// A type 17 structure of the given size word (MiB, or KiB with bit 15).
Bytes memoryDevice(uint16_t handle, uint16_t array, uint16_t size, const std::string& locator,
                   uint16_t typeDetail = 0x0080, uint8_t type = 0x1A, uint32_t extendedSize = 0,
                   uint8_t formFactor = 0x09) {
    return smbiosStructure(
        17, handle,
        body(0x28, {0x04, 2, array,      0x06, 2, 0xFFFE, 0x08, 2, 72, 0x0A, 2, 64,   0x0C, 2, size,
                    0x0E, 1, formFactor, 0x10, 1, 1,      0x11, 1, 2,  0x12, 1, type, 0x13, 2, typeDetail,
                    0x15, 2, 2133,       0x17, 1, 3,      0x18, 1, 4,  0x1A, 1, 5,    0x1C, 4, extendedSize}),
        {locator, "BANK 0", "Samsung", "0001", "M393A"});
}

// A 64-bit ("_SM3_") entry point as dmidecode's dump writes it, padded to 32 bytes, the table at 32.
Bytes entryPoint3(size_t tableLength) {
    Bytes e = cat({{'_', 'S', 'M', '3', '_', 0, 0x18, 3, 0, 0, 1}, Bytes(21, 0)});
    putLittle(e, 0x0C, tableLength, 4);
    putLittle(e, 0x10, 32, 8);
    fixChecksum(e, 5, 0, 0x18);
    return e;
}

// A 32-bit ("_SM_") entry point, version 2.7, with its "_DMI_" part, the table at 32.
Bytes entryPoint2(size_t tableLength, uint16_t count) {
    Bytes e =
        cat({{'_', 'S', 'M', '_', 0, 0x1F, 2, 7}, Bytes(8, 0), {'_', 'D', 'M', 'I', '_'}, Bytes(11, 0)});
    putLittle(e, 0x16, tableLength, 2);
    putLittle(e, 0x18, 32, 4);
    putLittle(e, 0x1C, count, 2);
    e[0x1E] = 0x27;
    fixChecksum(e, 0x15, 0x10, 0x0F);
    fixChecksum(e, 4, 0, 0x1F);
    return e;
}

Bytes dumpOf(const Bytes& table, bool withEnd = true) {
    const Bytes t = withEnd ? cat({table, {127, 4, 0xFF, 0xFF, 0, 0}}) : table;
    return cat({entryPoint3(t.size()), t});
}

void writeBytes(const std::string& path, const Bytes& b) {
    hmtest::writeFile(path, std::string(b.begin(), b.end()));
}

std::unique_ptr<SDK::System> systemOverDump(const std::string& file) {
    return std::make_unique<SDK::System>(kelvarn::makePlatformResponder(
        std::make_shared<kelvarn::SmbiosSource>(kelvarn::SmbiosSource::Kind::Dump, file)));
}

// ---------------------------------------------------------------- splitting

TEST(SmbiosTable, BrokenStructuresAndEntryPoints) {
    // The broken tail, and a part of the one problem reported (at offset 7).
    const std::pair<Bytes, const char*> cases[] = {
        {{3, 0x15}, "header cut short"},
        {{3, 2, 0, 0, 0, 0}, "length 2 is shorter than its header"},
        {{3, 0x40, 2, 0, 1, 2, 0, 0}, "length 64 runs past the table"},
        {{3, 5, 2, 0, 1, 'A', 'c', 'm', 'e', 0}, "without its closing double NUL"},
        {{3, 5, 2, 0, 1}, "without its closing double NUL"}};
    for (const auto& [tail, problem] : cases) {
        Table table = kelvarn::smbios::parseStructures(cat({smbiosStructure(24, 1, {0x26}), tail}));
        ASSERT_EQ(std::make_tuple(table.structures.size(), table.problems.size()), std::make_tuple(1u, 1u));
        EXPECT_EQ(table.structures[0].type, 24);
        EXPECT_TRUE(table.problems[0].find(problem) != std::string::npos &&
                    table.problems[0].find("offset 7") != std::string::npos)
            << table.problems[0];
    }
    // String sets are read; nothing after the end-of-table structure is.
    Table table = kelvarn::smbios::parseStructures(
        cat({smbiosStructure(3, 0x0300, {1, 0x17, 0, 0, 0}, {"Acme", "R1", "R2"}),
             {127, 4, 0xFF, 0xFF, 0, 0},
             smbiosStructure(4, 9, {0})}));
    ASSERT_EQ(std::make_tuple(table.problems.size(), table.structures.size()), std::make_tuple(0u, 1u));
    EXPECT_EQ(std::make_tuple(table.structures[0].handle, table.structures[0].formatted.size()),
              std::make_tuple(0x0300, 9u));
    EXPECT_EQ(table.structures[0].strings, (std::vector<std::string>{"Acme", "R1", "R2"}));

    const Bytes t =
        cat({smbiosStructure(24, 1, {0x26}), smbiosStructure(24, 2, {0x27}), smbiosStructure(24, 3, {0x28})});

    // The 32-bit entry point's structure count stops the walk.
    Table counted = parseDumpFile(cat({entryPoint2(t.size(), 2), t}));
    EXPECT_EQ(std::make_tuple(counted.entry.major, counted.entry.minor, counted.structures.size()),
              std::make_tuple(2, 7, 2u));

    // A table length beyond the file is cut to the file, and said so.
    Table cut = parseDumpFile(cat({entryPoint3(t.size() + 100), t}));
    EXPECT_EQ(cut.structures.size(), 3u);
    ASSERT_FALSE(cut.problems.empty());
    EXPECT_NE(cut.problems[0].find("not the 121"), std::string::npos) << cut.problems[0];

    // Windows' firmware-table answer: its 8-byte header gives the version and bounds the table.
    Table fromFirmware = kelvarn::smbios::parseFirmwareTable(cat({{0, 3, 4, 0, 121, 0, 0, 0}, t}));
    EXPECT_EQ(
        std::make_tuple(fromFirmware.entry.major, fromFirmware.entry.minor, fromFirmware.structures.size()),
        std::make_tuple(3, 4, 3u));
    ASSERT_EQ(fromFirmware.problems.size(), 1u);
    EXPECT_NE(fromFirmware.problems[0].find("the firmware table is 21 bytes, not the 121"), std::string::npos)
        << fromFirmware.problems[0];

    // An entry point with one field changed and the checksum at `sumAt` over `sumLength` bytes made right.
    auto patched = [](Bytes e, size_t at, uint64_t v, size_t width, size_t sumAt, size_t sumLength) {
        putLittle(e, at, v, width);
        fixChecksum(e, sumAt, 0, sumLength);
        return e;
    };
    Bytes badSum = entryPoint3(t.size());
    badSum[0x0C] ^= 1;
    const std::pair<Bytes, const char*> bad[] = {
        {Bytes(40, 0), "no SMBIOS entry point"},
        {Bytes{'_', 'S', 'M', '3', '_', 0}, "too short"},
        {badSum, "checksum is wrong"},
        {patched(entryPoint2(t.size(), 3), 0x12, 'X', 1, 4, 0x1F), "\"_DMI_\""},
        {patched(entryPoint3(t.size()), 0x10, 4096, 8, 5, 0x18), "past the end"},
        {patched(entryPoint3(t.size()), 6, 0x10, 1, 5, 0x10), "gives the length 16"},
        {Bytes{0, 3, 0, 0, 21}, "firmware table of 5 bytes is shorter than its 8-byte header"},
    };
    for (const auto& b : bad) {
        SCOPED_TRACE(b.second);
        const std::string what = refusal<SmbiosError>([&] {
            b.first.size() == 5 ? kelvarn::smbios::parseFirmwareTable(b.first) : parseDumpFile(b.first);
        });
        EXPECT_TRUE(b.first.size() == 5 ? what == b.second : what.find(b.second) != std::string::npos)
            << what;
    }
}

// ---------------------------------------------------------------- decoding

TEST(SmbiosDecode, ShortAndMissingStructures) {
    // Structures shorter than their oldest layout are skipped; a string index
    // past the string set reads empty; a family (in the word at 0x28) not in the
    // name table reads Unknown; no chassis structures: Unknown.
    Bytes badIndex = processor(2, 0xB3, 0x18);
    badIndex[0x10] = 9; // version names string 9 of 5
    kelvarn::smbios::Decoded d = kelvarn::smbios::decode(
        parseDumpFile(dumpOf(cat({smbiosStructure(4, 1, Bytes(0x10, 1), {"CPU"}), badIndex,
                                  processor(3, 0xFE, 0x18, 0x8C, 0x41, 0x0101)}))));
    ASSERT_EQ(d.processors.size(), 2u);
    EXPECT_EQ(std::make_tuple(d.processors[1].family, d.processors[0].version,
                              d.processors[0].socketDesignation, d.chassis.type, d.chassis.powerOnPassword),
              std::make_tuple("Unknown", "", "CPU1", "Unknown", "Unknown"));
    EXPECT_EQ(d.problems,
              (std::vector<std::string>{"type 4 structure (handle 1) is 20 bytes, shorter than 26; skipped",
                                        "no type 3 structure: chassis fields are defaults"}));
}

TEST(SmbiosSource, UnreadableDumpFailsEachQueryUntilItIsThere) {
    TempDir dir;
    const std::string file = dir / "later.bin", path = "/SMBIOS/ProcessorInfo/TotalNoOfProcessor";
    auto sys = systemOverDump(file);
    EXPECT_EQ(failureOf(*sys, path), "1086: SMBIOS data source unavailable: " + file + ": cannot be opened");
    writeBytes(file, Bytes(64, 0));
    EXPECT_EQ(failureOf(*sys, path).rfind("1086: SMBIOS data source unavailable: " + file + ": no SMBIOS", 0),
              0u);
    writeBytes(file, dumpOf(processor(1, 0xB3, 0x18)));
    EXPECT_EQ(valueOf(*sys, path), "1");
}

// ------------------------------------------------- against dmidecode's decoding

// "4 GB" -> `unit` (1: KiB, 2: MiB), "No Module Installed" -> 0.
std::string scaled(const std::string& v, int unit) {
    unsigned long long n = std::strtoull(v.c_str(), nullptr, 10);
    const char* const units[] = {" bytes", " kB", " MB", " GB", " TB"};
    for (int i = 0; i < 5; ++i)
        if (v.find(units[i]) != std::string::npos)
            n = i >= unit ? n << 10 * (i - unit) : n >> 10 * (unit - i);
    return std::to_string(n);
}

// dmidecode's text of a field as the service publishes it at `path`.
std::string published(const std::string& path, const std::string& v) {
    if (path == "ClockFrequency" || path.find("Speed") != std::string::npos ||
        path.find("Width") != std::string::npos) {
        size_t n = 0; // "2200 MHz" -> "2200", "72 bits" -> "72", "Unknown" -> "0"
        while (n < v.size() && isdigit(static_cast<unsigned char>(v[n])))
            ++n;
        return n ? v.substr(0, n) : "0";
    }
    if (path == "VoltageCapability") // "1.1 V", "3.3 V 2.9 V" or "Unknown"
        return v == "Unknown" ? v : v.substr(0, v.find(' ')) + "V";
    if (path == "Status")
        return v.compare(0, 9, "Populated") == 0 ? "Populated" : "Unpopulated";
    if (path == "MaxCapacity")
        return scaled(v, 1);
    if (path == "Size")
        return scaled(v, 2);
    if (path == "MemoryErrorInfoHandle")
        return v == "Not Provided" ? "65534"
               : v == "No Error"   ? "65535"
                                   : std::to_string(std::stoul(v, nullptr, 16));
    if (path == "DevicePresent")
        return v == "No Module Installed" ? "False" : "True";
    // The service's names where they differ from dmidecode's.
    static const auto names =
        pairsOf("Central Processor=Central processor|Other Processor=other|Math Processor=mathProcessor|"
                "DSP Processor=dspProcessor|Video Processor=videoProcessor|370-pin Socket=370-pin socket|"
                "Socket A (Socket 462)=Socket A|Socket F (1207)=Socket F|"
                "System Board Or Motherboard=System board or motherboard|System Memory=System memory|"
                "Video Memory=Video memory|Flash Memory=Flash memory|Non-volatile RAM=Non Volatile memory|"
                "Cache Memory=Cache memory|Proprietary Card=ProprietaryCard|Row Of Chips=RowOfChips|"
                "Flash=FLASH|External Interface Locked Out=External interface locked out|"
                "External Interface Enabled=External interface enabled|Not Specified=|");
    for (const auto& n : names)
        if (n.first == v)
            return n.second;
    return v;
}

// The published fields of each structure type, "service's name=dmidecode's|". A memory device's
// manufacturer, serial, asset tag and part are not printed for an empty slot.
const auto kChassis =
    pairsOf("Manufacturer=Manufacturer|Type=Type|Version=Version|SerialNumber=Serial Number|"
            "AssetTag=Asset Tag|BootupState=Boot-up State|PowerSupplyState=Power Supply State|"
            "ThermalState=Thermal State|SecurityStatus=Security Status|");
const auto kSecurity =
    pairsOf("PowerOnPassword=Power-On Password Status|KeyboardPassword=Keyboard Password Status|"
            "AdministratorPassword=Administrator Password Status|"
            "FrontPanelReset=Front Panel Reset Status|");
const auto kProcessor = pairsOf(
    "SocketDesignation=Socket Designation|ProcessorType=Type|ProcessorFamily=Family|"
    "ProcessorManufacturer=Manufacturer|ProcessorId=ID|ProcessorVersion=Version|VoltageCapability=Voltage|"
    "ClockFrequency=External Clock|MaxSpeed=Max Speed|CurrentSpeed=Current Speed|Upgrade=Upgrade|"
    "SerialNumber=Serial Number|PartNumber=Part Number|CoreCount=Core Count|ThreadCount=Thread Count|"
    "Status=Status|");
const auto kArray = pairsOf("Location=Location|Use=Use|MemoryErrorCorrection=Error Correction Type|"
                            "MaxCapacity=Maximum Capacity|MemoryErrorInfoHandle=Error Information Handle|");
const auto kDevice =
    pairsOf("DeviceLocator=Locator|BankLocator=Bank Locator|FormFactor=Form Factor|MemoryType=Type|"
            "Speed=Speed|Size=Size|Manufacturer=Manufacturer|SerialNumber=Serial Number|"
            "AssetTag=Asset Tag|PartNumber=Part Number|TotalWidth=Total Width|"
            "DataWidth=Data Width|DevicePresent=Size|");
// dmidecode's names of the type detail bits the service publishes.
const auto kTypeDetail =
    pairsOf("Fast-paged=Fast-paged|Static column=Static Column|Pseudo-static=Pseudo-static|"
            "RAMBUS=RAMBus|Synchronous=Synchronous|CMOS=CMOS|EDO=EDO|Window DRAM=Window DRAM|"
            "Cache DRAM=Cache DRAM|Non-volatile=Non-Volatile|");

// dmidecode's decoding of the structures of one type in a dump file: one map
// of "Field" to "value" (as printed) per structure, in order, "Handle" holding
// the structure's handle ("0x001B").
std::vector<Expected> dmidecodeOf(const std::string& file, int type) {
    std::vector<Expected> out;
    const std::string handleMark = "Handle ", typeMark = ", DMI type " + std::to_string(type) + ",";
    bool inside = false;
    for (const std::string& l :
         hmtest::linesOf(hmtest::runCommand("PATH=/usr/sbin:/sbin:$PATH dmidecode --from-dump '" + file +
                                            "' -t " + std::to_string(type))
                             .output)) {
        if (l.compare(0, handleMark.size(), handleMark) == 0) {
            inside = l.find(typeMark) != std::string::npos;
            if (inside)
                out.push_back({{"Handle", l.substr(handleMark.size(), l.find(',') - handleMark.size())}});
        } else if (inside && l.size() >= 2 && l[0] == '\t' && l[1] != '\t' &&
                   l.find(':') != std::string::npos) {
            const size_t colon = l.find(':');
            out.back()[l.substr(1, colon - 1)] = colon + 2 <= l.size() ? l.substr(colon + 2) : "";
        }
    }
    return out;
}

// Compares every published field of the dump `file` with dmidecode's; returns how many were compared.
size_t compareWithDmidecode(const std::string& file) {
    auto sys = systemOverDump(file);
    Result all; // everything below /SMBIOS, asked once
    for (const char* root :
         {"/SMBIOS/Type3", "/SMBIOS/Type24", "/SMBIOS/ProcessorInfo", "/SMBIOS/MemoryArray"})
        sys->Get(root, all);
    size_t compared = 0;
    auto expectEq = [&](const std::string& path, const std::string& expected) {
        auto it = all.find(path);
        ASSERT_TRUE(it != all.end() && it->second.Values.size() == 1) << path;
        EXPECT_EQ(it->second.Values[0], expected) << path;
        ++compared;
    };
    auto compare = [&](const std::string& base, const Expected& theirs, const auto& fields) {
        for (const auto& f : fields)
            if (theirs.count(f.second))
                expectEq(base + f.first, published(f.first, theirs.at(f.second)));
    };
    for (const Expected& c : dmidecodeOf(file, 3))
        compare("/SMBIOS/Type3/", c, kChassis);
    for (const Expected& s : dmidecodeOf(file, 24))
        compare("/SMBIOS/Type24/HardwareSecuritySettings/", s, kSecurity);
    const auto cpus = dmidecodeOf(file, 4);
    expectEq("/SMBIOS/ProcessorInfo/TotalNoOfProcessor", std::to_string(cpus.size()));
    for (size_t i = 0; i < cpus.size(); ++i)
        compare("/SMBIOS/ProcessorInfo[" + std::to_string(i) + "]/", cpus[i], kProcessor);
    const auto arrays = dmidecodeOf(file, 16), devices = dmidecodeOf(file, 17);
    expectEq("/SMBIOS/MemoryArray/TotalNoOfArray", std::to_string(arrays.size()));
    for (size_t a = 0; a < arrays.size(); ++a) {
        const std::string b = "/SMBIOS/MemoryArray[" + std::to_string(a) + "]";
        compare(b + "/", arrays[a], kArray);
        size_t d = 0, installed = 0;
        for (const Expected& dev : devices) {
            if (dev.at("Array Handle") != arrays[a].at("Handle"))
                continue;
            const std::string db = b + "/MemoryDevice[" + std::to_string(d++) + "]/";
            compare(db, dev, kDevice);
            installed += dev.at("Size") != "No Module Installed";
            const std::string detail = " " + dev.at("Type Detail") + " ";
            for (const auto& t : kTypeDetail)
                expectEq(db + "TypeDetail/" + t.first,
                         detail.find(std::string(" ") + t.second + " ") != std::string::npos
                             ? "Supported"
                             : "Not supported");
        }
        expectEq(b + "/NumMemoryDevices", std::to_string(d));
        expectEq(b + "/TotalNoOfDevicePresent", std::to_string(installed));
    }
    return compared;
}

TEST(SmbiosAgainstDmidecode, RealServersTables) {
    const std::string dir = std::string(HM_SOURCE_DIR) + "/../shared/realdata/siderolabs-go-smbios";
    if (!std::filesystem::is_directory(dir))
        GTEST_SKIP() << dir << " is not there";
    if (!hmtest::haveProgram("dmidecode"))
        GTEST_SKIP() << "dmidecode is not installed";
    TempDir tmp;
    size_t tables = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() != ".dmi")
            continue;
        SCOPED_TRACE(entry.path().filename().string());
        // The files hold the structure table alone: put the entry point a dump carries in front of it.
        const std::string text = hmtest::readFile(entry.path().string());
        const Bytes table(text.begin(), text.end());
        writeBytes(tmp / "dump.bin", dumpOf(table, false));
        EXPECT_GT(compareWithDmidecode(tmp / "dump.bin"), 200u);
        ++tables;
    }
    EXPECT_EQ(tables, 3u);
}

// Structures built here, among them one processor for each family and upgrade code, one
// device for each memory type and form factor, one chassis for each chassis type.
TEST(SmbiosAgainstDmidecode, EveryNameOfTheEnumerationTablesAndEveryLayout) {
    Bytes t = cat({smbiosStructure(3, 3, {1, 0x97, 2, 3, 0, 3, 4, 5, 3}, {"Acme", "v2", "SN\x01X"}),
                   smbiosStructure(24, 4, {0x26}), processor(0x41, 0xB3, 0x2B, 0x02, 0x00),
                   memoryArray(0x10, 1 << 20, 0, 0, 4), memoryArray(0x20, 0x80000000u, 2, uint64_t(2) << 40),
                   memoryDevice(0x11, 0x10, 0x4000, "DIMM_A1", 0x0080 | 0x0100 | 0x2000),
                   memoryDevice(0x21, 0x20, 0x0000, "DIMM_B1"),
                   memoryDevice(0x12, 0x10, 0x8000 | 0x0800, "DIMM_A2", 0x0008, 0x18),
                   memoryDevice(0x22, 0x20, 0x7FFF, "DIMM_B2", 0x0080, 0x22, 65536),
                   memoryDevice(0x99, 0x77, 0x1000, "ORPHAN")});
    uint16_t handle = 0x100;
    for (unsigned f : {0x01, 0x02, 0x0B, 0x0C, 0x0D, 0x0F, 0x10, 0x11, 0x1D, 0x28, 0x2B, 0x83,
                       0x84, 0x85, 0x87, 0x88, 0x8A, 0x8B, 0xB0, 0xB2, 0xB3, 0xB5, 0xB8, 0xB9,
                       0xBA, 0xBB, 0xBF, 0xC2, 0xC6, 0xCD, 0xCE, 0xD6, 0xE4, 0xEE})
        t = cat({t, processor(handle++, uint8_t(f), 1)});
    for (unsigned u = 1; u <= 0x3E; ++u)
        t = cat({t, processor(handle++, 0xB3, uint8_t(u))});
    for (unsigned m = 1; m <= 0x23; ++m)
        if (m < 0x15 || m > 0x17) // reserved codes
            t = cat({t, memoryDevice(handle++, 0x10, 1024, "M" + std::to_string(m), 0x0080, uint8_t(m))});
    for (unsigned ff = 1; ff <= 0x10; ++ff)
        t = cat(
            {t, memoryDevice(handle++, 0x10, 1024, "F" + std::to_string(ff), 0x0080, 0x1A, 0, uint8_t(ff))});
    TempDir tmp;
    writeBytes(tmp / "names.bin", dumpOf(t));
    auto sys = systemOverDump(tmp / "names.bin");
    // What dmidecode does not print: the security byte, how many processors are there (one of
    // 97 is not); the device naming an array that does not exist is left out.
    expectValues(*sys, "Type24/HardwareSecuritySettings=38|ProcessorInfo/TotalNoOfProcessorPresent=96|",
                 "/SMBIOS/");
    EXPECT_EQ(failuresOf(*sys, "/SMBIOS/MemoryArray[1]/MemoryDevice[2]").at(0).Code,
              kelvarn::kNoSuchInstance);
    if (!hmtest::haveProgram("dmidecode"))
        GTEST_SKIP() << "dmidecode is not installed";
    EXPECT_GT(compareWithDmidecode(tmp / "names.bin"), 1000u);
    for (unsigned c = 1; c <= 0x24; ++c) {
        SCOPED_TRACE("chassis type " + std::to_string(c));
        writeBytes(tmp / "chassis.bin",
                   dumpOf(smbiosStructure(3, 1, {1, uint8_t(c), 0, 0, 0, 3, 3, 3, 3}, {"Acme"})));
        EXPECT_EQ(compareWithDmidecode(tmp / "chassis.bin"), 11u); // 9 chassis fields and the two totals
    }
}

} // namespace
