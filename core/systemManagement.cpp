#include "core/systemManagement.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/debugLog.h"

namespace {

// Copies at most size-1 characters and always terminates.
template <size_t N> void copyField(char (&field)[N], const char* value) {
    const size_t length = strnlen(value, N - 1);
    memcpy(field, value, length);
    field[length] = '\0';
}

} // namespace

systemManagement::systemManagement() {
    debugLog("systemManagement::systemManagement()\n");
}

systemManagement::~systemManagement() = default;

uint32_t systemManagement::init() {
    return CLIENT_ERROR_NOCONFIGFILE;
}

uint32_t systemManagement::init(const char* configPath, const char* logPath) {
    debugLog("systemManagement::init() called.\n");
    debugLog("ConfigFile:%s:  LogFile:%s:\n", configPath != nullptr ? configPath : "",
             logPath != nullptr ? logPath : "");
    if (configPath == nullptr) {
        return CLIENT_ERROR_NOCONFIGFILE;
    }
    FILE* file = fopen(configPath, "r");
    if (file == nullptr) {
        return CLIENT_ERROR_NOCONFIGFILE;
    }
    char line[HM_CONFIG_LINE_SIZE];
    while (fgets(line, sizeof line, file) != nullptr) {
        applyLine(line, logPath);
    }
    m_nStatus = HM_STATUS_UNKNOWN;
    fclose(file);
    return CLIENT_SUCCESS;
}

void systemManagement::applyLine(const char* line, const char* logPath) {
    // Only the space character counts as a leading blank; a tab starts the key.
    const char* text = line;
    while (*text == ' ') {
        ++text;
    }
    if (*text == '#' || strlen(text) < 2) {
        return;
    }
    const char* equals = strchr(text, '=');
    if (equals == nullptr) {
        return;
    }

    // Key: everything before "=", every space removed, in lower case.
    char key[HM_CONFIG_LINE_SIZE];
    size_t keyLength = 0;
    for (const char* p = text; p < equals; ++p) {
        if (*p != ' ') {
            key[keyLength++] = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
        }
    }
    key[keyLength] = '\0';

    // Value: after "=" and its leading spaces, up to the line end; double quotes dropped,
    // a carriage return kept.
    char value[HM_CONFIG_LINE_SIZE];
    size_t valueLength = 0;
    const char* p = equals + 1;
    while (*p == ' ') {
        ++p;
    }
    for (; *p != '\0' && *p != '\n'; ++p) {
        if (*p != '"') {
            value[valueLength++] = *p;
        }
    }
    value[valueLength] = '\0';

    debugLog("ptKey=:%s:, stValue=:%s:\n", key, value);

    if (strcmp(key, "platformdescription") == 0) {
        copyField(m_stPlatformDescription, value);
    } else if (strncmp(key, "platformid", 10) == 0) {
        m_nPlatformId = atoi(value);
    } else if (strcmp(key, "trapsenabled") == 0) {
        m_nTrapsEnabled = atoi(value);
    } else if (strcmp(key, "setsenabled") == 0) {
        // Sets stay disabled whatever the file says.
        m_nSetsEnabled = 0;
    } else if (strcmp(key, "debugenabled") == 0) {
        m_nDebugEnabled = atoi(value);
        if (m_nDebugEnabled != 0) {
            openDebugLog(logPath, 10);
        }
    } else if (strcmp(key, "manufacturer") == 0) {
        copyField(m_stManufacturer, value);
    } else if (strcmp(key, "productname") == 0) {
        copyField(m_stProductName, value);
    } else if (strcmp(key, "productversion") == 0) {
        copyField(m_stProductVersion, value);
    } else if (strcmp(key, "productbuildnumber") == 0) {
        copyField(m_stProductBuildNumber, value);
    } else if (strcmp(key, "productdescription") == 0) {
        copyField(m_stProductDescription, value);
    }

    debugLog("END of clSystemManagement::init. m_nTrapsEnabled is: %d \n", m_nTrapsEnabled);
}

uint32_t systemManagement::getIntInfo(int attribute, int /*index*/, int32_t* value) {
    *value = -1;
    switch (attribute) {
    case systemStatusAttr:
        *value = m_nStatus;
        return CLIENT_SUCCESS;
    case platformIdAttr:
        *value = m_nPlatformId;
        return CLIENT_SUCCESS;
    case trapsEnabledAttr:
        *value = m_nTrapsEnabled;
        return CLIENT_SUCCESS;
    case setsEnabledAttr:
        *value = m_nSetsEnabled;
        return CLIENT_SUCCESS;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
}

uint32_t systemManagement::getStrInfo(int attribute, int /*index*/, char** value) {
    *value = nullptr;
    const char* field = nullptr;
    switch (attribute) {
    case platformDescriptionAttr:
        field = m_stPlatformDescription;
        break;
    case manufacturerAttr:
        field = m_stManufacturer;
        break;
    case productNameAttr:
        field = m_stProductName;
        break;
    case productVersionAttr:
        field = m_stProductVersion;
        break;
    case productBuildNumberAttr:
        field = m_stProductBuildNumber;
        break;
    case productDescriptionAttr:
        field = m_stProductDescription;
        break;
    default:
        return CLIENT_ERROR_NOSUCHNAME;
    }
    uint32_t status = copyOutText(field, value);
    if (status == CLIENT_SUCCESS) {
        (*value)[HM_PUBLISHED_TEXT_LENGTH] = '\0';
    }
    return status;
}

uint32_t systemManagement::getIntData(int, int, int32_t*) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t systemManagement::getStrData(int, int, char**) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

uint32_t systemManagement::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}

int systemManagement::getCount() {
    return m_nSize;
}

// The system group is a scalar group, not a table of elements: it has no ids, rows or
// descriptions, and its status is the overall health.
int systemManagement::findIndexById(uint32_t) {
    return 0;
}

int systemManagement::getMaxStatus() {
    return m_nStatus;
}

const char* systemManagement::getDescription(int) {
    return nullptr;
}

uint32_t systemManagement::seedHealth(eventHandler*) {
    return CLIENT_SUCCESS;
}

void* systemManagement::getRow(int) {
    return nullptr;
}

uint32_t systemManagement::allocTable(int) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
