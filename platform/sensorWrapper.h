// One discovered sensor: what its SDR record says (CSensorInfo) and what was read
// from it (CSensorData), and the growing list of such records a table keeps.
#ifndef HM_PLATFORM_SENSORWRAPPER_H
#define HM_PLATFORM_SENSORWRAPPER_H

#include <cstdint>
#include <new>

#include "platform/hmVocabulary.h"
#include "platform/CString.h"

// The SDR identity of a sensor. Byte numbers are those of the IPMI full sensor
// record, counting from 1.
class CSensorInfo {
public:
    CSensorInfo() = default;
    CSensorInfo(const CSensorInfo&) = default;
    CSensorInfo& operator=(const CSensorInfo&) = default;
    virtual ~CSensorInfo() = default;

    int32_t nThresholdMask = 0;    // byte 20: settable threshold mask
    int32_t nReserved[5] = {};     // counters for the tables' own use; 0 when the record is built
    int32_t nResolution = 0;       // RESOLUTION query
    int32_t nTolerance = 0;        // TOLERANCE query
    int32_t nAccuracy = 0;         // ACCURACY query
    uint32_t SensorKey = 0;        // composite key of owner, sensor number and LUN byte
    int32_t nSensorType = 0;       // byte 13: IPMI sensor type code
    int32_t nBaseUnit = 0;         // byte 22: sensor units 2 (base unit code)
    uint8_t nEntityInstance = 0;   // byte 10
    int32_t nLinearization = 0;    // byte 24: 0 is linear
    CString stName;                // NAME query, wide characters
    bool bNamePresent = false;     // the NAME query answered (with an empty name too)
    int32_t nEntityID = 0;         // byte 9
    int32_t nLUN = 0;              // byte 7: the whole owner-LUN byte, channel bits included
    int32_t nSensorNumber = 0;     // byte 8
    int32_t nEventReadingType = 0; // byte 14
    int32_t nOwnerID = 0;          // byte 6
    int32_t nSpare = 0;
};

// What was read from a sensor, in the owning table's units; NO_VALUE when absent.
class CSensorData {
public:
    CSensorData() = default;
    CSensorData(const CSensorData&) = default;
    CSensorData& operator=(const CSensorData&) = default;
    virtual ~CSensorData() = default;

    int32_t nReading = 0;
    int32_t nUpperNonRecoverable = 0;
    int32_t nUpperCritical = 0;
    int32_t nUpperNonCritical = 0;
    int32_t nLowerNonRecoverable = 0;
    int32_t nLowerCritical = 0;
    int32_t nLowerNonCritical = 0;
    CString stReadingText; // the reading's state text after mapping, wide characters
};

// One sensor record, copied by value into a CDatabase.
class CSensorWrapper {
public:
    CSensorWrapper() = default;
    CSensorWrapper(const CSensorWrapper&) = default;
    CSensorWrapper& operator=(const CSensorWrapper&) = default;
    virtual ~CSensorWrapper() = default;

    CSensorInfo m_SensorInfo;
    CSensorData m_SensorData;
};

// An array of records and its count. Every Add allocates room for exactly one
// more record and copies the old ones over: the array never holds spare room.
template <class T> class CDatabase {
public:
    CDatabase() = default;
    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;
    ~CDatabase() { delete[] m_pArray; }

    // Appends a copy of `item`; false (and the list unchanged) when memory runs out.
    bool Add(const T& item) {
        T* grown = new (std::nothrow) T[static_cast<size_t>(m_nCount) + 1];
        if (grown == nullptr) {
            return false;
        }
        try {
            for (int i = 0; i < m_nCount; ++i) {
                grown[i] = m_pArray[i];
            }
            grown[m_nCount] = item;
        } catch (...) {
            delete[] grown;
            return false;
        }
        delete[] m_pArray;
        m_pArray = grown;
        ++m_nCount;
        return true;
    }

    // Removes record `index`; the records behind it move up by one. Out of range: nothing.
    void RemoveAt(int index) {
        if (index < 0 || index >= m_nCount) {
            return;
        }
        for (int i = index; i + 1 < m_nCount; ++i) {
            m_pArray[i] = m_pArray[i + 1];
        }
        --m_nCount;
        m_pArray[m_nCount] = T();
        if (m_nCount == 0) {
            RemoveAll();
        }
    }

    void RemoveAll() {
        delete[] m_pArray;
        m_pArray = nullptr;
        m_nCount = 0;
    }

    int GetCount() const { return m_nCount; }
    // Record `index`, null when there is no such record.
    T* GetAt(int index) { return index >= 0 && index < m_nCount ? &m_pArray[index] : nullptr; }
    const T* GetAt(int index) const { return index >= 0 && index < m_nCount ? &m_pArray[index] : nullptr; }

private:
    T* m_pArray = nullptr;
    int m_nCount = 0;
};

#endif
