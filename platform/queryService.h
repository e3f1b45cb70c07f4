// The agent's side of the platform-data query service: the one process-wide
// SDK::System object, the integer query, the standard result dump, the
// failure logging and the composition of query paths.
#ifndef HM_PLATFORM_QUERYSERVICE_H
#define HM_PLATFORM_QUERYSERVICE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "kelvarn/System.h"
#include "pickmere/ResultStatus.h"

// Result map of a query.
typedef std::map<std::string, _XNode> QueryResult;

// The process-wide query object, shared by the request thread and the SEL
// poller; created at module load, destroyed at module unload.
SDK::System& queryService();

// Runs a single-valued query and stores its integer value in *out:
// 0 when the answer has no entry keyed by `path` or that entry has no value,
// otherwise atoi of its first value. A failed query is traced and leaves *out as it was.
void ExeIntegerQuery(const char* path, uint32_t* out);

// Traces a whole result map, entry by entry, in key order.
void dumpResultMap(const QueryResult& result);

// The caller-specific texts of a failure block.
enum QueryFailureStyle {
    QUERY_FAILURE_INTEGER, // " failed. %d code \n " then "error is: %s--\n "
    QUERY_FAILURE_VALUE,   // " failed. %d" then ": %s" (readings, names, memory arrays)
    QUERY_FAILURE_SCAN,    // " failed Error code. %d  -", no message (SDR scans)
};

// Traces one block per failure of `status`, in order: "Operation: %d",
// "on :%s" with `path`, then the code and message texts of `style`.
void logQueryFailure(const ResultStatus& status, const char* path, QueryFailureStyle style);

// Path composition into a caller's buffer (snprintf: cut to fit, always
// NUL-terminated); each returns the length the full path needs.
int composePath(char* buffer, size_t size, const char* a, int n, const char* b); // "%s%d%s"
int composePath(char* buffer, size_t size, const char* a, int n1, const char* b, int n2,
                const char* c); // "%s%d%s%d%s"
int composeSensorPath(char* buffer, size_t size, int sensor, int owner, int lun,
                      const char* tail); // sensor, owner, LUN
int composeSensorPath(char* buffer, size_t size, int sensor, int owner, int lun, const char* sep,
                      const char* key); // sensor, owner, LUN and a trailing key
int composeSensorValuePath(char* buffer, size_t size, int sensor, int owner, int lun, int raw); // raw value

// Paths of the SDR repository by record type.
extern const char* const kSdrFullRecordsPath;    // full sensor records
extern const char* const kSdrCompactRecordsPath; // compact sensor records

#endif
