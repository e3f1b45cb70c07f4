// SMBIOS tables: the entry point, the structure table split into structures,
// and the decoding of structures 3, 4, 16, 17 and 24 into the inventory the
// query service publishes below /SMBIOS. Pure functions over bytes; reading
// the tables from sysfs or from a dump file is SmbiosSource's job.
#ifndef KELVARN_SMBIOS_H
#define KELVARN_SMBIOS_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelvarn/Platform.h"

namespace kelvarn {
namespace smbios {

// A table or entry point that cannot be used at all; the message says why.
class KELVARN_API SmbiosError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct EntryPoint {
    uint8_t major = 0, minor = 0;
    uint64_t tableAddress = 0;   // where the structure table starts
    uint32_t tableLength = 0;    // its length (SMBIOS 3: its maximum length)
    uint32_t structureCount = 0; // SMBIOS 2 only; 0 when not given
    bool is64 = false;           // "_SM3_" entry point
};

struct Structure {
    uint8_t type = 0;
    uint16_t handle = 0;
    Bytes formatted;                  // the formatted area, header included
    std::vector<std::string> strings; // string 1 is strings[0]
};

struct Table {
    EntryPoint entry;
    std::vector<Structure> structures;
    // Parts of the table that were cut or skipped, in plain words.
    std::vector<std::string> problems;
};

// Reads an "_SM_" (SMBIOS 2.1+) or "_SM3_" (SMBIOS 3) entry point; refuses a
// wrong anchor, length or checksum.
KELVARN_API EntryPoint parseEntryPoint(const Bytes& bytes);

// Splits a structure table. Stops at the end-of-table structure, at the end
// of the bytes, after `maxStructures` structures (0: no limit besides the
// table's size), or at the first structure that does not fit (a header or
// formatted length that runs past the table, a string set without its
// terminating double NUL); what was cut is named in `problems`.
KELVARN_API Table parseStructures(const Bytes& table, uint32_t maxStructures = 0);

// A file as "dmidecode --dump-bin" writes it: the entry point at offset 0 and
// the table at the offset the entry point names (32).
KELVARN_API Table parseDumpFile(const Bytes& file);
// The two files of /sys/firmware/dmi/tables.
KELVARN_API Table parseSysfs(const Bytes& entryPoint, const Bytes& dmi);
// What Windows' GetSystemFirmwareTable('RSMB') answers: an 8-byte header (calling
// method, major and minor version, DMI revision, table length as 32 bits, little
// endian) and the structure table.
KELVARN_API Table parseFirmwareTable(const Bytes& raw);

// The /SMBIOS part of the inventory: chassis (3 and 24), processors (4),
// memory arrays (16) with their devices (17, attached by the array handle).
struct Decoded {
    ChassisInfo chassis;
    std::vector<ProcessorInfo> processors;
    std::vector<MemoryArrayInfo> memoryArrays;
    std::vector<std::string> problems;
};
KELVARN_API Decoded decode(const Table& table);

// The names the service gives SMBIOS enumeration values ("Unknown" outside
// the tables).
KELVARN_API std::string processorFamilyName(unsigned code);
KELVARN_API std::string processorUpgradeName(unsigned code);
KELVARN_API std::string memoryTypeName(unsigned code);
KELVARN_API std::string formFactorName(unsigned code);
KELVARN_API std::string chassisTypeName(unsigned code);

} // namespace smbios

// A source answering the /SMBIOS paths from SMBIOS tables: the sysfs files
// (`path` empty: /sys/firmware/dmi/tables), a dump file, or on Windows the
// firmware-table call (`path` empty; otherwise a file holding such an answer). It has no BMC:
// its SDR and SEL are empty and its FRU and OEM fields are defaults. The
// tables are read at the first query; a failure to read them fails that
// query (kSourceUnavailable) and is tried again at the next.
class KELVARN_API SmbiosSource : public Source {
public:
    enum class Kind { Sysfs, Dump, Firmware };
    SmbiosSource(Kind kind, std::string path);
    std::string describe() const override;
    std::vector<Bytes> sdrRepository() override;
    bool sensorReading(const SensorAddress& address, SensorReading& out) override;
    std::vector<SelEntry> selEntries() override;
    Inventory inventory() override;

private:
    Kind m_kind;
    std::string m_path;
    std::mutex m_lock;
    std::shared_ptr<const smbios::Decoded> m_decoded;
};

// Takes the BMC facts (SDR, readings, SEL, FRU, OEM) from one source and the
// SMBIOS inventory (chassis, processors, memory) from another.
class KELVARN_API CompositeSource : public Source {
public:
    CompositeSource(std::shared_ptr<Source> bmc, std::shared_ptr<Source> smbios);
    std::string describe() const override;
    std::vector<Bytes> sdrRepository() override;
    std::shared_ptr<const std::vector<Bytes>> sharedSdrRepository() override;
    bool sensorReading(const SensorAddress& address, SensorReading& out) override;
    std::vector<SelEntry> selEntries() override;
    Inventory inventory() override;
    // A /SMBIOS query is answered without the BMC only when the BMC has no
    // driver at all (absent()); a BMC that does not answer fails it too.
    Inventory inventoryFor(const std::string& path) override;
    uint64_t readingRefreshPeriodMs() const override;

private:
    // `inv` with the SMBIOS source's chassis, processors and memory arrays.
    Inventory withSmbios(Inventory inv);
    std::shared_ptr<Source> m_bmc, m_smbios;
};

} // namespace kelvarn

#endif
