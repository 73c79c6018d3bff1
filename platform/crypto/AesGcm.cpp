#include "platform/crypto/AesGcm.h"

#include <limits>
#include <memory>
#include <openssl/evp.h>

#include "platform/crypto/Secret.h"

namespace quorbel {

namespace {

enum class Direction { Open = 0, Seal = 1 };

const unsigned char* Bytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// One run of the cipher over additional data and content.
class CAesGcm {
 public:
    bool Begin(Direction direction, const AesKey& key, const AesNonce& nonce, std::string_view additional) {
        int ignored = 0;
        return m_context &&
               ::EVP_CipherInit_ex(m_context.get(), ::EVP_aes_256_gcm(), nullptr, key.data(), nonce.data(),
                                   static_cast<int>(direction)) == 1 &&
               ::EVP_CipherUpdate(m_context.get(), nullptr, &ignored, Bytes(additional),
                                  static_cast<int>(additional.size())) == 1;
    }
    bool Run(std::string_view input, char* output) {
        int count = 0;
        const auto bytes = reinterpret_cast<unsigned char*>(output);
        return ::EVP_CipherUpdate(m_context.get(), bytes, &count, Bytes(input),
                                  static_cast<int>(input.size())) == 1;
    }
    /// When opening, false for a tag that does not fit.
    bool End() {
        int count = 0;
        unsigned char nothing[EVP_MAX_BLOCK_LENGTH];
        return ::EVP_CipherFinal_ex(m_context.get(), nothing, &count) == 1;
    }
    bool GetTag(char* tag) {
        return ::EVP_CIPHER_CTX_ctrl(m_context.get(), EVP_CTRL_AEAD_GET_TAG, kAesTagSize, tag) == 1;
    }
    bool SetTag(std::string tag) {
        return ::EVP_CIPHER_CTX_ctrl(m_context.get(), EVP_CTRL_AEAD_SET_TAG, kAesTagSize, tag.data()) == 1;
    }

 private:
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> m_context{EVP_CIPHER_CTX_new(),
                                                                                    &EVP_CIPHER_CTX_free};
};

bool IsTooMuch(std::string_view additional, std::string_view content) {
    constexpr std::size_t kMost = std::numeric_limits<int>::max();
    return additional.size() > kMost || content.size() > kMost;
}

}  // namespace

std::optional<std::string> SealAesGcm(const AesKey& key, const AesNonce& nonce, std::string_view additional,
                                      std::string_view plain) {
    if (IsTooMuch(additional, plain)) return std::nullopt;
    CAesGcm cipher;
    std::string sealed(plain.size() + kAesTagSize, '\0');
    const bool isDone = cipher.Begin(Direction::Seal, key, nonce, additional) &&
                        cipher.Run(plain, sealed.data()) && cipher.End() &&
                        cipher.GetTag(sealed.data() + plain.size());
    return isDone ? std::optional(std::move(sealed)) : std::nullopt;
}

std::optional<std::string> OpenAesGcm(const AesKey& key, const AesNonce& nonce, std::string_view additional,
                                      std::string_view sealedAndTag) {
    if (sealedAndTag.size() < kAesTagSize || IsTooMuch(additional, sealedAndTag)) return std::nullopt;
    const std::string_view sealed = sealedAndTag.substr(0, sealedAndTag.size() - kAesTagSize);
    CAesGcm cipher;
    std::string plain(sealed.size(), '\0');
    const bool isDone = cipher.Begin(Direction::Open, key, nonce, additional) &&
                        cipher.Run(sealed, plain.data()) &&
                        cipher.SetTag(std::string(sealedAndTag.substr(sealed.size()))) && cipher.End();
    if (isDone) return plain;
    Wipe(plain);
    return std::nullopt;
}

}  // namespace quorbel
