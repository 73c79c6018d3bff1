#include "http/RequestHandlerFactory.h"

#include <array>

namespace quorbel {

namespace {

std::map<std::wstring, CRequestHandlerFactory::Creator, CLessNoCase>& Creators() {
    static std::map<std::wstring, CRequestHandlerFactory::Creator, CLessNoCase> creators;
    return creators;
}

}  // namespace

void CRequestHandlerFactory::Register(const std::wstring& kind, Creator creator) {
    Creators()[kind] = std::move(creator);
}

const CRequestHandlerFactory::Creator* CRequestHandlerFactory::Find(std::wstring_view kind) {
    const auto found = Creators().find(kind);
    return found == Creators().end() ? nullptr : &found->second;
}

std::span<const std::wstring_view> CRequestHandlerFactory::StylesheetKinds() {
    static constexpr std::array<std::wstring_view, 2> kKinds{L"SQL", L"SEARCH"};
    return kKinds;
}

}  // namespace quorbel
