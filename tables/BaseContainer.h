// The container every hardware table is built on: an array of row records and its count.
#ifndef HM_TABLES_BASECONTAINER_H
#define HM_TABLES_BASECONTAINER_H

#include <cstdint>
#include <new>

#include "events/eventHandler.h"
#include "tables/BaseAccessor.h"
#include "tables/rowTypes.h"

// XInfo is a row record of rowTypes.h; the shared operations read its id, status and
// description fields by name, so both row layouts are served by the same code.
template <class XInfo> class BaseContainer : public BaseAccessor {
public:
    BaseContainer() = default;
    ~BaseContainer() override { delete[] m_pRows; }

    int getCount() override { return m_nCount; }

    int findIndexById(uint32_t id) override {
        for (int i = 0; i < rowsHeld(); ++i) {
            if (m_pRows[i].id == id) {
                return i + 1;
            }
        }
        return 0;
    }

    int getMaxStatus() override {
        int maxStatus = 0;
        for (int i = 0; i < rowsHeld(); ++i) {
            if (m_pRows[i].status > maxStatus) {
                maxStatus = m_pRows[i].status;
            }
        }
        return maxStatus;
    }

    const char* getDescription(int index) override {
        const XInfo* row = typedRow(index);
        return row == nullptr ? nullptr : row->description;
    }

    uint32_t seedHealth(eventHandler* handler) override {
        uint32_t result = 0;
        if (handler == nullptr) {
            return 0;
        }
        for (int i = 0; i < rowsHeld(); ++i) {
            if (m_pRows[i].status != HM_STATUS_OK) {
                result =
                    handler->insertElementByDeviceId(static_cast<int32_t>(m_pRows[i].id), m_pRows[i].status);
            }
        }
        return result;
    }

    void* getRow(int index) override { return typedRow(index); }

    // The typed row accessor: null when the table holds no row at `index`. Indexes beyond
    // the last row are refused as well, so a stale index can never read past the array.
    XInfo* typedRow(int index) {
        if (index < 0 || index >= rowsHeld()) {
            return nullptr;
        }
        return &m_pRows[index];
    }

    uint32_t allocTable(int count) override {
        delete[] m_pRows;
        m_pRows = nullptr;
        m_nAllocated = 0;
        if (count < 1) {
            return CLIENT_SUCCESS;
        }
        m_pRows = new (std::nothrow) XInfo[static_cast<size_t>(count)]();
        if (m_pRows == nullptr) {
            return CLIENT_ERROR_NOMEMORY;
        }
        m_nAllocated = count;
        return CLIENT_SUCCESS;
    }

protected:
    // Common start of a getter: the out value in its "nothing" form, then the row.
    XInfo* beginGet(int index, int32_t* value) {
        *value = -1;
        return typedRow(index);
    }
    XInfo* beginGet(int index, char** value) {
        *value = nullptr;
        return typedRow(index);
    }

    // Rows actually held: after a failed allocation m_nCount still names the discovered
    // count, but there is no array behind it.
    int rowsHeld() const { return m_nCount < m_nAllocated ? m_nCount : m_nAllocated; }

    XInfo* m_pRows = nullptr;
    int32_t m_nCount = 0;

private:
    int32_t m_nAllocated = 0;
};

// The memory and processor tables: inventory facts read once at start-up, so the table
// offers no live data and takes no writes.
template <class XInfo> class inventoryContainer : public BaseContainer<XInfo> {
public:
    uint32_t getIntData(int, int, int32_t* value) override {
        *value = -1;
        return CLIENT_ERROR_NOTSUPPORTED;
    }
    uint32_t getStrData(int, int, char** value) override {
        *value = nullptr;
        return CLIENT_ERROR_NOTSUPPORTED;
    }
    uint32_t setIntData(int, int, int32_t) override { return CLIENT_ERROR_NOTSUPPORTED; }
};

#endif
