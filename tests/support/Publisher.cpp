#include "Publisher.h"

#include <gtest/gtest.h>

#include "Sim.h"
#include "TestEnv.h"

namespace qdmtest {

namespace {

// Standard input closed: minisign must never wait for a password.
bool RunMinisign(const std::string& arguments) {
    std::string output;
    int status = RunShell("minisign " + arguments + " </dev/null", &output);
    EXPECT_EQ(status, 0) << "minisign " << arguments << ": " << output;
    return status == 0;
}

}  // namespace

PublisherKey MakePublisherKey(const std::string& folder) {
    WriteFile(folder + "/.keep", "");
    PublisherKey key{folder + "/minisign.pub", folder + "/minisign.key"};
    RunMinisign("-G -W -p '" + key.publicKey + "' -s '" + key.secretKey + "'");
    return key;
}

bool SignFile(const PublisherKey& key, const std::string& file, const std::string& options) {
    return RunMinisign("-S " + options + " -s '" + key.secretKey + "' -m '" + file + "'");
}

}  // namespace qdmtest
