// IpmiTransport over the WMI class Microsoft_IPMI: each request one call of its
// RequestResponse method. The driver's ResponseData starts with the completion
// code, which ResponseDataSize counts; the data after it is the response.
#include <cstdio>

#include "kelvarn/WmiIpmi.h"

namespace kelvarn {

WmiCom::~WmiCom() = default;

namespace {

constexpr HResult kChangedMode = HResult(0x80010106); // RPC_E_CHANGED_MODE: COM already set up otherwise
const char kAbsent[] = "Microsoft_IPMI not available: ";
const char kNamespace[] = "ROOT\\WMI";
const char kClass[] = "Microsoft_IPMI";
const char kMethod[] = "RequestResponse";

// The codes WMI and COM calls return; `absent`: the driver, its provider or
// its instance is not there (or went away), as opposed to one call failing.
struct Known {
    uint32_t code;
    const char* name;
    bool absent;
};
const Known kKnown[] = {
    {0x80010106, "RPC_E_CHANGED_MODE", false},
    {0x80010108, "RPC_E_DISCONNECTED", true},
    {0x80040154, "REGDB_E_CLASSNOTREG", true},
    {0x80070005, "E_ACCESSDENIED", false},
    {0x800706BA, "RPC_S_SERVER_UNAVAILABLE", true},
    {0x80041001, "WBEM_E_FAILED", false},
    {0x80041002, "WBEM_E_NOT_FOUND", true},
    {0x80041003, "WBEM_E_ACCESS_DENIED", false},
    {0x80041004, "WBEM_E_PROVIDER_FAILURE", false},
    {0x80041006, "WBEM_E_OUT_OF_MEMORY", false},
    {0x80041008, "WBEM_E_INVALID_PARAMETER", false},
    {0x80041009, "WBEM_E_NOT_AVAILABLE", true},
    {0x8004100C, "WBEM_E_NOT_SUPPORTED", true},
    {0x8004100E, "WBEM_E_INVALID_NAMESPACE", true},
    {0x80041010, "WBEM_E_INVALID_CLASS", true},
    {0x80041011, "WBEM_E_PROVIDER_NOT_FOUND", true},
    {0x80041013, "WBEM_E_PROVIDER_LOAD_FAILURE", true},
    {0x80041014, "WBEM_E_INITIALIZATION_FAILURE", true},
    {0x80041015, "WBEM_E_TRANSPORT_FAILURE", true},
    {0x80041017, "WBEM_E_INVALID_QUERY", false},
    {0x8004102E, "WBEM_E_INVALID_METHOD", true},
    {0x8004102F, "WBEM_E_INVALID_METHOD_PARAMETERS", false},
    {0x80041033, "WBEM_E_SHUTTING_DOWN", true},
    {0x80041069, "WBEM_E_TIMED_OUT", false},
};

const Known* known(HResult hr) {
    for (const Known& k : kKnown)
        if (k.code == uint32_t(hr))
            return &k;
    return nullptr;
}

bool failed(HResult hr) {
    return hr < 0;
}

// Opening failed: the driver cannot be used.
[[noreturn]] void absent(const std::string& reason) {
    throw IpmiFailure(kAbsent + reason, true, true);
}
[[noreturn]] void openFailed(const std::string& call, HResult hr) {
    absent(call + " failed: " + describeHResult(hr));
}

class WmiIpmiTransport : public IpmiTransport {
public:
    explicit WmiIpmiTransport(std::unique_ptr<WmiCom> com) : m_com(std::move(com)) {
        try {
            open();
        } catch (...) {
            m_com->release();
            throw;
        }
    }
    ~WmiIpmiTransport() override { m_com->release(); }
    WmiIpmiTransport(const WmiIpmiTransport&) = delete;
    WmiIpmiTransport& operator=(const WmiIpmiTransport&) = delete;

    ipmi::Response send(uint8_t netFn, uint8_t lun, uint8_t cmd, const Bytes& request) override {
        check("SpawnInstance", m_com->spawnInstance());
        put("Command", WmiValue::byte(cmd));
        put("Lun", WmiValue::byte(lun));
        put("NetworkFunction", WmiValue::byte(netFn));
        put("ResponderAddress", WmiValue::byte(m_responder));
        put("RequestDataSize", WmiValue::uint32(uint32_t(request.size())));
        // The provider wants an array; RequestDataSize 0 leaves out the byte an empty request carries.
        put("RequestData", WmiValue::array(request.empty() ? Bytes(1, 0) : request));
        check(std::string("ExecMethod(") + kMethod + ")", m_com->execMethod(m_path, kMethod));

        const WmiValue cc = get("CompletionCode", WmiValue::Type::Byte);
        const WmiValue size = get("ResponseDataSize", WmiValue::Type::Uint32);
        const WmiValue data = get("ResponseData", WmiValue::Type::Bytes);
        if (size.number > data.bytes.size())
            fail("ResponseDataSize " + std::to_string(size.number) + " exceeds the " +
                 std::to_string(data.bytes.size()) + " bytes of ResponseData");
        ipmi::Response r;
        r.completionCode = uint8_t(cc.number);
        if (size.number > 1)
            r.data.assign(data.bytes.begin() + 1, data.bytes.begin() + size.number);
        return r;
    }

private:
    void open() {
        const HResult init = m_com->coInitializeEx();
        if (failed(init) && init != kChangedMode)
            openFailed("CoInitializeEx", init);
        if (HResult hr = m_com->coCreateLocator(); failed(hr))
            openFailed("CoCreateInstance(WbemLocator)", hr);
        if (HResult hr = m_com->connectServer(kNamespace); failed(hr))
            openFailed(std::string("ConnectServer(") + kNamespace + ")", hr);
        if (HResult hr = m_com->coSetProxyBlanket(); failed(hr))
            openFailed("CoSetProxyBlanket", hr);
        if (HResult hr = m_com->execQuery(std::string("SELECT * FROM ") + kClass); failed(hr))
            openFailed(std::string("ExecQuery(") + kClass + ")", hr);
        bool found = false;
        if (HResult hr = m_com->next(found); failed(hr))
            openFailed("Next", hr);
        if (!found)
            absent(std::string("no instance in ") + kNamespace + " (the IPMI driver is not loaded)");
        WmiValue path;
        if (HResult hr = m_com->getInstanceProperty("__RELPATH", path); failed(hr))
            openFailed("Get(__RELPATH)", hr);
        if (path.type != WmiValue::Type::Text || path.text.empty())
            absent("the instance has no __RELPATH");
        m_path = path.text;
        // The BMC's address as the driver knows it; the usual one when not given.
        WmiValue address;
        if (!failed(m_com->getInstanceProperty("BMCAddress", address)) &&
            (address.type == WmiValue::Type::Byte || address.type == WmiValue::Type::Uint32) &&
            address.number != 0 && address.number <= 0xFF)
            m_responder = uint8_t(address.number);
        if (HResult hr = m_com->getObject(kClass); failed(hr))
            openFailed(std::string("GetObject(") + kClass + ")", hr);
        if (HResult hr = m_com->getMethod(kMethod); failed(hr))
            openFailed(std::string("GetMethod(") + kMethod + ")", hr);
    }

    [[noreturn]] void fail(const std::string& what) {
        throw IpmiFailure(std::string(kClass) + " " + kMethod + ": " + what, false);
    }
    // A failing call of a request: the driver gone, or this request failed.
    void check(const std::string& call, HResult hr) {
        if (!failed(hr))
            return;
        const Known* k = known(hr);
        if (k && k->absent)
            openFailed(call, hr);
        fail(call + " failed: " + describeHResult(hr));
    }
    void put(const char* name, const WmiValue& value) {
        check(std::string("Put(") + name + ")", m_com->put(name, value));
    }
    WmiValue get(const char* name, WmiValue::Type type) {
        WmiValue v;
        check(std::string("Get(") + name + ")", m_com->get(name, v));
        // A single byte where an array is expected is a response of one byte.
        if (type == WmiValue::Type::Bytes && v.type == WmiValue::Type::Byte)
            return WmiValue::array(Bytes(1, uint8_t(v.number)));
        if (type == WmiValue::Type::Uint32 && v.type == WmiValue::Type::Byte)
            v.type = type;
        if (v.type != type)
            fail(std::string(name) + " has no value of the expected type");
        return v;
    }

    std::unique_ptr<WmiCom> m_com;
    std::string m_path;
    uint8_t m_responder = ipmi::kBmcSlaveAddress;
};

} // namespace

std::string describeHResult(HResult hr) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", unsigned(uint32_t(hr)));
    const Known* k = known(hr);
    return k ? std::string(hex) + " (" + k->name + ")" : std::string(hex);
}

std::unique_ptr<IpmiTransport> makeWmiIpmiTransport(std::unique_ptr<WmiCom> com) {
    return std::make_unique<WmiIpmiTransport>(std::move(com));
}

} // namespace kelvarn
