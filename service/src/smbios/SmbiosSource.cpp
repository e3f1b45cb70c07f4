// The SMBIOS source (tables from sysfs, a dump file or Windows' firmware-table
// call) and the composition of a BMC source with an SMBIOS source.
#include <fstream>
#include <iterator>
#include <utility>

#ifdef _WIN32
#include <windows.h>
#endif

#include "kelvarn/Errors.h"
#include "kelvarn/Smbios.h"

namespace kelvarn {
namespace {

// Larger than any SMBIOS 3 table (whose length field is 32 bits, but real
// tables are a few kilobytes): refuse rather than read a device file forever.
constexpr std::streamsize kMaxFileSize = 16 * 1024 * 1024;

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw QueryError(kSourceUnavailable, "SMBIOS data source unavailable: " + path + ": cannot be opened",
                         kFacilitySource);
    Bytes bytes;
    char buf[65536];
    while (in) {
        in.read(buf, sizeof buf);
        bytes.insert(bytes.end(), buf, buf + in.gcount());
        if (std::streamsize(bytes.size()) > kMaxFileSize)
            throw QueryError(kSourceUnavailable,
                             "SMBIOS data source unavailable: " + path + ": larger than 16 MiB",
                             kFacilitySource);
    }
    if (in.bad())
        throw QueryError(kSourceUnavailable, "SMBIOS data source unavailable: " + path + ": cannot be read",
                         kFacilitySource);
    return bytes;
}

const char kSysfsDir[] = "/sys/firmware/dmi/tables";

QueryError firmwareUnavailable(const std::string& why) {
    return QueryError(kSourceUnavailable, "SMBIOS data source unavailable: firmware table: " + why,
                      kFacilitySource);
}

// The raw SMBIOS table as Windows hands it out: RawSMBIOSData, header and table.
Bytes readFirmwareTable() {
#ifdef _WIN32
    const DWORD rsmb = 0x52534D42; // 'RSMB'
    const UINT size = GetSystemFirmwareTable(rsmb, 0, nullptr, 0);
    if (size == 0)
        throw firmwareUnavailable("GetSystemFirmwareTable('RSMB') failed with error " +
                                  std::to_string(GetLastError()));
    Bytes bytes(size);
    const UINT got = GetSystemFirmwareTable(rsmb, 0, bytes.data(), size);
    if (got == 0 || got > size)
        throw firmwareUnavailable("GetSystemFirmwareTable('RSMB') answered " + std::to_string(got) +
                                  " bytes for a " + std::to_string(size) + "-byte buffer");
    bytes.resize(got);
    return bytes;
#else
    throw firmwareUnavailable("the firmware-table call exists on Windows only (use smbios=sysfs)");
#endif
}

} // namespace

SmbiosSource::SmbiosSource(Kind kind, std::string path) : m_kind(kind), m_path(std::move(path)) {
    if (m_kind == Kind::Sysfs && m_path.empty())
        m_path = kSysfsDir;
}

std::string SmbiosSource::describe() const {
    switch (m_kind) {
    case Kind::Sysfs:
        return "SMBIOS tables in " + m_path;
    case Kind::Dump:
        return "SMBIOS dump " + m_path;
    default:
        return "SMBIOS firmware table";
    }
}

std::vector<Bytes> SmbiosSource::sdrRepository() {
    return {};
}
bool SmbiosSource::sensorReading(const SensorAddress&, SensorReading&) {
    return false;
}
std::vector<SelEntry> SmbiosSource::selEntries() {
    return {};
}

Inventory SmbiosSource::inventory() {
    std::shared_ptr<const smbios::Decoded> decoded;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (!m_decoded) {
            smbios::Table table;
            try {
                if (m_kind == Kind::Sysfs)
                    table = smbios::parseSysfs(readFile(m_path + "/smbios_entry_point"),
                                               readFile(m_path + "/DMI"));
                else if (m_kind == Kind::Dump)
                    table = smbios::parseDumpFile(readFile(m_path));
                else
                    table =
                        smbios::parseFirmwareTable(m_path.empty() ? readFirmwareTable() : readFile(m_path));
            } catch (const smbios::SmbiosError& e) {
                throw QueryError(kSourceUnavailable,
                                 "SMBIOS data source unavailable: " +
                                     (m_kind == Kind::Firmware ? std::string("firmware table") : m_path) +
                                     ": " + e.what(),
                                 kFacilitySource);
            }
            // The tables do not change while the system runs: decode them once.
            m_decoded = std::make_shared<const smbios::Decoded>(smbios::decode(table));
        }
        decoded = m_decoded;
    }
    Inventory inv;
    inv.chassis = decoded->chassis;
    inv.processors = decoded->processors;
    inv.memoryArrays = decoded->memoryArrays;
    return inv;
}

CompositeSource::CompositeSource(std::shared_ptr<Source> bmc, std::shared_ptr<Source> smbios)
    : m_bmc(std::move(bmc)), m_smbios(std::move(smbios)) {}

std::string CompositeSource::describe() const {
    return "BMC from " + m_bmc->describe() + ", SMBIOS from " + m_smbios->describe();
}

std::vector<Bytes> CompositeSource::sdrRepository() {
    return m_bmc->sdrRepository();
}

std::shared_ptr<const std::vector<Bytes>> CompositeSource::sharedSdrRepository() {
    return m_bmc->sharedSdrRepository();
}
bool CompositeSource::sensorReading(const SensorAddress& address, SensorReading& out) {
    return m_bmc->sensorReading(address, out);
}
std::vector<SelEntry> CompositeSource::selEntries() {
    return m_bmc->selEntries();
}
uint64_t CompositeSource::readingRefreshPeriodMs() const {
    return m_bmc->readingRefreshPeriodMs();
}

Inventory CompositeSource::inventoryFor(const std::string& path) {
    if (path.compare(0, 7, "/SMBIOS") != 0)
        return inventory();
    // A BMC that does not answer fails the SMBIOS answers too, so that a start-up without
    // it fails and is tried again (the sensor tables find their rows only at start-up).
    // A server with no way to its BMC at all (no IPMI driver) is served its SMBIOS facts.
    Inventory inv;
    try {
        inv = m_bmc->inventory();
    } catch (const std::exception&) {
        if (!m_bmc->absent())
            throw;
    }
    return withSmbios(std::move(inv));
}

Inventory CompositeSource::inventory() {
    return withSmbios(m_bmc->inventory());
}

Inventory CompositeSource::withSmbios(Inventory inv) {
    Inventory smbios = m_smbios->inventory();
    inv.chassis = std::move(smbios.chassis);
    inv.processors = std::move(smbios.processors);
    inv.memoryArrays = std::move(smbios.memoryArrays);
    return inv;
}

} // namespace kelvarn
