// IpmiTransport over FreeIPMI's raw command call, on a context opened as the
// FreeIPMI backend opens its own.
#include "FreeIpmiContext.h"
#include "kelvarn/IpmiCommands.h"

namespace kelvarn {
namespace {

// The largest IPMI message: a command byte, a completion code and its data.
constexpr size_t kMaxResponse = 1024;

class FreeIpmiRawTransport : public IpmiTransport {
public:
    explicit FreeIpmiRawTransport(const IpmiSettings& settings) : m_ctx(openFreeIpmiContext(settings)) {}
    ~FreeIpmiRawTransport() override { closeFreeIpmiContext(m_ctx); }
    FreeIpmiRawTransport(const FreeIpmiRawTransport&) = delete;
    FreeIpmiRawTransport& operator=(const FreeIpmiRawTransport&) = delete;

    ipmi::Response send(uint8_t netFn, uint8_t lun, uint8_t cmd, const Bytes& request) override {
        // The request starts with the command; the response with the command and the completion code.
        Bytes rq(1, cmd);
        rq.insert(rq.end(), request.begin(), request.end());
        Bytes rs(kMaxResponse);
        const int len =
            ipmi_cmd_raw(m_ctx, lun, netFn, rq.data(), unsigned(rq.size()), rs.data(), unsigned(rs.size()));
        if (len < 0)
            throw IpmiFailure(std::string("IPMI request: ") + ipmi_ctx_errormsg(m_ctx),
                              freeIpmiSessionLost(m_ctx));
        if (len < 2)
            throw IpmiFailure("IPMI response of " + std::to_string(len) + " bytes", false);
        ipmi::Response r;
        r.completionCode = rs[1];
        r.data.assign(rs.begin() + 2, rs.begin() + len);
        return r;
    }

private:
    ipmi_ctx_t m_ctx;
};

} // namespace

std::unique_ptr<IpmiTransport> makeFreeIpmiRawTransport(const IpmiSettings& settings) {
    return std::make_unique<FreeIpmiRawTransport>(settings);
}

} // namespace kelvarn
