#pragma once
// The publisher's side of a signed repository, with the real minisign: a key
// pair made without a password (-W) and signatures made with it.
#include <string>

namespace qdmtest {

struct PublisherKey {
    std::string publicKey;  // <folder>/minisign.pub
    std::string secretKey;  // <folder>/minisign.key
};

// minisign -G -W into folder (created); records a test failure when it fails.
PublisherKey MakePublisherKey(const std::string& folder);
// minisign -S: writes file + ".minisig"; `options` such as "-l" (legacy
// signature) go before the file.
bool SignFile(const PublisherKey& key, const std::string& file, const std::string& options = "");

}  // namespace qdmtest
