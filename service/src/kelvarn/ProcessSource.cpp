// The process's data source: chosen once from the service configuration.
#include <mutex>

#include "kelvarn/Errors.h"
#include "kelvarn/Ipmi.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "kelvarn/Smbios.h"

namespace kelvarn {
namespace {

// The process's choice of responder. Never destroyed: a query thread of the host (the
// agent's event poller runs until the process ends) may still ask while the process's
// static objects are being destroyed.
struct ProcessChoice {
    std::mutex lock;
    std::shared_ptr<Responder> override;
    std::shared_ptr<Responder> configured;
};

ProcessChoice& processChoice() {
    static ProcessChoice* const choice = new ProcessChoice();
    return *choice;
}

// The source named by one of the configuration's choices ("demo", "simulated",
// "sysfs", "sysfs:DIR", "dump:FILE", "firmware"); `simulated` and `demo` are shared
// between the /BMC and /SMBIOS choices so that one model serves both.
std::shared_ptr<Source> sourceFor(const std::string& choice, const ServiceConfig& config,
                                  std::shared_ptr<Source>& simulated, std::shared_ptr<Source>& demo) {
    if (choice == "simulated") {
        if (!simulated)
            simulated = std::make_shared<SimulatedSource>(config.platform, loadPlatformFile(config.platform),
                                                          config.journal);
        return simulated;
    }
    if (choice == "ipmi-inband" || choice == "ipmi-lan") {
        IpmiSettings settings;
        try {
            settings =
                parseIpmiSettings(choice == "ipmi-lan" ? IpmiSettings::Mode::Lan : IpmiSettings::Mode::Inband,
                                  config.ipmi, config.origin);
        } catch (const std::runtime_error& e) {
            throw PlatformFileError(e.what());
        }
        return std::make_shared<IpmiSource>(settings, makeSystemIpmiBackend(settings));
    }
    if (choice == "sysfs" || choice.compare(0, 6, "sysfs:") == 0)
        return std::make_shared<SmbiosSource>(SmbiosSource::Kind::Sysfs,
                                              choice.size() > 6 ? choice.substr(6) : std::string());
    if (choice.compare(0, 5, "dump:") == 0)
        return std::make_shared<SmbiosSource>(SmbiosSource::Kind::Dump, choice.substr(5));
    if (choice == "firmware")
        return std::make_shared<SmbiosSource>(SmbiosSource::Kind::Firmware, std::string());
    if (!demo)
        demo = std::make_shared<SimulatedSource>("built-in demo platform",
                                                 parsePlatform(demoPlatformText(), "built-in demo platform"),
                                                 config.journal);
    return demo;
}

std::shared_ptr<Responder> openConfigured() {
    try {
        ServiceConfig config = readServiceConfig();
        const std::string bmcChoice = config.bmc.empty() ? config.source : config.bmc;
        const std::string smbiosChoice = config.smbios.empty() ? config.source : config.smbios;
        std::shared_ptr<Source> simulated, demo;
        std::shared_ptr<Source> bmc = sourceFor(bmcChoice, config, simulated, demo);
        std::shared_ptr<Source> smbios = sourceFor(smbiosChoice, config, simulated, demo);
        if (bmc == smbios)
            return makePlatformResponder(bmc);
        return makePlatformResponder(std::make_shared<CompositeSource>(bmc, smbios));
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
    ProcessChoice& c = processChoice();
    std::lock_guard<std::mutex> guard(c.lock);
    if (c.override)
        return c.override;
    // A configuration that failed is read again on the next query.
    if (!c.configured)
        c.configured = openConfigured();
    return c.configured;
}

void setProcessResponder(std::shared_ptr<Responder> responder) {
    ProcessChoice& c = processChoice();
    std::lock_guard<std::mutex> guard(c.lock);
    c.override = std::move(responder);
    if (!c.override)
        c.configured.reset();
}

} // namespace kelvarn
