#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "components/search/SearchComponent.h"
#include "components/search/SearchManager.h"
#include "components/search/index/IndexWriter.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/DataInitialize.h"
#include "tests/components/oledb/OleDbConsumer.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

/// What is put into the index for a test.
struct CSearchFile {
    std::string folder;
    std::string name;
    std::string text = {};
    std::string title = {};
    std::string author = {};
    std::int64_t size = 0;
    std::int64_t modified = 0;  ///< nanoseconds since 1970
};

inline void PutInto(CIndexWriter& writer, const std::vector<CSearchFile>& files) {
    ASSERT_EQ(writer.Begin(), ErrorCode::Success);
    for (const CSearchFile& file : files) {
        const auto folder = writer.Folder(file.folder);
        ASSERT_TRUE(folder.IsOk());
        CExtractedText text;
        text.text = file.text;
        text.title = file.title;
        text.author = file.author;
        ASSERT_EQ(writer.Put(folder.Value(), file.name, {file.size, file.modified, 1, 1}, text),
                  ErrorCode::Success);
    }
    ASSERT_EQ(writer.Commit(), ErrorCode::Success);
}

inline HRESULT OpenSearchSession(CComPtr<IOpenRowset>& session) {
    return OpenSession(session, L"Provider=Quorbel.SearchProvider");
}

/// The rows of a command, each with its columns joined by "|", or the failure and its description.
struct CSearchAnswer {
    HRESULT result;
    std::wstring problem;
    std::vector<std::wstring> rows;
};

inline CSearchAnswer RunSearch(const std::wstring& text) {
    CComPtr<IOpenRowset> session;
    CComPtr<ICommand> command;
    CComPtr<IRowset> rowset;
    CSearchAnswer answer{S_OK, {}, {}};
    answer.result = OpenSearchSession(session);
    if (Succeeded(answer.result)) answer.result = MakeCommand(session, text, command);
    if (Succeeded(answer.result)) answer.result = Execute(command, rowset);
    if (Succeeded(answer.result)) {
        answer.rows = Fetch(rowset, &answer.result);
        if (answer.result == DB_S_ENDOFROWSET) answer.result = S_OK;
    }
    if (!Succeeded(answer.result)) answer.problem = TakeErrorInfo();
    return answer;
}

/// A query helper, as the service comes by it.
inline CComPtr<ISearchQueryHelper> MakeQueryHelper() {
    CComPtr<ISearchManager> manager;
    CComPtr<ISearchCatalogManager> catalog;
    CComPtr<ISearchQueryHelper> helper;
    EXPECT_EQ(CreateComInstance(kSearchManagerClass, manager), S_OK);
    EXPECT_EQ(manager->GetCatalog(L"systemindex", catalog.Receive()), S_OK);
    EXPECT_EQ(catalog->GetQueryHelper(helper.Receive()), S_OK);
    return helper;
}

/// The command for a query; what is wrong with it when there is none.
inline std::wstring CommandFor(const CComPtr<ISearchQueryHelper>& helper, const std::wstring& query) {
    wchar_t* text = nullptr;
    const HRESULT result = helper->GenerateSQLFromUserQuery(query.c_str(), &text);
    if (!Succeeded(result)) {
        EXPECT_EQ(result, E_INVALIDARG);
        return TakeErrorInfo();
    }
    std::wstring command = text;
    CoTaskMemFree(text);
    return command;
}

/// An index in a folder of its own, and the component over it.
class CSearchFixture : public testing::Test {
 protected:
    void SetUp() override {
        auto writer = CIndexWriter::Open(m_folder.Path());
        ASSERT_TRUE(writer.IsOk());
        m_writer = std::move(writer).Value();
    }
    void Put(const std::vector<CSearchFile>& files) { PutInto(*m_writer, files); }

    const CTemporaryFolder m_folder;
    const CComRegistration m_initialize = RegisterDataInitialize();
    const CSearchRegistration m_search = RegisterSearch(m_folder.Path());
    std::unique_ptr<CIndexWriter> m_writer;
};

}  // namespace quorbel
