#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <memory>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/com/Com.h"

namespace quorbel {

/// A failure: what went wrong and the source line that raised it. Immutable once raised.
class CError {
 public:
    explicit CError(const std::source_location& where) : m_file(where.file_name()), m_line(where.line()) {}
    virtual ~CError() = default;

    /// The number of the kind: a Win32 error number, an HRESULT's low 16 bits, or 0 for a message.
    virtual std::uint32_t GetCode() const = 0;
    /// The identifier in the message table; its severity is in the top two bits.
    virtual std::uint32_t GetMessageId() const = 0;
    virtual std::size_t GetInsertCount() const = 0;
    /// Insertion string `index`, counted from 0 and below GetInsertCount.
    virtual std::wstring GetInsert(std::size_t index) const = 0;
    /// The full text; never fails, at worst it names the number.
    virtual std::wstring GetText() const = 0;
    virtual const char* GetTypeName() const = 0;
    virtual HRESULT GetHRESULT() const;

    const std::string& SourceFile() const noexcept { return m_file; }
    std::uint32_t SourceLine() const noexcept { return m_line; }

 private:
    const std::string m_file;
    const std::uint32_t m_line;
};

/// A Win32 error number, with an extra text or without.
class CErrorNumber final : public CError {
 public:
    CErrorNumber(const std::source_location& where, ErrorCode number, std::wstring extra,
                 std::uint32_t messageId);
    std::uint32_t GetCode() const override { return m_number; }
    std::uint32_t GetMessageId() const override { return m_messageId; }
    std::size_t GetInsertCount() const override { return m_extra.empty() ? 2 : 3; }
    std::wstring GetInsert(std::size_t index) const override;
    std::wstring GetText() const override;
    const char* GetTypeName() const override { return "System"; }

 private:
    const std::uint32_t m_messageId;
    const std::uint32_t m_number;
    const std::wstring m_extra;
};

/// An HRESULT. A registry status is kept in it unchanged.
class CErrorHRESULT final : public CError {
 public:
    CErrorHRESULT(const std::source_location& where, HRESULT result) : CError(where), m_result(result) {}
    std::uint32_t GetCode() const override { return static_cast<std::uint32_t>(m_result) & 0xFFFF; }
    std::uint32_t GetMessageId() const override;
    std::size_t GetInsertCount() const override { return 2; }
    std::wstring GetInsert(std::size_t index) const override;
    std::wstring GetText() const override;
    const char* GetTypeName() const override { return "HRESULT"; }
    HRESULT GetHRESULT() const override { return m_result; }

 private:
    const HRESULT m_result;
};

/// A message of the service's own message table with its insertion strings.
class CErrorMessage final : public CError {
 public:
    CErrorMessage(const std::source_location& where, std::uint32_t messageId,
                  std::vector<std::wstring> inserts)
        : CError(where), m_messageId(messageId), m_inserts(std::move(inserts)) {}
    std::uint32_t GetCode() const override { return 0; }
    std::uint32_t GetMessageId() const override { return m_messageId; }
    std::size_t GetInsertCount() const override { return m_inserts.size(); }
    std::wstring GetInsert(std::size_t index) const override { return m_inserts.at(index); }
    std::wstring GetText() const override;
    const char* GetTypeName() const override { return "Message"; }
    HRESULT GetHRESULT() const override { return 0; }

 private:
    const std::uint32_t m_messageId;
    const std::vector<std::wstring> m_inserts;
};

/// The outcome of an operation: success, or the one error that ended it. Copies are independent values; a
/// later error assigned to a status replaces the earlier one.
class [[nodiscard]] CStatus {
 public:
    CStatus() noexcept = default;
    CStatus(std::shared_ptr<const CError> error) noexcept : m_error(std::move(error)) {}  // NOLINT: implicit

    bool IsOk() const noexcept { return m_error == nullptr; }
    /// The error; null for success.
    const CError* Error() const noexcept { return m_error.get(); }

    /// Writes the error, if there is one, to the event log.
    void Report() const;
    /// The error's text on one line, without its final full stop; empty for success.
    std::wstring Text() const;

 private:
    std::shared_ptr<const CError> m_error;
};

/// Raising. Each names the line it is called from as the error's source.
/// @{
CStatus SystemError(ErrorCode number, std::source_location where = std::source_location::current());
CStatus SystemError(ErrorCode number, std::wstring extra,
                    std::source_location where = std::source_location::current());
CStatus HResultError(HRESULT result, std::source_location where = std::source_location::current());
/// Takes as many insertion strings as the identifier's text refers to: missing ones are empty, further ones
/// are dropped, and without the message module there are none.
CStatus MessageError(std::uint32_t messageId, std::initializer_list<std::wstring_view> inserts = {},
                     std::source_location where = std::source_location::current());
/// With the exception's message, widened, as the one insertion string.
CStatus MessageError(std::uint32_t messageId, const std::exception& exception,
                     std::source_location where = std::source_location::current());
/// A failed allocation of `bytes` bytes.
CStatus AllocationError(std::size_t bytes, std::source_location where = std::source_location::current());
/// @}

/// An insertion string as the event log shows it: without carriage returns and line feeds, and without one
/// final full stop.
std::wstring TrimInsert(std::wstring text);

/// Hands a failure on to the caller: the one way in which errors travel.
#define RETURN_IF_FAILED(expression)                                                    \
    do {                                                                                \
        if (::quorbel::CStatus status_ = (expression); !status_.IsOk()) return status_; \
    } while (false)

/// The same where the platform reports an error number: it becomes a system error raised here.
#define RETURN_IF_SYSTEM_ERROR(expression)                                                           \
    do {                                                                                             \
        if (const ::quorbel::ErrorCode code_ = (expression); code_ != ::quorbel::ErrorCode::Success) \
            return ::quorbel::SystemError(code_);                                                    \
    } while (false)

}  // namespace quorbel
