#include "components/search/query/CommandParser.h"

#include "components/search/query/ConditionParser.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Source = CSearchProperty::Source;

/// The parts of a command around its condition.
class CCommandParser {
 public:
    explicit CCommandParser(std::wstring_view text) : m_parser(text) {}

    bool Command(CSearchCommand& command) {
        if (!m_parser.Expect(L"SELECT") || !Top(command) || !Columns(command)) return false;
        if (!m_parser.Expect(L"FROM") || !Catalogue()) return false;
        if (m_parser.TakeIf(L"WHERE")) {
            auto where = m_parser.Condition();
            if (!where) return false;
            command.where = std::move(*where);
        }
        if (m_parser.TakeIf(L"ORDER") && (!m_parser.Expect(L"BY") || !Order(command.order))) return false;
        return m_parser.AtEnd();
    }

    bool Sorting() {
        std::vector<CSearchCommand::CSortKey> order;
        return Order(order) && m_parser.AtEnd();
    }

    bool Restriction() {
        if (!m_parser.TakeIf(L"AND") && !m_parser.TakeIf(L"OR")) return m_parser.FailHere(L"AND or OR");
        return m_parser.Condition() && m_parser.AtEnd();
    }

    CSyntaxError Error() const { return *m_parser.Error(); }

 private:
    bool Top(CSearchCommand& command) {
        if (!m_parser.TakeIf(L"TOP")) return true;
        std::wstring_view digits = m_parser.Current().text;
        const bool isNumber = m_parser.Current().kind == CToken::Kind::Number;
        const auto count = isNumber ? TakeDecimal(digits) : std::nullopt;
        if (!count || !digits.empty() || *count > INT32_MAX) return m_parser.FailHere(L"a number of rows");
        command.top = static_cast<std::uint32_t>(*count);
        m_parser.Next();
        return true;
    }

    bool Columns(CSearchCommand& command) {
        do {
            const CToken token = m_parser.Current();
            const CSearchProperty* const property = m_parser.Property();
            if (!property) return false;
            if (property->source == Source::Nothing) {
                return m_parser.Fail(L"\"" + token.text + L"\" cannot be selected", token.begin + 1);
            }
            if (command.columns.size() == CSearchBounds::kColumns) {
                return m_parser.Fail(L"There are too many columns", token.begin + 1);
            }
            command.columns.push_back({token.text, property});
        } while (m_parser.TakeIf(L","));
        return true;
    }

    bool Catalogue() {
        const CToken& token = m_parser.Current();
        const bool isName = token.kind == CToken::Kind::Name || token.kind == CToken::Kind::QuotedName;
        if (!isName || !EqualNoCase(token.text, L"SystemIndex")) return m_parser.FailHere(L"SystemIndex");
        m_parser.Next();
        return true;
    }

    bool Order(std::vector<CSearchCommand::CSortKey>& order) {
        do {
            const CToken token = m_parser.Current();
            const CSearchProperty* const property = m_parser.Property();
            if (!property) return false;
            if (property->compared.empty() && property->source != Source::Rank) {
                return m_parser.Fail(L"\"" + token.text + L"\" cannot be sorted by", token.begin + 1);
            }
            if (order.size() == CSearchBounds::kColumns) {
                return m_parser.Fail(L"There are too many columns", token.begin + 1);
            }
            const bool isDescending = m_parser.TakeIf(L"DESC");
            if (!isDescending) m_parser.TakeIf(L"ASC");
            order.push_back({property, isDescending});
        } while (m_parser.TakeIf(L","));
        return true;
    }

    CConditionParser m_parser;
};

constexpr wchar_t kTooLong[] = L"The text is too long";

bool IsTooLong(std::wstring_view text) noexcept {
    return text.size() > CSearchBounds::kCharacters;
}

}  // namespace

std::variant<CSearchCommand, CSyntaxError> ParseSearchCommand(std::wstring_view text) {
    if (IsTooLong(text)) return CSyntaxError{kTooLong, CSearchBounds::kCharacters + 1};
    CCommandParser parser(text);
    CSearchCommand command;
    if (!parser.Command(command)) return parser.Error();
    return command;
}

std::optional<CSyntaxError> CheckRestriction(std::wstring_view text) {
    if (IsTooLong(text)) return CSyntaxError{kTooLong, CSearchBounds::kCharacters + 1};
    CCommandParser parser(text);
    if (!parser.Restriction()) return parser.Error();
    return std::nullopt;
}

std::optional<CSyntaxError> CheckSorting(std::wstring_view text) {
    if (IsTooLong(text)) return CSyntaxError{kTooLong, CSearchBounds::kCharacters + 1};
    CCommandParser parser(text);
    if (!parser.Sorting()) return parser.Error();
    return std::nullopt;
}

}  // namespace quorbel
