// Placeholder until the vendor classes land.
#include "EMULEX_FC.h"

void* GetVendorFactory(const char*, const char*) { return nullptr; }
void ReleaseVendor(void*) {}
