#include "tables/temperatureProbe.h"

// Rows are not discovered yet: init finds no sensor until the BMC's temperature sensors are read
// from the SDR; live status, reading, thresholds, resolution and threshold writes come with it.

temperatureProbe::temperatureProbe() = default;

temperatureProbe::~temperatureProbe() = default;

uint32_t temperatureProbe::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t temperatureProbe::getIntInfo(int attribute, int index, int32_t* value) {
    const TemperatureInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return TEMPERATUREPROBE_ERROR_NOROW;
    }
    if (attribute == temperatureProbeIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t temperatureProbe::getStrInfo(int attribute, int index, char** value) {
    const TemperatureInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return TEMPERATUREPROBE_ERROR_NOROW;
    }
    if (attribute == temperatureProbeDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t temperatureProbe::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return TEMPERATUREPROBE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t temperatureProbe::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return TEMPERATUREPROBE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t temperatureProbe::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
