#include "repository/Minisign.h"

#include <sodium.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <vector>

namespace qdmcli {

namespace {

const std::string kUntrustedHead = "untrusted comment: ";
const std::string kTrustedHead = "trusted comment: ";
// minisign's own bound for a comment.
const std::size_t kMaxComment = 1024;

void EnsureSodium() {
    if (::sodium_init() < 0) throw std::runtime_error("libsodium cannot be initialised");
}

[[noreturn]] void Malformed(const std::string& why) { throw MinisignFormatError(why); }

// The lines of a text, a carriage return before a line feed dropped and
// empty lines at the end left out.
std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        if (!lines.back().empty() && lines.back().back() == '\r') lines.back().pop_back();
        start = end + 1;
    }
    while (!lines.empty() && lines.back().empty()) lines.pop_back();
    return lines;
}

std::vector<std::string> ExactLines(const std::string& text, std::size_t count, const char* what) {
    std::vector<std::string> lines = Lines(text);
    if (lines.size() != count) Malformed(std::string(what) + " must have " + std::to_string(count) + " lines");
    return lines;
}

// Tabs are allowed: minisign separates the trusted comment's fields with them.
std::string Comment(const std::string& line, const std::string& head) {
    if (line.compare(0, head.size(), head) != 0) Malformed("a line must start with \"" + head + "\"");
    std::string comment = line.substr(head.size());
    if (comment.size() > kMaxComment) Malformed("a comment is longer than 1024 bytes");
    if (std::any_of(comment.begin(), comment.end(),
                    [](unsigned char c) { return c == 0x7f || (c < 0x20 && c != '\t'); }))
        Malformed("a comment holds control characters");
    return comment;
}

// Exactly `size` bytes in standard base64 with padding, nothing around them.
std::vector<unsigned char> Base64(const std::string& line, std::size_t size) {
    std::vector<unsigned char> bytes(size);
    std::size_t length = 0;
    const char* end = nullptr;
    if (::sodium_base642bin(bytes.data(), bytes.size(), line.data(), line.size(), nullptr, &length, &end,
                            sodium_base64_VARIANT_ORIGINAL) != 0 ||
        end != line.data() + line.size() || length != size)
        Malformed("a line is not the base64 of " + std::to_string(size) + " bytes");
    return bytes;
}

template <std::size_t N>
std::array<unsigned char, N> Slice(const std::vector<unsigned char>& bytes, std::size_t from) {
    std::array<unsigned char, N> slice{};
    std::copy(bytes.begin() + static_cast<long>(from), bytes.begin() + static_cast<long>(from + N), slice.begin());
    return slice;
}

bool Verify(const std::array<unsigned char, 64>& signature, const unsigned char* message, std::size_t length,
            const MinisignPublicKey& key) {
    return ::crypto_sign_verify_detached(signature.data(), message, length, key.key.data()) == 0;
}

}  // namespace

MinisignPublicKey ParseMinisignPublicKey(const std::string& text) {
    std::vector<std::string> lines = ExactLines(text, 2, "a public key");
    MinisignPublicKey key;
    key.comment = Comment(lines[0], kUntrustedHead);
    std::vector<unsigned char> bytes = Base64(lines[1], 2 + 8 + 32);
    if (bytes[0] != 'E' || bytes[1] != 'd') Malformed("the key is not an Ed25519 key (\"Ed\")");
    key.keyId = Slice<8>(bytes, 2);
    key.key = Slice<32>(bytes, 10);
    return key;
}

MinisignSignature ParseMinisignSignature(const std::string& text) {
    std::vector<std::string> lines = ExactLines(text, 4, "a signature");
    Comment(lines[0], kUntrustedHead);
    std::vector<unsigned char> bytes = Base64(lines[1], 2 + 8 + 64);
    if (bytes[0] != 'E' || (bytes[1] != 'd' && bytes[1] != 'D'))
        Malformed("unknown signature algorithm (expected \"Ed\" or \"ED\")");
    MinisignSignature signature;
    signature.prehashed = bytes[1] == 'D';
    signature.keyId = Slice<8>(bytes, 2);
    signature.signature = Slice<64>(bytes, 10);
    signature.trustedComment = Comment(lines[2], kTrustedHead);
    signature.globalSignature = Slice<64>(Base64(lines[3], 64), 0);
    return signature;
}

bool VerifyMinisign(const MinisignPublicKey& key, const MinisignSignature& signature, const std::string& message) {
    EnsureSodium();
    if (key.keyId != signature.keyId) return false;
    std::array<unsigned char, crypto_generichash_BYTES_MAX> digest{};
    const unsigned char* signedBytes = reinterpret_cast<const unsigned char*>(message.data());
    std::size_t signedLength = message.size();
    if (signature.prehashed) {
        ::crypto_generichash(digest.data(), digest.size(), signedBytes, signedLength, nullptr, 0);
        signedBytes = digest.data();
        signedLength = digest.size();
    }
    std::string global(signature.signature.begin(), signature.signature.end());
    global += signature.trustedComment;
    return Verify(signature.signature, signedBytes, signedLength, key) &&
           Verify(signature.globalSignature, reinterpret_cast<const unsigned char*>(global.data()), global.size(), key);
}

std::string KeyIdText(const MinisignKeyId& id) {
    std::string text;
    char digits[3];
    for (auto byte = id.rbegin(); byte != id.rend(); ++byte) {
        std::snprintf(digits, sizeof digits, "%02X", *byte);
        text += digits;
    }
    return text;
}

std::string PublicKeyText(const MinisignPublicKey& key) {
    std::vector<unsigned char> bytes = {'E', 'd'};
    bytes.insert(bytes.end(), key.keyId.begin(), key.keyId.end());
    bytes.insert(bytes.end(), key.key.begin(), key.key.end());
    std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    ::sodium_bin2base64(&text[0], text.size(), bytes.data(), bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    text.resize(text.size() - 1);  // the terminating NUL
    return text;
}

bool IsKeyIdText(const std::string& text) {
    return text.size() == 16 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

}  // namespace qdmcli
