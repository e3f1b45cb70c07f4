#include "tables/chassisInfo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/debugLog.h"
#include "platform/queryService.h"

// The chassis is a scalar group with one row. The front end passes index 0 for its
// integers and 1 for its texts; both name that row, as in the system group.
constexpr int kScalarRow = 0;

namespace {

const char* const kFruPath = "/BMC/FRU";
const char* const kOemPath = "/BMC/OEM";
const char* const kType3Path = "/SMBIOS/Type3";
const char* const kType24Path = "/SMBIOS/Type24";
const char* const kChassisTypeKey = "/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/TYPE";
const char* const kChassisPartKey = "/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/PART_NUMBER";
const char* const kChassisSerialKey = "/BMC/FRU[0]/RECORD/DECODED/CHASSISAREA/SERIAL_NUMBER";
const char* const kAssetTagKey = "/BMC/FRU[0]/RECORD/DECODED/PRODUCTAREA/ASSET_TAG";
const char* const kProductIdKey = "/BMC/OEM/PRODUCTID";
const char* const kBootupKey = "/SMBIOS/Type3/BootupState";
const char* const kPowerSupplyKey = "/SMBIOS/Type3/PowerSupplyState";
const char* const kThermalKey = "/SMBIOS/Type3/ThermalState";
const char* const kSecurityKey = "/SMBIOS/Type3/SecurityStatus";
const char* const kManufacturerKey = "/SMBIOS/Type3/Manufacturer";
const char* const kChassisKindKey = "/SMBIOS/Type3/Type";
const char* const kSettingsKey = "/SMBIOS/Type24/HardwareSecuritySettings";
const char* const kPowerOnPasswordKey = "/SMBIOS/Type24/HardwareSecuritySettings/PowerOnPassword";
const char* const kKeyboardPasswordKey = "/SMBIOS/Type24/HardwareSecuritySettings/KeyboardPassword";
const char* const kAdministratorPasswordKey = "/SMBIOS/Type24/HardwareSecuritySettings/AdministratorPassword";

// SMBIOS chassis type "Unknown".
constexpr int32_t kChassisTypeUnknown = 2;

struct NameValue {
    const char* name;
    int32_t value;
};

const NameValue kStateNames[] = {
    {"Other", 1}, {"Unknown", 2}, {"Safe", 3}, {"Warning", 4}, {"Critical", 5}, {"Non-recoverable", 6},
};

const NameValue kSecurityStatusNames[] = {
    {"Other", 1},
    {"Unknown", 2},
    {"None", 3},
    {"External interface locked out", 4},
    {"External interface enabled", 5},
};

const NameValue kSettingNames[] = {
    {"Disabled", chassisSettingDisabled},
    {"Enabled", chassisSettingEnabled},
    {"Not Implemented", chassisSettingNotImplemented},
    {"Unknown", chassisSettingUnknown},
};

template <size_t N> int32_t lookup(const NameValue (&table)[N], const char* name, int32_t fallback) {
    if (name == nullptr) {
        return fallback;
    }
    for (const NameValue& row : table) {
        if (strcmp(row.name, name) == 0) {
            return row.value;
        }
    }
    return fallback;
}

const char* factOf(const std::map<std::string, std::string>& facts, const char* key) {
    std::map<std::string, std::string>::const_iterator it = facts.find(key);
    return it == facts.end() ? nullptr : it->second.c_str();
}

template <size_t N>
void copyFact(char (&field)[N], const std::map<std::string, std::string>& facts, const char* key) {
    const char* value = factOf(facts, key);
    snprintf(field, N, "%s", value != nullptr ? value : "");
}

// The worst of the three chassis states; "unknown" when none is known.
int32_t worstState(const std::map<std::string, std::string>& facts) {
    int32_t worst = 0;
    const char* const keys[] = {kBootupKey, kPowerSupplyKey, kThermalKey};
    for (const char* key : keys) {
        const char* name = factOf(facts, key);
        if (name == nullptr) {
            continue;
        }
        int32_t state = chassisInfo::stateCode(name);
        if (state > worst) {
            worst = state;
        }
    }
    return worst == 0 ? HM_STATUS_UNKNOWN : worst;
}

} // namespace

int32_t chassisInfo::stateCode(const char* name) {
    return lookup(kStateNames, name, HM_STATUS_UNKNOWN);
}

int32_t chassisInfo::securityStatusCode(const char* name) {
    return lookup(kSecurityStatusNames, name, 2);
}

int32_t chassisInfo::settingCode(const char* name) {
    return lookup(kSettingNames, name, chassisSettingUnknown);
}

bool chassisInfo::readFacts(const char* path, Facts& facts) {
    std::map<std::string, std::map<std::string, std::string>> request;
    request[path];
    try {
        QueryResult result;
        queryService().SetFlags(1);
        queryService().Get(request, result);
        for (QueryResult::const_iterator it = result.begin(); it != result.end(); ++it) {
            if (it->second.NodeType == 0 && !it->second.Values.empty()) {
                facts[it->first] = it->second.Values[0];
            }
        }
        return true;
    } catch (const ResultStatus& failure) {
        debugLog("\n chassisInfo: query failed\n");
        logQueryFailure(failure, path, QUERY_FAILURE_VALUE);
    } catch (...) {
        debugLog("\n chassisInfo: query failed\n");
    }
    return false;
}

chassisInfo::chassisInfo() = default;

chassisInfo::~chassisInfo() = default;

uint32_t chassisInfo::init() {
    debugLog("\n chassisInfo::init() called\n");
    Facts facts;
    bool answered = false;
    const char* const sources[] = {kFruPath, kOemPath, kType3Path, kType24Path};
    for (const char* source : sources) {
        answered = readFacts(source, facts) || answered;
    }
    // The element exists when the platform told anything about the chassis.
    m_nCount = answered && !facts.empty() ? 1 : 0;
    uint32_t status = allocTable(m_nCount);
    if (status != CLIENT_SUCCESS || m_nCount == 0) {
        debugLog("\n chassisInfo: no chassis facts\n");
        return status;
    }
    ChassisInfo& row = m_pRows[0];
    row = ChassisInfo();
    row.id = 1;
    const char* kind = factOf(facts, kChassisKindKey);
    copyRowText(row.description, kind != nullptr && *kind ? kind : "Chassis");
    const char* type = factOf(facts, kChassisTypeKey);
    row.chassisType = type != nullptr ? atoi(type) : kChassisTypeUnknown;
    const char* product = factOf(facts, kProductIdKey);
    row.bmcProductId = product != nullptr ? atoi(product) : 0;
    row.powerOnPassword = settingCode(factOf(facts, kPowerOnPasswordKey));
    row.keyboardPassword = settingCode(factOf(facts, kKeyboardPasswordKey));
    row.administratorPassword = settingCode(factOf(facts, kAdministratorPasswordKey));
    copyFact(row.partNumber, facts, kChassisPartKey);
    copyFact(row.serialNumber, facts, kChassisSerialKey);
    copyFact(row.assetTag, facts, kAssetTagKey);
    copyFact(row.manufacturer, facts, kManufacturerKey);
    row.status = worstState(facts);
    debugLog("\n chassisInfo: \"%s\" type %d status %d\n", row.description, static_cast<int>(row.chassisType),
             static_cast<int>(row.status));
    return CLIENT_SUCCESS;
}

uint32_t chassisInfo::getIntInfo(int attribute, int, int32_t* value) {
    const ChassisInfo* row = beginGet(kScalarRow, value);
    if (row == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    switch (attribute) {
    case chassisTypeAttr:
        *value = row->chassisType;
        break;
    case chassisPowerOnPasswordAttr:
        *value = row->powerOnPassword;
        break;
    case chassisKeyboardPasswordAttr:
        *value = row->keyboardPassword;
        break;
    case chassisAdministratorPasswordAttr:
        *value = row->administratorPassword;
        break;
    case chassisBmcProductIdAttr:
        *value = row->bmcProductId;
        break;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
    return CLIENT_SUCCESS;
}

uint32_t chassisInfo::getStrInfo(int attribute, int, char** value) {
    const ChassisInfo* row = beginGet(kScalarRow, value);
    if (row == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    switch (attribute) {
    case chassisPartNumberAttr:
        return copyOutText(row->partNumber, value);
    case chassisSerialNumberAttr:
        return copyOutText(row->serialNumber, value);
    case chassisAssetTagAttr:
        return copyOutText(row->assetTag, value);
    case chassisManufacturerAttr:
        return copyOutText(row->manufacturer, value);
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}

// The chassis states and security settings are asked anew at every request.
uint32_t chassisInfo::getIntData(int attribute, int, int32_t* value) {
    if (beginGet(kScalarRow, value) == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    if (attribute < chassisBootupStateAttr || attribute > chassisStatusAttr) {
        return CLIENT_ERROR_NOSUCHNAME;
    }
    Facts facts;
    if (attribute == chassisHardwareSecurityAttr) {
        readFacts(kType24Path, facts);
        const char* settings = factOf(facts, kSettingsKey);
        *value = settings != nullptr ? atoi(settings) : kChassisSecurityUnknown;
        return CLIENT_SUCCESS;
    }
    readFacts(kType3Path, facts);
    switch (attribute) {
    case chassisBootupStateAttr:
        *value = stateCode(factOf(facts, kBootupKey));
        break;
    case chassisPowerSupplyStateAttr:
        *value = stateCode(factOf(facts, kPowerSupplyKey));
        break;
    case chassisThermalStateAttr:
        *value = stateCode(factOf(facts, kThermalKey));
        break;
    case chassisSecurityStatusAttr:
        *value = securityStatusCode(factOf(facts, kSecurityKey));
        break;
    default: // chassisStatusAttr
        *value = worstState(facts);
        break;
    }
    return CLIENT_SUCCESS;
}

uint32_t chassisInfo::getStrData(int, int, char** value) {
    if (beginGet(kScalarRow, value) == nullptr) {
        return CHASSIS_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t chassisInfo::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
