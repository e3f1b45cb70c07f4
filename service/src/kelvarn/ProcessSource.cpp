// The process's data source: chosen once from the service configuration.
#include <mutex>

#include "kelvarn/Errors.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"

namespace kelvarn {
namespace {

std::mutex g_lock;
std::shared_ptr<Responder> g_override;
std::shared_ptr<Responder> g_configured;

std::shared_ptr<Responder> openConfigured() {
    try {
        ServiceConfig config = readServiceConfig();
        if (config.source == "simulated")
            return makePlatformResponder(std::make_shared<SimulatedSource>(
                config.platform, loadPlatformFile(config.platform), config.journal));
        return makePlatformResponder(std::make_shared<SimulatedSource>(
            "built-in demo platform", parsePlatform(demoPlatformText(), "built-in demo platform"),
            config.journal));
    } catch (const PlatformFileError& e) {
        throw QueryError(kSourceUnavailable, std::string("data source unavailable: ") + e.what(),
                         kFacilitySource);
    } catch (const QueryError& e) {
        throw QueryError(kSourceUnavailable, std::string("data source unavailable: ") + e.what(),
                         kFacilitySource);
    }
}

} // namespace

std::shared_ptr<Responder> processResponder() {
    std::lock_guard<std::mutex> guard(g_lock);
    if (g_override)
        return g_override;
    // A configuration that failed is read again on the next query.
    if (!g_configured)
        g_configured = openConfigured();
    return g_configured;
}

void setProcessResponder(std::shared_ptr<Responder> responder) {
    std::lock_guard<std::mutex> guard(g_lock);
    g_override = std::move(responder);
    if (!g_override)
        g_configured.reset();
}

} // namespace kelvarn
