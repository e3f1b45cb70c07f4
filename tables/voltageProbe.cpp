#include "tables/voltageProbe.h"

// Rows are not discovered yet: init finds no sensor until the BMC's voltage sensors are read from
// the SDR; live status, reading, thresholds, resolution and threshold writes come with it.

voltageProbe::voltageProbe() = default;

voltageProbe::~voltageProbe() = default;

uint32_t voltageProbe::init() {
    m_nCount = 0;
    return CLIENT_SUCCESS;
}

uint32_t voltageProbe::getIntInfo(int attribute, int index, int32_t* value) {
    const VoltageInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    if (attribute == voltageProbeIdAttr) {
        *value = static_cast<int32_t>(row->id);
        return CLIENT_SUCCESS;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t voltageProbe::getStrInfo(int attribute, int index, char** value) {
    const VoltageInfo* row = beginGet(index, value);
    if (row == nullptr) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    if (attribute == voltageProbeDescriptionAttr) {
        return copyOutText(row->description, value);
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t voltageProbe::getIntData(int, int index, int32_t* value) {
    if (beginGet(index, value) == nullptr) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t voltageProbe::getStrData(int, int index, char** value) {
    if (beginGet(index, value) == nullptr) {
        return VOLTAGEPROBE_ERROR_NOROW;
    }
    return CLIENT_ERROR_NOSUCHNAME;
}

uint32_t voltageProbe::setIntData(int, int, int32_t) {
    return CLIENT_ERROR_NOTSUPPORTED;
}
