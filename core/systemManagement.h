// The system group (entity 1): product and platform facts from the configuration file,
// the agent's switches and the overall health status.
#ifndef HM_CORE_SYSTEMMANAGEMENT_H
#define HM_CORE_SYSTEMMANAGEMENT_H

#include <cstdint>

#include "tables/BaseAccessor.h"

// Attribute codes of the system group.
enum SystemManagementAttribute : int {
    systemStatusAttr = 1,
    platformDescriptionAttr = 2,
    platformIdAttr = 3,
    trapsEnabledAttr = 4,
    setsEnabledAttr = 5,
    manufacturerAttr = 6,
    productNameAttr = 7,
    productVersionAttr = 8,
    productBuildNumberAttr = 9,
    productDescriptionAttr = 10,
};

// Published texts are cut to this many characters.
constexpr int HM_PUBLISHED_TEXT_LENGTH = 63;
// Size of the configuration file's line buffer: longer lines are read in pieces.
constexpr int HM_CONFIG_LINE_SIZE = 1024;

class systemManagement : public BaseAccessor {
public:
    systemManagement();
    ~systemManagement() override;

    // Reads the configuration file; opens the debug trace on a non-zero "debugenabled".
    // Returns 0, or CLIENT_ERROR_NOCONFIGFILE when the file cannot be opened.
    uint32_t init(const char* configPath, const char* logPath);

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    int getCount() override;
    int findIndexById(uint32_t id) override;
    int getMaxStatus() override;
    const char* getDescription(int index) override;
    uint32_t seedHealth(eventHandler* handler) override;
    void* getRow(int index) override;
    uint32_t allocTable(int count) override;
    // Without paths there is no configuration to read: CLIENT_ERROR_NOCONFIGFILE.
    uint32_t init() override;

    void setStatus(int32_t status) { m_nStatus = status; }
    int32_t getStatus() const { return m_nStatus; }
    bool isDebugEnabled() const { return m_nDebugEnabled != 0; }
    bool isTrapsEnabled() const { return m_nTrapsEnabled != 0; }
    bool isSetsEnabled() const { return m_nSetsEnabled != 0; }

private:
    // Applies one line of the configuration file.
    void applyLine(const char* line, const char* logPath);

    int32_t m_nSize = 1;
    int32_t m_nStatus = HM_STATUS_UNKNOWN;
    char m_stPlatformDescription[128] = {};
    int32_t m_nPlatformId = 0;
    int32_t m_nTrapsEnabled = 0;
    int32_t m_nSetsEnabled = 0;
    int32_t m_nDebugEnabled = 0;
    char m_stManufacturer[128] = {};
    char m_stProductName[128] = {};
    char m_stProductVersion[128] = {};
    char m_stProductBuildNumber[128] = {};
    char m_stProductDescription[128] = {};
};

#endif
