// What the threshold-sensor tables (temperature, voltage, cooling device) share: the
// working reading and thresholds behind the container's fields, the static attributes,
// the live attributes read from the working fields, the status of the working values,
// and threshold writes, which are accepted into a working copy and never reach the
// platform.
#ifndef HM_TABLES_THRESHOLDSENSORTABLE_H
#define HM_TABLES_THRESHOLDSENSORTABLE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/debugLog.h"
#include "platform/sensorReading.h"
#include "platform/sensorTableSupport.h"
#include "platform/sensorWrapper.h"
#include "tables/BaseContainer.h"

// The six thresholds, in the order of the working fields.
enum ThresholdSlot : int {
    kUpperNonRecSlot,
    kUpperCriticalSlot,
    kUpperNonCriSlot,
    kLowerNonCriSlot,
    kLowerCriticalSlot,
    kLowerNonRecSlot,
    kThresholdSlotCount,
};

// One threshold table: its attribute codes, its no-row code and its sensor database.
struct ThresholdTableTraits {
    int id;
    int description;
    int statusString;
    int status;
    int reading;
    int thresholds[kThresholdSlotCount]; // by ThresholdSlot
    int resolution;
    int tolerance;
    int accuracy;
    uint32_t noRow;
    int32_t resolutionFactor; // resolution is published x scale x this factor
    CDatabase<CSensorWrapper>& (*database)();
};

template <class XInfo, const ThresholdTableTraits& Traits>
class thresholdSensorTable : public BaseContainer<XInfo> {
public:
    uint32_t getIntInfo(int attribute, int index, int32_t* value) override {
        const XInfo* row = this->beginGet(index, value);
        if (row == nullptr) {
            return Traits.noRow;
        }
        if (attribute == Traits.id) {
            *value = static_cast<int32_t>(row->id);
        } else if (attribute == Traits.resolution) {
            *value =
                scaledOrAbsent(row->resolution, static_cast<int64_t>(m_nScale) * Traits.resolutionFactor);
        } else if (attribute == Traits.tolerance) {
            *value = scaledOrAbsent(row->tolerance, m_nScale);
        } else if (attribute == Traits.accuracy) {
            *value = row->accuracy;
        } else {
            return CLIENT_ERROR_NOSUCHNAME;
        }
        return CLIENT_SUCCESS;
    }

    uint32_t getStrInfo(int attribute, int index, char** value) override {
        const XInfo* row = this->beginGet(index, value);
        if (row == nullptr) {
            return Traits.noRow;
        }
        if (attribute == Traits.description) {
            return this->copyOutText(row->description, value);
        }
        return CLIENT_ERROR_NOSUCHNAME;
    }

protected:
    thresholdSensorTable(int32_t scale, uint32_t sensorType) : m_nScale(scale), m_nSensorType(sensorType) {}

    // The slot of a threshold attribute, or -1.
    static int thresholdSlotOf(int attribute) {
        for (int slot = 0; slot < kThresholdSlotCount; ++slot) {
            if (Traits.thresholds[slot] == attribute) {
                return slot;
            }
        }
        return -1;
    }

    // The record's threshold for a slot; `swapped` trades upper and lower pairwise.
    static int32_t CSensorData::*recordThreshold(int slot, bool swapped) {
        static constexpr int32_t CSensorData::*kRecord[kThresholdSlotCount] = {
            &CSensorData::nUpperNonRecoverable, &CSensorData::nUpperCritical,
            &CSensorData::nUpperNonCritical,    &CSensorData::nLowerNonCritical,
            &CSensorData::nLowerCritical,       &CSensorData::nLowerNonRecoverable,
        };
        return kRecord[swapped ? kThresholdSlotCount - 1 - slot : slot];
    }

    int32_t& workingThreshold(int slot) {
        int32_t* const working[kThresholdSlotCount] = {&m_nUpperNonRec, &m_nUpperCritical, &m_nUpperNonCri,
                                                       &m_nLowerNonCri, &m_nLowerCritical, &m_nLowerNonRec};
        return *working[slot];
    }

    // The common first fields of a row.
    static void fillStaticFields(XInfo& row, const CSensorInfo& info) {
        row.id = static_cast<uint32_t>(info.nSensorNumber);
        row.resolution = info.nResolution;
        row.tolerance = info.nTolerance;
        row.accuracy = info.nAccuracy;
    }

    // The working reading and thresholds as the record holds them, unconverted.
    void loadRecordValues(const CSensorData& data, bool swapped) {
        m_nCurrentReading = data.nReading;
        for (int slot = 0; slot < kThresholdSlotCount; ++slot) {
            workingThreshold(slot) = data.*recordThreshold(slot, swapped);
        }
    }

    // The working record of row `index`: its database entry (an empty record beyond the
    // database) with the row's id and the table's reserved value, read live with
    // `multiplier`. False when there is no row.
    bool readRowLive(int index, int32_t multiplier, CSensorWrapper* record) {
        const XInfo* row = this->typedRow(index);
        if (row == nullptr) {
            return false;
        }
        *record = workingRecord(Traits.database(), index, row->id, m_nReserved);
        GetSensorData2(record, multiplier);
        return true;
    }

    // The status name of the working values against all six thresholds. Lower critical
    // and lower non-recoverable go in each other's places; both count as critical, so the
    // order does not change the result.
    const char* workingStatus() {
        return this->mapThresholdsToStatus(m_nCurrentReading, m_nLowerCritical, m_nLowerNonRec,
                                           m_nLowerNonCri, m_nUpperCritical, m_nUpperNonRec, m_nUpperNonCri);
    }

    // The status value of a status name, through a zero-filled scratch copy of the name;
    // -1 when the scratch buffer cannot be allocated.
    int32_t statusValueOf(const char* name) {
        char* scratch = static_cast<char*>(calloc(HM_TEXT_SIZE, 1));
        if (scratch == nullptr) {
            return -1;
        }
        strncpy(scratch, name, HM_TEXT_SIZE - 1);
        const int32_t status = this->mapStatusStringToEnum(scratch);
        free(scratch);
        return status;
    }

    // A live integer attribute from the working fields: the status of all six thresholds,
    // the reading or a threshold.
    uint32_t workingValue(int attribute, int32_t* value) {
        if (attribute == Traits.status) {
            const int32_t status = statusValueOf(workingStatus());
            if (status < 0) {
                return CLIENT_ERROR_NOMEMORY;
            }
            *value = status;
        } else if (attribute == Traits.reading) {
            *value = m_nCurrentReading;
        } else if (const int slot = thresholdSlotOf(attribute); slot >= 0) {
            *value = workingThreshold(slot);
        } else {
            return CLIENT_ERROR_NOSUCHNAME;
        }
        return CLIENT_SUCCESS;
    }

    // Stores a threshold write, divided by the scale, into `data`'s slot for the attribute
    // (swapped as the table loads it); 9 for any other attribute.
    uint32_t storeThresholdWrite(int attribute, int32_t value, CSensorData& data, bool swapped) {
        const int slot = thresholdSlotOf(attribute);
        if (slot < 0) {
            return CLIENT_ERROR_NOSUCHNAME;
        }
        data.*recordThreshold(slot, swapped) = value / m_nScale;
        return CLIENT_SUCCESS;
    }

    // A threshold write as the voltage and cooling tables take it: into a fresh record that
    // is released again, so the platform keeps its thresholds.
    uint32_t acceptThresholdWrite(int attribute, int index, int32_t value, bool swapped) {
        CSensorWrapper* fresh = new (std::nothrow) CSensorWrapper();
        if (fresh == nullptr) {
            return CLIENT_ERROR_NOMEMORY;
        }
        uint32_t result = Traits.noRow;
        if (this->typedRow(index) != nullptr) {
            result = storeThresholdWrite(attribute, value, fresh->m_SensorData, swapped);
        }
        delete fresh;
        return result;
    }

    // The filling pass of the linear-only tables: non-linear entries are removed from the
    // database (the entries behind move up and the pass goes on at the same index), every
    // linear one fills the next row through `fill(row, entry, rowIndex)`, which returns a
    // result code; the first failure stops the pass.
    template <class Fill> uint32_t fillLinearRows(CDatabase<CSensorWrapper>& sensors, Fill fill) {
        int entry = 0;
        int rowIndex = 0;
        while (entry < sensors.GetCount()) {
            if (sensors.GetAt(entry)->m_SensorInfo.nLinearization != 0) {
                sensors.RemoveAt(entry);
                debugLog("\n Removing the object %d", entry);
                continue;
            }
            if (rowIndex >= this->m_nCount) {
                break;
            }
            const uint32_t result = fill(this->m_pRows[rowIndex], entry, rowIndex);
            if (result != CLIENT_SUCCESS) {
                return result;
            }
            ++rowIndex;
            ++entry;
        }
        return CLIENT_SUCCESS;
    }

    int32_t m_nScale;
    uint32_t m_nReserved = 0;
    int32_t m_nUpperNonRec = NO_VALUE;
    int32_t m_nUpperCritical = NO_VALUE;
    int32_t m_nUpperNonCri = NO_VALUE;
    int32_t m_nLowerNonCri = NO_VALUE;
    int32_t m_nLowerCritical = NO_VALUE;
    int32_t m_nLowerNonRec = NO_VALUE;
    int32_t m_nCurrentReading = NO_VALUE;
    uint32_t m_nSensorType;
};

#endif
