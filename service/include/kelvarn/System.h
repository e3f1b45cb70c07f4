// Kelvarn: the platform-data query service. SDK::System answers path queries
// ("/BMC/SDR/SENSOR_TYPE[1]", "/SMBIOS/ProcessorInfo[0]", ...) with a map of
// nodes keyed by path; a failure is thrown as ResultStatus (pickmere).
#ifndef KELVARN_SYSTEM_H
#define KELVARN_SYSTEM_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kelvarn/Api.h"
#include "pickmere/ResultStatus.h"

// One result node.
struct _XNode {
    int32_t NodeType = 0;            // 0: a value node; 1: a container whose Values are child paths
    std::vector<std::string> Values; // the node's values, as text
    std::string Form;                // how Values read: "hex", "decimal", "text", "keywords", "paths"
};

namespace kelvarn {
class Responder;
}

namespace SDK {

class KELVARN_API System {
public:
    // Uses the process's configured data source (see kelvarn/Responder.h).
    System();
    // Uses the given responder for every query of this object.
    explicit System(std::shared_ptr<kelvarn::Responder> responder);
    virtual ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    // The query mode of the following Get calls on this object; kept until the next call.
    void SetFlags(uint8_t flags);
    uint8_t Flags() const;

    // Answers one path. Throws ResultStatus on failure; nothing else is thrown.
    void Get(std::string path, std::map<std::string, _XNode>& result);
    // Answers a batch: each outer key is a path, the inner map its parameters
    // ("RECORD_ID", "RANGE" for "/BMC/SEL/TRANSLATED"). All answers are merged
    // into result; every failing key adds one RStatus to the thrown ResultStatus.
    void Get(std::map<std::string, std::map<std::string, std::string>>& request,
             std::map<std::string, _XNode>& result);

private:
    std::shared_ptr<kelvarn::Responder> responder() const;

    mutable std::mutex m_lock;
    uint8_t m_flags = 0;
    std::shared_ptr<kelvarn::Responder> m_fixed;
};

} // namespace SDK

#endif
