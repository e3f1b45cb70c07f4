// The interface every data group offers the client facade, the status vocabulary and
// the result codes of the tables.
#ifndef HM_TABLES_BASEACCESSOR_H
#define HM_TABLES_BASEACCESSOR_H

#include <cstdint>

#include "platform/hmVocabulary.h"

class eventHandler;

// Status vocabulary shared by the tables, the facade's health and the events.
enum HMStatus : int32_t {
    HM_STATUS_OTHER = 1,
    HM_STATUS_UNKNOWN = 2,
    HM_STATUS_OK = 3,
    HM_STATUS_NONCRITICAL = 4,
    HM_STATUS_CRITICAL = 5,
    HM_STATUS_NONRECOVERABLE = 6,
};

// Size of every text handed out by a getter, and of the row description fields.
constexpr int HM_TEXT_SIZE = 128;
// A buffer of this size holds the longest status name and its terminating NUL.
constexpr int HM_STATUS_NAME_SIZE = 15;

// Code returned by a table's getters when the table has no row (it is empty).
constexpr uint32_t PROCESSOR_ERROR_NOROW = 22;
constexpr uint32_t POWERUNIT_ERROR_NOROW = 23;
constexpr uint32_t POWERSUPPLY_ERROR_NOROW = 24;
constexpr uint32_t VOLTAGEPROBE_ERROR_NOROW = 25;
constexpr uint32_t DISCRETEVOLTAGE_ERROR_NOROW = 26;
constexpr uint32_t COOLINGUNIT_ERROR_NOROW = 29;
constexpr uint32_t COOLINGDEVICE_ERROR_NOROW = 30;
constexpr uint32_t DISCRETECOOLING_ERROR_NOROW = 31;
constexpr uint32_t TEMPERATUREPROBE_ERROR_NOROW = 32;
constexpr uint32_t DRIVESLOT_ERROR_NOROW = 34;
constexpr uint32_t MEMORYARRAY_ERROR_NOROW = 2;
constexpr uint32_t MEMORYDEVICE_ERROR_NOROW = 2;
// The chassis group has no number of its own: it answers "no element at this index".
constexpr uint32_t CHASSIS_ERROR_NOROW = CLIENT_ERROR_NOELEMENT;

// Abstract interface of a data group. The order of the virtual operations is fixed:
// other modules are built against this table of virtual operations.
class BaseAccessor {
public:
    BaseAccessor() = default;
    BaseAccessor(const BaseAccessor&) = delete;
    BaseAccessor& operator=(const BaseAccessor&) = delete;

    // Static integer attributes of row `index` (zero-based).
    virtual uint32_t getIntInfo(int attribute, int index, int32_t* value) = 0;
    // Live integer attributes.
    virtual uint32_t getIntData(int attribute, int index, int32_t* value) = 0;
    // Static text attributes; the text is a fresh 128-byte malloc'ed buffer the caller frees.
    virtual uint32_t getStrInfo(int attribute, int index, char** value) = 0;
    // Live text attributes; same ownership.
    virtual uint32_t getStrData(int attribute, int index, char** value) = 0;
    // Write of an integer attribute.
    virtual uint32_t setIntData(int attribute, int index, int32_t value) = 0;
    // Number of rows.
    virtual int getCount() = 0;
    // One-based position of the first row with this id, 0 when there is none.
    virtual int findIndexById(uint32_t id) = 0;
    // Largest row status (signed comparison), 0 for an empty group.
    virtual int getMaxStatus() = 0;
    // The description text of row `index`, null when there is no such row.
    virtual const char* getDescription(int index) = 0;
    // Hands (id, status) of every row that is not "ok" to the event handler's health lists;
    // returns the last insertion's result, 0 when nothing was inserted.
    virtual uint32_t seedHealth(eventHandler* handler) = 0;
    virtual ~BaseAccessor();
    // Address of row `index`, null when the group has no such row.
    virtual void* getRow(int index) = 0;
    // Allocates `count` rows as one array: 0, or CLIENT_ERROR_NOMEMORY.
    virtual uint32_t allocTable(int count) = 0;
    // Status name of a reading against its six thresholds (NO_VALUE = absent).
    virtual const char* mapThresholdsToStatus(int32_t reading, int32_t lowerNonRecoverable,
                                              int32_t lowerCritical, int32_t lowerNonCritical,
                                              int32_t upperCritical, int32_t upperNonRecoverable,
                                              int32_t upperNonCritical);
    // Status value of an exact status name; HM_STATUS_UNKNOWN for anything else.
    virtual int32_t mapStatusStringToEnum(const char* status);
    // Writes the name of `status` into `out` (at least HM_STATUS_NAME_SIZE bytes); returns 0.
    virtual uint32_t mapStatusEnumToString(int32_t status, char* out);
    // Finds the group's rows.
    virtual uint32_t init() = 0;

protected:
    // Hands out `text` as a fresh zero-filled 128-byte buffer, cut to 127 characters.
    // Returns CLIENT_SUCCESS, or CLIENT_ERROR_NOMEMORY with *out null.
    static uint32_t copyOutText(const char* text, char** out);
};

// The status rule and names on their own, for code that holds no table.
const char* statusFromThresholds(int32_t reading, int32_t lowerNonRecoverable, int32_t lowerCritical,
                                 int32_t lowerNonCritical, int32_t upperCritical, int32_t upperNonRecoverable,
                                 int32_t upperNonCritical);
int32_t statusNameToValue(const char* status);
// Name of a status value; "unknown" for every value outside 1 and 3..6.
const char* statusValueToName(int32_t status);

#endif
