#include <algorithm>
#include <cpprest/http_msg.h>
#include <cpprest/streams.h>
#include <nlohmann/json.hpp>

#include "LibService/MessageIds.h"
#include "auth/AuthenticateHandler.h"
#include "auth/Authentication.h"
#include "auth/passkeys/Json.h"
#include "http/FormBody.h"
#include "platform/UrlPath.h"
#include "platform/crypto/Secret.h"

namespace quorbel {

namespace {

using web::http::http_request;

/// The relying party's name for people, as a named value of the listener.
constexpr std::wstring_view kApplicationValue = L"Registry$Application";

/// A header field's value; none when the request has none of that name.
std::optional<std::string> Field(const http_request& request, const char* name) {
    const auto field = request.headers().find(name);
    if (field == request.headers().end()) return std::nullopt;
    return field->second;
}

/// Percent signs decoded; none for a bad one or what is no text.
std::optional<std::wstring> Decode(const std::wstring& value) {
    std::string encoded = ToUtf8(value);
    auto bytes = PercentDecode(encoded);
    Wipe(encoded);
    if (!bytes) return std::nullopt;
    auto text = FromUtf8Strict(*bytes);
    Wipe(*bytes);
    return text;
}

bool IsNamedValue(std::wstring_view name) {
    return name.starts_with(L"Registry$") || name.starts_with(L"Directory$");
}

/// A URI reference (RFC 3986, section 4.1). The library takes a text that begins with a character that no URI
/// has for an empty one.
bool IsUriReference(const std::string& text) {
    constexpr std::string_view kNeverInUri = "\"<>\\^`{|}";
    const auto mayStand = [&](char character) {
        return character > ' ' && character < '\x7F' && kNeverInUri.find(character) == kNeverInUri.npos;
    };
    return std::all_of(text.begin(), text.end(), mayStand) && web::uri::validate(text);
}

/// The path of the page that a form was posted from: where to go when the form does not say.
std::wstring ReferringPath(const http_request& request) {
    const std::string origin = Field(request, "Origin").value_or("");
    if (origin.empty() || origin == "null") return L"/";
    const std::string referrer = Field(request, "Referer").value_or("");
    return referrer.size() < origin.size() ? L"/" : FromUtf8(referrer.substr(origin.size()));
}

}  // namespace

class CHTTPServer::CAuthenticator::Response final : public CRequestHandler::CResponse {
 public:
    Response(std::uint16_t status, HeaderMap headers, std::string document) : m_status(status) {
        m_headers = std::move(headers);
        if (!document.empty()) m_body = concurrency::streams::bytestream::open_istream(std::move(document));
    }
    std::uint16_t StatusCode() override { return m_status; }

 private:
    const std::uint16_t m_status;
};

/// One request to the endpoint.
class CHTTPServer::CAuthenticator::CCall {
 public:
    CCall(CAuthenticator& authenticator, const http_request& request, const UserIdentity& user)
        : m_authenticator(authenticator), m_request(request), m_user(user) {}
    CCall(const CCall&) = delete;
    CCall& operator=(const CCall&) = delete;

    void AnswerForm(const TextMap& parameters);
    void AnswerJson(const std::string& body);
    std::shared_ptr<Response> Reply();

 private:
    bool TakeFields(const TextMap& parameters);
    bool TakeMembers(const nlohmann::json& body);
    const std::wstring* FieldValue(std::wstring_view name) const;
    std::wstring_view Text(std::wstring_view name) const;
    /// The user that the form names, else the one who is signed in.
    UserIdentity NamedUser() const;

    void SignIn();
    void ChangePassword();
    void SendCreationOptions();
    void Refuse(std::uint16_t status) { m_outcome = {status}; }

    CAuthenticator& m_authenticator;
    const http_request& m_request;
    const UserIdentity& m_user;
    CFormFields m_fields;  ///< decoded
    std::wstring m_action;
    std::wstring m_onSuccess;
    std::wstring m_onFailure;
    bool m_signsOut = false;
    Outcome m_outcome;
};

bool CHTTPServer::CAuthenticator::CCall::TakeFields(const TextMap& parameters) {
    bool areValid = true;
    for (const auto& [name, value] : parameters) {
        auto decoded = Decode(value);
        if (decoded) {
            m_fields.values[name] = *std::move(decoded);
        } else if (IsNamedValue(name)) {
            m_fields.values[name] = value;
        } else {
            areValid = false;
        }
    }
    m_action = Text(L"action");
    m_onSuccess = Text(L"OnSuccess");
    m_onFailure = Text(L"OnFailure");
    return areValid;
}

const std::wstring* CHTTPServer::CAuthenticator::CCall::FieldValue(std::wstring_view name) const {
    const auto field = m_fields.values.find(std::wstring(name));
    return field == m_fields.values.end() ? nullptr : &field->second;
}

std::wstring_view CHTTPServer::CAuthenticator::CCall::Text(std::wstring_view name) const {
    const std::wstring* value = FieldValue(name);
    return value ? *value : std::wstring_view();
}

UserIdentity CHTTPServer::CAuthenticator::CCall::NamedUser() const {
    const std::wstring* name = FieldValue(L"user");
    return name ? UserIdentity(*name) : m_user;
}

void CHTTPServer::CAuthenticator::CCall::AnswerForm(const TextMap& parameters) {
    if (!TakeFields(parameters)) return Refuse(400);
    if (EqualNoCase(m_action, L"change-password")) {
        ChangePassword();
    } else if (EqualNoCase(m_action, L"webauthn-register")) {
        SendCreationOptions();
    } else if (EqualNoCase(m_action, L"webauthn-authenticate")) {
        m_outcome = m_authenticator.RequestOptions(NamedUser());
    } else {
        m_signsOut = EqualNoCase(m_action, L"logout");
        if (!m_signsOut) SignIn();
        if (m_onSuccess.empty()) m_onSuccess = ReferringPath(m_request);
    }
}

void CHTTPServer::CAuthenticator::CCall::SignIn() {
    const std::wstring_view password = Text(L"password");
    if (password.empty()) return Refuse(401);
    const bool remembers = EqualNoCase(Text(L"remember"), L"on");
    m_outcome = m_authenticator.SignIn(NamedUser(), password, remembers ? Remember::Yes : Remember::No);
}

void CHTTPServer::CAuthenticator::CCall::ChangePassword() {
    const std::wstring* newPassword = FieldValue(L"newPassword");
    const std::wstring* confirmation = FieldValue(L"confirmPassword");
    if (!confirmation || *confirmation != Text(L"newPassword")) return Refuse(400);
    PasswordChange change{m_user, std::nullopt, Text(L"password"), std::nullopt};
    if (FieldValue(L"user")) change.target = NamedUser();
    if (newPassword) change.newPassword = *newPassword;
    m_outcome = m_authenticator.ChangePassword(change);
}

void CHTTPServer::CAuthenticator::CCall::SendCreationOptions() {
    const std::wstring_view password = Text(L"password");
    if (!FieldValue(L"user") || password.empty()) return Refuse(401);
    const auto optional = [this](std::wstring_view name) {
        const std::wstring* value = FieldValue(name);
        return value ? std::optional(*value) : std::nullopt;
    };
    m_outcome = m_authenticator.CreationOptions(
        {NamedUser(), password, optional(L"displayName"), optional(kApplicationValue)});
}

bool CHTTPServer::CAuthenticator::CCall::TakeMembers(const nlohmann::json& body) {
    const auto take = [&body](const char* name, std::wstring& text) {
        if (!body.is_object() || !body.contains(name)) return true;
        const nlohmann::json& member = body[name];
        if (member.is_string()) text = FromUtf8(member.get_ref<const std::string&>());
        return member.is_string();
    };
    return take("action", m_action) && take("OnSuccess", m_onSuccess) && take("OnFailure", m_onFailure);
}

void CHTTPServer::CAuthenticator::CCall::AnswerJson(const std::string& text) {
    const auto contentType = Field(m_request, "Content-Type");
    if (!contentType || !HasMediaType(FromUtf8(*contentType), L"application/json")) return Refuse(400);
    nlohmann::json body;
    if (!ParseJson(text, body) || !TakeMembers(body)) return Refuse(400);
    if (EqualNoCase(m_action, L"webauthn-register")) {
        m_outcome = m_authenticator.RegisterCredential(body);
    } else if (EqualNoCase(m_action, L"webauthn-authenticate")) {
        m_outcome = m_authenticator.SignInByPasskey(body);
        if (!m_onSuccess.empty()) m_outcome.document.clear();
    } else {
        return Refuse(401);
    }
    m_authenticator.ReportPasskeyFailure(std::exchange(m_outcome.failure, {}));
}

std::shared_ptr<CHTTPServer::CAuthenticator::Response> CHTTPServer::CAuthenticator::CCall::Reply() {
    m_outcome.failure.Report();
    HeaderMap headers;
    if (m_signsOut) {
        headers[L"Set-Cookie"] = m_authenticator.m_cookieName + L"=; expires=Thu, 01 Jan 1970 00:00:00 GMT";
    } else if (!m_outcome.token.empty()) {
        headers[L"Set-Cookie"] =
            m_authenticator.m_cookieName + L"=" + FromUtf8(m_outcome.token) + L"; HttpOnly";
    }
    const std::wstring& target = m_outcome.status == 200 ? m_onSuccess : m_onFailure;
    if (!target.empty()) {
        const bool isUri = IsUriReference(ToUtf8(target));
        m_outcome.status = isUri ? 302 : 400;
        if (isUri) headers[L"Location"] = target;
    }
    return std::make_shared<Response>(m_outcome.status, std::move(headers), std::move(m_outcome.document));
}

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CHTTPServer::CAuthenticator::Authenticate(
    const http_request& request, const UserIdentity& user, const TextMap& parameters) {
    CCall call(*this, request, user);
    // The body of a form is in the parameters, and no longer in the request.
    const std::vector<unsigned char> bytes = request.extract_vector().get();
    if (bytes.empty()) {
        call.AnswerForm(parameters);
    } else {
        call.AnswerJson({bytes.begin(), bytes.end()});
    }
    return call.Reply();
}

void CHTTPServer::CAuthenticator::ReportPasskeyFailure(const CStatus& failure) {
    if (failure.IsOk()) return;
    const auto leftOut = m_passkeyEvents.Admit();
    if (!leftOut) return;
    if (*leftOut == 0) return failure.Report();
    MessageError(message::kStandardException,
                 {std::to_wstring(*leftOut) + L" further passkey errors of the host " + m_relyingPartyId +
                  L" were left out"})
        .Report();
    if (m_passkeyEvents.Admit()) failure.Report();
}

}  // namespace quorbel
