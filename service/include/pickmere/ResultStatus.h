// Pickmere: the failure report of the platform-data query service.
// A failed query throws one ResultStatus that carries one RStatus per failure.
#ifndef PICKMERE_RESULTSTATUS_H
#define PICKMERE_RESULTSTATUS_H

#include <cstdint>
#include <string>
#include <vector>

#if defined(_WIN32)
#if defined(PICKMERE_BUILDING)
#define PICKMERE_API __declspec(dllexport)
#else
#define PICKMERE_API __declspec(dllimport)
#endif
#else
#define PICKMERE_API __attribute__((visibility("default")))
#endif

// One failure. Members in this order: the facility word, the failure code, the
// message, the path that failed and, last, the number of the failed operation.
struct RStatus {
    uint16_t Facility = 0; // which part of the service failed (see kelvarn/Errors.h)
    uint16_t Code = 0;     // failure code (see kelvarn/Errors.h)
    std::string Message;   // what went wrong, in plain words
    std::string Path;      // the query path (or request key) that failed
    int32_t Operation = 0; // which service operation failed (see kelvarn/Errors.h)
};

class PICKMERE_API ResultStatus {
public:
    ResultStatus();
    explicit ResultStatus(RStatus status);
    explicit ResultStatus(std::vector<RStatus> statuses);
    ResultStatus(const ResultStatus&);
    ResultStatus& operator=(const ResultStatus&);
    virtual ~ResultStatus();

    // The failures in the order they were recorded.
    const std::vector<RStatus>& Get() const;
    void Add(RStatus status);

private:
    std::vector<RStatus> m_statuses;
};

#endif
