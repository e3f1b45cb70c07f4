// Real servers: a `dmidecode` listing and an `ipmitool fru` listing of the same machine
// are turned into a platform description at test time; the tables built over it publish
// what the listings say. The listings are read from the shared real-data folder beside
// the source tree; the tests are skipped where it is absent.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "inventoryTestSupport.h"
#include "tables/MemoryArray.h"
#include "tables/MemoryDevice.h"
#include "tables/chassisInfo.h"
#include "tables/processorDevice.h"

namespace {

using namespace inventorytest;

const std::string kRealData = std::string(HM_SOURCE_DIR) + "/../shared/realdata/fusioninventory";

bool readText(const std::string& path, std::string& text) {
    std::ifstream in(path);
    if (!in)
        return false;
    std::stringstream s;
    s << in.rdbuf();
    text = s.str();
    return true;
}

std::string trim(const std::string& s) {
    size_t first = s.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return "";
    size_t last = s.find_last_not_of(" \t\r");
    return s.substr(first, last - first + 1);
}

// One structure of a dmidecode listing: its type and its "Key: value" lines (first level).
struct DmiSection {
    int type = -1;
    std::string handle;
    std::map<std::string, std::string> fields;
    std::string get(const std::string& key) const {
        auto it = fields.find(key);
        return it == fields.end() ? "" : it->second;
    }
};

std::vector<DmiSection> parseDmidecode(const std::string& text) {
    std::vector<DmiSection> sections;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        unsigned handle = 0;
        int type = 0;
        if (sscanf(line.c_str(), "Handle 0x%x, DMI type %d", &handle, &type) == 2) {
            sections.emplace_back();
            sections.back().type = type;
            char h[16];
            snprintf(h, sizeof h, "0x%04X", handle);
            sections.back().handle = h;
            continue;
        }
        if (sections.empty() || line.size() < 2 || line[0] != '\t' || line[1] == '\t')
            continue;
        size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        sections.back().fields[trim(line.substr(1, colon - 1))] = trim(line.substr(colon + 1));
    }
    return sections;
}

// The first FRU device of an `ipmitool fru` listing ("Builtin FRU Device").
std::map<std::string, std::string> parseFru(const std::string& text) {
    std::map<std::string, std::string> fields;
    std::istringstream lines(text);
    std::string line;
    bool first = false;
    while (std::getline(lines, line)) {
        if (line.rfind("FRU Device Description", 0) == 0) {
            if (first)
                break;
            first = true;
            continue;
        }
        size_t colon = line.find(" : ");
        if (first && colon != std::string::npos)
            fields[trim(line.substr(0, colon))] = trim(line.substr(colon + 3));
    }
    return fields;
}

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

unsigned number(const std::string& s) {
    return static_cast<unsigned>(strtoul(s.c_str(), nullptr, 10));
}

// dmidecode prints SMBIOS names with capitals the service writes in lower case.
std::string serviceName(const std::string& dmidecodeName) {
    static const std::map<std::string, std::string> names = {
        {"Central Processor", "Central processor"},
        {"System Board Or Motherboard", "System board or motherboard"},
        {"System Memory", "System memory"},
    };
    auto it = names.find(dmidecodeName);
    return it == names.end() ? dmidecodeName : it->second;
}

unsigned chassisTypeCode(const std::string& name) {
    if (name == "Rack Mount Chassis")
        return 23;
    if (name == "Main Server Chassis")
        return 17;
    return 2;
}

// The platform description of a machine, from its two listings.
std::string platformOf(const std::vector<DmiSection>& dmi, const std::map<std::string, std::string>& fru) {
    auto fruField = [&fru](const char* key) {
        auto it = fru.find(key);
        return it == fru.end() ? std::string() : it->second;
    };
    std::ostringstream j;
    j << "{\"format\": \"kelvarn-platform\", \"version\": 1, \"bmc\": {\"fru\": {"
      << "\"chassisType\": " << chassisTypeCode(fruField("Chassis Type"))
      << ", \"chassisPartNumber\": " << quoted(fruField("Chassis Part Number"))
      << ", \"chassisSerialNumber\": " << quoted(fruField("Chassis Serial"))
      << ", \"productAssetTag\": " << quoted(fruField("Product Asset Tag")) << "}}, \"smbios\": {";
    for (const DmiSection& s : dmi)
        if (s.type == 3) {
            j << "\"chassis\": {\"manufacturer\": " << quoted(s.get("Manufacturer"))
              << ", \"type\": " << quoted(s.get("Type"))
              << ", \"serialNumber\": " << quoted(s.get("Serial Number"))
              << ", \"bootupState\": " << quoted(s.get("Boot-up State"))
              << ", \"powerSupplyState\": " << quoted(s.get("Power Supply State"))
              << ", \"thermalState\": " << quoted(s.get("Thermal State"))
              << ", \"securityStatus\": " << quoted(s.get("Security Status")) << "}, ";
            break;
        }
    j << "\"processors\": [";
    bool firstItem = true;
    for (const DmiSection& s : dmi) {
        if (s.type != 4)
            continue;
        std::string voltage = s.get("Voltage");
        size_t blank = voltage.find(' ');
        if (blank != std::string::npos)
            voltage.erase(blank, 1); // "1.8 V" -> "1.8V"
        j << (firstItem ? "" : ", ")
          << "{\"populated\": " << (s.get("Status").rfind("Populated", 0) == 0 ? "true" : "false")
          << ", \"socketDesignation\": " << quoted(s.get("Socket Designation"))
          << ", \"type\": " << quoted(serviceName(s.get("Type")))
          << ", \"family\": " << quoted(s.get("Family"))
          << ", \"manufacturer\": " << quoted(s.get("Manufacturer")) << ", \"id\": " << quoted(s.get("ID"))
          << ", \"version\": " << quoted(s.get("Version")) << ", \"voltage\": " << quoted(voltage)
          << ", \"clockMHz\": " << number(s.get("External Clock"))
          << ", \"maxSpeedMHz\": " << number(s.get("Max Speed"))
          << ", \"currentSpeedMHz\": " << number(s.get("Current Speed"))
          << ", \"upgrade\": " << quoted(s.get("Upgrade"))
          << ", \"partNumber\": " << quoted(s.get("Part Number"))
          << ", \"serialNumber\": " << quoted(s.get("Serial Number")) << "}";
        firstItem = false;
    }
    j << "], \"memoryArrays\": [";
    firstItem = true;
    for (const DmiSection& a : dmi) {
        if (a.type != 16)
            continue;
        std::string capacity = a.get("Maximum Capacity");
        unsigned kb = number(capacity) * (capacity.find("TB") != std::string::npos   ? 1024u * 1024u * 1024u
                                          : capacity.find("GB") != std::string::npos ? 1024u * 1024u
                                                                                     : 1024u);
        std::string handle = a.get("Error Information Handle");
        j << (firstItem ? "" : ", ") << "{\"location\": " << quoted(serviceName(a.get("Location")))
          << ", \"use\": " << quoted(serviceName(a.get("Use")))
          << ", \"errorCorrection\": " << quoted(a.get("Error Correction Type"))
          << ", \"maxCapacityKB\": " << kb << ", \"errorInfoHandle\": "
          << (handle.rfind("0x", 0) == 0 ? strtoul(handle.c_str(), nullptr, 16) : 65534)
          << ", \"devices\": [";
        firstItem = false;
        bool firstDevice = true;
        for (const DmiSection& d : dmi) {
            if (d.type != 17 || d.get("Array Handle") != a.handle)
                continue;
            std::string size = d.get("Size");
            unsigned mb = number(size) * (size.find("GB") != std::string::npos ? 1024u : 1u);
            std::string details;
            for (const char* name : {"Synchronous", "EDO", "CMOS", "Fast-paged", "RAMBUS", "Non-volatile"})
                if (d.get("Type Detail").find(name) != std::string::npos)
                    details += std::string(details.empty() ? "" : ", ") + quoted(name);
            j << (firstDevice ? "" : ", ") << "{\"present\": " << (mb > 0 ? "true" : "false")
              << ", \"deviceLocator\": " << quoted(d.get("Locator"))
              << ", \"bankLocator\": " << quoted(d.get("Bank Locator"))
              << ", \"formFactor\": " << quoted(d.get("Form Factor"))
              << ", \"memoryType\": " << quoted(d.get("Type")) << ", \"typeDetail\": [" << details
              << "], \"speedMHz\": " << number(d.get("Speed")) << ", \"sizeMB\": " << mb
              << ", \"manufacturer\": " << quoted(d.get("Manufacturer"))
              << ", \"serialNumber\": " << quoted(d.get("Serial Number"))
              << ", \"assetTag\": " << quoted(d.get("Asset Tag"))
              << ", \"partNumber\": " << quoted(d.get("Part Number"))
              << ", \"totalWidth\": " << number(d.get("Total Width"))
              << ", \"dataWidth\": " << number(d.get("Data Width")) << "}";
            firstDevice = false;
        }
        j << "]}";
    }
    j << "]}}";
    return j.str();
}

class RealInventoryTest : public InventoryTest {
protected:
    // Serves the machine `name`; false (test skipped) when its listings are not there.
    bool serveMachine(const std::string& name) {
        std::string dmiText, fruText;
        if (!readText(kRealData + "/dmidecode/" + name + ".txt", dmiText) ||
            !readText(kRealData + "/ipmitool-fru/" + name + ".txt", fruText))
            return false;
        dmi = parseDmidecode(dmiText);
        fru = parseFru(fruText);
        servePlatformText(platformOf(dmi, fru));
        return true;
    }

    std::vector<const DmiSection*> sectionsOf(int type) const {
        std::vector<const DmiSection*> list;
        for (const DmiSection& s : dmi)
            if (s.type == type)
                list.push_back(&s);
        return list;
    }

    // Every text column of every row equals the listing's field.
    void expectTablesMatchListing() {
        processorDevice processors;
        ASSERT_EQ(CLIENT_SUCCESS, processors.init());
        std::vector<const DmiSection*> cpus = sectionsOf(4);
        ASSERT_EQ(static_cast<int>(cpus.size()), processors.getCount());
        for (size_t i = 0; i < cpus.size(); ++i)
            expectRow(processors, static_cast<int>(i),
                      {S(28, cpus[i]->get("Socket Designation").c_str()),
                       S(29, cpus[i]->get("Manufacturer").c_str()), S(32, cpus[i]->get("Version").c_str()),
                       S(33, cpus[i]->get("ID").c_str()), S(35, cpus[i]->get("Part Number").c_str()),
                       I(38, static_cast<int32_t>(number(cpus[i]->get("Max Speed")))),
                       I(39, static_cast<int32_t>(number(cpus[i]->get("Current Speed")))),
                       S(42, cpus[i]->get("Serial Number").c_str())});
        MemoryDevice devices;
        ASSERT_EQ(CLIENT_SUCCESS, devices.init());
        int row = 0;
        for (const DmiSection* a : sectionsOf(16))
            for (const DmiSection* d : sectionsOf(17)) {
                if (d->get("Array Handle") != a->handle || number(d->get("Size")) == 0)
                    continue;
                expectRow(devices, row,
                          {S(90, d->get("Locator").c_str()), S(91, d->get("Bank Locator").c_str()),
                           S(93, d->get("Manufacturer").c_str()), S(100, d->get("Serial Number").c_str()),
                           S(101, d->get("Part Number").c_str()), S(105, d->get("Asset Tag").c_str()),
                           I(97, static_cast<int32_t>(number(d->get("Speed")))),
                           I(99, static_cast<int32_t>(number(d->get("Total Width")))),
                           I(102, static_cast<int32_t>(number(d->get("Data Width"))))});
                ++row;
            }
        EXPECT_EQ(row, devices.getCount());

        MemoryArray arrays;
        ASSERT_EQ(CLIENT_SUCCESS, arrays.init());
        std::vector<const DmiSection*> arrayList = sectionsOf(16);
        ASSERT_EQ(static_cast<int>(arrayList.size()), arrays.getCount());
        for (size_t a = 0; a < arrayList.size(); ++a) {
            int32_t present = 0;
            for (const DmiSection* d : sectionsOf(17))
                present +=
                    d->get("Array Handle") == arrayList[a]->handle && number(d->get("Size")) > 0 ? 1 : 0;
            expectRow(arrays, static_cast<int>(a),
                      {S(86, arrayList[a]->get("Error Correction Type").c_str()),
                       I(85, static_cast<int32_t>(number(arrayList[a]->get("Number Of Devices")))),
                       I(87, present)});
        }

        chassisInfo chassis;
        ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
        const DmiSection* enclosure = sectionsOf(3).at(0);
        auto fruField = [this](const char* key) {
            auto it = fru.find(key);
            return it == fru.end() ? std::string() : it->second;
        };
        expectRow(chassis, 0,
                  {S(22, fruField("Chassis Part Number").c_str()), S(23, fruField("Chassis Serial").c_str()),
                   S(24, fruField("Product Asset Tag").c_str()),
                   S(25, enclosure->get("Manufacturer").c_str())});
    }

    std::vector<DmiSection> dmi;
    std::map<std::string, std::string> fru;
};

TEST_F(RealInventoryTest, DellPowerEdgeR640) {
    if (!serveMachine("dell-r640"))
        GTEST_SKIP() << "real-data listings not found in " << kRealData;
    expectTablesMatchListing();
    // Written from the listing: two Xeon Gold 6244 at 1.8 V in LGA2011-class sockets (no
    // code below 25: unknown), 8 of 24 slots populated with 32 GB DDR4 (no code: 2).
    processorDevice processors;
    ASSERT_EQ(CLIENT_SUCCESS, processors.init());
    ASSERT_EQ(2, processors.getCount());
    expectRow(processors, 1,
              {I(27, 2), S(28, "CPU2"), I(30, 3), I(31, 3), S(32, "Intel(R) Xeon(R) Gold 6244 CPU @ 3.60GHz"),
               I(34, 179), I(36, 1800), I(37, 10400), I(38, 4000), I(39, 3600), I(40, 2),
               S(41, "Populated")});
    MemoryArray arrays;
    ASSERT_EQ(CLIENT_SUCCESS, arrays.init());
    ASSERT_EQ(1, arrays.getCount());
    expectRow(arrays, 0,
              {I(79, 3), I(80, 3), I(81, 3), I(82, 6), I(85, 24), I(87, 8), S(86, "Multi-bit ECC")});
    MemoryDevice devices;
    ASSERT_EQ(CLIENT_SUCCESS, devices.init());
    ASSERT_EQ(8, devices.getCount());
    expectRow(devices, 0, {I(94, 9), I(95, 2), I(96, 128), I(98, 32768), I(99, 72), I(102, 64), I(103, 1)});
    // The FRU has no chassis area: type unknown, no chassis serial; SMBIOS gives the rest.
    chassisInfo chassis;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
    expectRow(
        chassis, 0,
        {I(17, 2), S(23, ""), S(24, ""), S(25, "Dell Inc."), IL(11, 3), IL(12, 3), IL(13, 3), IL(14, 2)});
}

TEST_F(RealInventoryTest, HpProLiantDl360Gen8) {
    if (!serveMachine("hp-dl360-gen8"))
        GTEST_SKIP() << "real-data listings not found in " << kRealData;
    expectTablesMatchListing();
    // Written from the listings: two arrays of 12 DDR3 DIMM slots (single-bit ECC, 384 GB
    // each), 8 GB modules; the FRU chassis area names a rack mount chassis.
    MemoryArray arrays;
    ASSERT_EQ(CLIENT_SUCCESS, arrays.init());
    ASSERT_EQ(2, arrays.getCount());
    for (int a = 0; a < 2; ++a)
        expectRow(arrays, a, {I(80, 3), I(81, 3), I(82, 5), I(83, 402653184), I(84, 65534), I(85, 12)});
    MemoryDevice devices;
    ASSERT_EQ(CLIENT_SUCCESS, devices.init());
    ASSERT_GT(devices.getCount(), 0);
    expectRow(devices, 0,
              {S(90, "PROC  1 DIMM  1"), I(94, 9), I(95, 21), I(96, 128), I(97, 1333), I(98, 8192),
               S(101, "647650-071"), S(107, "DDR3"), S(108, "Synchronous")});
    chassisInfo chassis;
    ASSERT_EQ(CLIENT_SUCCESS, chassis.init());
    expectRow(chassis, 0, {I(17, 23), S(23, "USE2236835"), S(25, "HP"), IL(13, 3)});
    processorDevice processors;
    ASSERT_EQ(CLIENT_SUCCESS, processors.init());
    ASSERT_EQ(2, processors.getCount());
    expectRow(processors, 0, {S(32, "Intel(R) Xeon(R) CPU E5-2640 0 @ 2.50GHz"), I(36, 1400), I(40, 2)});
}

} // namespace
