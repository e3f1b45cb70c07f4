// Loading of the SMBIOS inventory (processors, memory arrays, memory devices) at start-up.
#ifndef HM_PLATFORM_SMBIOSINVENTORY_H
#define HM_PLATFORM_SMBIOSINVENTORY_H

#include <cstdint>

// Loads the inventory; called twice during start-up. Returns a client status code.
uint32_t loadSmbiosInventory();

#endif
