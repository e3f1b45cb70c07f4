// The chassis group (entity 2): one element holding the chassis facts of the BMC's FRU
// and controller data and of the SMBIOS chassis (type 3) and hardware security (type 24)
// structures.
#ifndef HM_TABLES_CHASSISINFO_H
#define HM_TABLES_CHASSISINFO_H

#include <map>
#include <string>

#include "tables/BaseContainer.h"

// Attribute codes of the group's scalars.
enum ChassisInfoAttribute : int {
    chassisBootupStateAttr = 11,      // live
    chassisPowerSupplyStateAttr = 12, // live
    chassisThermalStateAttr = 13,     // live
    chassisSecurityStatusAttr = 14,   // live
    chassisHardwareSecurityAttr = 15, // live
    chassisStatusAttr = 16,           // live
    chassisTypeAttr = 17,
    chassisPowerOnPasswordAttr = 18,
    chassisKeyboardPasswordAttr = 19,
    chassisAdministratorPasswordAttr = 20,
    chassisBmcProductIdAttr = 21,
    chassisPartNumberAttr = 22,
    chassisSerialNumberAttr = 23,
    chassisAssetTagAttr = 24,
    chassisManufacturerAttr = 25,
};

// Values of a hardware security setting.
enum ChassisSecuritySetting : int32_t {
    chassisSettingDisabled = 1,
    chassisSettingEnabled = 2,
    chassisSettingNotImplemented = 3,
    chassisSettingUnknown = 4,
};

// The hardware security settings byte when the platform gives none: every setting unknown.
constexpr int32_t kChassisSecurityUnknown = 255;

class chassisInfo : public BaseContainer<ChassisInfo> {
public:
    chassisInfo();
    ~chassisInfo() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;

    // The chassis state names (bootup, power supply, thermal) as status values, 2 when unknown.
    static int32_t stateCode(const char* name);
    // The chassis security status name as its SMBIOS code, 2 when unknown.
    static int32_t securityStatusCode(const char* name);
    // A hardware security setting name as a ChassisSecuritySetting value.
    static int32_t settingCode(const char* name);

private:
    typedef std::map<std::string, std::string> Facts;
    // Asks the service for everything below `path` (batched form) and adds each answer's
    // first value to `facts`; false when the query failed.
    static bool readFacts(const char* path, Facts& facts);
};

#endif
