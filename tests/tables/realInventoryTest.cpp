// Real servers: a `dmidecode` listing and an `ipmitool fru` listing of the same machine
// are turned into a platform description at test time; the tables built over it publish
// what the listings say. The listings are read from the shared real-data folder beside
// the source tree; the tests are skipped where it is absent.
#include <gtest/gtest.h>

#include <cstdio>
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

std::string trim(const std::string& s) {
    const size_t first = s.find_first_not_of(" \t\r");
    return first == std::string::npos ? "" : s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

// One structure of a dmidecode listing: its type, handle and "Key: value" lines (first level).
struct DmiSection {
    int type = -1;
    std::string handle;
    std::map<std::string, std::string> fields;
    std::string get(const std::string& key) const {
        auto it = fields.find(key);
        return it == fields.end() ? "" : it->second;
    }
};

// The structures of a dmidecode listing, or the devices (type -2) of an `ipmitool fru` listing.
std::vector<DmiSection> parseListing(const std::string& text) {
    std::vector<DmiSection> sections;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        unsigned handle = 0;
        int type = 0;
        char h[16];
        const size_t colon = line.find(':');
        if (sscanf(line.c_str(), "Handle 0x%x, DMI type %d", &handle, &type) == 2) {
            snprintf(h, sizeof h, "0x%04X", handle);
            sections.push_back({type, h, {}});
        } else if (line.rfind("FRU Device Description", 0) == 0) {
            sections.push_back({-2, "", {}});
        } else if (!sections.empty() && line.size() > 1 && (line[0] == '\t' || line[0] == ' ') &&
                   line[1] != '\t' && colon != std::string::npos) {
            sections.back().fields[trim(line.substr(0, colon))] = trim(line.substr(colon + 1));
        }
    }
    return sections;
}

std::string jsonText(const std::string& s) {
    std::string out = "\"";
    for (char c : s)
        out += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    return out + "\"";
}

unsigned number(const std::string& s) {
    return static_cast<unsigned>(strtoul(s.c_str(), nullptr, 10));
}

// dmidecode prints SMBIOS names with capitals the service writes in lower case.
std::string serviceName(const std::string& name) {
    static const std::map<std::string, std::string> names = {
        {"Central Processor", "Central processor"},
        {"System Board Or Motherboard", "System board or motherboard"},
        {"System Memory", "System memory"}};
    auto it = names.find(name);
    return it == names.end() ? name : it->second;
}

// The (key, listing key) pairs of "key=Listing Key|...".
std::vector<std::pair<std::string, std::string>> pairsOf(const std::string& spec) {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::istringstream in(spec);
    for (std::string item; std::getline(in, item, '|');)
        pairs.emplace_back(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
    return pairs;
}

// `, "key": value` for each pair of `spec`; a key starting with '#' is a number.
std::string fields(const DmiSection& s, const std::string& spec) {
    std::string out;
    for (const auto& f : pairsOf(spec))
        out += f.first[0] == '#'
                   ? ", \"" + f.first.substr(1) + "\": " + std::to_string(number(s.get(f.second)))
                   : ", \"" + f.first + "\": " + jsonText(s.get(f.second));
    return out;
}

// The platform description of a machine, from its two listings.
std::string platformOf(const std::vector<DmiSection>& dmi, const DmiSection& fru) {
    const std::string chassisType = fru.get("Chassis Type");
    std::string j =
        "{\"format\": \"kelvarn-platform\", \"version\": 1, \"bmc\": {\"fru\": {\"chassisType\": " +
        std::to_string(chassisType == "Rack Mount Chassis"    ? 23
                       : chassisType == "Main Server Chassis" ? 17
                                                              : 2) +
        fields(fru, "chassisPartNumber=Chassis Part Number"
                    "|chassisSerialNumber=Chassis Serial|productAssetTag=Product Asset Tag") +
        "}}, \"smbios\": {";
    for (const DmiSection& s : dmi)
        if (s.type == 3) {
            j += "\"chassis\": {\"manufacturer\": " + jsonText(s.get("Manufacturer")) +
                 fields(s, "type=Type|serialNumber=Serial Number|bootupState=Boot-up State"
                           "|powerSupplyState=Power Supply State|thermalState=Thermal State"
                           "|securityStatus=Security Status") +
                 "}, ";
            break;
        }
    std::string separator;
    j += "\"processors\": [";
    for (const DmiSection& s : dmi) {
        if (s.type != 4)
            continue;
        std::string voltage = s.get("Voltage");
        if (voltage.find(' ') != std::string::npos)
            voltage.erase(voltage.find(' '), 1); // "1.8 V" -> "1.8V"
        j += separator +
             "{\"populated\": " + (s.get("Status").rfind("Populated", 0) == 0 ? "true" : "false") +
             ", \"type\": " + jsonText(serviceName(s.get("Type"))) + ", \"voltage\": " + jsonText(voltage) +
             fields(s, "socketDesignation=Socket Designation|family=Family"
                       "|manufacturer=Manufacturer|id=ID|version=Version"
                       "|#clockMHz=External Clock|#maxSpeedMHz=Max Speed"
                       "|#currentSpeedMHz=Current Speed|upgrade=Upgrade|partNumber=Part Number"
                       "|serialNumber=Serial Number") +
             "}";
        separator = ", ";
    }
    j += "], \"memoryArrays\": [";
    separator.clear();
    for (const DmiSection& a : dmi) {
        if (a.type != 16)
            continue;
        const std::string capacity = a.get("Maximum Capacity"), handle = a.get("Error Information Handle");
        const unsigned unit = capacity.find("TB") != std::string::npos   ? 1024u * 1024u * 1024u
                              : capacity.find("GB") != std::string::npos ? 1024u * 1024u
                                                                         : 1024u;
        j += separator + "{\"location\": " + jsonText(serviceName(a.get("Location"))) +
             ", \"use\": " + jsonText(serviceName(a.get("Use"))) +
             ", \"errorCorrection\": " + jsonText(a.get("Error Correction Type")) +
             ", \"maxCapacityKB\": " + std::to_string(number(capacity) * unit) + ", \"errorInfoHandle\": " +
             std::to_string(handle.rfind("0x", 0) == 0 ? strtoul(handle.c_str(), nullptr, 16) : 65534) +
             ", \"devices\": [";
        separator = ", ";
        std::string deviceSeparator;
        for (const DmiSection& d : dmi) {
            if (d.type != 17 || d.get("Array Handle") != a.handle)
                continue;
            const std::string size = d.get("Size");
            const unsigned mb = number(size) * (size.find("GB") != std::string::npos ? 1024u : 1u);
            std::string details;
            for (const char* name : {"Synchronous", "EDO", "CMOS", "Fast-paged", "RAMBUS", "Non-volatile"})
                if (d.get("Type Detail").find(name) != std::string::npos)
                    details += (details.empty() ? "" : ", ") + jsonText(name);
            j += deviceSeparator + "{\"present\": " + (mb > 0 ? "true" : "false") + ", \"typeDetail\": [" +
                 details + "], \"sizeMB\": " + std::to_string(mb) +
                 fields(d, "deviceLocator=Locator|bankLocator=Bank Locator|formFactor=Form Factor"
                           "|memoryType=Type|#speedMHz=Speed|manufacturer=Manufacturer"
                           "|serialNumber=Serial Number|assetTag=Asset Tag|partNumber=Part Number"
                           "|#totalWidth=Total Width|#dataWidth=Data Width") +
                 "}";
            deviceSeparator = ", ";
        }
        j += "]}";
    }
    return j + "]}}";
}

// Every column of `spec` ("attribute=Listing Key|...", '#' before a number column) of `row`
// equals the section's field.
void expectCopied(BaseAccessor& table, int row, const DmiSection& s, const std::string& spec) {
    const auto pairs = pairsOf(spec);
    std::vector<std::string> texts;
    for (const auto& c : pairs)
        texts.push_back(s.get(c.second));
    std::vector<Column> columns;
    for (size_t i = 0; i < pairs.size(); ++i)
        columns.push_back(pairs[i].first[0] == '#'
                              ? I(std::stoi(pairs[i].first.substr(1)), static_cast<int32_t>(number(texts[i])))
                              : S(std::stoi(pairs[i].first), texts[i].c_str()));
    expectRow(table, row, columns);
}

class RealInventoryTest : public InventoryTest {
protected:
    // Serves the machine `name`, then checks every row of every table against its listings;
    // false (test skipped) when the listings are not there.
    bool serveMachine(const std::string& name) {
        const std::string dmiPath = kRealData + "/dmidecode/" + name + ".txt",
                          fruPath = kRealData + "/ipmitool-fru/" + name + ".txt";
        if (!hmtest::fileExists(dmiPath) || !hmtest::fileExists(fruPath))
            return false;
        dmi = parseListing(hmtest::readFile(dmiPath));
        fru = parseListing(hmtest::readFile(fruPath)).at(0); // the built-in FRU device
        servePlatformText(platformOf(dmi, fru));
        EXPECT_EQ(CLIENT_SUCCESS, processors.init());
        EXPECT_EQ(CLIENT_SUCCESS, arrays.init());
        EXPECT_EQ(CLIENT_SUCCESS, devices.init());
        EXPECT_EQ(CLIENT_SUCCESS, chassis.init());
        int cpu = 0, array = 0, device = 0;
        for (const DmiSection& s : dmi)
            if (s.type == 4)
                expectCopied(processors, cpu++, s,
                             "28=Socket Designation|29=Manufacturer|32=Version|33=ID|35=Part Number"
                             "|42=Serial Number|#38=Max Speed|#39=Current Speed");
        for (const DmiSection& a : dmi) {
            if (a.type != 16)
                continue;
            int32_t present = 0;
            for (const DmiSection& d : dmi)
                if (d.type == 17 && d.get("Array Handle") == a.handle && number(d.get("Size")) > 0) {
                    ++present;
                    expectCopied(devices, device++, d,
                                 "90=Locator|91=Bank Locator|93=Manufacturer|100=Serial Number"
                                 "|101=Part Number|105=Asset Tag|#97=Speed|#99=Total Width|#102=Data Width");
                }
            expectCopied(arrays, array, a, "86=Error Correction Type|#85=Number Of Devices");
            expectRow(arrays, array++, {I(87, present)});
        }
        EXPECT_EQ(cpu, processors.getCount());
        EXPECT_EQ(array, arrays.getCount());
        EXPECT_EQ(device, devices.getCount());
        expectCopied(chassis, 0, fru, "22=Chassis Part Number|23=Chassis Serial|24=Product Asset Tag");
        return true;
    }

    std::vector<DmiSection> dmi;
    DmiSection fru;
    processorDevice processors;
    MemoryArray arrays;
    MemoryDevice devices;
    chassisInfo chassis;
};

TEST_F(RealInventoryTest, DellPowerEdgeR640) {
    if (!serveMachine("dell-r640"))
        GTEST_SKIP() << "real-data listings not found in " << kRealData;
    // Written from the listing: two Xeon Gold 6244 at 1.8 V in LGA2011-class sockets (no
    // code below 25: unknown), 8 of 24 slots populated with 32 GB DDR4 (no code: 2).
    ASSERT_EQ(2, processors.getCount());
    expectRow(processors, 1,
              {I(27, 2), S(28, "CPU2"), I(30, 3), I(31, 3), S(32, "Intel(R) Xeon(R) Gold 6244 CPU @ 3.60GHz"),
               I(34, 179), I(36, 1800), I(37, 10400), I(38, 4000), I(39, 3600), I(40, 2),
               S(41, "Populated")});
    ASSERT_EQ(1, arrays.getCount());
    expectRow(arrays, 0,
              {I(79, 3), I(80, 3), I(81, 3), I(82, 6), I(85, 24), I(87, 8), S(86, "Multi-bit ECC")});
    ASSERT_EQ(8, devices.getCount());
    expectRow(devices, 0, {I(94, 9), I(95, 2), I(96, 128), I(98, 32768), I(99, 72), I(102, 64), I(103, 1)});
    // The FRU has no chassis area: type unknown, no chassis serial; SMBIOS gives the rest.
    expectRow(
        chassis, 0,
        {I(17, 2), S(23, ""), S(24, ""), S(25, "Dell Inc."), IL(11, 3), IL(12, 3), IL(13, 3), IL(14, 2)});
}

TEST_F(RealInventoryTest, HpProLiantDl360Gen8) {
    if (!serveMachine("hp-dl360-gen8"))
        GTEST_SKIP() << "real-data listings not found in " << kRealData;
    // Written from the listings: two arrays of 12 DDR3 DIMM slots (single-bit ECC, 384 GB
    // each), 8 GB modules; the FRU chassis area names a rack mount chassis.
    ASSERT_EQ(2, arrays.getCount());
    for (int a = 0; a < 2; ++a)
        expectRow(arrays, a, {I(80, 3), I(81, 3), I(82, 5), I(83, 402653184), I(84, 65534), I(85, 12)});
    ASSERT_GT(devices.getCount(), 0);
    expectRow(devices, 0,
              {S(90, "PROC  1 DIMM  1"), I(94, 9), I(95, 21), I(96, 128), I(97, 1333), I(98, 8192),
               S(101, "647650-071"), S(107, "DDR3"), S(108, "Synchronous")});
    expectRow(chassis, 0, {I(17, 23), S(23, "USE2236835"), S(25, "HP"), IL(13, 3)});
    ASSERT_EQ(2, processors.getCount());
    expectRow(processors, 0, {S(32, "Intel(R) Xeon(R) CPU E5-2640 0 @ 2.50GHz"), I(36, 1400), I(40, 2)});
}

} // namespace
