#include "platform/crypto/Digest.h"

#include <memory>
#include <openssl/evp.h>

namespace quorbel {

namespace {

std::string Digest(const EVP_MD* algorithm, std::initializer_list<std::string_view> pieces) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), algorithm, nullptr) != 1) return {};
    for (std::string_view piece : pieces) {
        if (EVP_DigestUpdate(context.get(), piece.data(), piece.size()) != 1) return {};
    }
    std::string digest(EVP_MAX_MD_SIZE, '\0');
    unsigned size = 0;
    const auto bytes = reinterpret_cast<unsigned char*>(digest.data());
    if (EVP_DigestFinal_ex(context.get(), bytes, &size) != 1) return {};
    digest.resize(size);
    return digest;
}

}  // namespace

std::string Sha256(std::initializer_list<std::string_view> pieces) {
    return Digest(EVP_sha256(), pieces);
}

std::string Sha1(std::initializer_list<std::string_view> pieces) {
    return Digest(EVP_sha1(), pieces);
}

}  // namespace quorbel
