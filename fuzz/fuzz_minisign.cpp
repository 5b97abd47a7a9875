// minisign's public-key and signature texts as a repository or an operator
// may hand them over: either parses or is refused with a format error, a
// parsed text written back out parses to the same fields, and a signature
// never verifies under a key of another id.
#include <fuzzer/FuzzedDataProvider.h>
#include <sodium.h>

#include <vector>

#include "FuzzSupport.h"
#include "Minisign.h"

namespace {

template <typename Bytes>
std::string Base64(const Bytes& first, const std::vector<unsigned char>& rest = {}) {
    std::vector<unsigned char> bytes(first.begin(), first.end());
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(&text[0], text.size(), bytes.data(), bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    text.pop_back();  // the terminating NUL
    return text;
}

std::vector<unsigned char> Concat(const std::string& head, const qdmcli::MinisignKeyId& id) {
    std::vector<unsigned char> bytes(head.begin(), head.end());
    bytes.insert(bytes.end(), id.begin(), id.end());
    return bytes;
}

void CheckKeyRoundTrip(const qdmcli::MinisignPublicKey& key) {
    const std::string text = "untrusted comment: " + key.comment + "\n" +
                             Base64(Concat("Ed", key.keyId), std::vector<unsigned char>(key.key.begin(), key.key.end())) +
                             "\n";
    const qdmcli::MinisignPublicKey again = qdmcli::ParseMinisignPublicKey(text);
    qdmfuzz::Require(again.keyId == key.keyId && again.key == key.key && again.comment == key.comment,
                     "a key written back parses to the same fields");
    qdmfuzz::Require(qdmcli::IsKeyIdText(qdmcli::KeyIdText(key.keyId)), "a key id prints as 16 hex digits");
}

void CheckSignatureRoundTrip(const qdmcli::MinisignSignature& signature) {
    const std::vector<unsigned char> bytes(signature.signature.begin(), signature.signature.end());
    const std::string text = "untrusted comment: x\n" +
                             Base64(Concat(signature.prehashed ? "ED" : "Ed", signature.keyId), bytes) +
                             "\ntrusted comment: " + signature.trustedComment + "\n" +
                             Base64(signature.globalSignature) + "\n";
    const qdmcli::MinisignSignature again = qdmcli::ParseMinisignSignature(text);
    qdmfuzz::Require(again.prehashed == signature.prehashed && again.keyId == signature.keyId &&
                         again.signature == signature.signature && again.trustedComment == signature.trustedComment &&
                         again.globalSignature == signature.globalSignature,
                     "a signature written back parses to the same fields");
}

// A refused text answers false; whatever else a parser throws is a finding.
template <typename Parsed>
bool Parse(Parsed (*parse)(const std::string&), const std::string& text, Parsed* parsed) {
    try {
        *parsed = parse(text);
        return true;
    } catch (const qdmcli::MinisignFormatError&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string keyText = input.ConsumeRandomLengthString(4096);
    const std::string signatureText = input.ConsumeRemainingBytesAsString();
    qdmcli::MinisignPublicKey key;
    qdmcli::MinisignSignature signature;
    const bool keyParsed = Parse(qdmcli::ParseMinisignPublicKey, keyText, &key);
    const bool signatureParsed = Parse(qdmcli::ParseMinisignSignature, signatureText, &signature);
    if (keyParsed) CheckKeyRoundTrip(key);
    if (signatureParsed) CheckSignatureRoundTrip(signature);
    if (keyParsed && signatureParsed)
        qdmfuzz::Require(!qdmcli::VerifyMinisign(key, signature, keyText) || key.keyId == signature.keyId,
                         "only a key of the signature's id verifies it");
    return 0;
}
