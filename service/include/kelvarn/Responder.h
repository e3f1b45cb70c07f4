// The seam between the query front (SDK::System) and whatever answers queries.
#ifndef KELVARN_RESPONDER_H
#define KELVARN_RESPONDER_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kelvarn/Path.h"
#include "kelvarn/System.h"

namespace kelvarn {

using ResultMap = std::map<std::string, _XNode>;
using Parameters = std::map<std::string, std::string>;

// Answers parsed queries. Implementations throw QueryError (or ResultStatus)
// on failure; the front serialises calls made through one System object.
class KELVARN_API Responder {
public:
    virtual ~Responder();
    virtual void answer(const std::string& path, const std::vector<PathSegment>& segments,
                        const Parameters& params, uint8_t flags, ResultMap& out) = 0;
};

// The responder of every System built without arguments. Until one is set,
// the service configuration decides (see docs/platform-file.md): KELVARN_CONFIG
// or /etc/kelvarn/kelvarn.conf, else the built-in demo server.
KELVARN_API std::shared_ptr<Responder> processResponder();
// Replaces the process responder; nullptr returns to the configured one.
KELVARN_API void setProcessResponder(std::shared_ptr<Responder> responder);

} // namespace kelvarn

#endif
