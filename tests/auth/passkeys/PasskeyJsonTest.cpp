#include <nlohmann/json.hpp>

#include "auth/passkeys/PasskeyJson.h"
#include "tests/auth/passkeys/Outcome.h"
#include "tests/support/service/SoftAuthenticator.h"

namespace quorbel {
namespace {

using nlohmann::json;

TEST(PasskeyJson, ReadsWhatAPagePosts) {
    const CSoftAuthenticator authenticator;
    const CSoftAttestation made = authenticator.None("challenge");
    CRegistrationResponse registration;
    ASSERT_EQ(Outcome(ReadRegistrationResponse({{"credentials", made.Json()}}, registration)), "ok");
    EXPECT_EQ(registration.authenticatorData, made.authenticatorData);
    EXPECT_EQ(registration.clientDataJson, made.clientDataJson);
    EXPECT_EQ(registration.attestationObject, made.Response().attestationObject);

    const json body{{"credentials", authenticator.AssertionJson("challenge")}};
    const CAssertionResponse expected = authenticator.Assertion("challenge");
    CAssertionResponse assertion;
    std::string id;
    ASSERT_EQ(Outcome(ReadCredentialId(body, id)), "ok");
    ASSERT_EQ(Outcome(ReadAssertionResponse(body, assertion)), "ok");
    EXPECT_EQ(id, authenticator.credentialId);
    EXPECT_EQ(assertion.authenticatorData, expected.authenticatorData);
    EXPECT_EQ(assertion.clientDataJson, expected.clientDataJson);
    EXPECT_FALSE(assertion.signature.empty());
}

/// Every way in which the member at `path` of a good document can be bad is refused with the member's name.
template <class Read>
void ExpectNeeded(const json& good, const std::vector<std::string>& paths, bool isBase64, Read read) {
    ASSERT_EQ(Outcome(read(good)), "ok");
    for (const std::string& path : paths) {
        const json::json_pointer pointer(path);
        const std::string expected = "error 13: " + pointer.back();
        json missing = good;
        missing.at(pointer.parent_pointer()).erase(pointer.back());
        EXPECT_EQ(Outcome(read(missing)), expected) << path;
        std::vector<json> bad{nullptr, 7, true, json::array({"AAAA"})};
        if (isBase64) bad.insert(bad.end(), {"A", "AA==", "AB", "A+", "A A", "\u00e4"});
        if (!isBase64) bad.push_back("text");
        for (const json& value : bad) {
            json changed = good;
            changed.at(pointer) = value;
            EXPECT_EQ(Outcome(read(changed)), expected) << path << value;
        }
    }
}

TEST(PasskeyJson, NamesTheMemberThatIsMissingOrWrong) {
    const CSoftAuthenticator authenticator;
    const json registration{{"credentials", authenticator.None("challenge").Json()}};
    const json assertion{{"credentials", authenticator.AssertionJson("challenge")}};
    const auto readRegistration = [](const json& body) {
        CRegistrationResponse response;
        return ReadRegistrationResponse(body, response);
    };
    const auto readAssertion = [](const json& body) {
        CAssertionResponse response;
        return ReadAssertionResponse(body, response);
    };
    const auto readId = [](const json& body) {
        std::string id;
        return ReadCredentialId(body, id);
    };
    ExpectNeeded(registration, {"/credentials", "/credentials/response"}, false, readRegistration);
    ExpectNeeded(assertion, {"/credentials", "/credentials/response"}, false, readAssertion);
    ExpectNeeded(assertion, {"/credentials"}, false, readId);
    const std::string response = "/credentials/response/";
    ExpectNeeded(registration,
                 {response + "authenticatorData", response + "clientDataJSON", response + "publicKey"}, true,
                 readRegistration);
    ExpectNeeded(assertion,
                 {response + "authenticatorData", response + "clientDataJSON", response + "signature"}, true,
                 readAssertion);
    ExpectNeeded(assertion, {"/credentials/id"}, true, readId);
    for (const json& body : {json(), json("text"), json::array(), json(7)}) {
        EXPECT_EQ(Outcome(readRegistration(body)), "error 13: credentials") << body;
        EXPECT_EQ(Outcome(readId(body)), "error 13: credentials") << body;
    }
}

TEST(PasskeyJson, LeavesTheDecodingOfTheAttestationToItsCheck) {
    json body{{"credentials", CSoftAuthenticator().None("challenge").Json()}};
    body["credentials"]["response"]["attestationObject"] = "no Base64!";
    CRegistrationResponse response;
    EXPECT_EQ(Outcome(ReadRegistrationResponse(body, response)), "ok");
    body["credentials"]["response"]["attestationObject"] = 7;
    EXPECT_EQ(Outcome(ReadRegistrationResponse(body, response)), "error 13: attestationObject");
}

TEST(PasskeyJson, TakesADisplayNameWhenThereIsOne) {
    const std::tuple<const char*, const char*, std::optional<std::wstring>> cases[] = {
        {R"({"user":{"displayName":"\u00c4nn \ud83d\ude00"}})", "ok", L"\u00c4nn \U0001F600"},
        {R"({"user":{"displayName":""}})", "ok", L""},
        {R"({"user":{}})", "ok", std::nullopt},
        {R"({})", "ok", std::nullopt},
        {R"({"user":{"displayName":7}})", "error 13: displayName", std::nullopt},
        {R"({"user":{"displayName":null}})", "error 13: displayName", std::nullopt},
        {R"({"user":"ann"})", "error 13: user", std::nullopt},
    };
    for (const auto& [body, outcome, expected] : cases) {
        std::optional<std::wstring> name = L"from before";
        EXPECT_EQ(Outcome(ReadDisplayName(json::parse(body), name)), outcome) << body;
        EXPECT_EQ(name, expected) << body;
    }
}

TEST(PasskeyJson, WritesDocumentsWithSortedMembers) {
    CCreationOptions creation;
    creation.challenge = "\xFB\xFF";
    creation.relyingPartyId = L"example.org";
    creation.identity = "id";
    creation.userName = L"\u00e4nn \"a\"";
    const std::string parameters =
        R"("pubKeyCredParams":[{"alg":-7,"type":"public-key"},{"alg":-257,"type":"public-key"}],)";
    EXPECT_EQ(CreationOptionsDocument(creation),
              R"({"attestation":"direct","attestationFormats":["packed","tpm"],)"
              R"("authenticatorSelection":{"userVerification":"required"},"challenge":"-_8",)" +
                  parameters + R"("rp":{"id":"example.org"},"user":{"id":"aWQ","name":")" +
                  "\u00e4nn \\\"a\\\"\"}}");
    creation.credentialIds = {"b", "a"};
    creation.relyingPartyName = L"Archive";
    creation.displayName = L"";
    EXPECT_EQ(CreationOptionsDocument(creation),
              R"({"attestation":"direct","attestationFormats":["packed","tpm"],)"
              R"("authenticatorSelection":{"userVerification":"required"},"challenge":"-_8",)"
              R"("excludeCredentials":[{"id":"Yg","type":"public-key"},{"id":"YQ","type":"public-key"}],)" +
                  parameters + R"("rp":{"id":"example.org","name":"Archive"},)" +
                  R"("user":{"displayName":"","id":"aWQ","name":")" + "\u00e4nn \\\"a\\\"\"}}");

    EXPECT_EQ(
        RequestOptionsDocument({"\xFB\xFF", {}, L"example.org"}),
        R"({"allowCredentials":[],"challenge":"-_8","rpId":"example.org","userVerification":"required"})");
    EXPECT_EQ(RequestOptionsDocument({"", {"b", "a"}, L""}),
              R"({"allowCredentials":[{"id":"Yg","type":"public-key"},{"id":"YQ","type":"public-key"}],)"
              R"("challenge":"","rpId":"","userVerification":"required"})");

    EXPECT_EQ(SignInDocument({{"b", "a"}, L"Ann", L"ann", "id"}),
              R"({"allAcceptedCredentialIds":["Yg","YQ"],"displayName":"Ann","name":"ann","userId":"aWQ"})");
    EXPECT_EQ(SignInDocument({{}, L"", L"ann", "id"}),
              R"({"allAcceptedCredentialIds":[],"displayName":"","name":"ann","userId":"aWQ"})");
}

}  // namespace
}  // namespace quorbel
