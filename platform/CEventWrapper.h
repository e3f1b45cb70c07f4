// The facts of one decoded hardware event, filled by a sensor event decoder and
// read by the event interface when it turns the event into a trap record.
#ifndef HM_PLATFORM_CEVENTWRAPPER_H
#define HM_PLATFORM_CEVENTWRAPPER_H

#include <cstdint>
#include <string>

#include "platform/CString.h"

class CEventWrapper {
public:
    CEventWrapper() = default;
    CEventWrapper(const CEventWrapper&) = default;
    CEventWrapper& operator=(const CEventWrapper&) = default;
    virtual ~CEventWrapper() = default;

    // True for an assertion, false for a deassertion.
    bool IsAsserted() const { return m_bAsserted; }
    void SetAsserted(bool asserted) { m_bAsserted = asserted; }

    // Device (sensor) id: the key of the health lists and of the table look-ups.
    int32_t getDeviceId() const { return m_nDeviceId; }
    void setDeviceId(int32_t id) { m_nDeviceId = id; }

    // What happened, as wide text.
    const CString& getDescription() const { return m_stDescription; }
    void setDescription(const CString& description) { m_stDescription = description; }
    void setDescription(const char* description) { m_stDescription.assign(description); }

    // Status word: "OK", "Degraded", "Error", "Fatal", "Monitor" or "Information".
    const std::string& getStatus() const { return m_stStatus; }
    void setStatus(const std::string& status) { m_stStatus = status; }

    const std::string& getTimeStamp() const { return m_stTimeStamp; }
    void setTimeStamp(const std::string& timeStamp) { m_stTimeStamp = timeStamp; }

    const std::string& getSensorType() const { return m_stSensorType; }
    void setSensorType(const std::string& sensorType) { m_stSensorType = sensorType; }

    // The sensor's name from the SDR, and the kind word ("Fan", "Temperature", ...): set by
    // the decoders and carried in the record the event interface receives.
    void setSensorName(const CString& name) { m_stSensorName = name; }
    void setKind(const std::string& kind) { m_stKind = kind; }

private:
    bool m_bAsserted = false;
    int32_t m_nDeviceId = 0;
    CString m_stDescription;
    std::string m_stStatus;
    std::string m_stTimeStamp;
    std::string m_stSensorType;
    CString m_stSensorName;
    std::string m_stKind;
};

#endif
