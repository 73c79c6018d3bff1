#include "components/search/SearchComponent.h"

#include "components/oledb/ComBorder.h"
#include "components/search/query/QueryHelper.h"
#include "components/search/query/SearchProvider.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

constexpr GUID kProviderClass{0x9F4B2D61, 0x7C08, 0x4E3A, {0x86, 0xD5, 0x2B, 0x91, 0x0E, 0x64, 0xAF, 0x37}};

class CSearchCatalogManager final : public CComObject<ISearchCatalogManager> {
 public:
    HRESULT GetQueryHelper(ISearchQueryHelper** helper) override {
        if (!helper) return E_POINTER;
        *helper = nullptr;
        return AtBorder([&] {
            *helper = CComPtr<ISearchQueryHelper>(new CSearchQueryHelper).Detach();
            return S_OK;
        });
    }
};

class CSearchManager final : public CComObject<ISearchManager> {
 public:
    HRESULT GetCatalog(const wchar_t* name, ISearchCatalogManager** catalog) override {
        if (!catalog) return E_POINTER;
        *catalog = nullptr;
        return AtBorder([&] {
            if (!name || !EqualNoCase(name, L"SystemIndex")) {
                SetErrorInfo(L"There is no such search catalogue.");
                return E_INVALIDARG;
            }
            *catalog = CComPtr<ISearchCatalogManager>(new CSearchCatalogManager).Detach();
            return S_OK;
        });
    }
};

std::shared_ptr<CConnectionPool> MakePool(std::string indexFolder) {
    const CSearchOptions options;
    CPoolOptions pool;
    pool.mostOpen = options.mostConnections;
    pool.mostIdle = options.mostConnections;
    return std::make_shared<CConnectionPool>(
        std::make_shared<CSearchDatabase>(std::move(indexFolder), options), pool,
        std::weak_ptr<CConnectionReset>());
}

}  // namespace

CSearchRegistration RegisterSearch(std::string indexFolder) {
    const std::shared_ptr<CConnectionPool> pool = MakePool(std::move(indexFolder));
    return {{kSearchManagerClass,
             [](const GUID& interfaceId, void** object) {
                 return AtBorder([&] {
                     const CComPtr<CSearchManager> created(new CSearchManager);
                     return created->QueryInterface(interfaceId, object);
                 });
             }},
            {kProviderClass, kSearchProviderName, [pool](const GUID& interfaceId, void** object) {
                 return AtBorder([&] {
                     const CComPtr<CSearchSource> source(new CSearchSource(pool));
                     return source->QueryInterface(interfaceId, object);
                 });
             }}};
}

}  // namespace quorbel
