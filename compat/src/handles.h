// Process-wide table of live handles shared by the registry and the
// synchronisation calls. A handle is the address of a heap object that carries a
// magic number and a kind tag; the table holds a reference to every object that
// has not been closed, so that a closed, foreign or wrong-kind handle is recognised
// without touching freed memory, and an object stays alive while a call that
// looked it up is still using it (for example a wait on a handle that another
// thread closes).
#ifndef HM_COMPAT_HANDLES_H
#define HM_COMPAT_HANDLES_H

#include <windows.h>

#include <cstdint>
#include <memory>

namespace hmcompat {

enum class Kind : uint32_t {
    Event = 1,
    Mutex = 2,
    Thread = 3,
    RegKey = 4,
};

constexpr uint32_t kObjectMagic = 0x484D4F42u; // "HMOB"

struct Object {
    explicit Object(Kind k) : kind(k) {}
    virtual ~Object() { magic = 0; }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    uint32_t magic = kObjectMagic;
    const Kind kind;
};

// Adds the object to the table and returns its handle.
HANDLE registerObject(std::shared_ptr<Object> obj);

// The live object behind h when it is of the given kind, otherwise null.
std::shared_ptr<Object> lookupObject(const void* h, Kind kind);

// The live object behind h of any kind, otherwise null.
std::shared_ptr<Object> lookupAnyObject(const void* h);

// Removes h from the table when it names a live object of one of the kinds in
// the mask (bit 1 << kind) and returns true; the object itself goes away when
// the last caller still using it lets go.
bool unregisterObject(const void* h, uint32_t kindMask);

constexpr uint32_t kindBit(Kind k) {
    return 1u << static_cast<uint32_t>(k);
}

template <typename T> std::shared_ptr<T> lookupAs(const void* h, Kind kind) {
    return std::static_pointer_cast<T>(lookupObject(h, kind));
}

} // namespace hmcompat

#endif
