#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "components/http_server/BodyDecoder.h"
#include "components/http_server/RequestHead.h"
#include "tests/components/http_server/RawRequests.h"

using namespace quorbel;

namespace {

using Target = CRequestHead::Target;

void Require(bool holds) {
    if (!holds) std::abort();
}

// The corpus is the table of raw requests, and the bounds are those that it was made for.
const CHttpLimits kLimits = RawRequestLimits();

/// What became of a stream of requests.
struct COutcome {
    std::vector<std::string> requests;  ///< each canonical head with its body
    std::size_t used = 0;               ///< bytes of these
    int refusal = 0;                    ///< of what follows; 0 for more requests or an incomplete one
    bool operator==(const COutcome&) const = default;
};

void RequireWithin(std::string_view view, std::string_view input) {
    if (view.empty() || view == "/" || view == "*") return;  // these may be constants
    Require(view.data() >= input.data() && view.data() + view.size() <= input.data() + input.size());
}

void Check(const CRequestHead& head, std::string_view input) {
    for (const std::string_view view : {head.method, head.path, head.query, head.authority}) {
        RequireWithin(view, input);
    }
    Require(IsToken(head.method));
    Require(head.target == Target::Authority ? head.path.empty()
                                             : head.path == "*" || head.path.starts_with('/'));
    Require(head.fields.size() <= kLimits.headerFields && head.contentLength <= kLimits.bodyBytes);
    Require(!head.isChunked || (head.contentLength == 0 && head.minorVersion == 1));
    for (const CRequestHead::CField& field : head.fields) {
        RequireWithin(field.name, input);
        RequireWithin(field.value, input);
        Require(IsToken(field.name) && IsFieldValue(field.value));
    }
}

/// The head as we would have sent it.
std::string Serialise(const CRequestHead& head) {
    std::string text(head.method);
    text.append(" ");
    if (head.target == Target::Authority) {
        text.append(head.authority);
    } else {
        if (head.scheme != CRequestHead::Scheme::None) {
            text.append(head.scheme == CRequestHead::Scheme::Http ? "http://" : "https://");
            text.append(head.authority);
        }
        if (head.path != "*" || head.scheme == CRequestHead::Scheme::None) text.append(head.path);
        if (!head.query.empty()) text.append("?").append(head.query);
    }
    text.append(head.minorVersion == 0 ? " HTTP/1.0\r\n" : " HTTP/1.1\r\n");
    for (const CRequestHead::CField& field : head.fields) {
        text.append(field.name).append(":").append(field.value).append("\r\n");
    }
    return text.append("\r\n");
}

bool HasSameMeaning(const CRequestHead& a, const CRequestHead& b) {
    const bool isSame = a.method == b.method && a.target == b.target && a.path == b.path &&
                        a.query == b.query && a.scheme == b.scheme && a.authority == b.authority &&
                        a.minorVersion == b.minorVersion && a.contentLength == b.contentLength &&
                        a.isChunked == b.isChunked && a.keepsAlive == b.keepsAlive &&
                        a.expectsContinue == b.expectsContinue && a.fields.size() == b.fields.size();
    for (std::size_t i = 0; isSame && i < a.fields.size(); ++i) {
        if (a.fields[i].name != b.fields[i].name || a.fields[i].value != b.fields[i].value) return false;
    }
    return isSame;
}

void RequireSameAgain(const CRequestHead& head, const std::string& canonical) {
    // A path that was left out has become "/".
    CHttpLimits limits = kLimits;
    ++limits.requestLineBytes;
    CRequestHeadParser parser;
    Require(parser.Parse(canonical, limits) == CRequestHeadParser::Progress::Complete);
    Require(parser.Length() == canonical.size() && HasSameMeaning(head, parser.Head()));
}

/// Reads the input, of which the first `cut` bytes come first.
COutcome Read(std::string_view input, std::size_t cut) {
    COutcome outcome;
    CRequestHeadParser parser;
    CBodyDecoder decoder;
    std::size_t end = cut;
    const auto more = [&] { return std::exchange(end, input.size()) != input.size(); };
    while (outcome.used <= input.size()) {
        parser.Reset();
        std::string_view rest;
        for (;;) {
            rest = input.substr(outcome.used, std::max(end, outcome.used) - outcome.used);
            const auto progress = parser.Parse(rest, kLimits);
            if (progress == CRequestHeadParser::Progress::Complete) break;
            outcome.refusal = progress == CRequestHeadParser::Progress::Refused ? parser.Refusal() : 0;
            if (outcome.refusal != 0 || !more()) return outcome;
        }
        Require(parser.Length() <= rest.size());
        Check(parser.Head(), rest);
        const std::string canonical = Serialise(parser.Head());
        RequireSameAgain(parser.Head(), canonical);
        rest.remove_prefix(parser.Length());
        decoder.Reset(parser.Head());
        std::string body;
        for (;;) {
            const auto progress = decoder.Take(rest, body, kLimits);
            Require(body.size() <= kLimits.bodyBytes);
            if (progress == CBodyDecoder::Progress::Complete) break;
            outcome.refusal = progress == CBodyDecoder::Progress::Refused ? decoder.Refusal() : 0;
            if (outcome.refusal != 0) return outcome;
            Require(rest.empty());
            const std::size_t before = end;
            if (!more()) return outcome;
            rest = input.substr(before);
        }
        outcome.requests.push_back(canonical + body);
        outcome.used = static_cast<std::size_t>(rest.data() - input.data());
    }
    return outcome;
}

}  // namespace

/// Any bytes as what a client sends: however they are cut, the same requests are read, whose meaning survives
/// being written again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const COutcome whole = Read(input, size);
    std::size_t hash = size;
    for (const char byte : input) hash = hash * 31 + static_cast<unsigned char>(byte);
    Require(Read(input, size == 0 ? 0 : hash % size) == whole);
    return 0;
}
