#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "components/provider/SqlCommand.h"
#include "components/provider/SqlFunctions.h"
#include "platform/com/Com.h"

namespace quorbel {

/// What the provider shows of a column.
struct CSqlColumn {
    enum class Type { I2, I4, I8, R4, R8, Numeric, Bool, Text, Variant };

    std::wstring name;
    Type type = Type::Variant;
    std::uint8_t precision = 255;  ///< of Numeric: decimal digits
    std::uint8_t scale = 255;      ///< of Numeric: digits behind the point
};

/// A blob's bytes.
struct CSqlBytes {
    std::string_view bytes;
};
/// A number as decimal text.
struct CSqlDecimal {
    std::string_view digits;
};

/// One value of a row, or of a parameter: NULL, truth, whole number, floating point (R4 when the column says
/// so), decimal number, UTF-8 text or bytes. Refers to memory of whoever gave it.
using CSqlValue =
    std::variant<std::monostate, bool, std::int64_t, double, CSqlDecimal, std::string_view, CSqlBytes>;

/// The rows of a command's last statement. One thread at a time.
class ISqlRows {
 public:
    virtual ~ISqlRows() = default;
    virtual std::span<const CSqlColumn> Columns() const = 0;
    /// Goes to the next row; the first call to the first. S_OK, DB_S_ENDOFROWSET, or a failure, after which
    /// it is not called any more.
    virtual HRESULT Next() = 0;
    /// The value of a column, counted from 0, in the current row; valid until Next.
    virtual CSqlValue Value(std::size_t column) = 0;
};

/// One connection to a database, used by one thread at a time. Failures are HRESULTs, with a description
/// left in platform/com/ErrorInfo.h: DB_E_ERRORSINCOMMAND for what the database refuses, DB_E_CANCELED,
/// 0x80070020 (sharing violation) for a database that stays locked, E_FAIL for one that cannot be used.
class ISqlConnection {
 public:
    virtual ~ISqlConnection() = default;
    /// Runs the statements one after another; `rows` receives those of the last, which may be without
    /// columns. Those before it run in one transaction, which is committed before the first of the rows is
    /// read; a last statement that writes belongs to it. Nothing has happened after a failure.
    virtual HRESULT Execute(const CSqlCommand& command, std::span<const CSqlArgument> arguments,
                            ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) = 0;
    /// Ends what runs, and what runs later until Reset, with DB_E_CANCELED. From any thread; does not wait.
    virtual void Cancel() noexcept = 0;
    /// Makes the connection fit for the next command: all rows have been destroyed. False: close it.
    [[nodiscard]] virtual bool Reset() noexcept = 0;
};

/// Opens connections to one database. From any thread.
class ISqlDatabase {
 public:
    virtual ~ISqlDatabase() = default;
    virtual HRESULT Connect(std::unique_ptr<ISqlConnection>& connection) = 0;
    /// How its commands are written.
    virtual SqlDialect Dialect() const noexcept { return SqlDialect::Standard; }
    /// A number that changes when another database has taken this one's place, so that connections made
    /// before are of no more use. Quick.
    virtual std::uint64_t Version() const noexcept { return 0; }
    /// Whether resetting or closing its connections may wait, for a server.
    virtual bool ResetMayWait() const noexcept { return false; }
};

}  // namespace quorbel
