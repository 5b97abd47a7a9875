#pragma once
// The private copies of an update's archives. The provider is handed a copy
// in a folder only root can enter, checked against the catalogue after
// copying, so an archive cannot change between the check and its use.
#include <string>

#include "repository/Catalogue.h"

namespace qdmcli {

class StagingArea {
public:
    // Removes the staging folders of earlier runs and makes this run's,
    // <root>/tmp/qdmhost-staging.<pid>, mode 0700. Call under the update
    // lock: then no other run is staging, and every folder found is a dead
    // run's. Throws HostError (internal).
    explicit StagingArea(const std::string& root);
    // Removes the folder with everything in it, on failure too.
    ~StagingArea();
    StagingArea(const StagingArea&) = delete;
    StagingArea& operator=(const StagingArea&) = delete;

    // Copies <repository>/<archive> without following a link, stopping as
    // soon as it grows past the declared size, then checks the copy's size
    // and SHA-256. Answers the copy's path. Throws HostError
    // (untrusted-repository: archive-not-regular, archive-too-large,
    // archive-mismatch).
    std::string Stage(const std::string& repositoryFolder, const CatalogueEntry& entry);

    const std::string& folder() const { return folder_; }

private:
    std::string folder_;
};

// Names the staging folders start with, below <root>/tmp.
const char kStagingPrefix[] = "qdmhost-staging.";

}  // namespace qdmcli
