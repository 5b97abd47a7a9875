// Operator texts of the message identifiers. The first insert is the
// component word ("vendor", "firm", "driv", "ocm"), except for 0019, which
// the version comparisons send with the error text alone.
#include <map>

#include "TraceUtility.h"

namespace {

const std::map<std::string, std::string>& Catalogue() {
    static const std::map<std::string, std::string> texts = {
        {"MSGID_EMULEX_FC_0001_F", "%1: the Fibre Channel adapter operation failed (error %2)"},
        {"MSGID_EMULEX_FC_0004_F", "%1: the update could not be applied (error %2)"},
        {"MSGID_EMULEX_FC_0005_F",
         "%1: the update module does not hold exactly one update file (error %2)"},
        {"MSGID_EMULEX_FC_0008_F",
         "%1: the operating version could not be read after the update "
         "(operating version %2, update version %3)"},
        {"MSGID_EMULEX_FC_0009_F",
         "%1: the operating version %2 does not match the update version %3"},
        {"MSGID_EMULEX_FC_0010_F",
         "%1: the management utility is not set up for local unattended operation (error %2)"},
        {"MSGID_EMULEX_FC_0012_F",
         "%1: the device configuration report could not be written (error %2)"},
        {"MSGID_EMULEX_FC_0013_F",
         "%1: the required component %3 %4 %5 is not installed (error %2)"},
        {"MSGID_EMULEX_FC_0016_F",
         "%1: the device configuration report could not be started (error %2)"},
        {"MSGID_EMULEX_FC_0018_F",
         "%1: the device configuration report needs %3 %4 %5, which is not installed (error %2)"},
        {"MSGID_EMULEX_FC_0019_F", "A version text has not the expected form (error %1)."},
        {"MSGID_EMULEXCOMMON_0001_F",
         "The adapter list could not be obtained from the adapter management tool."},
    };
    return texts;
}

// "%1".."%9" take the inserts; a placeholder without an insert stays empty.
std::string FillPlaceholders(const std::string& pattern, const std::vector<std::string>& inserts) {
    std::string out;
    for (size_t i = 0; i < pattern.size(); ++i) {
        char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
        if (pattern[i] == '%' && next >= '1' && next <= '9') {
            size_t index = static_cast<size_t>(next - '1');
            if (index < inserts.size()) out += inserts[index];
            ++i;
        } else {
            out += pattern[i];
        }
    }
    return out;
}

}  // namespace

std::string CTraceUtility::FormatMessage(const std::string& messageId,
                                         const std::vector<std::string>& inserts) {
    auto found = Catalogue().find(messageId);
    if (found != Catalogue().end()) return FillPlaceholders(found->second, inserts);
    std::string out = messageId;
    for (const auto& insert : inserts) out += " " + insert;
    return out;
}
