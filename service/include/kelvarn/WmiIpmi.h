// The IPMI transport of the Windows build: Windows' IPMI driver (ipmidrv.sys)
// reached through its WMI class Microsoft_IPMI in the namespace root\WMI, one
// RequestResponse method call per request. The COM calls sit behind WmiCom,
// one member for each call the transport makes, so that the transport's logic
// (the in-parameters it puts, the out-parameters it reads, what each failing
// HRESULT means) is the same code everywhere and testable with a double; the
// COM implementation is built for Windows only.
#ifndef KELVARN_WMI_IPMI_H
#define KELVARN_WMI_IPMI_H

#include <cstdint>
#include <memory>
#include <string>

#include "kelvarn/IpmiCommands.h"

namespace kelvarn {

// A COM result code, as Windows' HRESULT (32 bits, negative on failure).
using HResult = int32_t;

// A value put into or read from a WMI object, as far as Microsoft_IPMI uses
// them: CIM uint8 (VT_UI1), uint32 (VT_I4), uint8[] (VT_ARRAY | VT_UI1) and
// string (VT_BSTR, UTF-8 here).
struct WmiValue {
    enum class Type { Empty, Byte, Uint32, Bytes, Text };
    Type type = Type::Empty;
    uint32_t number = 0; // Byte, Uint32
    Bytes bytes;         // Bytes
    std::string text;    // Text
    static WmiValue byte(uint8_t v) { return {Type::Byte, v, {}, {}}; }
    static WmiValue uint32(uint32_t v) { return {Type::Uint32, v, {}, {}}; }
    static WmiValue array(Bytes v) { return {Type::Bytes, 0, std::move(v), {}}; }
    static WmiValue string(std::string v) { return {Type::Text, 0, {}, std::move(v)}; }
};

// The COM calls of the transport, in the order it makes them. Each returns the
// call's HRESULT; the objects they yield stay inside the implementation.
class KELVARN_API WmiCom {
public:
    virtual ~WmiCom();
    // CoInitializeEx(COINIT_MULTITHREADED) on the calling thread.
    virtual HResult coInitializeEx() = 0;
    // CoCreateInstance(CLSID_WbemLocator, IID_IWbemLocator).
    virtual HResult coCreateLocator() = 0;
    // IWbemLocator::ConnectServer(ns).
    virtual HResult connectServer(const std::string& ns) = 0;
    // CoSetProxyBlanket on the services (default authentication, call-level
    // authentication, impersonation).
    virtual HResult coSetProxyBlanket() = 0;
    // IWbemServices::ExecQuery("WQL", query), forward-only.
    virtual HResult execQuery(const std::string& query) = 0;
    // IEnumWbemClassObject::Next of one object; `found` false at the end.
    virtual HResult next(bool& found) = 0;
    // IWbemClassObject::Get of a property of the object Next returned.
    virtual HResult getInstanceProperty(const std::string& name, WmiValue& value) = 0;
    // IWbemServices::GetObject of a class.
    virtual HResult getObject(const std::string& className) = 0;
    // IWbemClassObject::GetMethod on that class: the method's in-parameters class.
    virtual HResult getMethod(const std::string& method) = 0;
    // IWbemClassObject::SpawnInstance of the in-parameters class.
    virtual HResult spawnInstance() = 0;
    // IWbemClassObject::Put on the spawned in-parameters.
    virtual HResult put(const std::string& name, const WmiValue& value) = 0;
    // IWbemServices::ExecMethod of `method` on the instance at `path` with the
    // in-parameters; keeps the out-parameters.
    virtual HResult execMethod(const std::string& path, const std::string& method) = 0;
    // IWbemClassObject::Get on the out-parameters.
    virtual HResult get(const std::string& name, WmiValue& value) = 0;
    // Releases every object and, when coInitializeEx succeeded, CoUninitialize.
    virtual void release() = 0;
};

// The transport over `com`: opens at once (connects, finds the first
// Microsoft_IPMI instance and its RequestResponse method); throws IpmiFailure,
// lost, whose message starts with "Microsoft_IPMI not available: " when the
// driver, its WMI provider or an instance is missing or a call fails.
KELVARN_API std::unique_ptr<IpmiTransport> makeWmiIpmiTransport(std::unique_ptr<WmiCom> com);

// The text of an HRESULT as the transport's messages give it: its
// hexadecimal value and, for the codes WMI and COM calls return, its name.
KELVARN_API std::string describeHResult(HResult hr);

// The COM implementation (Windows builds only).
KELVARN_API std::unique_ptr<WmiCom> makeWmiCom();

} // namespace kelvarn

#endif
