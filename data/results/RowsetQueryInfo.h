#pragma once

#include <string>

#include "data/results/ResultStream.h"

namespace quorbel {

/// Renders rows as text: a header, each row, a footer; in UTF-8 on the wire.
class ResultStream<std::uint8_t>::RowsetQueryInfo : public QueryInfo {
 public:
    using QueryInfo::QueryInfo;

    std::size_t Read(std::uint8_t* buffer, std::size_t count) final;
    bool IsAtEnd() const final { return ended && m_taken == pending.size(); }

    virtual std::wstring Header() = 0;
    virtual std::wstring Footer() = 0;
    /// Appends the next row's text; DB_S_ENDOFROWSET when there is none.
    virtual HRESULT Row(std::wstring& text) = 0;

 protected:
    /// Fetches the next row and calls `append` for each column but a bookmark, in the order of their
    /// ordinals, with the column's place. E_FAIL when an ordinal from 1 to their number is missing.
    HRESULT FetchColumns(const std::function<void(std::size_t column)>& append);

 private:
    std::size_t CopyOut(std::uint8_t* buffer, std::size_t count);
    void Render();
    HRESULT RenderRow();
    HRESULT OrderColumns();

    std::wstring m_text;  // rendered last, reused for its memory
    std::string pending;  // UTF-8, from m_taken on not yet delivered
    std::size_t m_taken = 0;
    std::vector<std::size_t> m_order;  // the columns' places by ordinal, from 1 on
    bool headerDone = false;
    bool ended = false;
};

/// A JSON array of objects. Names are written as they are; in texts only quotes, backslashes, backspace, tab,
/// line feed and form feed are escaped, and carriage returns are left out.
class ResultStream<std::uint8_t>::JsonQueryInfo final : public RowsetQueryInfo {
 public:
    using RowsetQueryInfo::RowsetQueryInfo;
    std::wstring ContentType() const override { return L"application/json"; }
    std::wstring Header() override { return L"["; }
    std::wstring Footer() override { return L"]"; }
    HRESULT Row(std::wstring& text) override;

 private:
    bool m_isFirst = true;
};

/// XML with a reference to the generated stylesheet. Names are written as they are, values with the five
/// characters escaped that XML has names for.
class ResultStream<std::uint8_t>::XMLQueryInfo final : public RowsetQueryInfo {
 public:
    /// Keeps the request's path, not the request: that holds the reply, and the reply this body.
    XMLQueryInfo(std::wstring name, const web::http::http_request& request, Rendering rendering);
    std::wstring ContentType() const override { return L"text/xml"; }
    std::wstring Header() override;
    std::wstring Footer() override { return L"</data>\r\n"; }
    HRESULT Row(std::wstring& text) override;

 private:
    const std::wstring m_name;
    const std::wstring m_path;  // decoded
};

/// The stylesheet that shows the rows of the same query, in XML, as a table (XSLT 1.0).
class ResultStream<std::uint8_t>::XSLQueryInfo final : public RowsetQueryInfo {
 public:
    using RowsetQueryInfo::RowsetQueryInfo;
    std::wstring ContentType() const override { return L"text/xml"; }
    std::wstring Header() override;
    std::wstring Footer() override { return {}; }
    HRESULT Row(std::wstring&) override { return DB_S_ENDOFROWSET; }
};

}  // namespace quorbel
