// Decoding of SMBIOS structures 3, 4, 16, 17 and 24 into the inventory the
// query service publishes. Field offsets and enumeration names are tables; a
// field beyond a structure's formatted length reads as absent.
#include <cstdio>
#include <map>
#include <string>

#include "kelvarn/Smbios.h"

namespace kelvarn {
namespace smbios {
namespace {

// Structure field offsets.
namespace chassis {
enum : size_t { Manufacturer = 0x04, Type = 0x05, Version = 0x06, Serial = 0x07, AssetTag = 0x08 };
enum : size_t { BootupState = 0x09, PowerSupplyState = 0x0A, ThermalState = 0x0B, SecurityStatus = 0x0C };
} // namespace chassis
namespace processor {
enum : size_t { Socket = 0x04, Type = 0x05, Family = 0x06, Manufacturer = 0x07, Id = 0x08, Version = 0x10 };
enum : size_t { Voltage = 0x11, ExternalClock = 0x12, MaxSpeed = 0x14, CurrentSpeed = 0x16, Status = 0x18 };
enum : size_t { Upgrade = 0x19, Serial = 0x20, PartNumber = 0x22, CoreCount = 0x23, ThreadCount = 0x25 };
enum : size_t { Family2 = 0x28, CoreCount2 = 0x2A, ThreadCount2 = 0x2E };
} // namespace processor
namespace array {
enum : size_t { Location = 0x04, Use = 0x05, Ecc = 0x06, MaxCapacity = 0x07, ErrorHandle = 0x0B };
enum : size_t { ExtendedMaxCapacity = 0x0F };
} // namespace array
namespace device {
enum : size_t { ArrayHandle = 0x04, TotalWidth = 0x08, DataWidth = 0x0A, Size = 0x0C, FormFactor = 0x0E };
enum : size_t { Locator = 0x10, BankLocator = 0x11, MemoryType = 0x12, TypeDetail = 0x13, Speed = 0x15 };
enum : size_t { Manufacturer = 0x17, Serial = 0x18, AssetTag = 0x19, PartNumber = 0x1A, ExtendedSize = 0x1C };
enum : size_t { ExtendedSpeed = 0x54 };
} // namespace device
constexpr size_t kSecuritySettings = 0x04; // type 24

// Enumeration names, index = code - 1.
const char* const kChassisTypes[] = {"Other",
                                     "Unknown",
                                     "Desktop",
                                     "Low Profile Desktop",
                                     "Pizza Box",
                                     "Mini Tower",
                                     "Tower",
                                     "Portable",
                                     "Laptop",
                                     "Notebook",
                                     "Hand Held",
                                     "Docking Station",
                                     "All In One",
                                     "Sub Notebook",
                                     "Space-saving",
                                     "Lunch Box",
                                     "Main Server Chassis",
                                     "Expansion Chassis",
                                     "Sub Chassis",
                                     "Bus Expansion Chassis",
                                     "Peripheral Chassis",
                                     "RAID Chassis",
                                     "Rack Mount Chassis",
                                     "Sealed-case PC",
                                     "Multi-system",
                                     "CompactPCI",
                                     "AdvancedTCA",
                                     "Blade",
                                     "Blade Enclosing",
                                     "Tablet",
                                     "Convertible",
                                     "Detachable",
                                     "IoT Gateway",
                                     "Embedded PC",
                                     "Mini PC",
                                     "Stick PC"};
const char* const kChassisStates[] = {"Other", "Unknown", "Safe", "Warning", "Critical", "Non-recoverable"};
const char* const kSecurityStatus[] = {"Other", "Unknown", "None", "External interface locked out",
                                       "External interface enabled"};
const char* const kPasswordStates[] = {"Disabled", "Enabled", "Not Implemented", "Unknown"}; // code = value
const char* const kProcessorTypes[] = {"other",         "Unknown",      "Central processor",
                                       "mathProcessor", "dspProcessor", "videoProcessor"};
const char* const kUpgrades[] = {
    "Other",          "Unknown",        "Daughter Board",   "ZIF Socket",       "Replaceable Piggy Back",
    "None",           "LIF Socket",     "Slot 1",           "Slot 2",           "370-pin socket",
    "Slot A",         "Slot M",         "Socket 423",       "Socket A",         "Socket 478",
    "Socket 754",     "Socket 940",     "Socket 939",       "Socket mPGA604",   "Socket LGA771",
    "Socket LGA775",  "Socket S1",      "Socket AM2",       "Socket F",         "Socket LGA1366",
    "Socket G34",     "Socket AM3",     "Socket C32",       "Socket LGA1156",   "Socket LGA1567",
    "Socket PGA988A", "Socket BGA1288", "Socket rPGA988B",  "Socket BGA1023",   "Socket BGA1224",
    "Socket BGA1155", "Socket LGA1356", "Socket LGA2011",   "Socket FS1",       "Socket FS2",
    "Socket FM1",     "Socket FM2",     "Socket LGA2011-3", "Socket LGA1356-3", "Socket LGA1150",
    "Socket BGA1168", "Socket BGA1234", "Socket BGA1364",   "Socket AM4",       "Socket LGA1151",
    "Socket BGA1356", "Socket BGA1440", "Socket BGA1515",   "Socket LGA3647-1", "Socket SP3",
    "Socket SP3r2",   "Socket LGA2066", "Socket BGA1392",   "Socket BGA1510",   "Socket BGA1528",
    "Socket LGA4189", "Socket LGA1200"};
const char* const kArrayLocations[] = {"Other",
                                       "Unknown",
                                       "System board or motherboard",
                                       "ISA Add-on Card",
                                       "EISA Add-on Card",
                                       "PCI Add-on Card",
                                       "MCA Add-on Card",
                                       "PCMCIA Add-on Card",
                                       "Proprietary Add-on Card",
                                       "NuBus"};
const char* const kArrayUses[] = {"Other",        "Unknown",      "System memory",
                                  "Video memory", "Flash memory", "Non Volatile memory",
                                  "Cache memory"};
const char* const kEccTypes[] = {"Other",          "Unknown",       "None", "Parity",
                                 "Single-bit ECC", "Multi-bit ECC", "CRC"};
const char* const kFormFactors[] = {"Other",  "Unknown",         "SIMM",    "SIP",  "Chip",       "DIP",
                                    "ZIP",    "ProprietaryCard", "DIMM",    "TSOP", "RowOfChips", "RIMM",
                                    "SODIMM", "SRIMM",           "FB-DIMM", "Die"};
const char* const kMemoryTypes[] = {"Other",
                                    "Unknown",
                                    "DRAM",
                                    "EDRAM",
                                    "VRAM",
                                    "SRAM",
                                    "RAM",
                                    "ROM",
                                    "FLASH",
                                    "EEPROM",
                                    "FEPROM",
                                    "EPROM",
                                    "CDRAM",
                                    "3DRAM",
                                    "SDRAM",
                                    "SGRAM",
                                    "RDRAM",
                                    "DDR",
                                    "DDR2",
                                    "DDR2 FB-DIMM",
                                    "Reserved",
                                    "Reserved",
                                    "Reserved",
                                    "DDR3",
                                    "FBD2",
                                    "DDR4",
                                    "LPDDR",
                                    "LPDDR2",
                                    "LPDDR3",
                                    "LPDDR4",
                                    "Logical non-volatile device",
                                    "HBM",
                                    "HBM2",
                                    "DDR5",
                                    "LPDDR5"};
// Type detail bits 3 to 12, in bit order.
const char* const kTypeDetailBits[] = {"Fast-paged",  "Static column", "Pseudo-static", "RAMBUS",
                                       "Synchronous", "CMOS",          "EDO",           "Window DRAM",
                                       "Cache DRAM",  "Non-volatile"};

// Processor families: code and name.
const std::map<unsigned, const char*>& families() {
    static const std::map<unsigned, const char*> table = {
        {0x01, "Other"},
        {0x02, "Unknown"},
        {0x0B, "Pentium"},
        {0x0C, "Pentium Pro"},
        {0x0D, "Pentium II"},
        {0x0F, "Celeron"},
        {0x10, "Pentium II Xeon"},
        {0x11, "Pentium III"},
        {0x1D, "Athlon"},
        {0x28, "Core Duo"},
        {0x2B, "Atom"},
        {0x83, "Athlon 64"},
        {0x84, "Opteron"},
        {0x85, "Sempron"},
        {0x87, "Dual-Core Opteron"},
        {0x88, "Athlon 64 X2"},
        {0x8A, "Quad-Core Opteron"},
        {0x8B, "Third-Generation Opteron"},
        {0xB0, "Pentium III Xeon"},
        {0xB2, "Pentium 4"},
        {0xB3, "Xeon"},
        {0xB5, "Xeon MP"},
        {0xB8, "Itanium 2"},
        {0xB9, "Pentium M"},
        {0xBA, "Celeron D"},
        {0xBB, "Pentium D"},
        {0xBF, "Core 2 Duo"},
        {0xC2, "Core 2 Quad"},
        {0xC6, "Core i7"},
        {0xCD, "Core i5"},
        {0xCE, "Core i3"},
        {0xD6, "Multi-Core Xeon"},
        {0xE4, "Opteron 3000"},
        {0xEE, "Six-Core Opteron"},
    };
    return table;
}

template <size_t N> std::string nameOf(const char* const (&names)[N], unsigned code) {
    return code >= 1 && code <= N ? names[code - 1] : "Unknown";
}

// Field access bounded by the structure's formatted length.
struct View {
    const Structure& s;
    bool has(size_t offset, size_t width) const { return offset + width <= s.formatted.size(); }
    unsigned byte(size_t o, unsigned absent = 0) const { return has(o, 1) ? s.formatted[o] : absent; }
    unsigned word(size_t o, unsigned absent = 0) const {
        return has(o, 2) ? unsigned(s.formatted[o] | s.formatted[o + 1] << 8) : absent;
    }
    uint64_t dword(size_t o, uint64_t absent = 0) const {
        if (!has(o, 4))
            return absent;
        return uint64_t(s.formatted[o]) | uint64_t(s.formatted[o + 1]) << 8 |
               uint64_t(s.formatted[o + 2]) << 16 | uint64_t(s.formatted[o + 3]) << 24;
    }
    uint64_t qword(size_t o, uint64_t absent = 0) const {
        return has(o, 8) ? dword(o) | dword(o + 4) << 32 : absent;
    }
    // String n of the string set; "" for 0, a missing string or a field past
    // the formatted area. Control characters read as '.'; blanks are kept.
    std::string text(size_t o) const {
        unsigned n = byte(o);
        if (n == 0 || n > s.strings.size())
            return "";
        std::string t = s.strings[n - 1];
        for (char& c : t)
            if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) == 0x7F)
                c = '.';
        return t;
    }
};

ChassisInfo decodeChassis(const View& v, ChassisInfo c) {
    c.manufacturer = v.text(chassis::Manufacturer);
    c.type = chassisTypeName(v.byte(chassis::Type, 2) & 0x7F);
    c.version = v.text(chassis::Version);
    c.serialNumber = v.text(chassis::Serial);
    c.assetTag = v.text(chassis::AssetTag);
    c.bootupState = nameOf(kChassisStates, v.byte(chassis::BootupState, 2));
    c.powerSupplyState = nameOf(kChassisStates, v.byte(chassis::PowerSupplyState, 2));
    c.thermalState = nameOf(kChassisStates, v.byte(chassis::ThermalState, 2));
    c.securityStatus = nameOf(kSecurityStatus, v.byte(chassis::SecurityStatus, 2));
    return c;
}

void decodeSecurity(const View& v, ChassisInfo& c) {
    unsigned s = v.byte(kSecuritySettings, 0xFF);
    c.powerOnPassword = kPasswordStates[(s >> 6) & 3];
    c.keyboardPassword = kPasswordStates[(s >> 4) & 3];
    c.administratorPassword = kPasswordStates[(s >> 2) & 3];
    c.frontPanelReset = kPasswordStates[s & 3];
}

std::string voltageText(unsigned v) {
    char buf[16];
    if (v & 0x80) {
        std::snprintf(buf, sizeof buf, "%u.%uV", (v & 0x7F) / 10, (v & 0x7F) % 10);
        return buf;
    }
    // Legacy form: bits 0, 1, 2 = 5 V, 3.3 V, 2.9 V supported; the first one set.
    const char* const legacy[] = {"5.0V", "3.3V", "2.9V"};
    for (unsigned bit = 0; bit < 3; ++bit)
        if (v & (1u << bit))
            return legacy[bit];
    return "Unknown";
}

ProcessorInfo decodeProcessor(const View& v) {
    ProcessorInfo p;
    p.socketDesignation = v.text(processor::Socket);
    p.type = nameOf(kProcessorTypes, v.byte(processor::Type, 2));
    unsigned family = v.byte(processor::Family, 2);
    if (family == 0xFE)
        family = v.word(processor::Family2, 2);
    p.family = processorFamilyName(family);
    p.manufacturer = v.text(processor::Manufacturer);
    if (v.has(processor::Id, 8)) {
        static const char hex[] = "0123456789ABCDEF";
        for (size_t i = 0; i < 8; ++i) {
            const uint8_t b = v.s.formatted[processor::Id + i];
            if (i)
                p.id += ' ';
            p.id += hex[b >> 4];
            p.id += hex[b & 15];
        }
    }
    p.version = v.text(processor::Version);
    p.voltage = voltageText(v.byte(processor::Voltage));
    p.clockMHz = v.word(processor::ExternalClock);
    p.maxSpeedMHz = v.word(processor::MaxSpeed);
    p.currentSpeedMHz = v.word(processor::CurrentSpeed);
    p.populated = (v.byte(processor::Status) & 0x40) != 0;
    p.upgrade = processorUpgradeName(v.byte(processor::Upgrade, 2));
    p.serialNumber = v.text(processor::Serial);
    p.partNumber = v.text(processor::PartNumber);
    p.coreCount = v.byte(processor::CoreCount);
    if (p.coreCount == 0xFF)
        p.coreCount = v.word(processor::CoreCount2, 0xFF);
    p.threadCount = v.byte(processor::ThreadCount);
    if (p.threadCount == 0xFF)
        p.threadCount = v.word(processor::ThreadCount2, 0xFF);
    return p;
}

MemoryArrayInfo decodeArray(const View& v) {
    MemoryArrayInfo a;
    a.location = nameOf(kArrayLocations, v.byte(array::Location, 2));
    a.use = nameOf(kArrayUses, v.byte(array::Use, 2));
    a.errorCorrection = nameOf(kEccTypes, v.byte(array::Ecc, 2));
    uint64_t kb = v.dword(array::MaxCapacity);
    if (kb == 0x80000000u)
        kb = v.qword(array::ExtendedMaxCapacity) / 1024; // given in bytes
    a.maxCapacityKB = kb > 0xFFFFFFFFu ? 0xFFFFFFFFu : unsigned(kb);
    a.errorInfoHandle = v.word(array::ErrorHandle, 0xFFFE);
    return a;
}

MemoryDeviceInfo decodeDevice(const View& v) {
    MemoryDeviceInfo d;
    d.deviceLocator = v.text(device::Locator);
    d.bankLocator = v.text(device::BankLocator);
    d.formFactor = formFactorName(v.byte(device::FormFactor, 2));
    d.memoryType = memoryTypeName(v.byte(device::MemoryType, 2));
    unsigned detail = v.word(device::TypeDetail);
    for (unsigned bit = 3; bit <= 12; ++bit)
        if (detail & (1u << bit))
            d.typeDetail.push_back(kTypeDetailBits[bit - 3]);
    unsigned speed = v.word(device::Speed);
    if (speed == 0xFFFF)
        speed = unsigned(v.dword(device::ExtendedSpeed));
    d.speedMHz = speed;
    unsigned size = v.word(device::Size);
    d.present = size != 0;
    if (size == 0xFFFF) {
        d.sizeMB = 0; // present, size unknown
    } else if (size == 0x7FFF) {
        d.sizeMB = unsigned(v.dword(device::ExtendedSize) & 0x7FFFFFFF);
    } else if (size & 0x8000) {
        d.sizeMB = (size & 0x7FFF) / 1024; // given in KiB
    } else {
        d.sizeMB = size;
    }
    d.manufacturer = v.text(device::Manufacturer);
    d.serialNumber = v.text(device::Serial);
    d.assetTag = v.text(device::AssetTag);
    d.partNumber = v.text(device::PartNumber);
    unsigned total = v.word(device::TotalWidth, 0xFFFF), data = v.word(device::DataWidth, 0xFFFF);
    d.totalWidth = total == 0xFFFF ? 0 : total;
    d.dataWidth = data == 0xFFFF ? 0 : data;
    return d;
}

// The formatted length each decoded type needs at least (the SMBIOS 2.0 size).
const std::map<uint8_t, size_t> kMinimumLength = {{3, 0x09}, {4, 0x1A}, {16, 0x0F}, {17, 0x15}, {24, 0x05}};

} // namespace

std::string processorFamilyName(unsigned code) {
    auto it = families().find(code);
    return it == families().end() ? "Unknown" : it->second;
}
std::string processorUpgradeName(unsigned code) {
    return nameOf(kUpgrades, code);
}
std::string memoryTypeName(unsigned code) {
    return nameOf(kMemoryTypes, code);
}
std::string formFactorName(unsigned code) {
    return nameOf(kFormFactors, code);
}
std::string chassisTypeName(unsigned code) {
    return nameOf(kChassisTypes, code);
}

Decoded decode(const Table& table) {
    Decoded out;
    // Without structures 3 and 24 nothing is known about the enclosure.
    out.chassis.type = out.chassis.bootupState = out.chassis.powerSupplyState = out.chassis.thermalState =
        out.chassis.securityStatus = "Unknown";
    out.chassis.powerOnPassword = out.chassis.keyboardPassword = out.chassis.administratorPassword =
        out.chassis.frontPanelReset = "Unknown";
    bool chassisSeen = false, securitySeen = false;
    std::map<uint16_t, size_t> arrayByHandle;
    std::vector<std::pair<uint16_t, MemoryDeviceInfo>> devices;
    for (const Structure& s : table.structures) {
        auto min = kMinimumLength.find(s.type);
        if (min == kMinimumLength.end())
            continue;
        if (s.formatted.size() < min->second) {
            out.problems.push_back("type " + std::to_string(s.type) + " structure (handle " +
                                   std::to_string(s.handle) + ") is " + std::to_string(s.formatted.size()) +
                                   " bytes, shorter than " + std::to_string(min->second) + "; skipped");
            continue;
        }
        const View v{s};
        switch (s.type) {
        case 3: // the first enclosure is the server's own
            if (!chassisSeen)
                out.chassis = decodeChassis(v, out.chassis);
            chassisSeen = true;
            break;
        case 24:
            if (!securitySeen)
                decodeSecurity(v, out.chassis);
            securitySeen = true;
            break;
        case 4:
            out.processors.push_back(decodeProcessor(v));
            break;
        case 16:
            if (!arrayByHandle.emplace(s.handle, out.memoryArrays.size()).second) {
                out.problems.push_back("type 16 structure with handle " + std::to_string(s.handle) +
                                       " repeats a handle; skipped");
                break;
            }
            out.memoryArrays.push_back(decodeArray(v));
            break;
        case 17:
            devices.emplace_back(uint16_t(v.word(device::ArrayHandle)), decodeDevice(v));
            break;
        default:
            break;
        }
    }
    // Devices join their arrays by handle, in table order.
    for (auto& d : devices) {
        auto it = arrayByHandle.find(d.first);
        if (it == arrayByHandle.end()) {
            out.problems.push_back("memory device \"" + d.second.deviceLocator +
                                   "\" names the array handle " + std::to_string(d.first) +
                                   ", which no type 16 structure has; skipped");
            continue;
        }
        out.memoryArrays[it->second].devices.push_back(std::move(d.second));
    }
    if (!chassisSeen)
        out.problems.push_back("no type 3 structure: chassis fields are defaults");
    return out;
}

} // namespace smbios
} // namespace kelvarn
