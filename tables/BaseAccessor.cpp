#include "tables/BaseAccessor.h"

#include <cstdlib>
#include <cstring>

namespace {

// Status names indexed by status value; value 0 has no name.
const char* const kStatusNames[] = {nullptr,       "other",    "unknown",       "ok",
                                    "nonCritical", "critical", "nonRecoverable"};
constexpr int32_t kLastStatus = HM_STATUS_NONRECOVERABLE;

bool present(int32_t value) {
    return value != NO_VALUE;
}

} // namespace

BaseAccessor::~BaseAccessor() = default;

const char* statusFromThresholds(int32_t reading, int32_t lowerNonRecoverable, int32_t lowerCritical,
                                 int32_t lowerNonCritical, int32_t upperCritical, int32_t upperNonRecoverable,
                                 int32_t upperNonCritical) {
    // The first test that holds decides; a reading equal to a threshold is inside it, and a
    // reading beyond a non-recoverable threshold counts as critical.
    if (!present(reading)) {
        return "unknown";
    }
    if (present(upperNonRecoverable) && reading > upperNonRecoverable) {
        return "critical";
    }
    if (present(lowerCritical) && reading < lowerCritical) {
        return "critical";
    }
    if (present(upperCritical) && reading > upperCritical) {
        return "critical";
    }
    if (present(lowerNonRecoverable) && reading < lowerNonRecoverable) {
        return "critical";
    }
    if (present(upperNonCritical) && reading > upperNonCritical) {
        return "nonCritical";
    }
    if (present(lowerNonCritical) && reading < lowerNonCritical) {
        return "nonCritical";
    }
    if (!present(lowerNonRecoverable) && !present(lowerCritical) && !present(lowerNonCritical) &&
        !present(upperCritical) && !present(upperNonRecoverable) && !present(upperNonCritical)) {
        return "unknown";
    }
    return "ok";
}

int32_t statusNameToValue(const char* status) {
    if (status != nullptr) {
        for (int32_t value = HM_STATUS_OTHER; value <= kLastStatus; ++value) {
            if (strcmp(status, kStatusNames[value]) == 0) {
                return value;
            }
        }
    }
    return HM_STATUS_UNKNOWN;
}

const char* statusValueToName(int32_t status) {
    if (status < HM_STATUS_OTHER || status > kLastStatus) {
        return "unknown";
    }
    return kStatusNames[status];
}

const char* BaseAccessor::mapThresholdsToStatus(int32_t reading, int32_t lowerNonRecoverable,
                                                int32_t lowerCritical, int32_t lowerNonCritical,
                                                int32_t upperCritical, int32_t upperNonRecoverable,
                                                int32_t upperNonCritical) {
    return statusFromThresholds(reading, lowerNonRecoverable, lowerCritical, lowerNonCritical, upperCritical,
                                upperNonRecoverable, upperNonCritical);
}

int32_t BaseAccessor::mapStatusStringToEnum(const char* status) {
    return statusNameToValue(status);
}

uint32_t BaseAccessor::mapStatusEnumToString(int32_t status, char* out) {
    const char* name = statusValueToName(status);
    memcpy(out, name, strlen(name) + 1);
    return CLIENT_SUCCESS;
}

uint32_t BaseAccessor::copyOutText(const char* text, char** out) {
    *out = static_cast<char*>(calloc(HM_TEXT_SIZE, 1));
    if (*out == nullptr) {
        return CLIENT_ERROR_NOMEMORY;
    }
    if (text != nullptr) {
        strncpy(*out, text, HM_TEXT_SIZE - 1);
    }
    return CLIENT_SUCCESS;
}
