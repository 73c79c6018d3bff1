#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/com/Dispatch.h"
#include "platform/com/Stream.h"

namespace quorbel {

/// The part of OLE DB that the system uses, between a consumer (the service) and its providers. Sizes and
/// lengths of DBTYPE_WSTR are counted in characters, without terminating zero unless said otherwise; a bound
/// buffer holds wchar_t. Descriptions of failures are left in platform/com/ErrorInfo.h.

using DBTYPE = std::uint16_t;
inline constexpr DBTYPE DBTYPE_I2 = 2;
inline constexpr DBTYPE DBTYPE_I4 = 3;
inline constexpr DBTYPE DBTYPE_R4 = 4;
inline constexpr DBTYPE DBTYPE_R8 = 5;
inline constexpr DBTYPE DBTYPE_BSTR = 8;
inline constexpr DBTYPE DBTYPE_BOOL = 11;
inline constexpr DBTYPE DBTYPE_VARIANT = 12;
inline constexpr DBTYPE DBTYPE_IUNKNOWN = 13;
inline constexpr DBTYPE DBTYPE_DECIMAL = 14;
inline constexpr DBTYPE DBTYPE_I1 = 16;
inline constexpr DBTYPE DBTYPE_UI1 = 17;
inline constexpr DBTYPE DBTYPE_UI2 = 18;
inline constexpr DBTYPE DBTYPE_UI4 = 19;
inline constexpr DBTYPE DBTYPE_I8 = 20;
inline constexpr DBTYPE DBTYPE_UI8 = 21;
inline constexpr DBTYPE DBTYPE_GUID = 72;
inline constexpr DBTYPE DBTYPE_BYTES = 128;
inline constexpr DBTYPE DBTYPE_STR = 129;
inline constexpr DBTYPE DBTYPE_WSTR = 130;
inline constexpr DBTYPE DBTYPE_NUMERIC = 131;
/// With a type: the bound value is a pointer to memory that the provider allocates and the consumer frees
/// (CoTaskMemFree).
inline constexpr DBTYPE DBTYPE_BYREF = 0x4000;
/// What of a type says what it is, without how it is bound.
inline constexpr DBTYPE kTypeBits = 0x8FFF;

using DBSTATUS = std::uint32_t;
inline constexpr DBSTATUS DBSTATUS_S_OK = 0;
inline constexpr DBSTATUS DBSTATUS_E_BADACCESSOR = 1;
inline constexpr DBSTATUS DBSTATUS_E_CANTCONVERTVALUE = 2;
inline constexpr DBSTATUS DBSTATUS_S_ISNULL = 3;
inline constexpr DBSTATUS DBSTATUS_S_TRUNCATED = 4;
inline constexpr DBSTATUS DBSTATUS_E_DATAOVERFLOW = 6;
inline constexpr DBSTATUS DBSTATUS_E_CANTCREATE = 7;
inline constexpr DBSTATUS DBSTATUS_S_DEFAULT = 13;

inline constexpr HRESULT DB_S_ENDOFROWSET = 0x00040EC6;
inline constexpr HRESULT DB_S_ERRORSOCCURRED = 0x00040EDA;
inline constexpr auto DB_E_BADACCESSORHANDLE = static_cast<HRESULT>(0x80040E00);
inline constexpr auto DB_E_NOTREENTRANT = static_cast<HRESULT>(0x80040E07);
inline constexpr auto DB_E_BADBINDINFO = static_cast<HRESULT>(0x80040E08);
inline constexpr auto DB_E_NOCOMMAND = static_cast<HRESULT>(0x80040E0C);
inline constexpr auto DB_E_ERRORSINCOMMAND = static_cast<HRESULT>(0x80040E14);
inline constexpr auto DB_E_CANCELED = static_cast<HRESULT>(0x80040E4E);
inline constexpr auto DB_E_CANNOTRESTART = static_cast<HRESULT>(0x80040E18);
inline constexpr auto DB_E_ERRORSOCCURRED = static_cast<HRESULT>(0x80040E21);
inline constexpr auto DB_E_DIALECTNOTSUPPORTED = static_cast<HRESULT>(0x80040E1E);
inline constexpr auto DB_E_PARAMUNAVAILABLE = static_cast<HRESULT>(0x80040E51);
inline constexpr auto DB_E_BADROWHANDLE = static_cast<HRESULT>(0x80040E04);
inline constexpr auto DB_E_OBJECTOPEN = static_cast<HRESULT>(0x80040E05);

/// A size that is not known.
inline constexpr std::size_t kUnknownSize = ~std::size_t{0};

using HACCESSOR = std::uintptr_t;
using HROW = std::uintptr_t;
using HCHAPTER = std::uintptr_t;

enum DBPART : std::uint32_t { DBPART_VALUE = 1, DBPART_LENGTH = 2, DBPART_STATUS = 4 };
enum DBACCESSORFLAGS : std::uint32_t { DBACCESSOR_ROWDATA = 2, DBACCESSOR_PARAMETERDATA = 4 };
enum DBPARAMIO : std::uint32_t { DBPARAMIO_NOTPARAM = 0, DBPARAMIO_INPUT = 1 };

/// Asks for a column as a storage object.
struct DBOBJECT {
    std::uint32_t dwFlags;
    GUID iid;  ///< ISequentialStream's or IStream's
};

/// Points at the word that receives the type of each value of a DBTYPE_VARIANT column bound as text.
struct DBBINDEXT {
    DBTYPE* pExtension;
    std::size_t ulExtension;  ///< 1
};

/// Where and how one column's or parameter's value stands in the consumer's buffer.
struct DBBINDING {
    std::size_t iOrdinal;
    std::size_t obValue;        ///< offsets are in bytes
    std::size_t obLength;       ///< of a std::size_t
    std::size_t obStatus;       ///< of a DBSTATUS
    const DBOBJECT* pObject;    ///< null for none
    const DBBINDEXT* pBindExt;  ///< null for none
    std::uint32_t dwPart;       ///< DBPART
    DBPARAMIO eParamIO;
    std::size_t cbMaxLen;  ///< of the value; for DBTYPE_WSTR characters, the terminating zero included
    DBTYPE wType;
};

/// One column of a result.
struct DBCOLUMNINFO {
    const wchar_t* pwszName;  ///< may be null; lives as long as the block that GetColumnInfo returns with it
    std::size_t iOrdinal;     ///< 1 for the first column; 0 for a bookmark
    std::uint32_t dwFlags;
    std::size_t ulColumnSize;  ///< characters of texts, bytes of DBTYPE_BYTES; kUnknownSize
    DBTYPE wType;
    std::uint8_t bPrecision;  ///< 255 where it makes no sense
    std::uint8_t bScale;      ///< likewise
    GUID columnId;
};

/// How a parameter is declared.
struct DBPARAMBINDINFO {
    const wchar_t* pwszDataSourceType;  ///< "DBTYPE_WVARCHAR" for texts, null for whatever the value says
    const wchar_t* pwszName;
    std::size_t ulParamSize;
    std::uint32_t dwFlags;
    std::uint8_t bPrecision;
    std::uint8_t bScale;
};

/// A parameter as the command knows it.
struct DBPARAMINFO {
    std::uint32_t dwFlags;
    std::size_t iOrdinal;
    const wchar_t* pwszName;
    std::size_t ulParamSize;
    DBTYPE wType;
    std::uint8_t bPrecision;
    std::uint8_t bScale;
};

/// The values of one execution's parameters, in a buffer described by an accessor.
struct DBPARAMS {
    void* pData;
    std::size_t cParamSets;  ///< 1
    HACCESSOR hAccessor;
};

/// The provider's own dialect.
inline constexpr GUID DBGUID_DEFAULT{0xC8B521FB, 0x5CF3, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};

class IDBInitialize : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A8B, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    virtual HRESULT Initialize() = 0;
    virtual HRESULT Uninitialize() = 0;
};

class IDBCreateSession : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A5D, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// E_UNEXPECTED before Initialize.
    virtual HRESULT CreateSession(IUnknown* outer, const GUID& interfaceId, IUnknown** session) = 0;
};

/// A session. (Opening a table by its name is not used.)
class IOpenRowset : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A69, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
};

class IDBCreateCommand : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A1D, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    virtual HRESULT CreateCommand(IUnknown* outer, const GUID& interfaceId, IUnknown** command) = 0;
};

class ICommand : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A63, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// Ends the execution and all fetching of this command, now and later, with DB_E_CANCELED. From any
    /// thread, also when nothing runs; returns without waiting for the end.
    virtual HRESULT Cancel() = 0;
    /// `parameters` may be null; `affected` receives the number of rows changed, or -1, and may be null.
    virtual HRESULT Execute(IUnknown* outer, const GUID& interfaceId, DBPARAMS* parameters,
                            std::int64_t* affected, IUnknown** rowset) = 0;
};

class ICommandText : public ICommand {
 public:
    using Base = ICommand;
    static constexpr GUID kId{0x0C733A27, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    virtual HRESULT SetCommandText(const GUID& dialect, const wchar_t* text) = 0;
};

class ICommandWithParameters : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A64, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// `info` is one block with its names behind it, to be freed with CoTaskMemFree; null for no parameters.
    virtual HRESULT GetParameterInfo(std::size_t* count, DBPARAMINFO** info) = 0;
    /// Ordinals count from 1.
    virtual HRESULT SetParameterInfo(std::size_t count, const std::size_t* ordinals,
                                     const DBPARAMBINDINFO* info) = 0;
};

class IAccessor : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A8C, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// `flags` is one of DBACCESSORFLAGS; `rowSize` the bytes of the buffer. `statuses` may be null. What
    /// the bindings point at outlives the accessor.
    virtual HRESULT CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                                   std::size_t rowSize, HACCESSOR* accessor, DBSTATUS* statuses) = 0;
    virtual HRESULT ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) = 0;
};

class IRowset : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A7C, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// Fills the buffer from a row that GetNextRows returned. S_OK, or DB_S_ERRORSOCCURRED when some
    /// statuses say that their value is missing.
    virtual HRESULT GetData(HROW row, HACCESSOR accessor, void* data) = 0;
    /// `rows` points at room for `count` handles. DB_S_ENDOFROWSET when there are fewer left.
    virtual HRESULT GetNextRows(HCHAPTER chapter, std::ptrdiff_t offset, std::ptrdiff_t count,
                                std::size_t* obtained, HROW** rows) = 0;
    virtual HRESULT ReleaseRows(std::size_t count, const HROW* rows, std::uint32_t* options,
                                std::uint32_t* references, DBSTATUS* statuses) = 0;
    /// DB_E_CANNOTRESTART when the rows are behind already.
    virtual HRESULT RestartPosition(HCHAPTER chapter) = 0;
};

class IColumnsInfo : public IUnknown {
 public:
    static constexpr GUID kId{0x0C733A11, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
    /// Both blocks are freed with CoTaskMemFree; null for no columns.
    virtual HRESULT GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) = 0;
};

/// The service component that finds the provider which an initialisation string names.
class IDataInitialize : public IUnknown {
 public:
    static constexpr GUID kId{0x2206CCB1, 0x19C1, 0x11D1, {0x89, 0xE0, 0, 0xC0, 0x4F, 0xD7, 0xA8, 0x29}};
    /// Creates the data source of "Provider=NAME" in `initialisation` (keywords without regard to case,
    /// separated by ";"). E_INVALIDARG without a provider, REGDB_E_CLASSNOTREG for an unknown one. Sources
    /// of one provider share its pool of connections.
    virtual HRESULT GetDataSource(IUnknown* outer, std::uint32_t context, const wchar_t* initialisation,
                                  const GUID& interfaceId, IUnknown** source) = 0;
};

/// The class of the component that implements IDataInitialize.
inline constexpr GUID kDataInitializeClass{
    0x2206CDB0, 0x19C1, 0x11D1, {0x89, 0xE0, 0, 0xC0, 0x4F, 0xD7, 0xA8, 0x29}};

}  // namespace quorbel
