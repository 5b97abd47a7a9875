#pragma once
// minisign's public-key and signature files, parsed from their texts and
// checked with libsodium. No files: the caller supplies the texts, so tests
// and the fuzzer reach the parsers directly.
#include <array>
#include <stdexcept>
#include <string>

namespace qdmcli {

using MinisignKeyId = std::array<unsigned char, 8>;

// A text that is not in minisign's format; what() says what is wrong.
struct MinisignFormatError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct MinisignPublicKey {
    MinisignKeyId keyId{};
    std::array<unsigned char, 32> key{};  // Ed25519
    std::string comment;                  // the untrusted comment, without its "untrusted comment: " head
};

struct MinisignSignature {
    bool prehashed = false;  // "ED": signed is the BLAKE2b-512 of the file, not the file ("Ed")
    MinisignKeyId keyId{};
    std::array<unsigned char, 64> signature{};
    std::string trustedComment;                       // without its "trusted comment: " head
    std::array<unsigned char, 64> globalSignature{};  // over signature || trusted comment
};

// "untrusted comment: ..." and the base64 of "Ed" + key id + key. Throws MinisignFormatError.
MinisignPublicKey ParseMinisignPublicKey(const std::string& text);
// "untrusted comment: ...", the base64 of algorithm + key id + signature,
// "trusted comment: ..." and the base64 global signature. Throws MinisignFormatError.
MinisignSignature ParseMinisignSignature(const std::string& text);

// True when the key made the signature over `message` and over the trusted
// comment; false for another key id.
bool VerifyMinisign(const MinisignPublicKey& key, const MinisignSignature& signature, const std::string& message);

// "482665D5CC7C0CE8": the little-endian 64-bit id in upper-case hex, as minisign prints it.
std::string KeyIdText(const MinisignKeyId& id);
// The key line of a public key file (base64 of "Ed" + key id + key), as
// `minisign -G` prints it and `minisign -P` takes it: what operators compare.
std::string PublicKeyText(const MinisignPublicKey& key);
// True for 16 hex digits of either case.
bool IsKeyIdText(const std::string& text);

}  // namespace qdmcli
