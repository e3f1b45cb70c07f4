// The platform facts a data source supplies: the BMC's SDR repository, sensor
// readings and SEL at the level of IPMI bytes, and the FRU, OEM and SMBIOS
// inventory as decoded fields.
#ifndef KELVARN_PLATFORM_H
#define KELVARN_PLATFORM_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kelvarn/System.h"

namespace kelvarn {

using Bytes = std::vector<uint8_t>;

// Identifies a sensor as its SDR does: owner ID (byte 6), the whole owner-LUN
// byte with its channel bits (byte 7) and sensor number (byte 8).
struct SensorAddress {
    uint8_t owner = 0x20;
    uint8_t lun = 0;
    uint8_t number = 0;
    bool operator<(const SensorAddress& o) const {
        return (owner << 16 | lun << 8 | number) < (o.owner << 16 | o.lun << 8 | o.number);
    }
    bool operator==(const SensorAddress& o) const {
        return owner == o.owner && lun == o.lun && number == o.number;
    }
};

// What Get Sensor Reading returns: the raw reading byte and the state bits.
struct SensorReading {
    bool available = true; // false: "reading unavailable" / scanning disabled
    uint8_t raw = 0;       // threshold sensors: the raw reading
    uint16_t states = 0;   // discrete sensors: bit n set = state offset n asserted
};

struct SelEntry {
    std::array<uint8_t, 16> raw{};
    std::string description; // empty: the service composes one from the raw bytes
};

struct FruInfo {
    unsigned chassisType = 23; // SMBIOS chassis type code (23 = rack mount chassis)
    std::string chassisPartNumber, chassisSerialNumber;
    std::string boardManufacturer, boardProductName, boardSerialNumber, boardPartNumber;
    std::string productManufacturer, productName, productPartNumber, productVersion, productSerialNumber,
        productAssetTag;
};

struct OemInfo {
    unsigned manufacturerId = 0, productId = 0, deviceId = 0x20;
    std::string firmwareRevision, ipmiVersion = "2.0";
};

struct ChassisInfo { // SMBIOS type 3 and type 24, as SMBIOS names
    std::string manufacturer, type = "Rack Mount Chassis", version, serialNumber, assetTag;
    std::string bootupState = "Safe", powerSupplyState = "Safe", thermalState = "Safe",
                securityStatus = "None";
    std::string powerOnPassword = "Disabled", keyboardPassword = "Disabled",
                administratorPassword = "Enabled", frontPanelReset = "Not Implemented";
};

struct ProcessorInfo { // SMBIOS type 4
    bool populated = true;
    std::string socketDesignation, type = "Central processor", family, manufacturer, id, version,
                                   voltage = "1.2V", upgrade, partNumber, serialNumber;
    unsigned clockMHz = 0, maxSpeedMHz = 0, currentSpeedMHz = 0, coreCount = 0, threadCount = 0;
};

struct MemoryDeviceInfo { // SMBIOS type 17
    bool present = true;
    std::string deviceLocator, bankLocator, formFactor = "DIMM", memoryType = "DDR3", manufacturer,
                                            serialNumber, assetTag, partNumber;
    std::vector<std::string> typeDetail; // supported type-detail names ("Synchronous", ...)
    unsigned speedMHz = 0, sizeMB = 0, totalWidth = 72, dataWidth = 64;
};

struct MemoryArrayInfo { // SMBIOS type 16
    std::string location = "System board or motherboard", use = "System memory",
                errorCorrection = "Multi-bit ECC";
    unsigned maxCapacityKB = 0, errorInfoHandle = 0xFFFE;
    std::vector<MemoryDeviceInfo> devices;
};

struct Inventory {
    FruInfo fru;
    OemInfo oem;
    ChassisInfo chassis;
    std::vector<ProcessorInfo> processors;
    std::vector<MemoryArrayInfo> memoryArrays;
};

// A data source. Each call returns a consistent copy; sources lock themselves.
// Failures are thrown as QueryError (kSourceUnavailable when unreachable).
class KELVARN_API Source {
public:
    virtual ~Source();
    virtual std::string describe() const = 0;
    // The SDR repository, records in repository order, each with its 5-byte header.
    virtual std::vector<Bytes> sdrRepository() = 0;
    // The same records as a shared, immutable copy. A source whose SDR is held
    // in memory returns the same object for as long as the SDR is unchanged,
    // which lets callers keep what they derived from it; the default copies.
    virtual std::shared_ptr<const std::vector<Bytes>> sharedSdrRepository();
    // false when the source has no reading for that sensor.
    virtual bool sensorReading(const SensorAddress& address, SensorReading& out) = 0;
    // The SEL, oldest entry first.
    virtual std::vector<SelEntry> selEntries() = 0;
    virtual Inventory inventory() = 0;
    // The inventory as far as a query of `path` needs it; the default: all of it.
    virtual Inventory inventoryFor(const std::string& path);
    // The source's hardware interface is not there at all (no driver): waiting will not
    // bring its answers.
    virtual bool absent() const { return false; }
    // How often a source that reads in the background refreshes every sensor
    // reading, in milliseconds (a sensor's update rate); 0: read at each query.
    virtual uint64_t readingRefreshPeriodMs() const { return 0; }
};

// A whole platform held in memory: what the simulated source serves.
struct PlatformModel {
    std::vector<Bytes> sdr;
    std::map<SensorAddress, SensorReading> readings;
    std::vector<SelEntry> sel;
    Inventory inventory;
};

// The responder that interprets IPMI and SMBIOS facts of a Source into query
// answers (conversion, thresholds, state keywords, SEL, inventory paths).
KELVARN_API std::shared_ptr<class Responder> makePlatformResponder(std::shared_ptr<Source> source);

// A source serving a PlatformModel held in memory. With a journal (see
// kelvarn/Journal.h) it applies the journal's new complete lines before it
// answers; a journal that shrinks or is replaced starts again from the model.
class KELVARN_API SimulatedSource : public Source {
public:
    SimulatedSource(std::string name, PlatformModel model, std::string journalPath = "");
    std::string describe() const override;
    std::vector<Bytes> sdrRepository() override;
    std::shared_ptr<const std::vector<Bytes>> sharedSdrRepository() override;
    bool sensorReading(const SensorAddress& address, SensorReading& out) override;
    std::vector<SelEntry> selEntries() override;
    Inventory inventory() override;
    // Journal lines that could not be applied so far, and the last reason.
    size_t rejectedChanges(std::string* lastReason = nullptr) const;

private:
    std::shared_ptr<const PlatformModel> snapshot();
    void refreshLocked();

    std::string m_name;
    std::string m_journal;
    mutable std::mutex m_lock;
    std::shared_ptr<const PlatformModel> m_base;
    std::shared_ptr<const PlatformModel> m_model;
    uint64_t m_journalOffset = 0;
    uint64_t m_journalInode = 0;
    size_t m_rejected = 0;
    std::string m_lastRejection;
};

} // namespace kelvarn

#endif
