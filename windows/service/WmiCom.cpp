// The IPMI backend of the Windows build: the command backend over Windows' IPMI
// driver, reached through WMI (WmiCom's calls made with COM here, one for each
// member). In-band only: IPMI over LAN needs FreeIPMI, a POSIX library.
#include <windows.h>

#include <oleauto.h>
#include <wbemidl.h>

#include <cstring>

#include "kelvarn/PlatformFile.h"
#include "kelvarn/WmiIpmi.h"

namespace kelvarn {
namespace {

constexpr LONG kNextTimeoutMs = 30000;

// An owned BSTR made from UTF-8 text.
class Bstr {
public:
    explicit Bstr(const std::string& s) {
        const int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), nullptr, 0);
        m_b = SysAllocStringLen(nullptr, UINT(n));
        if (m_b && n)
            MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), m_b, n);
    }
    ~Bstr() { SysFreeString(m_b); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    operator BSTR() const { return m_b; }

private:
    BSTR m_b;
};

std::string utf8(BSTR b) {
    const int len = int(SysStringLen(b));
    const int n = WideCharToMultiByte(CP_UTF8, 0, b, len, nullptr, 0, nullptr, nullptr);
    std::string s(size_t(n), '\0');
    if (n)
        WideCharToMultiByte(CP_UTF8, 0, b, len, &s[0], n, nullptr, nullptr);
    return s;
}

WmiValue fromVariant(VARIANT& v) {
    switch (V_VT(&v)) {
    case VT_UI1:
        return WmiValue::byte(V_UI1(&v));
    case VT_I1:
    case VT_I2:
    case VT_UI2:
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT: {
        VARIANT n;
        VariantInit(&n);
        const uint32_t value = SUCCEEDED(VariantChangeType(&n, &v, 0, VT_UI4)) ? V_UI4(&n) : 0;
        VariantClear(&n);
        return WmiValue::uint32(value);
    }
    case VT_BSTR:
        return WmiValue::string(utf8(V_BSTR(&v)));
    case VT_ARRAY | VT_UI1: {
        SAFEARRAY* a = V_ARRAY(&v);
        LONG lower = 0, upper = -1;
        void* data = nullptr;
        if (FAILED(SafeArrayGetLBound(a, 1, &lower)) || FAILED(SafeArrayGetUBound(a, 1, &upper)) ||
            FAILED(SafeArrayAccessData(a, &data)))
            return WmiValue();
        const auto* bytes = static_cast<const uint8_t*>(data);
        WmiValue out = WmiValue::array(Bytes(bytes, bytes + (upper >= lower ? upper - lower + 1 : 0)));
        SafeArrayUnaccessData(a);
        return out;
    }
    default:
        return WmiValue();
    }
}

// Fills `v` (initialised by the caller); false when out of memory.
bool toVariant(const WmiValue& value, VARIANT& v) {
    switch (value.type) {
    case WmiValue::Type::Byte:
        V_VT(&v) = VT_UI1;
        V_UI1(&v) = uint8_t(value.number);
        return true;
    case WmiValue::Type::Uint32: // CIM uint32 travels as VT_I4
        V_VT(&v) = VT_I4;
        V_I4(&v) = LONG(value.number);
        return true;
    case WmiValue::Type::Bytes: {
        SAFEARRAY* a = SafeArrayCreateVector(VT_UI1, 0, ULONG(value.bytes.size()));
        void* data = nullptr;
        if (!a || FAILED(SafeArrayAccessData(a, &data))) {
            if (a)
                SafeArrayDestroy(a);
            return false;
        }
        if (!value.bytes.empty())
            std::memcpy(data, value.bytes.data(), value.bytes.size());
        SafeArrayUnaccessData(a);
        V_VT(&v) = VT_ARRAY | VT_UI1;
        V_ARRAY(&v) = a;
        return true;
    }
    case WmiValue::Type::Text: {
        const Bstr text(value.text);
        V_VT(&v) = VT_BSTR;
        V_BSTR(&v) = SysAllocStringLen(text, SysStringLen(text));
        return true;
    }
    default:
        V_VT(&v) = VT_NULL;
        return true;
    }
}

template <class T> void drop(T*& p) {
    if (p)
        p->Release();
    p = nullptr;
}

HResult getValue(IWbemClassObject* object, const std::string& name, WmiValue& value) {
    if (!object)
        return HResult(E_POINTER);
    VARIANT v;
    VariantInit(&v);
    const HRESULT hr = object->Get(Bstr(name), 0, &v, nullptr, nullptr);
    if (SUCCEEDED(hr))
        value = fromVariant(v);
    VariantClear(&v);
    return hr;
}

class ComCalls : public WmiCom {
public:
    ~ComCalls() override { release(); }

    HResult coInitializeEx() override {
        const HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        m_initialized = SUCCEEDED(hr);
        return hr;
    }
    HResult coCreateLocator() override {
        return CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                reinterpret_cast<void**>(&m_locator));
    }
    HResult connectServer(const std::string& ns) override {
        return m_locator->ConnectServer(Bstr(ns), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                        &m_services);
    }
    HResult coSetProxyBlanket() override {
        return CoSetProxyBlanket(m_services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                 RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    }
    HResult execQuery(const std::string& query) override {
        return m_services->ExecQuery(Bstr("WQL"), Bstr(query),
                                     WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, &m_enum);
    }
    HResult next(bool& found) override {
        ULONG count = 0;
        // A provider that does not answer within this time counts as one that failed.
        const HRESULT hr = m_enum->Next(kNextTimeoutMs, 1, &m_instance, &count);
        found = SUCCEEDED(hr) && count == 1;
        return hr == WBEM_S_TIMEDOUT ? HResult(WBEM_E_TIMED_OUT) : HResult(hr);
    }
    HResult getInstanceProperty(const std::string& name, WmiValue& value) override {
        return getValue(m_instance, name, value);
    }
    HResult getObject(const std::string& className) override {
        return m_services->GetObject(Bstr(className), 0, nullptr, &m_class, nullptr);
    }
    HResult getMethod(const std::string& method) override {
        return m_class->GetMethod(Bstr(method).operator BSTR(), 0, &m_inClass, nullptr);
    }
    HResult spawnInstance() override {
        drop(m_in);
        return m_inClass->SpawnInstance(0, &m_in);
    }
    HResult put(const std::string& name, const WmiValue& value) override {
        VARIANT v;
        VariantInit(&v);
        if (!toVariant(value, v))
            return HResult(E_OUTOFMEMORY);
        const HRESULT hr = m_in->Put(Bstr(name), 0, &v, 0);
        VariantClear(&v);
        return hr;
    }
    HResult execMethod(const std::string& path, const std::string& method) override {
        drop(m_out);
        return m_services->ExecMethod(Bstr(path), Bstr(method), 0, nullptr, m_in, &m_out, nullptr);
    }
    HResult get(const std::string& name, WmiValue& value) override { return getValue(m_out, name, value); }
    void release() override {
        drop(m_out);
        drop(m_in);
        drop(m_inClass);
        drop(m_class);
        drop(m_instance);
        drop(m_enum);
        drop(m_services);
        drop(m_locator);
        if (m_initialized)
            CoUninitialize();
        m_initialized = false;
    }

private:
    bool m_initialized = false;
    IWbemLocator* m_locator = nullptr;
    IWbemServices* m_services = nullptr;
    IEnumWbemClassObject* m_enum = nullptr;
    IWbemClassObject* m_instance = nullptr;
    IWbemClassObject* m_class = nullptr;
    IWbemClassObject* m_inClass = nullptr;
    IWbemClassObject* m_in = nullptr;
    IWbemClassObject* m_out = nullptr;
};

} // namespace

std::unique_ptr<WmiCom> makeWmiCom() {
    return std::make_unique<ComCalls>();
}

std::unique_ptr<IpmiBackend> makeSystemIpmiBackend(const IpmiSettings& settings) {
    if (settings.mode == IpmiSettings::Mode::Lan)
        throw PlatformFileError(
            "IPMI over LAN is not available in the Windows build (bmc=ipmi-inband reads the "
            "BMC through Windows' IPMI driver)");
    return makeCommandBackend([] { return makeWmiIpmiTransport(makeWmiCom()); });
}

} // namespace kelvarn
