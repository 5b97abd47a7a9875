#include "EMULEX_FC.h"

#include <string>

#include "CFC_EMULEX_16G_Vendor.h"
#include "CFC_EMULEX_8G_1P_Vendor.h"
#include "CFC_EMULEX_8G_2P_Vendor.h"
#include "CFC_EMULEX_Vendor.h"
#include "HostSys.h"

namespace {

// The model vendor named exactly by className (case and blanks count), or null.
CVendor* BuildVendor(const std::string& className, const char* deviceId) {
    if (className == CFC_EMULEX_8G_1P_Vendor::className) {
        ShowMessage(L"new CFC_EMULEX_8G_1P_Vendor", deviceId);
        return new CFC_EMULEX_8G_1P_Vendor(std::string(deviceId));
    }
    if (className == CFC_EMULEX_8G_2P_Vendor::className) {
        ShowMessage(L"new CFC_EMULEX_8G_2P_Vendor", deviceId);
        return new CFC_EMULEX_8G_2P_Vendor(std::string(deviceId));
    }
    if (className == CFC_EMULEX_16G_Vendor::className) {
        ShowMessage(L"new CFC_EMULEX_16G_Vendor", deviceId);
        return new CFC_EMULEX_16G_Vendor(std::string(deviceId));
    }
    return nullptr;
}

}  // namespace

void* GetVendorFactory(const char* className, const char* deviceId) {
    // No handler: a failed allocation reaches the host as the allocator's exception.
    ShowMessage(L"WINAPI GetVendorFactory", className);
    if (className == nullptr || deviceId == nullptr) {
        ShowMessage(L"GetFactory NULL");
        return nullptr;
    }
    return BuildVendor(std::string(className), deviceId);
}

void ReleaseVendor(void* vendor) {
    if (vendor == nullptr) return;
    try {
        CVendor* object = static_cast<CVendor*>(vendor);
        // Compared with the base class's name on purpose, not with the model
        // names: the host's contract for this entry point is kept as it is.
        if (object->GetVendorClassName() == CFC_EMULEX_Vendor::className) delete object;
    } catch (...) {
        // Nothing may leave the library through this entry point.
    }
}
