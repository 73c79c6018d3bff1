#pragma once

#include <openssl/x509.h>
#include <string>
#include <vector>

namespace quorbel {

/// What a person wants to know of a certificate.
struct CCertificateInfo {
    std::wstring subject;             ///< "CN = www.example.org"; may be empty
    std::vector<std::wstring> names;  ///< the DNS names and IP addresses that it is for
    std::wstring validFrom;           ///< "2027-01-31T12:00:00Z"
    std::wstring validUntil;
    bool isValidNow = false;
};

CCertificateInfo DescribeCertificate(X509* certificate);

/// Whether a client that asks for that DNS name or IP address (IPv6 without brackets) would take the
/// certificate for it.
bool IsCertificateFor(X509* certificate, const std::string& host);

/// Whether it is the text of an IP address (IPv6 without brackets).
bool IsIpAddress(const std::string& text);

}  // namespace quorbel
