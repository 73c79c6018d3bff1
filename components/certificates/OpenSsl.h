#pragma once

#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <string>

#include "platform/Text.h"

namespace quorbel {

/// Lets std::unique_ptr own what a function of OpenSSL frees.
template <auto Free>
struct COpenSslFree {
    template <class T>
    void operator()(T* object) const noexcept {
        static_cast<void>(Free(object));
    }
};

inline void FreeX509Chain(STACK_OF(X509) * chain) noexcept {
    sk_X509_pop_free(chain, X509_free);
}

using CBioPointer = std::unique_ptr<BIO, COpenSslFree<BIO_free>>;
using CKeyPointer = std::unique_ptr<EVP_PKEY, COpenSslFree<EVP_PKEY_free>>;
using CX509Pointer = std::unique_ptr<X509, COpenSslFree<X509_free>>;
using CX509ChainPointer = std::unique_ptr<STACK_OF(X509), COpenSslFree<FreeX509Chain>>;

/// OpenSSL's text for this thread's last error, such as "no start line".
inline std::wstring OpenSslReason() {
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    return reason ? FromUtf8(reason) : L"an unknown error";
}

}  // namespace quorbel
