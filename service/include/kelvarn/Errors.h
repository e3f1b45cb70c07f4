// Failure codes, facilities and operation numbers reported in RStatus.
#ifndef KELVARN_ERRORS_H
#define KELVARN_ERRORS_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "kelvarn/Api.h"

namespace kelvarn {

// RStatus::Code
enum ErrorCode : uint16_t {
    kUnknownPath = 1081,       // the path names nothing the service knows
    kMalformedPath = 1082,     // syntax: empty, no leading '/', unbalanced brackets, bad index
    kNoSuchInstance = 1083,    // the path is known but the indexed instance does not exist
    kPathTooLong = 1084,       // longer than kMaxPathLength characters
    kBadParameter = 1085,      // a request parameter is missing its form (RECORD_ID, RANGE)
    kSourceUnavailable = 1086, // the data source cannot be reached or loaded
    kInternalError = 1087,     // an unexpected failure inside the service
    kEmptyRequest = 1088,      // a batched request without any query
    kSelRecordNotFound = 1089, // RECORD_ID names no SEL entry (e.g. after the SEL was cleared)
};

// RStatus::Facility
enum Facility : uint16_t {
    kFacilityQuery = 1,  // path parsing and request handling
    kFacilitySource = 2, // the data source
};

// RStatus::Operation
enum Operation : int32_t {
    kOpGetPath = 1,    // System::Get(path, result)
    kOpGetRequest = 2, // System::Get(request, result)
};

constexpr size_t kMaxPathLength = 1024;

// Thrown inside the service; the front turns it into an RStatus.
class KELVARN_API QueryError : public std::runtime_error {
public:
    QueryError(ErrorCode code, const std::string& message, Facility facility = kFacilityQuery)
        : std::runtime_error(message), m_code(code), m_facility(facility) {}
    ErrorCode code() const { return m_code; }
    Facility facility() const { return m_facility; }

private:
    ErrorCode m_code;
    Facility m_facility;
};

} // namespace kelvarn

#endif
