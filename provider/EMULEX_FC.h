#pragma once
// The provider's two entry points, the only symbols the library exports.

// Builds one model vendor object for one adapter port, or returns null.
extern "C" __attribute__((visibility("default"))) void* GetVendorFactory(const char* className,
                                                                         const char* deviceId);

// Gives a vendor object back. Exported with ordinary C++ linkage: the host
// resolves it under its encoded symbol.
__attribute__((visibility("default"))) void ReleaseVendor(void* vendor);
