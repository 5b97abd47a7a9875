#include "store/AcceptedSerials.h"

#include <algorithm>

#include "FileUtility.h"
#include "model/HostError.h"
#include "repository/Trust.h"
#include "util/Files.h"

namespace qdmcli {

namespace {

bool IsAcceptedRecord(const nlohmann::json& record) {
    return record.is_object() && record.contains("keyId") && record["keyId"].is_string() &&
           record.contains("repository") && record["repository"].is_string() && record.contains("serial") &&
           record["serial"].is_number_unsigned();
}

}  // namespace

AcceptedSerials::AcceptedSerials(const std::string& hostFolder)
    : hostFolder_(hostFolder), path_(hostFolder + "/" + kAcceptedSerialsFile) {
    LimitedRead read = ReadRegularFile(path_, kMaxCatalogueBytes);
    if (read.result == ReadResult::kMissing) return;
    nlohmann::json document = read.result == ReadResult::kOk ? nlohmann::json::parse(read.text, nullptr, false)
                                                              : nlohmann::json();
    if (!document.is_object() || !document.contains("accepted") || !document["accepted"].is_array() ||
        !std::all_of(document["accepted"].begin(), document["accepted"].end(), IsAcceptedRecord))
        throw HostError(kExitInternal, path_ + " is broken; restore it, or remove it to accept any serial once");
    accepted_ = document["accepted"];
}

std::uint64_t AcceptedSerials::Highest(const std::string& keyId, const std::string& repository) const {
    for (const nlohmann::json& record : accepted_)
        if (record["keyId"] == keyId && record["repository"] == repository) return record["serial"];
    return 0;
}

void AcceptedSerials::Accept(const std::string& keyId, const std::string& repository, std::uint64_t serial) {
    if (serial <= Highest(keyId, repository)) return;
    accepted_.erase(std::remove_if(accepted_.begin(), accepted_.end(),
                                   [&](const nlohmann::json& record) {
                                       return record["keyId"] == keyId && record["repository"] == repository;
                                   }),
                    accepted_.end());
    accepted_.push_back({{"keyId", keyId}, {"repository", repository}, {"serial", serial}});
    nlohmann::json document = {{"accepted", accepted_}};
    if (!CFileUtility::CreateFolder(hostFolder_) || !WriteFileAtomically(path_, document.dump(2) + "\n", 0644))
        throw HostError(kExitInternal, "cannot write " + path_);
}

}  // namespace qdmcli
