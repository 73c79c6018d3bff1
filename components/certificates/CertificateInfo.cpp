#include "components/certificates/CertificateInfo.h"

#include <ctime>
#include <openssl/x509v3.h>

#include "components/certificates/OpenSsl.h"
#include "platform/Error.h"

namespace quorbel {

namespace {

using CNamesPointer = std::unique_ptr<GENERAL_NAMES, COpenSslFree<GENERAL_NAMES_free>>;
using COctetsPointer = std::unique_ptr<ASN1_OCTET_STRING, COpenSslFree<ASN1_OCTET_STRING_free>>;

std::wstring ToText(const ASN1_TIME* time) {
    std::tm fields{};
    char text[sizeof("2027-01-31T12:00:00Z")];
    if (ASN1_TIME_to_tm(time, &fields) != 1 ||
        std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &fields) == 0)
        return {};
    return FromUtf8(text);
}

std::wstring ToText(const X509_NAME* name) {
    const CBioPointer memory(BIO_new(BIO_s_mem()));
    const unsigned long form = XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB;
    if (!memory || X509_NAME_print_ex(memory.get(), name, 0, form) < 0) return {};
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return FromUtf8({data, static_cast<std::size_t>(size)});
}

std::string_view BytesOf(const ASN1_STRING* text) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
            static_cast<std::size_t>(ASN1_STRING_length(text))};
}

/// "127.0.0.1", or for 16 bytes eight groups of digits, none of them left out.
std::wstring AddressText(std::string_view bytes) {
    std::wstring text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (bytes.size() == 4) {
            text += (i == 0 ? L"" : L".") + std::to_wstring(byte);
        } else if (i % 2 == 1) {
            const auto group = static_cast<unsigned>(static_cast<unsigned char>(bytes[i - 1]) << 8 | byte);
            text += (i == 1 ? L"" : L":") + ToHex(group, 1);
        }
    }
    return FoldCase(text);
}

std::vector<std::wstring> NamesOf(const X509* certificate) {
    std::vector<std::wstring> texts;
    const CNamesPointer names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        int type = 0;
        const void* value = GENERAL_NAME_get0_value(sk_GENERAL_NAME_value(names.get(), i), &type);
        if (type != GEN_DNS && type != GEN_IPADD) continue;
        const std::string_view bytes = BytesOf(static_cast<const ASN1_STRING*>(value));
        texts.push_back(type == GEN_DNS ? FromUtf8(bytes) : AddressText(bytes));
    }
    return texts;
}

}  // namespace

CCertificateInfo DescribeCertificate(X509* certificate) {
    const ASN1_TIME* from = X509_get0_notBefore(certificate);
    const ASN1_TIME* until = X509_get0_notAfter(certificate);
    CCertificateInfo info{ToText(X509_get_subject_name(certificate)), NamesOf(certificate), ToText(from),
                          ToText(until), X509_cmp_current_time(from) < 0 && X509_cmp_current_time(until) > 0};
    ERR_clear_error();
    return info;
}

bool IsIpAddress(const std::string& text) {
    const COctetsPointer address(a2i_IPADDRESS(text.c_str()));
    ERR_clear_error();
    return address != nullptr;
}

bool IsCertificateFor(X509* certificate, const std::string& host) {
    const bool isFor = IsIpAddress(host)
                           ? X509_check_ip_asc(certificate, host.c_str(), 0) == 1
                           : X509_check_host(certificate, host.data(), host.size(), 0, nullptr) == 1;
    ERR_clear_error();
    return isFor;
}

}  // namespace quorbel
