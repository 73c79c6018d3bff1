#include "platform/registry/RegFileParser.h"

#include "platform/Text.h"
#include "platform/registry/Names.h"

namespace quorbel {

namespace {

constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kUtf16BigEndianMark = "\xFE\xFF";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool TakeNoCase(std::wstring_view& text, std::wstring_view start) {
    if (!StartsWithNoCase(text, start)) return false;
    text.remove_prefix(start.size());
    return true;
}

class CRegFileParser {
 public:
    std::variant<std::vector<CRegFileChange>, CRegFileError> Parse(std::string_view bytes) {
        if (Decode(bytes) && TakeHeader()) {
            while (NextLine() && ParseLine()) continue;
        }
        if (!m_reason.empty()) return CRegFileError{ErrorCode::InvalidData, m_line, m_reason};
        return std::move(m_changes);
    }

 private:
    bool Fail(std::wstring reason) {
        m_reason = std::move(reason);
        return false;
    }

    bool Decode(std::string_view bytes) {
        if (bytes.starts_with(kUtf16BigEndianMark)) {
            m_line = 1;
            return Fail(L"The text is neither UTF-16 (little-endian) nor UTF-8.");
        }
        if (bytes.starts_with(kUtf16Mark)) return DecodeUtf16(bytes.substr(kUtf16Mark.size()));
        if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
        // The text begins with an ASCII letter.
        if (bytes.size() >= 2 && bytes[1] == '\0') return DecodeUtf16(bytes);
        return DecodeUtf8(bytes);
    }

    bool DecodeUtf16(std::string_view bytes) {
        m_text = FromUtf16Bytes(bytes);
        const std::string again = ToUtf16Bytes(m_text);
        if (again == bytes) return true;
        // Invalid units have become U+FFFD: the first place that differs is in the line at fault.
        const auto valid = std::mismatch(again.begin(), again.end(), bytes.begin(), bytes.end()).first;
        return FailAtEndOf(FromUtf16Bytes(std::string_view(again.begin(), valid)),
                           L"The text is not valid UTF-16.");
    }

    bool DecodeUtf8(std::string_view bytes) {
        if (auto text = FromUtf8Strict(bytes)) {
            m_text = *std::move(text);
            return true;
        }
        std::size_t start = 0;
        for (std::size_t end = bytes.find('\n'); end != bytes.npos; end = bytes.find('\n', start)) {
            if (!FromUtf8Strict(bytes.substr(start, end - start))) break;
            start = end + 1;
        }
        return FailAtEndOf(FromUtf8(bytes.substr(0, start)), L"The text is not valid UTF-8.");
    }

    bool FailAtEndOf(std::wstring_view valid, std::wstring reason) {
        m_line = 1 + static_cast<std::size_t>(std::count(valid.begin(), valid.end(), L'\n'));
        return Fail(std::move(reason));
    }

    bool TakeHeader() {
        if (NextLine() && Trim(m_content) == kRegFileHeader) return true;
        m_line = 1;
        return Fail(L"The first line must be \"" + std::wstring(kRegFileHeader) + L"\".");
    }

    /// Moves on to the next line; false at the end.
    bool NextLine() {
        if (m_position >= m_text.size()) return false;
        const std::size_t end = std::min(m_text.find(L'\n', m_position), m_text.size());
        m_content = std::wstring_view(m_text).substr(m_position, end - m_position);
        if (m_content.ends_with(L'\r')) m_content.remove_suffix(1);
        m_position = end + 1;
        ++m_line;
        return true;
    }

    bool ParseLine() {
        const std::wstring_view line = Trim(m_content);
        if (line.empty() || line.front() == L';') return true;
        if (line.front() == L'[') return ParseKey(line);
        if (line.front() == L'@' || line.front() == L'"') return ParseValue(line);
        return Fail(L"The line is neither a key, a value nor a comment.");
    }

    bool ParseKey(std::wstring_view line) {
        if (line.back() != L']') return Fail(L"The key's closing bracket is missing.");
        line = line.substr(1, line.size() - 2);
        const bool deletes = line.starts_with(L'-');
        if (deletes) line.remove_prefix(1);
        if (!TakeNoCase(line, L"HKEY_LOCAL_MACHINE") && !TakeNoCase(line, L"HKLM")) {
            return Fail(L"A key begins with HKEY_LOCAL_MACHINE or HKLM.");
        }
        if (!line.empty() && line.front() != L'\\')
            return Fail(L"A key begins with HKEY_LOCAL_MACHINE or HKLM.");
        const auto names = SplitKeyPath(line);
        if (!names.IsOk()) return FailWith(names.Error());
        if (names.Value().size() > kDeepestKey) return Fail(L"The key nests too deep.");
        if (deletes && names.Value().empty()) return Fail(L"The root cannot be deleted.");
        m_place = deletes ? Place::DeletedKey : Place::Key;
        m_changes.push_back({deletes ? CRegFileChange::Kind::DeleteKey : CRegFileChange::Kind::CreateKey,
                             std::wstring(line),
                             {}});
        return true;
    }

    bool ParseValue(std::wstring_view line) {
        if (m_place == Place::Start) return Fail(L"A value comes before the first key.");
        if (m_place == Place::DeletedKey) return Fail(L"A value cannot be below a deleted key.");
        std::optional<std::wstring> name = L"";
        if (line.front() == L'@') {
            line.remove_prefix(1);
        } else {
            name = TakeQuoted(line);
            if (!name) return false;
            if (name->empty()) return Fail(L"The default value is written @.");
        }
        const ErrorCode invalid = CheckValueName(*name);
        if (invalid != ErrorCode::Success) return FailWith(invalid);
        line = Trim(line);
        if (!line.starts_with(L'=')) return Fail(L"\"=\" is missing after the value's name.");
        return ParseData(*std::move(name), Trim(line.substr(1)));
    }

    bool ParseData(std::wstring name, std::wstring_view data) {
        if (data == L"-") {
            m_changes.push_back({CRegFileChange::Kind::DeleteValue, std::move(name), {}});
            return true;
        }
        std::optional<CValue> value;
        if (data.starts_with(L'"')) {
            value = ParseText(data);
        } else if (TakeNoCase(data, L"dword:")) {
            value = ParseNumber(data);
        } else if (TakeNoCase(data, L"hex")) {
            value = ParseHexData(data);
        } else {
            return Fail(L"The value's data is none of a text, \"dword:\", \"hex:\" and \"-\".");
        }
        if (!value) return false;
        if (value->data.size() > kLargestData) return Fail(L"The value's data is too large.");
        m_changes.push_back({CRegFileChange::Kind::SetValue, std::move(name), *std::move(value)});
        return true;
    }

    std::optional<CValue> ParseText(std::wstring_view data) {
        const std::optional<std::wstring> text = TakeQuoted(data);
        if (!text) return std::nullopt;
        if (data.empty()) return CValue::FromText(*text);
        Ignore(Fail(L"Nothing may follow the text."));
        return std::nullopt;
    }

    std::optional<CValue> ParseNumber(std::wstring_view digits) {
        if (const auto number = ParseHex(Trim(digits), 8))
            return CValue::FromNumber32(static_cast<std::uint32_t>(*number));
        Ignore(Fail(L"\"dword:\" takes one to eight hexadecimal digits."));
        return std::nullopt;
    }

    /// The text between the quotation marks that `line` begins with; moves it past them.
    std::optional<std::wstring> TakeQuoted(std::wstring_view& line) {
        std::wstring text;
        for (std::size_t i = 1; i < line.size(); ++i) {
            if (line[i] == L'"') {
                line.remove_prefix(i + 1);
                return text;
            }
            if (line[i] == L'\\') {
                ++i;
                if (i == line.size() || (line[i] != L'\\' && line[i] != L'"')) {
                    Ignore(Fail(L"After \"\\\" only \"\\\" or a quotation mark may follow."));
                    return std::nullopt;
                }
            }
            if (line[i] == L'\0' || line[i] == L'\r') {
                Ignore(Fail(L"A text in quotation marks holds a NUL or a carriage return."));
                return std::nullopt;
            }
            text.push_back(line[i]);
        }
        Ignore(Fail(L"The closing quotation mark is missing."));
        return std::nullopt;
    }

    /// What follows "hex": an optional type, and bytes, on as many lines as end with a backslash.
    std::optional<CValue> ParseHexData(std::wstring_view data) {
        CValue value{ValueType::Binary, {}};
        if (data.starts_with(L'(')) {
            const std::size_t close = std::min(data.find(L')'), data.size());
            const auto type = ParseHex(data.substr(1, close - 1), 8);
            if (!type || close == data.size()) {
                Ignore(Fail(L"\"hex(\" takes a type of one to eight hexadecimal digits."));
                return std::nullopt;
            }
            value.type = static_cast<ValueType>(*type);
            data.remove_prefix(close + 1);
        }
        if (!data.starts_with(L':')) {
            Ignore(Fail(L"\":\" is missing after \"hex\"."));
            return std::nullopt;
        }
        if (!TakeBytes(data.substr(1), value.data)) return std::nullopt;
        return value;
    }

    bool TakeBytes(std::wstring_view line, std::string& bytes) {
        bool first = true;
        for (;;) {
            line = Trim(line);
            const bool continues = line.ends_with(L'\\');
            if (continues) line = Trim(line.substr(0, line.size() - 1));
            if (!TakeLineOfBytes(line, continues, first, bytes)) return false;
            if (!continues) return true;
            if (!NextLine()) return Fail(L"The text ends where the data should go on.");
            line = m_content;
            first = false;
        }
    }

    bool TakeLineOfBytes(std::wstring_view line, bool continues, bool first, std::string& bytes) {
        // "hex:" alone is data of no bytes, and may break before its first.
        if (line.empty())
            return (first || continues) || Fail(L"A byte of two hexadecimal digits is missing.");
        for (;;) {
            const std::size_t end = std::min(line.find(L','), line.size());
            const auto byte = ParseHex(Trim(line.substr(0, end)), 2);
            if (!byte) return Fail(L"A byte of one or two hexadecimal digits is missing.");
            bytes.push_back(static_cast<char>(*byte));
            if (end == line.size()) return !continues || Fail(L"A comma is missing before \"\\\".");
            line = Trim(line.substr(end + 1));
            if (line.empty()) return continues || Fail(L"A comma is the last character of the data.");
        }
    }

    bool FailWith(ErrorCode error) {
        return Fail(SystemMessage(ToNumber(error)).value_or(L"The name is invalid."));
    }

    enum class Place { Start, Key, DeletedKey };

    std::wstring m_text;
    std::size_t m_position = 0;
    std::size_t m_line = 0;
    std::wstring_view m_content;  ///< the present line
    Place m_place = Place::Start;
    std::vector<CRegFileChange> m_changes;
    std::wstring m_reason;
};

}  // namespace

std::variant<std::vector<CRegFileChange>, CRegFileError> ParseRegFile(std::string_view bytes) {
    return CRegFileParser().Parse(bytes);
}

}  // namespace quorbel
