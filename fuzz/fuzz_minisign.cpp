// minisign's public-key and signature texts as a repository or an operator
// may hand them over: either parses or is refused with a format error, a
// parsed text written back out parses to the same fields, and a signature
// never verifies under a key of another id.
#include <fuzzer/FuzzedDataProvider.h>
#include <sodium.h>

#include "FuzzSupport.h"
#include "repository/Minisign.h"

namespace {

template <typename Bytes>
std::string Raw(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

std::string Base64(const std::string& bytes) {
    std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(&text[0], text.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                      sodium_base64_VARIANT_ORIGINAL);
    text.pop_back();  // the terminating NUL
    return text;
}

void CheckKeyRoundTrip(const qdmcli::MinisignPublicKey& key) {
    const qdmcli::MinisignPublicKey again = qdmcli::ParseMinisignPublicKey(
        "untrusted comment: " + key.comment + "\n" + Base64("Ed" + Raw(key.keyId) + Raw(key.key)) + "\n");
    qdmfuzz::Require(again.keyId == key.keyId && again.key == key.key && again.comment == key.comment &&
                         qdmcli::IsKeyIdText(qdmcli::KeyIdText(key.keyId)),
                     "a key written back parses to the same fields; its id prints as 16 hex digits");
}

void CheckSignatureRoundTrip(const qdmcli::MinisignSignature& signature) {
    const qdmcli::MinisignSignature again = qdmcli::ParseMinisignSignature(
        "untrusted comment: x\n" +
        Base64((signature.prehashed ? "ED" : "Ed") + Raw(signature.keyId) + Raw(signature.signature)) +
        "\ntrusted comment: " + signature.trustedComment + "\n" + Base64(Raw(signature.globalSignature)) + "\n");
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
