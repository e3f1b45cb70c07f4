#include "handles.h"

#include <mutex>
#include <unordered_map>

namespace hmcompat {
namespace {

struct HandleTable {
    std::mutex lock;
    std::unordered_map<const void*, std::shared_ptr<Object>> objects;
};

// Never destroyed: threads that outlive main() and handles closed from
// destructors of static objects must still find the table.
HandleTable& table() {
    static HandleTable* t = new HandleTable;
    return *t;
}

} // namespace

HANDLE registerObject(std::shared_ptr<Object> obj) {
    HandleTable& t = table();
    void* h = obj.get();
    std::lock_guard<std::mutex> g(t.lock);
    t.objects.emplace(h, std::move(obj));
    return h;
}

std::shared_ptr<Object> lookupAnyObject(const void* h) {
    if (h == nullptr) {
        return nullptr;
    }
    HandleTable& t = table();
    std::lock_guard<std::mutex> g(t.lock);
    auto it = t.objects.find(h);
    if (it == t.objects.end() || it->second->magic != kObjectMagic) {
        return nullptr;
    }
    return it->second;
}

std::shared_ptr<Object> lookupObject(const void* h, Kind kind) {
    std::shared_ptr<Object> obj = lookupAnyObject(h);
    if (obj && obj->kind != kind) {
        return nullptr;
    }
    return obj;
}

bool unregisterObject(const void* h, uint32_t kindMask) {
    std::shared_ptr<Object> doomed; // released after the table lock is dropped
    HandleTable& t = table();
    std::lock_guard<std::mutex> g(t.lock);
    auto it = t.objects.find(h);
    if (it == t.objects.end() || (kindMask & kindBit(it->second->kind)) == 0) {
        return false;
    }
    doomed = std::move(it->second);
    t.objects.erase(it);
    return true;
}

} // namespace hmcompat
